#pragma once

// What is selected in the whole editor: at most one thing, a clip of the main lane or of
// one auxiliary lane. Every case names one clip by id, so it is a kind and an id.

#include "core/json.h"
#include "core/uuid.h"

#include <optional>
#include <span>

namespace orvelle {

struct EditorSelectionState {
    enum class Kind {
        none,
        timelineClip,
        animationClip,
        cameraLayoutClip,
        maskClip,
        musicClip,
        textClip
    };

    Kind kind = Kind::none;
    Uuid id; // zero for none

    static EditorSelectionState empty() { return {}; }
    static EditorSelectionState of(Kind kind, const Uuid& id) {
        return kind == Kind::none ? empty() : EditorSelectionState{kind, id};
    }
    static EditorSelectionState timelineClip(const Uuid& id) { return of(Kind::timelineClip, id); }

    // The selected id when the selection is of this kind.
    std::optional<Uuid> selectedID(Kind of) const {
        return kind == of && kind != Kind::none ? std::optional<Uuid>(id) : std::nullopt;
    }

    friend bool operator==(const EditorSelectionState&, const EditorSelectionState&) = default;
};

std::span<const EnumName<EditorSelectionState::Kind>> jsonNames(EditorSelectionState::Kind);

// {"kind": "animationClip", "id": "..."}, or null for none.
template <>
struct JsonCoder<EditorSelectionState> {
    static EditorSelectionState decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const EditorSelectionState& value);
};

} // namespace orvelle
