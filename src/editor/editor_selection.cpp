#include "editor/editor_selection.h"

namespace orvelle {

std::span<const EnumName<EditorSelectionState::Kind>> jsonNames(EditorSelectionState::Kind) {
    using Kind = EditorSelectionState::Kind;
    static constexpr std::array<EnumName<Kind>, 7> names{{
        {Kind::none, "none"},
        {Kind::timelineClip, "timelineClip"},
        {Kind::animationClip, "animationClip"},
        {Kind::cameraLayoutClip, "cameraLayoutClip"},
        {Kind::maskClip, "maskClip"},
        {Kind::musicClip, "musicClip"},
        {Kind::textClip, "textClip"},
    }};
    return names;
}

EditorSelectionState JsonCoder<EditorSelectionState>::decode(const Json& json,
                                                             const JsonDecodeContext& context) {
    if (json.is_null()) {
        return EditorSelectionState::empty();
    }
    const JsonObjectReader reader(json, context);
    const auto kind = reader.required<EditorSelectionState::Kind>("kind");
    if (kind == EditorSelectionState::Kind::none) {
        return EditorSelectionState::empty();
    }
    return EditorSelectionState::of(kind, reader.required<Uuid>("id"));
}

Json JsonCoder<EditorSelectionState>::encode(const EditorSelectionState& selection) {
    if (selection.kind == EditorSelectionState::Kind::none) {
        return nullptr;
    }
    return {{"kind", encodeJson(selection.kind)}, {"id", encodeJson(selection.id)}};
}

} // namespace orvelle
