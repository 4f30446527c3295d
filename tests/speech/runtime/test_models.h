#pragma once

// The tiny models of tools/make_test_models.py and the decoding path they are built to give.

#include "support/temporary_directory.h"

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle::testing {

inline std::filesystem::path testModelFolder(const std::string& name) {
    return binaryDirectory() / "test-models" / name;
}

struct DecodedPath {
    std::vector<int> tokenIds;
    std::vector<int> frameIndices;
    std::vector<int> durations;
    friend bool operator==(const DecodedPath&, const DecodedPath&) = default;
};

// Blanks of duration 2 up to frame 10; "▁hel" (0) and "lo" (1) at 10; blanks of duration 0
// and 3; "▁world" (2) at 15; "!" (4) at 17; ten "▁la" of duration 0 at 21, then one frame on;
// a blank of 4; "▁end" (4) at 26.
inline DecodedPath fullPath() {
    DecodedPath path{{5, 6, 7, 8}, {10, 10, 15, 17}, {0, 1, 2, 4}};
    for (int i = 0; i < 10; ++i) {
        path.tokenIds.push_back(9);
        path.frameIndices.push_back(21);
        path.durations.push_back(0);
    }
    path.tokenIds.push_back(10);
    path.frameIndices.push_back(26);
    path.durations.push_back(4);
    return path;
}

} // namespace orvelle::testing
