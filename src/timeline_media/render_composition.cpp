#include "timeline_media/render_composition.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "platform/media/media_probe.h"
#include "project/media_asset_metadata.h"
#include "timeline_media/project_composition.h"
#include "timeline_media/timeline_composition.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

std::vector<int32_t> OrvelleCompositionInstruction::requiredSourceTrackIDs() const {
    std::vector<int32_t> ids{screenTrackID};
    if (cameraTrackID) {
        ids.push_back(*cameraTrackID);
    }
    return ids;
}

namespace RenderComposition {

namespace {

namespace fs = std::filesystem;

// Shorter than this, a click or a piece of one is not worth playing.
constexpr double kClickTolerance = 0.001;

std::optional<Size> naturalSize(const fs::path& url) {
    if (const auto size = MediaAssetMetadata::naturalVideoSize(url)) {
        return Size{size->width, size->height};
    }
    return std::nullopt;
}

// The click file's length; absent when it is missing or unreadable, which only means no
// click sounds.
std::optional<double> clickSoundLength(const fs::path& url) {
    try {
        const MediaProbe probe = probeMediaFile(url);
        if (const AudioStreamInfo* audio = probe.firstAudio()) {
            const double length = probe.lengthOf(*audio);
            if (std::isfinite(length) && length > 0) {
                return length;
            }
        }
    } catch (const Error& error) {
        logInfo("export", "click sound not used: ", error.what());
    }
    return std::nullopt;
}

// The camera as a second video track; absent when the take has no camera picture under the
// clips.
std::optional<int32_t> addOptionalCameraTrack(MediaComposition& composition,
                                              const TakeManifest& manifest,
                                              const std::vector<TimelineClip>& clips) {
    return TimelineComposition::insertCameraTrack(
        composition,
        TimelineCompositionSource::loadVideoSegments(manifest, MediaTrackManifest::Kind::camera),
        clips);
}

void addClicks(MediaComposition& composition, AudioMix& mix, const RenderExportSettings& settings,
               const Resources& resources, const std::vector<CursorClick>& clicks,
               const ResolvedEditTimeline& editTimeline) {
    const EditorProjectState& project = settings.project;
    const double volume = project.cursor.clickSoundVolume;
    if (!(volume > 0) || !project.audio.isEnabled || !resources.clickSoundURL) {
        return;
    }
    const auto length = clickSoundLength(*resources.clickSoundURL);
    if (!length) {
        return;
    }
    addClickAudioTracks(composition, mix, playableClickEditTimes(clicks, editTimeline),
                        *resources.clickSoundURL, *length, std::min(volume, 1.0),
                        editTimeline.duration());
}

} // namespace

std::vector<double> playableClickEditTimes(const std::vector<CursorClick>& clicks,
                                           const ResolvedEditTimeline& editTimeline) {
    std::vector<double> times;
    if (!(editTimeline.duration() > 0)) {
        return times;
    }
    for (const auto& click : clicks) {
        const bool playing = std::any_of(
            editTimeline.clips().begin(), editTimeline.clips().end(), [&](const auto& clip) {
                return clip.start.seconds <= click.time && click.time < clip.end.seconds;
            });
        if (playing) {
            times.push_back(editTimeline.editTime(SourceTime(click.time)).seconds);
        }
    }
    return times;
}

std::vector<ClickAudioLane> addClickAudioTracks(MediaComposition& composition, AudioMix& mix,
                                                const std::vector<double>& clickEditTimes,
                                                const fs::path& clickURL, double clickLength,
                                                double volume, double timelineDuration) {
    std::vector<ClickAudioLane> lanes;
    if (!(clickLength > 0) || clickEditTimes.empty()) {
        return lanes;
    }
    const int mediaID = composition.mediaID(clickURL);
    const int64_t endTick = mediaTicks(timelineDuration);
    for (const double time : clickEditTimes) {
        const double length = std::min(clickLength, timelineDuration - time);
        if (!(length >= kClickTolerance)) {
            continue;
        }
        auto lane = std::find_if(lanes.begin(), lanes.end(), [&](const ClickAudioLane& candidate) {
            return candidate.availableAt <= time + kClickTolerance;
        });
        if (lane == lanes.end()) {
            lanes.push_back({composition.addTrack(CompositionMediaType::audio).trackID, 0});
            lane = std::prev(lanes.end());
            if (std::abs(volume - 1.0) > 0.001) {
                mix.mutableParameters(lane->trackID).setVolume(static_cast<float>(volume), 0);
            }
        }
        lane->availableAt = time + clickLength;
        CompositionTrack* track = composition.track(lane->trackID);
        // A click that starts within the tolerance of its lane's last one starts where that
        // one ends, so that the lane's insertions never overlap.
        const int64_t start = std::max(mediaTicks(time), track->endTick());
        const int64_t end = std::min(mediaTicks(time + length), endTick);
        if (end <= start) {
            continue;
        }
        track->insert({mediaID, {0, end - start}, {start, end - start}});
    }
    return lanes;
}

std::vector<MediaTimeRange> mergedCameraRanges(const std::vector<MediaTimeRange>& ranges,
                                               int64_t timelineEnd) {
    std::vector<MediaTimeRange> clamped;
    for (const auto& range : ranges) {
        const int64_t start =
            std::clamp<int64_t>(range.start, 0, std::max<int64_t>(timelineEnd, 0));
        const int64_t end = std::clamp<int64_t>(range.end(), 0, std::max<int64_t>(timelineEnd, 0));
        if (end > start) {
            clamped.push_back({start, end - start});
        }
    }
    std::sort(clamped.begin(), clamped.end(),
              [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<MediaTimeRange> merged;
    for (const auto& range : clamped) {
        if (!merged.empty() && range.start <= merged.back().end()) {
            const int64_t end = std::max(merged.back().end(), range.end());
            merged.back().duration = end - merged.back().start;
        } else {
            merged.push_back(range);
        }
    }
    return merged;
}

std::vector<OrvelleCompositionInstruction>
videoInstructions(int64_t timelineEnd, int32_t screenTrackID, const CompositionTrack* cameraTrack) {
    if (cameraTrack == nullptr) {
        return {{{0, timelineEnd}, screenTrackID, std::nullopt}};
    }
    std::vector<MediaTimeRange> ranges;
    for (const auto& insertion : cameraTrack->insertions) {
        ranges.push_back(insertion.editRange);
    }
    const auto merged = mergedCameraRanges(ranges, timelineEnd);
    std::vector<int64_t> cuts{0, timelineEnd};
    for (const auto& range : merged) {
        cuts.push_back(range.start);
        cuts.push_back(range.end());
    }
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    std::vector<OrvelleCompositionInstruction> instructions;
    for (size_t i = 0; i + 1 < cuts.size(); ++i) {
        const MediaTimeRange piece{cuts[i], cuts[i + 1] - cuts[i]};
        // The middle in half ticks, so that a piece of one tick is tested inside itself.
        const int64_t middleTwice = piece.start * 2 + piece.duration;
        const bool withCamera = std::any_of(merged.begin(), merged.end(), [&](const auto& range) {
            return range.start * 2 <= middleTwice && middleTwice < range.end() * 2;
        });
        instructions.push_back({piece, screenTrackID,
                                withCamera ? std::optional(cameraTrack->trackID) : std::nullopt});
    }
    return instructions;
}

Output build(const RenderExportSettings& settings, const Resources& resources,
             const std::stop_token& stop) {
    const EditorProjectState& project = settings.project;
    const TakeManifest& manifest = project.manifest;

    // The denoised microphone files stand in for the recorded ones.
    auto source = TimelineCompositionSource::load(
        manifest, denoisedMicrophoneURLs(manifest, project.audio, resources.noiseReductionCache));
    if (!source) {
        throw RenderExportError(RenderExportErrorCode::missingVideoTrack);
    }
    throwIfCancelled(stop);

    // The resolver and the media work from the same clips and timeline.
    RenderFrameSource frameSource;
    frameSource.project = project;
    TimelineState& timeline = frameSource.project.timeline;
    if (!(timeline.sourceDuration.seconds > 0)) {
        timeline.sourceDuration = SourceTime(source->duration);
    }
    timeline.clips = settings.timelineClips;
    const auto clips = normalizedTimelineClips(settings.timelineClips, timeline.sourceDuration);
    const auto editTimeline =
        renderEditTimeline(clips, timeline.deletedGaps, timeline.sourceDuration);
    if (clips.empty() || !(editTimeline.duration() > 0)) {
        throw RenderExportError(RenderExportErrorCode::emptyTimeline);
    }

    const auto voiceActivity = VoiceActivityDetector::sourceIntervals(
        manifest.segmentsFor(MediaTrackManifest::Kind::microphone));
    throwIfCancelled(stop);
    auto made = TimelineComposition::make(clips, *source, project.audio, project.music.clips,
                                          voiceActivity);
    if (!made) {
        throw RenderExportError(RenderExportErrorCode::emptyTimeline);
    }

    Output output;
    output.composition = std::move(made->composition);
    AudioMix mix = std::move(made->audioMix);
    output.screenTrackID = made->videoTrackID;
    output.timelineDuration = editTimeline.duration();
    output.width = settings.width;
    output.height = settings.height;
    output.fps = settings.fps;
    output.cameraTrackID = addOptionalCameraTrack(output.composition, manifest, clips);

    frameSource.cursorRecording =
        RenderComposition::cursorRecording(settings.cursorURL, settings.sourceURL);
    frameSource.sourceNaturalSize = source->naturalWidth > 0 && source->naturalHeight > 0
                                        ? Size{source->naturalWidth, source->naturalHeight}
                                        : naturalSize(settings.sourceURL)
                                              .value_or(Size{static_cast<double>(settings.width),
                                                             static_cast<double>(settings.height)});
    if (output.cameraTrackID) {
        const auto camera = manifest.segmentsFor(MediaTrackManifest::Kind::camera);
        frameSource.cameraNaturalSize = naturalSize(camera.front().url);
    }
    frameSource.stageSize = {static_cast<double>(settings.width),
                             static_cast<double>(settings.height)};
    addClicks(output.composition, mix, settings, resources,
              preparedClicks(frameSource.cursorRecording), editTimeline);
    throwIfCancelled(stop);
    output.resolver = std::make_shared<RenderFrameResolver>(std::move(frameSource));
    if (!output.composition.tracksOfType(CompositionMediaType::audio).empty()) {
        output.audioMix = std::move(mix);
    }
    output.instructions = videoInstructions(
        mediaTicks(output.timelineDuration), output.screenTrackID,
        output.cameraTrackID ? output.composition.track(*output.cameraTrackID) : nullptr);
    return output;
}

} // namespace RenderComposition

} // namespace orvelle
