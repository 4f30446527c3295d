// resolve runs for every frame of the preview and the export: it must not allocate.
// This test binary counts every allocation to prove it.

#include "composition/preview_composition_resolver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> allocationCount{0};

} // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
// The standard library's temporary buffers (stable_sort) come from the nothrow form; it
// must reach malloc too, since the delete below frees whatever it is given.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#pragma GCC diagnostic pop

namespace orvelle {
namespace {

template <class F>
long allocationsOf(F&& work) {
    const long before = allocationCount.load();
    work();
    return allocationCount.load() - before;
}

class ResolveAllocations : public ::testing::Test {
protected:
    ResolveAllocations() {
        project.timeline.sourceDuration = SourceTime(100);
        TimelineClip whole{.id = Uuid::random(), .end = SourceTime(100)};
        project.timeline.clips = {whole};
        for (int i = 0; i < 20; ++i) {
            AnimationClip zoom{.id = Uuid::random(), .start = EditTime(10 + i * 4)};
            zoom.end = EditTime(14 + i * 4); // touching: hand-offs everywhere
            zoom.tiltDegrees = 10;
            project.animation.zoomClips.push_back(zoom);
        }
        input.project = &project;
        input.stageSize = {1920, 1080};
        input.embeddedVideoSize = {1920, 1080};
        input.movieRect = {0, 0, 1920, 1080};
        input.cursorPoint = CursorPoint{0.3, 0.3, true};
        input.cameraPoint = CursorPoint{0.3, 0.3, true};
        input.hasCameraOverlay = true;
        input.cameraVideoSize = Size{1280, 720};
    }

    EditorProjectState project;
    PreviewCompositionInput input;
};

// Neither a plain instant nor one with touching zooms, a camera layout, touching masks and
// a fade under way allocates.
TEST_F(ResolveAllocations, NoneWithOrWithoutZoomsLayoutsMasksAndFades) {
    input.timelineTime = EditTime(5);
    PreviewComposition result;
    EXPECT_EQ(allocationsOf([&] { result = PreviewCompositionResolver::resolve(input); }), 0);
    EXPECT_TRUE(result.cursor);
    EXPECT_TRUE(result.camera);

    CameraLayoutClip layout{.id = Uuid::random(),
                            .start = EditTime(13),
                            .end = EditTime(20),
                            .mode = CameraLayoutMode::fullscreen};
    project.camera.dynamicLayoutClips = {layout};
    for (const double start : {10.0, 14.0}) {
        MaskClip mask{.id = Uuid::random(), .start = EditTime(start), .end = EditTime(start + 4)};
        project.mask.clips.push_back(mask);
    }
    project.timeline.clips[0].fadeOutDuration = 2;
    const ResolvedEditTimeline timeline(EditTimeline::from(project.timeline));
    input.editTimeline = &timeline;
    input.timelineTime = EditTime(14.05);
    input.cameraAnimationAmount = 1;
    input.cameraZoomScale = 1.5;
    EXPECT_EQ(allocationsOf([&] { result = PreviewCompositionResolver::resolve(input); }), 0);
    EXPECT_TRUE(result.mask);
    EXPECT_GT(result.screen.perspective.angleDegrees, 0);
}

} // namespace
} // namespace orvelle
