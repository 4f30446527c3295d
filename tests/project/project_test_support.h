#pragma once

// Hand-made project JSON for the project tests.

#include "core/json.h"

namespace orvelle::testing {

inline Json minimalManifestJson() {
    return parseJson(R"({
      "version": 2, "createdAt": "2024-03-01T10:00:00.000Z",
      "tracks": [{"id": "screen", "kind": "screen", "displayName": "Screen"}],
      "segments": [{"id": "screen-segment1", "trackID": "screen", "kind": "screen",
                    "url": "file:///takes/take.mov", "programStart": 0, "duration": 12,
                    "mediaStart": 0, "mediaDuration": 12}]})");
}

inline Json projectWith(const char* key, const Json& value) {
    Json project = {{"manifest", minimalManifestJson()}};
    project[key] = value;
    return project;
}

inline constexpr const char* kSomeID = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

} // namespace orvelle::testing
