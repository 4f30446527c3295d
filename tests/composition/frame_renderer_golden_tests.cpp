// Whole frames against reference pictures in tests/data/golden. The references change
// only on purpose: run with ORVELLE_UPDATE_GOLDENS=1 to write them again, then look at them.

#include "core/files.h"
#include "frame_renderer_test_support.h"
#include "platform/image/vector_canvas.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace orvelle {
namespace {

constexpr double W = 320;
constexpr double H = 180;

// A recording of a desktop: a light window with lines of text and a dark terminal.
Image desktop() {
    VectorCanvas canvas(640, 360);
    canvas.rectangle(0, 0, 640, 360);
    canvas.setLinearGradient({0, 0}, {0, 360},
                             {{0, {0.2, 0.25, 0.35, 1}}, {1, {0.1, 0.12, 0.18, 1}}});
    canvas.fill();
    canvas.roundedRectangle(60, 40, 360, 240, 6);
    canvas.setColor({0.97, 0.97, 0.98, 1});
    canvas.fill();
    for (int i = 0; i < 9; ++i) {
        canvas.rectangle(80, 70 + i * 22, 180 + (i * 37) % 120, 6);
        canvas.setColor({0.3, 0.32, 0.38, 1});
        canvas.fill();
    }
    canvas.roundedRectangle(340, 140, 260, 180, 6);
    canvas.setColor({0.16, 0.17, 0.2, 1});
    canvas.fill();
    for (int i = 0; i < 6; ++i) {
        canvas.rectangle(356, 160 + i * 22, 100 + (i * 53) % 110, 6);
        canvas.setColor({0.4, 0.8, 0.5, 1});
        canvas.fill();
    }
    return Image::bitmap(canvas.bitmap(), {}, {.opaque = true});
}

Image wallpaper() {
    VectorCanvas canvas(static_cast<int>(W), static_cast<int>(H));
    canvas.rectangle(0, 0, W, H);
    canvas.setLinearGradient({0, 0}, {W, H},
                             {{0, {0.35, 0.2, 0.6, 1}}, {1, {0.95, 0.55, 0.45, 1}}});
    canvas.fill();
    return Image::bitmap(canvas.bitmap(), {}, {.opaque = true});
}

Image face() {
    VectorCanvas canvas(160, 120);
    canvas.rectangle(0, 0, 160, 120);
    canvas.setLinearGradient({0, 0}, {160, 120},
                             {{0, {0.7, 0.75, 0.8, 1}}, {1, {0.3, 0.35, 0.45, 1}}});
    canvas.fill();
    canvas.ellipse(70, 55, 28, 34);
    canvas.setColor({0.92, 0.76, 0.64, 1});
    canvas.fill();
    return Image::bitmap(canvas.bitmap(), {}, {.opaque = true});
}

FrameComposition baseComposition() {
    FrameComposition f = testing::idleComposition(W, H, 0.1, 0.25);
    f.sourceNaturalSize = {640, 360};
    f.background.kind = BackgroundKind::wallpaper;
    CursorLayerComposition cursor;
    cursor.position = {190 + 19, 95 + 20};
    cursor.sizeScale = 0.975;
    f.preview.cursor = cursor;
    return f;
}

TextClip caption(const std::string& text, TextAnimationPreset preset) {
    TextClip clip;
    clip.start = EditTime{0};
    clip.end = EditTime{10};
    clip.text = text;
    clip.preset = preset;
    clip.position = {0.08, 0.8};
    clip.size = 2.5;
    return clip;
}

struct Scene {
    std::string name;
    FrameComposition composition;
    bool withCamera = false;
};

std::vector<Scene> scenes() {
    std::vector<Scene> all;
    all.push_back({"idle", baseComposition()});
    {
        FrameComposition f = baseComposition();
        f.preview.screen.zoomScale = 2;
        f.preview.screen.offset = {60, 20};
        f.preview.screen.motionBlurRadius = 0.5;
        f.preview.cursor->motionBlur = {12, 3};
        f.preview.cursor->tiltAngle = 0.3;
        f.cursorStyle = CursorStyle::crisp;
        all.push_back({"zoomed", f});
    }
    {
        FrameComposition f = baseComposition();
        f.hasCameraOverlay = true;
        CameraLayerComposition camera;
        camera.frameSize = {64, 64};
        camera.center = {W - 32 - 18, H - 32 - 18};
        camera.cornerRadius = 32;
        f.preview.camera = camera;
        f.cameraNaturalSize = Size{160, 120};
        MaskLayerComposition mask;
        mask.stageRect = {60, 30, 130, 80};
        mask.opacity = 0.6;
        mask.cornerRadius = 6;
        mask.borderStyle = MaskBorder::Style::comet;
        mask.borderOpacity = 1;
        mask.borderPhase = 0.3;
        mask.borderColor = {1, 0.78, 0.25, 1};
        f.preview.mask = mask;
        f.textClips = {caption("Hello from Orvelle", TextAnimationPreset::rise)};
        f.editTime = EditTime{2};
        all.push_back({"overlay-mask-text", f, true});
    }
    {
        FrameComposition f = baseComposition();
        f.preview.screen.zoomScale = 1.4;
        f.preview.screen.perspective = {40, 12};
        MaskLayerComposition mask;
        mask.stageRect = {120, 60, 90, 60};
        mask.opacity = 0.7;
        mask.isInverted = true;
        mask.featherRadius = 12;
        f.preview.mask = mask;
        f.preview.stageFadeOpacity = 0.3;
        f.cursorStyle = CursorStyle::pointer;
        all.push_back({"tilted-inverted-faded", f});
    }
    {
        FrameComposition f = baseComposition();
        f.hasCameraOverlay = true;
        CameraLayerComposition camera;
        camera.isFullscreen = true;
        camera.isMirrored = true;
        camera.horizontalScale = -1;
        camera.frameSize = {W, H};
        camera.center = {W / 2, H / 2};
        f.preview.camera = camera;
        f.textClips = {caption("Two lines\nof text", TextAnimationPreset::pop)};
        f.editTime = EditTime{0.2};
        all.push_back({"fullscreen-camera", f, true});
    }
    return all;
}

class FrameRendererGolden : public ::testing::TestWithParam<size_t> {};

TEST_P(FrameRendererGolden, MatchesTheReference) {
    const Scene scene = scenes()[GetParam()];
    FrameRenderingContext context;
    FrameRendererInput input{desktop(), std::nullopt, wallpaper(), scene.composition};
    if (scene.withCamera) {
        input.camera = face();
    }
    const Bitmap frame = testing::renderFrame(input, context);
    const auto reference =
        testing::sourceDirectory() / "tests" / "data" / "golden" / ("frame-" + scene.name + ".png");
    if (std::getenv("ORVELLE_UPDATE_GOLDENS") != nullptr) {
        std::filesystem::create_directories(reference.parent_path());
        writePNG(frame, reference);
        GTEST_SKIP() << "wrote " << reference;
    }
    ASSERT_TRUE(fileExists(reference)) << reference;
    const Bitmap expected = readPNG(reference);
    ASSERT_EQ(expected.width(), frame.width());
    ASSERT_EQ(expected.height(), frame.height());
    int differing = 0;
    int largest = 0;
    for (int y = 0; y < frame.height(); ++y) {
        for (int x = 0; x < frame.width(); ++x) {
            for (size_t c = 0; c < 4; ++c) {
                const int d = std::abs(frame.pixel(x, y)[c] - expected.pixel(x, y)[c]);
                largest = std::max(largest, d);
                differing += d > 3 ? 1 : 0;
            }
        }
    }
    // Rounding may move a level or two; a drawing change moves many pixels a lot.
    const int pixels = frame.width() * frame.height();
    EXPECT_LE(differing, pixels / 200) << scene.name;
    EXPECT_LE(largest, 48) << scene.name;
    if (differing > pixels / 200 || largest > 48) {
        const auto actual = testing::binaryDirectory() / ("frame-" + scene.name + "-actual.png");
        writePNG(frame, actual);
        ADD_FAILURE() << "the rendered frame is in " << actual;
    }
}

INSTANTIATE_TEST_SUITE_P(Scenes, FrameRendererGolden, ::testing::Range<size_t>(0, 5),
                         [](const auto& scene) {
                             std::string name = scenes()[scene.param].name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace
} // namespace orvelle
