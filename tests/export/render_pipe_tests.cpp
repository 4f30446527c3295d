// The export's pump over real files: tiny numbered movies and tones made at test time,
// decoded, drawn, mixed and encoded by the real decoders and writers. The frames are drawn
// by a stand-in compositor that copies the screen's picture, so that each frame of the
// result can be told apart.

#include "core/files.h"
#include "export/orvelle_video_compositor.h"
#include "export/render_export_codec.h"
#include "export/render_exporter.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <mutex>
#include <numeric>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

constexpr int kWidth = 160;
constexpr int kHeight = 96;

// Copies the screen's picture (of the output's size) into the frame, black where the
// recording has none. Can be told to fail or to cancel the export at a frame.
class CopyingCompositor : public ExportFrameCompositor {
public:
    std::vector<int64_t> frames;     // the indices asked for, in order
    std::optional<int64_t> failAt;   // throws at this frame
    std::optional<int64_t> cancelAt; // requests a stop at this frame
    std::stop_source* stopSource = nullptr;

    void compose(const ExportFrameRequest& request, VideoFrame& output) override {
        frames.push_back(request.frameIndex);
        if (failAt && request.frameIndex == *failAt) {
            throw Error("The frame could not be drawn.");
        }
        if (cancelAt && request.frameIndex == *cancelAt && stopSource != nullptr) {
            stopSource->request_stop();
        }
        for (int y = 0; y < output.height; ++y) {
            uint8_t* row = output.row(0, y);
            if (request.screen == nullptr) {
                for (int x = 0; x < output.width; ++x) {
                    row[x * 4] = row[x * 4 + 1] = row[x * 4 + 2] = 0;
                    row[x * 4 + 3] = 255;
                }
            } else {
                std::memcpy(row, request.screen->row(0, y), static_cast<size_t>(output.width) * 4);
            }
        }
    }
};

class RenderPipeTest : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    std::filesystem::path screen = directory / "screen.mp4";
    std::filesystem::path tone = directory / "tone.wav";
    std::filesystem::path output = directory / "out.mp4";

    void SetUp() override {
        testing::TestMovieOptions options;
        options.width = kWidth;
        options.height = kHeight;
        options.frameCount = 90; // 3 s at 30 frames a second
        options.keyframeInterval = 15;
        testing::writeNumberedMovie(screen, options);
        testing::writeAudioFile(tone, testing::sineTone(440, 3, 48000, 2), {48000, 2});
    }

    // The screen from `from` to `to` seconds, optionally with the tone under it.
    RenderComposition::Output composition(double from, double to, bool withAudio, int fps = 30) {
        RenderComposition::Output result;
        CompositionTrack& video = result.composition.addTrack(CompositionMediaType::video);
        const int media = result.composition.mediaID(screen);
        video.insert(
            {media, MediaTimeRange::between(from, to), MediaTimeRange::between(0, to - from)});
        result.screenTrackID = video.trackID;
        if (withAudio) {
            CompositionTrack& audio = result.composition.addTrack(CompositionMediaType::audio);
            audio.insert({result.composition.mediaID(tone), MediaTimeRange::between(from, to),
                          MediaTimeRange::between(0, to - from)});
            result.audioMix = AudioMix{};
        }
        result.timelineDuration = to - from;
        result.width = kWidth;
        result.height = kHeight;
        result.fps = fps;
        result.instructions = RenderComposition::videoInstructions(
            mediaTicks(result.timelineDuration), result.screenTrackID, nullptr);
        return result;
    }

    RenderPipe::Options options(std::vector<double>* progress = nullptr) {
        RenderPipe::Options value;
        value.outputURL = output;
        value.fileType =
            output.extension() == ".mov" ? RenderExportFileType::mov : RenderExportFileType::mp4;
        if (progress != nullptr) {
            value.progress = [progress](double fraction) { progress->push_back(fraction); };
        }
        return value;
    }
};

TEST_F(RenderPipeTest, WritesEveryFrameOfTheEditInOrderWithItsSound) {
    CopyingCompositor compositor;
    std::vector<double> progress;
    bool finalized = false;
    auto settings = options(&progress);
    settings.finalizing = [&] {
        finalized = true;
        EXPECT_FALSE(progress.empty());
        EXPECT_LE(progress.back(), 0.99);
    };
    RenderExporterV2::writeComposition(composition(1.0, 2.5, true), compositor, settings, {});

    const MediaProbe probe = probeMediaFile(output);
    ASSERT_NE(probe.firstVideo(), nullptr);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstVideo()->codecName, "h264");
    EXPECT_EQ(probe.firstVideo()->codedWidth, kWidth);
    EXPECT_EQ(probe.firstVideo()->codedHeight, kHeight);
    EXPECT_NEAR(*probe.firstVideo()->nominalFrameRate, 30, 0.01);
    EXPECT_EQ(probe.firstAudio()->codecName, "aac");
    EXPECT_EQ(probe.firstAudio()->sampleRate, 48000);
    EXPECT_EQ(probe.firstAudio()->channelCount, 2);
    EXPECT_NEAR(probe.duration, 1.5, 1.0 / 30 + 1e-3);

    // Frame i of the movie is frame 30 + i of the screen: the edit starts 1 s in.
    VideoDecoder decoder(output);
    VideoFrame frame;
    int count = 0;
    while (decoder.nextFrame(frame)) {
        EXPECT_EQ(testing::readFrameNumber(frame), 30 + count) << "frame " << count;
        ++count;
    }
    EXPECT_EQ(count, 45);
    std::vector<int64_t> expected(45);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(compositor.frames, expected);

    // The sound is the tone, as long as the edit.
    const auto samples = decodeAudioFile(output, {48000, 2});
    EXPECT_NEAR(static_cast<double>(samples.size()) / 2 / 48000, 1.5, 0.03);
    const std::vector<float> middle(samples.begin() + 48000, samples.begin() + 96000);
    EXPECT_NEAR(testing::estimateFrequency(middle, 48000, 2), 440, 2);

    EXPECT_TRUE(finalized);
    ASSERT_FALSE(progress.empty());
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_LE(*std::max_element(progress.begin(), progress.end() - 1), 0.99);
    EXPECT_EQ(progress.back(), 1.0);
}

TEST_F(RenderPipeTest, ACompositionWithoutSoundHasOneStream) {
    CopyingCompositor compositor;
    RenderExporterV2::writeComposition(composition(0, 1, false), compositor, options(), {});
    const MediaProbe probe = probeMediaFile(output);
    EXPECT_EQ(probe.videoStreams.size(), 1u);
    EXPECT_TRUE(probe.audioStreams.empty());
}

TEST_F(RenderPipeTest, ATinyTimelineNeverReportsMoreThanNinetyNinePercentBeforeTheEnd) {
    CopyingCompositor compositor;
    std::vector<double> progress;
    RenderExporterV2::writeComposition(composition(0.5, 0.505, true), compositor,
                                       options(&progress), {});
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), 1.0);
    for (size_t i = 0; i + 1 < progress.size(); ++i) {
        EXPECT_LE(progress[i], 0.99);
    }
    EXPECT_EQ(compositor.frames.size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(output));
}

TEST_F(RenderPipeTest, AGapInTheRecordingIsDrawnWithoutAScreenPicture) {
    // The screen is inserted from 0.5 s of edit time only.
    auto gapped = composition(0, 1, false);
    auto& track = *gapped.composition.track(gapped.screenTrackID);
    track.insertions.front().editRange = MediaTimeRange::between(0.5, 1.5);
    gapped.timelineDuration = 1.5;
    CopyingCompositor compositor;
    RenderExporterV2::writeComposition(gapped, compositor, options(), {});
    VideoDecoder decoder(output);
    VideoFrame frame;
    ASSERT_TRUE(decoder.nextFrame(frame));
    EXPECT_LT(frame.row(0, kHeight / 2)[1], 30); // black
    decoder.seek(1.0);
    ASSERT_TRUE(decoder.nextFrame(frame));
    EXPECT_EQ(testing::readFrameNumber(frame), 15);
}

TEST_F(RenderPipeTest, ProResMovieAtTheRenderSize) {
    output = directory / "out.mov";
    CopyingCompositor compositor;
    RenderExporterV2::writeComposition(composition(0, 1, true, 60), compositor, options(), {});
    const MediaProbe probe = probeMediaFile(output);
    ASSERT_NE(probe.firstVideo(), nullptr);
    EXPECT_EQ(probe.firstVideo()->codecName, "prores");
    EXPECT_NEAR(*probe.firstVideo()->nominalFrameRate, 60, 0.01);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstAudio()->codecName, "aac");
    EXPECT_EQ(compositor.frames.size(), 60u);
}

// A stop drops the frames still waiting to be drawn, and the movie that was at the
// destination stands, with no partial file beside it.
TEST_F(RenderPipeTest, CancellationAtAnyPointLeavesTheOldMovie) {
    for (const int64_t at : {0, 7, 44}) {
        std::ofstream(output) << "an older movie";
        CopyingCompositor compositor;
        std::stop_source stop;
        compositor.cancelAt = at;
        compositor.stopSource = &stop;
        EXPECT_THROW(RenderExporterV2::writeComposition(composition(1.0, 2.5, true), compositor,
                                                        options(), stop.get_token()),
                     CancellationError)
            << "cancelled at frame " << at;
        EXPECT_EQ(readFile(output), "an older movie") << "cancelled at frame " << at;
        EXPECT_EQ(compositor.frames.size(), static_cast<size_t>(at) + 1);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                                std::filesystem::directory_iterator()),
                  3)
            << "the screen, the tone and the old movie";
    }
}

TEST_F(RenderPipeTest, CancellationWhileTheFileIsFinishedRemovesIt) {
    CopyingCompositor compositor;
    std::stop_source stop;
    auto settings = options();
    settings.finalizing = [&] { stop.request_stop(); };
    EXPECT_THROW(RenderExporterV2::writeComposition(composition(0, 1, true), compositor, settings,
                                                    stop.get_token()),
                 CancellationError);
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(RenderPipeTest, ADrawingFailureEndsTheExportAsAReaderFailure) {
    std::ofstream(output) << "an older movie";
    CopyingCompositor compositor;
    compositor.failAt = 10;
    try {
        RenderExporterV2::writeComposition(composition(0, 3, true), compositor, options(), {});
        FAIL() << "the export went on";
    } catch (const RenderExportError& error) {
        EXPECT_EQ(error.code(), RenderExportErrorCode::writerFailed);
        EXPECT_STREQ(error.what(), "The frame could not be drawn.");
    }
    EXPECT_EQ(readFile(output), "an older movie");
}

// The compositor that draws the export's frames, over the geometry of a plain 2 s edit.
class VideoCompositor : public RenderPipeTest {
protected:
    std::shared_ptr<RenderFrameResolver> resolver() const {
        RenderFrameSource source;
        source.project.timeline = fullLengthTimeline(SourceTime(3));
        source.project.background.paddingAmount = 0;
        source.sourceNaturalSize = {kWidth, kHeight};
        source.stageSize = {kWidth, kHeight};
        return std::make_shared<RenderFrameResolver>(source);
    }
};

// A frame it cannot draw fails the export in its own words, as a failure to read, with
// the old movie left: one without an instruction, one with no picture to draw into. A
// stretch without a screen picture is drawn as a black card.
TEST_F(VideoCompositor, FailsClearlyOnAFrameItCannotDraw) {
    OrvelleVideoCompositor compositor(resolver());
    auto plain = composition(0, 1, false);
    VideoFrame frame;
    frame.allocate(PixelLayout::bgra, kWidth, kHeight);
    std::fill(frame.planes[0].begin(), frame.planes[0].end(), uint8_t{200});
    compositor.compose({0, 0.5, &plain.instructions.front(), nullptr, nullptr}, frame);
    const uint8_t* middle = frame.row(0, kHeight / 2) + kWidth / 2 * 4;
    EXPECT_EQ((std::array{middle[0], middle[1], middle[2], middle[3]}),
              (std::array<uint8_t, 4>{0, 0, 0, 255}));

    const auto failure = [&](const ExportFrameRequest& request, VideoFrame& into) {
        try {
            compositor.compose(request, into);
        } catch (const OrvelleCompositorError& error) {
            return std::pair{error.code(), std::string(error.what())};
        }
        return std::pair{OrvelleCompositorErrorCode{}, std::string("no error")};
    };
    VideoFrame none;
    EXPECT_EQ(failure({0, 0.5, &plain.instructions.front(), nullptr, nullptr}, none),
              std::pair(OrvelleCompositorErrorCode::cannotAllocateOutputBuffer,
                        std::string("The render context could not allocate an output pixel "
                                    "buffer.")));
    EXPECT_EQ(failure({0, 0.5, nullptr, nullptr, nullptr}, frame),
              std::pair(OrvelleCompositorErrorCode::missingInstruction,
                        std::string("A frame of the export has no composition instruction.")));

    std::ofstream(output) << "an older movie";
    plain.instructions.clear();
    try {
        RenderExporterV2::writeComposition(plain, compositor, options(), {});
        FAIL() << "the export went on";
    } catch (const RenderExportError& error) {
        EXPECT_EQ(error.code(), RenderExportErrorCode::writerFailed);
        EXPECT_STREQ(error.what(), "A frame of the export has no composition instruction.");
    }
    EXPECT_EQ(readFile(output), "an older movie");
}

TEST_F(RenderPipeTest, AMissingSourceFileEndsTheExportAsAReaderFailure) {
    auto broken = composition(0, 1, false);
    broken.composition.media[0] = directory / "gone.mp4";
    CopyingCompositor compositor;
    try {
        RenderExporterV2::writeComposition(broken, compositor, options(), {});
        FAIL() << "the export went on";
    } catch (const RenderExportError& error) {
        EXPECT_EQ(error.code(), RenderExportErrorCode::writerFailed);
        EXPECT_NE(std::string(error.what()).find("gone.mp4"), std::string::npos) << error.what();
    }
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(RenderPipeTest, AWriterThatCannotStartFailsWithItsReason) {
    output = directory / "missing-folder" / "out.mp4";
    CopyingCompositor compositor;
    try {
        RenderExporterV2::writeComposition(composition(0, 1, false), compositor, options(), {});
        FAIL() << "the export went on";
    } catch (const RenderExportError& error) {
        EXPECT_EQ(error.code(), RenderExportErrorCode::writerFailed);
        EXPECT_FALSE(std::string(error.what()).empty());
    }
    EXPECT_TRUE(compositor.frames.empty());
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(RenderPipeTest, AWriterThatFailsMidwayLeavesNoFile) {
    // An odd size is refused by the encoder when the writer starts; a picture of another
    // size than the movie is refused on append.
    CopyingCompositor compositor;
    auto odd = composition(0, 1, false);
    odd.width = kWidth - 1;
    EXPECT_THROW(RenderExporterV2::writeComposition(odd, compositor, options(), {}),
                 RenderExportError);
    EXPECT_FALSE(std::filesystem::exists(output));

    class ShrinkingCompositor : public CopyingCompositor {
    public:
        void compose(const ExportFrameRequest& request, VideoFrame& frame) override {
            CopyingCompositor::compose(request, frame);
            if (request.frameIndex == 5) {
                frame.allocate(PixelLayout::bgra, kWidth / 2, kHeight / 2);
            }
        }
    } shrinking;
    try {
        RenderExporterV2::writeComposition(composition(0, 1, true), shrinking, options(), {});
        FAIL() << "the export went on";
    } catch (const RenderExportError& error) {
        EXPECT_EQ(error.code(), RenderExportErrorCode::writerFailed);
        EXPECT_STREQ(error.what(), "Failed to append video sample.");
    }
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST(RenderPipeFrames, CountAndInstructionLookup) {
    EXPECT_EQ(RenderPipe::frameCount(1.0, 60), 60);
    EXPECT_EQ(RenderPipe::frameCount(1.001, 60), 61);
    EXPECT_EQ(RenderPipe::frameCount(0.005, 60), 1);
    EXPECT_EQ(RenderPipe::frameCount(0, 60), 0);
    EXPECT_EQ(RenderPipe::frameCount(1.5, 30), 45);

    const std::vector<OrvelleCompositionInstruction> instructions{
        {{0, 600}, 1, std::nullopt}, {{600, 300}, 1, 2}, {{900, 100}, 1, std::nullopt}};
    EXPECT_EQ(RenderPipe::instruction(instructions, 0), &instructions[0]);
    EXPECT_EQ(RenderPipe::instruction(instructions, 599), &instructions[0]);
    EXPECT_EQ(RenderPipe::instruction(instructions, 600), &instructions[1]);
    EXPECT_EQ(RenderPipe::instruction(instructions, 950), &instructions[2]);
    EXPECT_EQ(RenderPipe::instruction(instructions, 5000), &instructions[2]);
    EXPECT_EQ(RenderPipe::instruction({}, 0), nullptr);
}

TEST(RenderExportCodec, BitRateFollowsAreaAndQuality) {
    using RenderExportCodec::videoBitRate;
    EXPECT_EQ(videoBitRate(1920, 1080, RenderExportQuality::standard), 5'806'080);
    EXPECT_EQ(videoBitRate(1920, 1080, RenderExportQuality::high), 10'782'720);
    EXPECT_EQ(videoBitRate(1920, 1080, RenderExportQuality::best), 16'588'800);
    EXPECT_EQ(videoBitRate(64, 64, RenderExportQuality::standard), 2'500'000);
    EXPECT_EQ(videoBitRate(64, 64, RenderExportQuality::best), 2'500'000);
}

TEST(RenderExportCodec, AMovIsProResWhateverTheQuality) {
    using RenderExportCodec::writerSettings;
    const auto best =
        writerSettings(RenderExportFileType::mov, RenderExportQuality::best, 1920, 1080, 60, true);
    const auto standard = writerSettings(RenderExportFileType::mov, RenderExportQuality::standard,
                                         1920, 1080, 60, true);
    EXPECT_EQ(best.container, MovieContainer::mov);
    ASSERT_TRUE(best.video && standard.video);
    EXPECT_EQ(best.video->codec, VideoCodec::proRes422Proxy);
    EXPECT_EQ(best.video->codec, standard.video->codec);
    EXPECT_EQ(best.video->averageBitRate, standard.video->averageBitRate);
    EXPECT_EQ(best.video->width, standard.video->width);
    EXPECT_EQ(best.audio.has_value(), standard.audio.has_value());

    const auto mp4 =
        writerSettings(RenderExportFileType::mp4, RenderExportQuality::high, 1280, 720, 30, false);
    EXPECT_EQ(mp4.container, MovieContainer::mp4);
    EXPECT_EQ(mp4.video->codec, VideoCodec::h264High);
    EXPECT_EQ(mp4.video->averageBitRate, 4'792'320);
    EXPECT_EQ(mp4.video->frameRate, 30);
    EXPECT_FALSE(mp4.audio);
    EXPECT_EQ(best.audio->bitRate, 192'000);
    EXPECT_EQ(best.audio->output, (AudioFormat{48000, 2}));
}

class ValidateOutput : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    RenderExportSettings settings;

    void SetUp() override {
        std::filesystem::create_directories(directory / "take");
        settings.sourceURL = directory / "take" / "screen.mov";
        std::ofstream(settings.sourceURL) << "the recording";
        TakeSegmentManifest microphone;
        microphone.kind = MediaTrackManifest::Kind::microphone;
        microphone.url = directory / "take" / "microphone.m4a";
        settings.project.manifest.segments.push_back(microphone);
    }
};

TEST_F(ValidateOutput, RefusesASourceFileHoweverItIsSpelt) {
    for (const auto& spelling :
         {directory / "take" / "screen.mov", directory / "take" / "." / "screen.mov",
          directory / "take" / ".." / "take" / "microphone.m4a"}) {
        settings.outputURL = spelling;
        try {
            RenderExporterV2::validateOutputURL(settings);
            FAIL() << spelling << " was accepted";
        } catch (const RenderExportError& error) {
            EXPECT_EQ(error.code(), RenderExportErrorCode::invalidOutputURL);
            const std::string name = spelling.filename().string();
            EXPECT_EQ(std::string(error.what()), "The export destination matches source media (" +
                                                     name + "). Choose a different output file.");
        }
    }
    EXPECT_EQ(readFile(settings.sourceURL), "the recording");
}

TEST_F(ValidateOutput, AcceptsAnotherFileAndRefusesAFolder) {
    settings.outputURL = directory / "take" / "screen.mp4";
    EXPECT_NO_THROW(RenderExporterV2::validateOutputURL(settings));
    settings.outputURL = directory / "take";
    EXPECT_THROW(RenderExporterV2::validateOutputURL(settings), RenderExportError);
}

// The click sound the build synthesises: short, loud enough, ending in silence.
TEST(ClickSound, TheBuiltResourceIsAShortStereoClick) {
    const auto url = testing::binaryDirectory() / "share" / "orvelle" / "Sounds" / "click.wav";
    ASSERT_TRUE(std::filesystem::exists(url)) << url;
    const auto samples = decodeAudioFile(url, {48000, 2});
    const double seconds = static_cast<double>(samples.size()) / 2 / 48000;
    EXPECT_GT(seconds, 0.03);
    EXPECT_LT(seconds, 0.2);
    float peak = 0;
    for (const float sample : samples) {
        peak = std::max(peak, std::abs(sample));
    }
    EXPECT_NEAR(peak, 0.79, 0.02); // -2 dBFS
    EXPECT_LT(std::abs(samples.back()), 0.01f);
    // The press is louder than the release.
    float pressPeak = 0;
    for (size_t i = 0; i < samples.size() / 2; ++i) {
        pressPeak = std::max(pressPeak, std::abs(samples[i]));
    }
    EXPECT_EQ(pressPeak, peak);
}

} // namespace
} // namespace orvelle
