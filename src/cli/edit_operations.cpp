#include "cli/edit_operations.h"

#include "cli/output.h"
#include "core/file_url.h"
#include "core/files.h"
#include "editor/timeline_edit_gestures.h"
#include "transcript_edit/editor_transcript_store.h"
#include "transcript_edit/transcript_text_editing.h"

#include <functional>
#include <iostream>
#include <iterator>
#include <map>

namespace orvelle::cli {

// The operations over one store and its gestures.
class EditOperations::EditSession {
public:
    EditSession(EditorStore& store, TimelineEditGestures& gestures,
                std::optional<EditorDocument> document)
        : store_(store), gestures_(gestures), document_(std::move(document)) {}

    // Runs one operation; its result, or null when it did not apply.
    Json apply(const Json& operation, const JsonDecodeContext& context) {
        const JsonObjectReader reader(operation, context);
        const std::string name = reader.required<std::string>("op");
        const auto found = operations().find(name);
        if (found == operations().end()) {
            reader.context().key("op").fail("unknown operation \"" + name +
                                            "\"; 'orvelle edit --help' lists them");
        }
        results_.push_back(found->second(*this, reader));
        return results_.back();
    }

    const Json& results() const { return results_; }

    Json state() const {
        Json undoLabels = Json::array();
        for (const auto& entry : store_.undoHistory().undoStack()) {
            undoLabels.push_back(entry.label);
        }
        Json redoLabels = Json::array();
        for (const auto& entry : store_.undoHistory().redoStack()) {
            redoLabels.push_back(entry.label);
        }
        return {{"project", encodeJson(store_.project())},
                {"selection", encodeJson(store_.selection())},
                {"undoLabels", undoLabels},
                {"redoLabels", redoLabels}};
    }

private:
    using Operation = std::function<Json(EditSession&, const JsonObjectReader&)>;

    template <class T>
    static Json optionalJson(const std::optional<T>& value) {
        return value ? encodeJson(*value) : Json(nullptr);
    }

    // The clip with the fields of "set" written over it, read back through its decoder so
    // that every value is clamped as when a project is opened. The id never changes.
    template <class Clip>
    static std::function<void(Clip&)> setter(const JsonObjectReader& reader) {
        const Json& fields = reader.raw("set");
        if (!fields.is_object()) {
            reader.context().key("set").fail("expected an object of fields");
        }
        const JsonDecodeContext context = reader.context().key("set");
        return [fields, context](Clip& clip) {
            Json merged = encodeJson(clip);
            merged.merge_patch(fields);
            const Uuid id = clip.id;
            clip = decodeJson<Clip>(merged, context);
            clip.id = id;
        };
    }

    // A UUID, "$N" for the id operation N returned, or "@LANE:N" for the Nth clip of a lane.
    Uuid id(const JsonObjectReader& reader, std::string_view key = "id") const {
        const std::string text = reader.required<std::string>(key);
        const JsonDecodeContext context = reader.context().key(key);
        if (text.starts_with("$")) {
            const size_t index = referenceIndex(text.substr(1), context);
            if (index >= results_.size()) {
                context.fail("\"" + text + "\" names an operation that has not run yet");
            }
            const Json& result = results_[index];
            const Json* value =
                result.is_object() && result.contains("id") ? &result["id"] : &result;
            if (value->is_string()) {
                if (auto parsed = Uuid::parse(value->get<std::string>())) {
                    return *parsed;
                }
            }
            context.fail("operation " + std::to_string(index) + " returned no id");
        }
        if (text.starts_with("@")) {
            const size_t colon = text.find(':');
            if (colon == std::string::npos) {
                context.fail("expected \"@LANE:N\", for example \"@timeline:0\"");
            }
            const std::string laneName = text.substr(1, colon - 1);
            std::vector<Uuid> ids;
            if (laneName == "timeline") {
                for (const auto& clip : store_.project().timeline.clips) {
                    ids.push_back(clip.id);
                }
            } else if (const auto track = enumFromName<AuxiliaryTimelineTrack>(laneName)) {
                for (const auto& clip : laneClipRanges(store_.project(), *track)) {
                    ids.push_back(clip.id);
                }
            } else {
                context.fail("unknown lane \"" + laneName + "\"");
            }
            const long index = referenceOffset(text.substr(colon + 1), context);
            const long position = index < 0 ? static_cast<long>(ids.size()) + index : index;
            if (position < 0 || position >= static_cast<long>(ids.size())) {
                context.fail("the lane has no clip " + text.substr(colon + 1) + " (it holds " +
                             std::to_string(ids.size()) + ")");
            }
            return ids[static_cast<size_t>(position)];
        }
        return decodeJson<Uuid>(text, context);
    }

    static size_t referenceIndex(const std::string& digits, const JsonDecodeContext& context) {
        const long value = referenceOffset(digits, context);
        if (value < 0) {
            context.fail("an operation's number is not negative");
        }
        return static_cast<size_t>(value);
    }

    static long referenceOffset(const std::string& digits, const JsonDecodeContext& context) {
        try {
            size_t used = 0;
            const long value = std::stol(digits, &used);
            if (used == digits.size()) {
                return value;
            }
        } catch (const std::exception&) {
        }
        context.fail("\"" + digits + "\" is not a number");
    }

    template <class Clip>
    std::optional<Clip> laneClip(const ClipLane<Clip>& lane, const Uuid& clipID) const {
        for (const auto& clip : lane.clipsOf(store_.project())) {
            if (clip.id == clipID) {
                return clip;
            }
        }
        return std::nullopt;
    }

    std::optional<TimelineClip> timelineClip(const Uuid& clipID) const {
        for (const auto& clip : store_.project().timeline.clips) {
            if (clip.id == clipID) {
                return clip;
            }
        }
        return std::nullopt;
    }

    Json laneClipJson(AuxiliaryTimelineTrack track, const Uuid& clipID) const {
        return withClipLane(track,
                            [&](const auto& lane) { return optionalJson(laneClip(lane, clipID)); });
    }

    static EditTime laneMinimum(const JsonObjectReader& reader) {
        return EditTime(reader.value<double>("minimumDuration", kLaneMinimumClipDuration));
    }

    static double timelineMinimum(const JsonObjectReader& reader) {
        return reader.value<double>("minimumDuration", kMinimumTimelineClipDuration);
    }

    template <class Clip>
    static Operation updateOperation(const ClipLane<Clip>& lane) {
        return [&lane](EditSession& s, const JsonObjectReader& r) {
            const auto label = r.value<std::string>("label", std::string(lane.changeLabel));
            return optionalJson(s.store_.updateClip<Clip>(lane, s.id(r), setter<Clip>(r), label));
        };
    }

    static const std::map<std::string, Operation, std::less<>>& operations() {
        static const std::map<std::string, Operation, std::less<>> table = {
            {"selectTimelineClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 s.store_.selectTimelineClip(s.id(r));
                 return encodeJson(s.store_.selection());
             }},
            {"splitTimelineClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.splitTimelineClip(
                     r.required<SourceTime>("containing"), timelineMinimum(r)));
             }},
            {"deleteTimelineClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.deleteTimelineClip(s.id(r)));
             }},
            {"deleteSourceRange",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.gestures_.deleteSourceRange(r.required<SourceTime>("start"),
                                                                   r.required<SourceTime>("end")));
             }},
            {"updateTimelineClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.updateTimelineClip(s.id(r), setter<TimelineClip>(r)));
             }},
            {"restoreTimelineSourceRange",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.restoreTimelineSourceRange(
                     r.required<SourceTime>("start"), r.required<SourceTime>("end"),
                     timelineMinimum(r)));
             }},
            {"restoreTimelineCut",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(
                     s.store_.restoreTimelineCut(s.id(r, "beforeClipID"), timelineMinimum(r)));
             }},
            {"restoreTimelineEdgeTrim",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.restoreTimelineEdgeTrim(
                     s.id(r, "clipID"), r.required<TimelineTrimEdge>("edge")));
             }},
            {"trimClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 const Uuid clipID = s.id(r);
                 s.gestures_.trimClip(clipID, r.required<TimelineTrimEdge>("edge"),
                                      r.required<EditTime>("by"),
                                      r.value<bool>("rippleFollows", false));
                 return optionalJson(s.timelineClip(clipID));
             }},
            {"moveClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 const Uuid clipID = s.id(r);
                 s.gestures_.moveClip(clipID, r.required<EditTime>("by"));
                 return optionalJson(s.timelineClip(clipID));
             }},
            {"addAnimationClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.addAnimationClip(
                     r.required<EditTime>("at"),
                     r.value<double>("defaultZoomScale", s.store_.project().screen.zoomScale),
                     laneMinimum(r)));
             }},
            {"addCameraLayoutClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(
                     s.store_.addCameraLayoutClip(r.required<EditTime>("at"), laneMinimum(r)));
             }},
            {"addMaskClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(s.store_.addMaskClip(r.required<EditTime>("at"),
                                                          laneMinimum(r),
                                                          r.value<MaskRect>("rect", MaskRect())));
             }},
            {"addEmptyMusicClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(
                     s.store_.addEmptyMusicClip(r.required<EditTime>("at"), laneMinimum(r)));
             }},
            {"addMusicClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(
                     s.store_.addMusicClip(r.required<MusicClip>("clip"), laneMinimum(r)));
             }},
            {"addTextClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return optionalJson(
                     s.store_.addTextClip(r.required<EditTime>("at"), laneMinimum(r)));
             }},
            {"registerMusicSegment",
             [](EditSession& s, const JsonObjectReader& r) {
                 return Json(s.store_.registerMusicSegment(
                     standardizedPath(r.required<std::string>("file")),
                     r.required<double>("duration")));
             }},
            {"updateAnimationClip", updateOperation(animationLane)},
            {"updateCameraLayoutClip", updateOperation(cameraLayoutLane)},
            {"updateMaskClip", updateOperation(maskLane)},
            {"updateMusicClip", updateOperation(musicLane)},
            {"updateTextClip", updateOperation(textLane)},
            {"select",
             [](EditSession& s, const JsonObjectReader& r) {
                 withClipLane(r.required<AuxiliaryTimelineTrack>("lane"),
                              [&](const auto& lane) { s.store_.select(s.id(r), lane); });
                 return encodeJson(s.store_.selection());
             }},
            {"duplicateClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return withClipLane(
                     r.required<AuxiliaryTimelineTrack>("lane"), [&](const auto& lane) {
                         return optionalJson(s.store_.duplicateClip(s.id(r), lane, laneMinimum(r)));
                     });
             }},
            {"deleteSelectedClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 return withClipLane(r.required<AuxiliaryTimelineTrack>("lane"),
                                     [&](const auto& lane) {
                                         return optionalJson(s.store_.deleteSelectedClip(lane));
                                     });
             }},
            {"moveRangeClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 const auto track = r.required<AuxiliaryTimelineTrack>("lane");
                 const Uuid clipID = s.id(r);
                 s.gestures_.moveRangeClip(track, clipID, r.required<EditTime>("by"));
                 return s.laneClipJson(track, clipID);
             }},
            {"resizeRangeClip",
             [](EditSession& s, const JsonObjectReader& r) {
                 const auto track = r.required<AuxiliaryTimelineTrack>("lane");
                 const Uuid clipID = s.id(r);
                 s.gestures_.resizeRangeClip(track, clipID, r.required<TimelineTrimEdge>("edge"),
                                             r.required<EditTime>("by"));
                 return s.laneClipJson(track, clipID);
             }},
            {"setRemovesNoise",
             [](EditSession& s, const JsonObjectReader& r) {
                 s.store_.setRemovesNoise(r.required<bool>("value"));
                 return Json(s.store_.project().audio.removesNoise);
             }},
            {"applyPreset",
             [](EditSession& s, const JsonObjectReader& r) {
                 EditorPresetPayload preset;
                 preset.screenStyle = r.optional<ScreenAnimationStyle>("screenStyle");
                 preset.background = r.optional<BackgroundSettings>("background");
                 preset.cursor = r.optional<CursorSettings>("cursor");
                 preset.camera = r.optional<CameraOverlaySettings>("camera");
                 preset.audio = r.optional<AudioSettings>("audio");
                 preset.screen = r.optional<ScreenSettings>("screen");
                 s.store_.applyPreset(preset);
                 return Json(true);
             }},
            {"beginUndoTransaction",
             [](EditSession& s, const JsonObjectReader& r) {
                 s.store_.beginUndoTransaction(r.required<std::string>("label"));
                 return Json(s.store_.activeUndoTransaction().has_value());
             }},
            {"endUndoTransaction",
             [](EditSession& s, const JsonObjectReader&) {
                 const bool open = s.store_.activeUndoTransaction().has_value();
                 s.store_.endUndoTransaction();
                 return Json(open);
             }},
            {"endGesture",
             [](EditSession& s, const JsonObjectReader&) {
                 s.gestures_.finishAllEditSessions();
                 return Json(true);
             }},
            {"deleteTranscriptWords",
             [](EditSession& s, const JsonObjectReader& r) {
                 const auto& transcript = s.transcript(r);
                 const int first = r.required<int>("first");
                 const int last = r.value<int>("last", first);
                 const auto count = static_cast<int>(transcript.transcript().analysis.words.size());
                 if (first < 0 || last < first || last >= count) {
                     r.context().key("last").fail("the words " + std::to_string(first) + "-" +
                                                  std::to_string(last) + " are not 0 to " +
                                                  std::to_string(count - 1) + " in order");
                 }
                 const auto cut = transcript.cutWords(TranscriptTokenIDRange::words(first, last),
                                                      s.store_, s.gestures_);
                 return cut ? encodeJson(cut->gap) : Json(nullptr);
             }},
            {"restoreTranscriptMarker",
             [](EditSession& s, const JsonObjectReader& r) {
                 const auto& transcript = s.transcript(r);
                 const auto markers = transcript.collapsedRanges(s.store_.project().timeline);
                 const int number = r.required<int>("marker");
                 if (number < 0 || number >= static_cast<int>(markers.size())) {
                     return Json(nullptr);
                 }
                 return optionalJson(TranscriptTimelineEditing::restore(
                     markers[static_cast<size_t>(number)], s.store_, s.gestures_));
             }},
            {"undo", [](EditSession& s, const JsonObjectReader&) { return s.stepHistory(true); }},
            {"redo", [](EditSession& s, const JsonObjectReader&) { return s.stepHistory(false); }},
        };
        return table;
    }

    // The label of the step undone or redone; an open gesture ends first and may itself be
    // the step.
    Json stepHistory(bool backwards) {
        gestures_.finishAllEditSessions();
        const auto& stack =
            backwards ? store_.undoHistory().undoStack() : store_.undoHistory().redoStack();
        const Json label = stack.empty() ? Json(nullptr) : Json(stack.back().label);
        const auto change = backwards ? gestures_.undo() : gestures_.redo();
        return change ? label : Json(nullptr);
    }

    // The document's transcript, read once.
    const TranscriptTimelineEditing& transcript(const JsonObjectReader& reader) {
        if (!transcript_) {
            std::optional<EditorTranscript> loaded;
            if (document_) {
                loaded = EditorTranscriptStore::load(*document_);
            }
            if (!loaded) {
                reader.context().key("op").fail(
                    "the document has no transcript; run 'orvelle transcript process' first");
            }
            transcript_ = std::make_unique<TranscriptTimelineEditing>(
                std::move(*loaded), loadSpliceEnergyProfile(*document_));
        }
        return *transcript_;
    }

    EditorStore& store_;
    TimelineEditGestures& gestures_;
    std::optional<EditorDocument> document_;
    std::unique_ptr<TranscriptTimelineEditing> transcript_;
    Json results_ = Json::array();
};

const std::string_view kEditOperationsHelp =
    R"(Operations (times in seconds; "lane" is zoom, cameraLayout, mask, music or text;
"edge" is start or end; "set" is a JSON object of the clip's fields to change). An ID
is a clip's UUID, or "$N" for the id that operation N (from 0) returned, or
"@LANE:N" for the Nth clip of a lane as it stands ("timeline" for the main lane;
a negative N counts from the end, -1 the last):

  main lane
    {"op": "selectTimelineClip", "id": ID}
    {"op": "splitTimelineClip", "containing": SOURCE, ["minimumDuration": 0.08]}
    {"op": "deleteTimelineClip", "id": ID}
    {"op": "deleteSourceRange", "start": SOURCE, "end": SOURCE}
    {"op": "updateTimelineClip", "id": ID, "set": {...}}
    {"op": "restoreTimelineSourceRange", "start": SOURCE, "end": SOURCE, ["minimumDuration"]}
    {"op": "restoreTimelineCut", "beforeClipID": ID, ["minimumDuration"]}
    {"op": "restoreTimelineEdgeTrim", "clipID": ID, "edge": EDGE}
  main lane gestures (one undo step until endGesture)
    {"op": "trimClip", "id": ID, "edge": EDGE, "by": EDIT, ["rippleFollows": false]}
    {"op": "moveClip", "id": ID, "by": EDIT}
  auxiliary lanes
    {"op": "addAnimationClip", "at": EDIT, ["defaultZoomScale"], ["minimumDuration": 0.5]}
    {"op": "addCameraLayoutClip", "at": EDIT, ["minimumDuration"]}
    {"op": "addMaskClip", "at": EDIT, ["minimumDuration"], ["rect": {x, y, width, height}]}
    {"op": "addEmptyMusicClip", "at": EDIT, ["minimumDuration"]}
    {"op": "addMusicClip", "clip": {...}, ["minimumDuration"]}
    {"op": "addTextClip", "at": EDIT, ["minimumDuration"]}
    {"op": "registerMusicSegment", "file": PATH, "duration": SECONDS}
    {"op": "updateAnimationClip" | "updateCameraLayoutClip" | "updateMaskClip" |
           "updateMusicClip" | "updateTextClip", "id": ID, "set": {...}, ["label"]}
    {"op": "select", "lane": LANE, "id": ID}
    {"op": "duplicateClip", "lane": LANE, "id": ID, ["minimumDuration"]}
    {"op": "deleteSelectedClip", "lane": LANE}
  auxiliary lane gestures (one undo step until endGesture)
    {"op": "moveRangeClip", "lane": LANE, "id": ID, "by": EDIT}
    {"op": "resizeRangeClip", "lane": LANE, "id": ID, "edge": EDGE, "by": EDIT}
  by the transcript (word indexes from 0, both ends included; markers as
  'orvelle transcript show' numbers them, from 0)
    {"op": "deleteTranscriptWords", "first": I, ["last": J]}
    {"op": "restoreTranscriptMarker", "marker": N}
  look and sound
    {"op": "setRemovesNoise", "value": BOOL}
    {"op": "applyPreset", ["screenStyle"], ["background"], ["cursor"], ["camera"],
                          ["audio"], ["screen"]}
  history
    {"op": "beginUndoTransaction", "label": TEXT}   {"op": "endUndoTransaction"}
    {"op": "endGesture"}   {"op": "undo"}   {"op": "redo"})";

EditOperations::EditOperations(EditorStore& store, TimelineEditGestures& gestures,
                               std::optional<EditorDocument> document)
    : session_(std::make_unique<EditSession>(store, gestures, std::move(document))) {}

EditOperations::~EditOperations() = default;

Json EditOperations::apply(const Json& operation, const JsonDecodeContext& context) {
    return session_->apply(operation, context);
}

const Json& EditOperations::results() const {
    return session_->results();
}

Json EditOperations::state() const {
    return session_->state();
}

Json readOperations(const std::string& argument) {
    Json json = argument == "-"
                    ? parseJson(std::string(std::istreambuf_iterator<char>(std::cin), {}))
                    : readJsonFile(argument);
    if (!json.is_array()) {
        throw JsonDecodeError("", "the operations must be a JSON list of objects");
    }
    return json;
}

} // namespace orvelle::cli
