#include "playback/playback_test_support.h"

#include "support/timeline_builders.h"

namespace orvelle::testing {

namespace {

std::unique_ptr<PrivateSoundServer> server;

class SoundServerEnvironment : public ::testing::Environment {
public:
    void SetUp() override { server = std::make_unique<PrivateSoundServer>(); }
    void TearDown() override { server.reset(); }
};

[[maybe_unused]] const auto* const environment =
    ::testing::AddGlobalTestEnvironment(new SoundServerEnvironment);

} // namespace

PrivateSoundServer& soundServer() {
    return *server;
}

EditedTake writeEditedTake(const std::filesystem::path& folder) {
    TinyTakeOptions options{
        .seconds = 14, .clicks = {1.0, 4.5, 6.0, 11.0}, .camera = std::pair{1.0, 13.0}};
    EditedTake edited{writeTinyTake(folder, options), {}};
    edited.document = EditorDocument::load(edited.take.screenURL);
    TimelineState& timeline = edited.document.project.timeline;
    timeline.sourceDuration = SourceTime(14);
    timeline.clips = {clip(0, 4), clip(5, 9, 2), clip(10, 14)};
    timeline.deletedGaps = {{Uuid::random(), SourceTime(4), SourceTime(5)},
                            {Uuid::random(), SourceTime(9), SourceTime(10)}};
    edited.document.hasSavedProject = true; // stands as edited
    return edited;
}

PlaybackModelOptions ModelHarness::defaults() {
    PlaybackModelOptions options;
    options.player.frameRate = 30;
    options.player.previewSize = {320, 180};
    return options;
}

ModelHarness::ModelHarness(const EditorDocument& document, PlaybackModelOptions options)
    : store(document.project),
      model(std::make_unique<PlaybackModel>(store, loop, std::move(options))) {
    model->load(document);
}

bool ModelHarness::runUntil(const std::function<bool()>& predicate,
                            std::chrono::milliseconds timeout) {
    return loop.runUntil(predicate, timeout);
}

void ModelHarness::runFor(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
        loop.runFor(std::chrono::duration_cast<std::chrono::milliseconds>(std::max(
            end - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration{})));
    }
}

bool ModelHarness::isSettled() {
    return model->hasCompositionSource().value() && !model->isLoading() &&
           !model->isReplacingScreenItem() && !model->pendingSeekGeneration() &&
           model->currentPreviewFrame() != nullptr;
}

void ModelHarness::seek(double editTime, bool triggerClicks) {
    model->seekPlayer(EditTime(editTime), triggerClicks, false);
    EXPECT_TRUE(runUntil([&] { return !model->pendingSeekGeneration(); }));
}

} // namespace orvelle::testing
