// Frames a second of FrameRenderer.render at 1920x1080 for typical frames, on one thread
// and on every thread the image code may use. Each frame is rendered into one reused
// buffer, as the export renders into its pixel buffers.
//
//   bench_frame_renderer --benchmark_counters_tabular=true

#include "composition/frame_renderer.h"
#include "composition/frame_rendering_context.h"
#include "platform/image/image.h"
#include "platform/image/vector_canvas.h"

#include <benchmark/benchmark.h>

namespace orvelle {
namespace {

constexpr double W = 1920;
constexpr double H = 1080;

// A desktop with a light window of text, a dark terminal and a panel: busy enough that
// sampling it costs what a real recording costs.
Image screenPicture() {
    VectorCanvas canvas(static_cast<int>(W), static_cast<int>(H));
    canvas.rectangle(0, 0, W, H);
    canvas.setLinearGradient({0, 0}, {W, H}, {{0, {0.22, 0.2, 0.4, 1}}, {1, {0.1, 0.12, 0.2, 1}}});
    canvas.fill();
    canvas.rectangle(0, 0, W, 36);
    canvas.setColor({0.08, 0.08, 0.1, 1});
    canvas.fill();
    canvas.roundedRectangle(180, 120, 1100, 760, 10);
    canvas.setColor({0.97, 0.97, 0.98, 1});
    canvas.fill();
    for (int i = 0; i < 26; ++i) {
        canvas.rectangle(230, 180 + i * 26, 300 + (i * 131) % 600, 10);
        canvas.setColor({0.25 + 0.02 * (i % 5), 0.3, 0.4, 1});
        canvas.fill();
    }
    canvas.roundedRectangle(1000, 420, 820, 560, 10);
    canvas.setColor({0.12, 0.13, 0.16, 1});
    canvas.fill();
    for (int i = 0; i < 18; ++i) {
        canvas.rectangle(1030, 460 + i * 28, 200 + (i * 97) % 500, 10);
        canvas.setColor({0.35 + 0.03 * (i % 4), 0.8, 0.5, 1});
        canvas.fill();
    }
    return Image::bitmap(canvas.bitmap(), {}, {.opaque = true});
}

Image cameraPicture() {
    VectorCanvas canvas(1280, 720);
    canvas.rectangle(0, 0, 1280, 720);
    canvas.setLinearGradient({0, 0}, {1280, 720},
                             {{0, {0.7, 0.72, 0.78, 1}}, {1, {0.25, 0.3, 0.4, 1}}});
    canvas.fill();
    canvas.ellipse(640, 330, 190, 240);
    canvas.setColor({0.9, 0.75, 0.64, 1});
    canvas.fill();
    return Image::bitmap(canvas.bitmap(), {}, {.opaque = true});
}

// The card as the frame composition makes it for the default look: padding 0.1, shadow
// 0.25, soft pointer at size 0.1.
FrameComposition idleFrame() {
    FrameComposition f;
    f.stageSize = {W, H};
    f.sourceNaturalSize = {W, H};
    f.embeddedVideoSize = {W, H};
    f.movieRect = {0, 0, W, H};
    ScreenLayerComposition& s = f.preview.screen;
    s.paddingScale = 0.9;
    s.cornerRadius = H * 0.04 * 0.5;
    s.shadowRadius = 0.25 * 50;
    s.shadowOpacity = 0.25 * 0.7;
    s.shadowOffset = {0, 0.25 * 50 * 0.6};
    s.strokeWidth = 1;
    s.strokeOpacity = 0.08;
    CursorLayerComposition cursor;
    cursor.position = {960 + 19, 540 + 20};
    cursor.sizeScale = 0.1 * 1.75 + 0.8;
    f.preview.cursor = cursor;
    return f;
}

// Zoomed to the default 1.5 while moving: the card blurred along the motion, the pointer
// leaning and blurred.
FrameComposition zoomedFrame() {
    FrameComposition f = idleFrame();
    ScreenLayerComposition& s = f.preview.screen;
    s.zoomScale = 1.5;
    s.offset = {180, 90};
    s.motionBlurRadius = 0.45;
    f.preview.cursor->motionBlur = {14, 4};
    f.preview.cursor->tiltAngle = 0.25;
    return f;
}

// The idle card with a camera bubble, a dimming mask and two lines of text.
FrameComposition overlayFrame() {
    FrameComposition f = idleFrame();
    f.hasCameraOverlay = true;
    f.cameraNaturalSize = Size{1280, 720};
    CameraLayerComposition camera;
    camera.frameSize = {342, 342};
    camera.center = {W - 171 - 18, H - 171 - 18};
    camera.cornerRadius = 85.5;
    f.preview.camera = camera;
    MaskLayerComposition mask;
    mask.stageRect = {528, 297, 864, 486};
    mask.opacity = 0.72;
    mask.cornerRadius = 486 * 0.03 * 0.5;
    f.preview.mask = mask;
    TextClip text;
    text.start = EditTime{0};
    text.end = EditTime{10};
    text.text = "Render on the CPU\nat export speed";
    text.position = {0.06, 0.82};
    f.textClips = {text};
    f.editTime = EditTime{3};
    return f;
}

void renderFrames(benchmark::State& state, FrameComposition composition, bool withCamera) {
    const int threads = static_cast<int>(state.range(0));
    setImageThreadCount(threads);
    FrameRenderingContext context;
    FrameRendererInput input;
    input.screen = screenPicture();
    if (withCamera) {
        input.camera = cameraPicture();
    }
    input.bakedBackground = context.bakedBackground(composition.background, composition.stageSize);
    if (!input.bakedBackground) {
        state.SkipWithError("the wallpapers are missing: build the wallpapers target");
        return;
    }
    input.composition = composition;
    Bitmap frame(static_cast<int>(W), static_cast<int>(H));
    // The caches fill on the first frame, as in an export.
    FrameRenderer::render(input, context).render({0, 0, W, H}, frame);
    for (auto _ : state) {
        FrameRenderer::render(input, context).render({0, 0, W, H}, frame);
        benchmark::DoNotOptimize(frame.row(0));
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["threads"] = threads;
}

void idleCard(benchmark::State& state) {
    renderFrames(state, idleFrame(), false);
}
void zoomedWithMotionBlur(benchmark::State& state) {
    renderFrames(state, zoomedFrame(), false);
}
void cameraMaskAndText(benchmark::State& state) {
    renderFrames(state, overlayFrame(), true);
}

BENCHMARK(idleCard)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(zoomedWithMotionBlur)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(cameraMaskAndText)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
} // namespace orvelle

BENCHMARK_MAIN();
