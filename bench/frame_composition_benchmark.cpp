// The stage of a frame as numbers, and the camera plan of a long take.
//
// `resolve` runs for every frame of the preview and the export; it must stay far below a
// frame's budget (that it allocates nothing while no clip is active is a unit test of
// composition_tests). Planning the camera track
// runs over every pointer sample of a take whenever the zooms change: one hour is 216,000
// samples.

#include "composition/preview_composition_resolver.h"
#include "composition/render_frame_resolver.h"
#include "motion/camera_motion_planner.h"
#include "motion/zoom_activity_planner.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

namespace orvelle {
namespace {

constexpr double kHour = 3600;

// A pointer that alternates rests and purposeful moves, now and then leaving the frame.
CursorRecording pointerRecording(double seconds) {
    CursorRecording recording;
    std::mt19937 random(2024);
    std::uniform_real_distribution<double> unit(0, 1);
    const int count = static_cast<int>(seconds * 60);
    recording.samples.reserve(static_cast<size_t>(count));
    double x = 0.5;
    double y = 0.5;
    double targetX = x;
    double targetY = y;
    double nextChange = 0;
    for (int i = 0; i < count; ++i) {
        const double t = i / 60.0;
        if (t >= nextChange) {
            targetX = unit(random);
            targetY = unit(random);
            nextChange = t + 0.5 + unit(random) * 6;
            if (unit(random) < 0.5) {
                recording.clicks.push_back({t + 0.3, 0});
            }
        }
        x += (targetX - x) * 0.08;
        y += (targetY - y) * 0.08;
        const bool visible = unit(random) > 0.002;
        recording.samples.push_back({t, x, y, visible});
    }
    return recording;
}

// A take of the given length cut in a few places, with the zooms the editor would plan.
EditorProjectState longProject(const CursorRecording& recording, double seconds) {
    EditorProjectState project;
    project.timeline.sourceDuration = SourceTime(seconds);
    const int pieces = 12;
    for (int i = 0; i < pieces; ++i) {
        TimelineClip clip;
        clip.id = Uuid::random();
        clip.start = SourceTime(seconds * i / pieces + (i > 0 ? 5 : 0));
        clip.end = SourceTime(seconds * (i + 1) / pieces);
        project.timeline.clips.push_back(clip);
    }
    const ResolvedEditTimeline timeline(EditTimeline::from(project.timeline));
    project.animation.zoomClips = TimelineEngine::defaultAnimationClips(
        EditTime(timeline.duration()), 1.8, recording.samples, recording.clicks);
    return project;
}

struct Stage {
    EditorProjectState project;
    PreviewCompositionInput input;

    explicit Stage(bool busy) {
        project.timeline.sourceDuration = SourceTime(600);
        TimelineClip whole;
        whole.id = Uuid::random();
        whole.start = SourceTime(0);
        whole.end = SourceTime(600);
        project.timeline.clips = {whole};
        // A lane full of zooms, none of them at the idle instant.
        for (int i = 0; i < 100; ++i) {
            AnimationClip clip;
            clip.id = Uuid::random();
            clip.start = EditTime(100 + i * 5);
            clip.end = EditTime(100 + i * 5 + (i % 2 == 0 ? 5 : 3));
            clip.zoomScale = 1.5 + (i % 3) * 0.25;
            clip.tiltDegrees = 8;
            clip.tiltDirectionDegrees = i * 40;
            project.animation.zoomClips.push_back(clip);
        }
        input.project = &project;
        input.stageSize = {1920, 1080};
        input.embeddedVideoSize = {1920, 1080};
        input.movieRect = {0, 0, 1920, 1080};
        input.cursorPoint = CursorPoint{0.4, 0.6, true};
        input.cameraPoint = CursorPoint{0.42, 0.58, true};
        input.cursorFrameMotion = {0.002, 0.001};
        input.cursorTiltAngle = 0.1;
        input.timelineTime = EditTime(50);
        input.playbackTime = 50;
        if (busy) {
            // Zoomed at a hand-off, camera overlay gliding to fullscreen, a mask at a seam,
            // a fading clip.
            input.timelineTime = EditTime(105);
            input.playbackTime = 105;
            input.cameraAnimationAmount = 1;
            input.cameraZoomScale = 1.75;
            input.cameraFrameMotion = {0.004, 0.002};
            input.zoomFrameMotion = 0.01;
            input.hasCameraOverlay = true;
            input.cameraVideoSize = Size{1280, 720};
            project.camera.shape = CameraOverlayShape::original;
            CameraLayoutClip layout;
            layout.id = Uuid::random();
            layout.start = EditTime(104.9);
            layout.end = EditTime(110);
            layout.mode = CameraLayoutMode::fullscreen;
            project.camera.dynamicLayoutClips = {layout};
            for (int i = 0; i < 2; ++i) {
                MaskClip mask;
                mask.id = Uuid::random();
                mask.start = EditTime(100 + i * 5);
                mask.end = EditTime(105 + i * 5);
                mask.borderStyle = MaskBorder::Style::comet;
                project.mask.clips.push_back(mask);
            }
            project.timeline.clips[0].fadeInDuration = 1;
        }
    }
};

void resolveStage(benchmark::State& state, bool busy) {
    Stage stage(busy);
    const ResolvedEditTimeline timeline(EditTimeline::from(stage.project.timeline));
    stage.input.editTimeline = &timeline;
    for (auto _ : state) {
        benchmark::DoNotOptimize(PreviewCompositionResolver::resolve(stage.input));
    }
}

void BM_ResolveIdleStage1080p(benchmark::State& state) {
    resolveStage(state, false);
}
BENCHMARK(BM_ResolveIdleStage1080p);

void BM_ResolveBusyStage1080p(benchmark::State& state) {
    resolveStage(state, true);
}
BENCHMARK(BM_ResolveBusyStage1080p);

// One export frame: visual state, motion under the lock, resolve, and the record.
void BM_ExportFrame1080p(benchmark::State& state) {
    const auto recording = pointerRecording(600);
    RenderFrameSource source;
    source.project = longProject(recording, 600);
    source.cursorRecording = recording;
    source.sourceNaturalSize = {2880, 1800};
    source.stageSize = {1920, 1080};
    RenderFrameResolver resolver(source);
    long frame = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(resolver.resolve(static_cast<double>(frame++ % 18000) / 30));
    }
}
BENCHMARK(BM_ExportFrame1080p);

// The camera track of a one-hour take, as the export prepares it.
void BM_PlanCameraTrackOneHour(benchmark::State& state) {
    const auto recording = pointerRecording(kHour);
    const auto project = longProject(recording, kHour);
    const auto timeline = RenderComposition::renderEditTimeline(
        RenderComposition::normalizedTimelineClips(project.timeline.clips,
                                                   project.timeline.sourceDuration),
        project.timeline.deletedGaps, project.timeline.sourceDuration);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            RenderComposition::preparedCameraSamples(recording, project, timeline));
    }
    state.counters["samples"] = static_cast<double>(recording.samples.size());
    state.counters["zoomClips"] = static_cast<double>(project.animation.zoomClips.size());
}
BENCHMARK(BM_PlanCameraTrackOneHour)->Unit(benchmark::kMillisecond);

// The drawn pointer of a one-hour take: edge exits, spring and tilt.
void BM_PointerTrackOneHour(benchmark::State& state) {
    const auto recording = pointerRecording(kHour);
    for (auto _ : state) {
        const auto samples =
            RenderComposition::preparedCursorSamples(recording, ScreenAnimationStyle::focused);
        benchmark::DoNotOptimize(CursorTilt::track(samples));
    }
}
BENCHMARK(BM_PointerTrackOneHour)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace orvelle

BENCHMARK_MAIN();
