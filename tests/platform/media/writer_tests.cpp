#include "platform/media/audio_decoder.h"
#include "platform/media/detail/bgra_to_yuv420p.h"
#include "platform/media/detail/ffmpeg_util.h"
#include "platform/media/media_probe.h"
#include "platform/media/movie_writer.h"
#include "platform/media/video_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

TEST(MovieWriter, NamesContainersByExtension) {
    EXPECT_EQ(containerForPath("a/b.MOV"), MovieContainer::mov);
    EXPECT_EQ(containerForPath("b.mp4"), MovieContainer::mp4);
    EXPECT_EQ(containerForPath("b.m4a"), MovieContainer::m4a);
    EXPECT_EQ(containerForPath("b.wav"), MovieContainer::wav);
    EXPECT_EQ(containerForPath("b.avi"), std::nullopt);
    EXPECT_EQ(containerForPath("b"), std::nullopt);
}

struct CodecTableCase {
    const char* name;
    MovieContainer container;
    VideoCodec codec;
    const char* fileName;
    const char* videoCodecName;
};

const CodecTableCase codecTable[] = {
    {"Mp4H264", MovieContainer::mp4, VideoCodec::h264High, "out.mp4", "h264"},
    {"MovProRes", MovieContainer::mov, VideoCodec::proRes422Proxy, "out.mov", "prores"},
};

class MovieCodecTable : public ::testing::TestWithParam<CodecTableCase> {};

TEST_P(MovieCodecTable, WritesTheCodecsAndAac48kStereo) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.container = GetParam().container;
    options.codec = GetParam().codec;
    options.withAudio = true;
    testing::writeNumberedMovie(directory / GetParam().fileName, options);
    const MediaProbe probe = probeMediaFile(directory / GetParam().fileName);
    ASSERT_EQ(probe.videoStreams.size(), 1u);
    ASSERT_EQ(probe.audioStreams.size(), 1u);
    EXPECT_EQ(probe.videoStreams[0].codecName, GetParam().videoCodecName);
    EXPECT_EQ(probe.videoStreams[0].naturalWidth, 160);
    EXPECT_EQ(probe.audioStreams[0].codecName, "aac");
    EXPECT_EQ(probe.audioStreams[0].sampleRate, 48000);
    EXPECT_EQ(probe.audioStreams[0].channelCount, 2);
    EXPECT_NEAR(probe.duration, 1.0, 0.05);
}

INSTANTIATE_TEST_SUITE_P(Codecs, MovieCodecTable, ::testing::ValuesIn(codecTable),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

MovieWriterSettings smallMovie(MovieContainer container, VideoCodec codec) {
    MovieWriterSettings settings;
    settings.container = container;
    settings.video = MovieVideoSettings{codec, 64, 48, 30, 200000, 0};
    return settings;
}

TEST(MovieWriter, RefusesWhatItCannotWrite) {
    TemporaryDirectory directory;
    EXPECT_THROW(MovieWriter(directory / "a.mp4",
                             smallMovie(MovieContainer::mp4, VideoCodec::proRes422Proxy)),
                 MediaError)
        << "ProRes lives in mov only";
    auto odd = smallMovie(MovieContainer::mp4, VideoCodec::h264High);
    odd.video->width = 63;
    EXPECT_THROW(MovieWriter(directory / "b.mp4", odd), MediaError);
    auto noVideo = smallMovie(MovieContainer::mp4, VideoCodec::h264High);
    noVideo.video.reset();
    EXPECT_THROW(MovieWriter(directory / "c.mp4", noVideo), MediaError);
    try {
        MovieWriter writer(directory / "missing-folder" / "d.mp4",
                           smallMovie(MovieContainer::mp4, VideoCodec::h264High));
        FAIL() << "an unwritable place must fail";
    } catch (const MediaError& error) {
        EXPECT_NE(std::string(error.what()).find("No such file or directory"), std::string::npos)
            << error.what();
    }
}

// A writer made ahead of its pictures: no file until the first one (none at all when none
// comes), and the place's fault reported when it does.
TEST(MovieWriter, AWriterMadeAheadCreatesItsFileWithTheFirstPicture) {
    TemporaryDirectory directory;
    auto settings = smallMovie(MovieContainer::mov, VideoCodec::h264High);
    settings.pacing = WriterPacing::realTime;
    settings.fragmented = true;
    settings.createFileWithFirstData = true;
    VideoFrame frame;
    testing::paintNumberedFrame(frame, 7, 64, 48);
    {
        MovieWriter writer(directory / "ahead.mov", settings);
        EXPECT_FALSE(std::filesystem::exists(directory / "ahead.mov"));
        EXPECT_TRUE(writer.appendVideoFrame(frame, 0.0));
        EXPECT_TRUE(std::filesystem::exists(directory / "ahead.mov"));
        writer.finish();
    }
    VideoDecoder decoder(directory / "ahead.mov");
    VideoFrame decoded;
    ASSERT_TRUE(decoder.nextFrame(decoded));
    EXPECT_EQ(testing::readFrameNumber(decoded), 7);

    { MovieWriter unused(directory / "unused.mov", settings); }
    EXPECT_FALSE(std::filesystem::exists(directory / "unused.mov"));

    MovieWriter unwritable(directory / "missing-folder" / "late.mov", settings);
    try {
        unwritable.appendVideoFrame(frame, 0.0);
        FAIL() << "an unwritable place must fail at the first picture";
    } catch (const MediaError& error) {
        EXPECT_NE(std::string(error.what()).find("late.mov"), std::string::npos) << error.what();
    }
    EXPECT_THROW(unwritable.appendVideoFrame(frame, 0.1), MediaError) << "nothing after a failure";
}

TEST(MovieWriter, PassesOverFramesOutOfOrderAndRefusesWrongSizes) {
    TemporaryDirectory directory;
    MovieWriter writer(directory / "a.mp4", smallMovie(MovieContainer::mp4, VideoCodec::h264High));
    VideoFrame frame;
    testing::paintNumberedFrame(frame, 1, 64, 48);
    EXPECT_TRUE(writer.appendVideoFrame(frame, 0.0));
    EXPECT_TRUE(writer.appendVideoFrame(frame, 0.1));
    EXPECT_FALSE(writer.appendVideoFrame(frame, 0.1)) << "same time";
    EXPECT_FALSE(writer.appendVideoFrame(frame, 0.05)) << "earlier time";
    VideoFrame wrong;
    testing::paintNumberedFrame(wrong, 1, 32, 48);
    EXPECT_THROW(writer.appendVideoFrame(wrong, 0.2), MediaError);
    EXPECT_THROW(writer.appendAudio(nullptr, 10), MediaError) << "no audio track";
    writer.finish();
    EXPECT_EQ(writer.videoFramesWritten(), 2);
    EXPECT_THROW(writer.finish(), MediaError) << "finished once";
}

TEST(MovieWriter, KeepsVariableFrameTimes) {
    TemporaryDirectory directory;
    const double times[] = {0.0, 0.05, 0.3, 0.31, 1.0};
    {
        MovieWriter writer(directory / "vfr.mov",
                           smallMovie(MovieContainer::mov, VideoCodec::proRes422Proxy));
        VideoFrame frame;
        for (int i = 0; i < 5; ++i) {
            testing::paintNumberedFrame(frame, i, 64, 48);
            ASSERT_TRUE(
                writer.appendVideoFrame(frame.planes[0].data(), frame.strides[0], times[i]));
        }
        writer.finish();
    }
    VideoDecoder decoder(directory / "vfr.mov");
    VideoFrame frame;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(decoder.nextFrame(frame));
        EXPECT_NEAR(frame.presentationTime, times[i], 1e-4);
        EXPECT_EQ(testing::readFrameNumber(frame), i);
    }
    decoder.seek(0.2);
    ASSERT_TRUE(decoder.nextFrame(frame));
    EXPECT_EQ(testing::readFrameNumber(frame), 1) << "frame 1 stays on screen until 0.3";
}

TEST(MovieWriter, RealTimePacingWritesOrCountsEveryFrame) {
    TemporaryDirectory directory;
    auto settings = smallMovie(MovieContainer::mp4, VideoCodec::h264High);
    settings.pacing = WriterPacing::realTime;
    settings.fragmented = true;
    settings.audio = MovieAudioSettings{{48000, 1}, {48000, 2}, 192000, WavSampleFormat::int16};
    const auto tone = testing::sineTone(440, 1.0, 48000, 1);
    int64_t accepted = 0;
    {
        MovieWriter writer(directory / "live.mp4", settings);
        VideoFrame frame;
        for (int i = 0; i < 30; ++i) {
            testing::paintNumberedFrame(frame, i, 64, 48);
            accepted += writer.appendVideoFrame(frame, i / 30.0) ? 1 : 0;
            writer.appendAudio(tone.data() + i * 1600, 1600);
        }
        writer.finish();
        EXPECT_EQ(writer.videoFramesWritten(), accepted);
        EXPECT_EQ(writer.videoFramesWritten() + writer.droppedVideoFrames(), 30);
        EXPECT_EQ(writer.audioFramesWritten(), 48000);
    }
    VideoDecoder decoder(directory / "live.mp4");
    VideoFrame frame;
    int64_t decoded = 0;
    int last = -1;
    while (decoder.nextFrame(frame)) {
        const int number = testing::readFrameNumber(frame);
        EXPECT_GT(number, last);
        last = number;
        ++decoded;
    }
    EXPECT_EQ(decoded, accepted);
    const auto sound = decodeAudioFile(directory / "live.mp4", {48000, 2});
    EXPECT_NEAR(static_cast<double>(sound.size()) / 2, 48000, 1100);
}

// A capture source lends its buffers: the writer must hold each until it is encoded (a
// buffer given back early would be refilled under the encoder) and then let go of it.
TEST(MovieWriter, LentPicturesAreHeldUntilEncodedAndThenGivenBack) {
    TemporaryDirectory directory;
    auto settings = smallMovie(MovieContainer::mov, VideoCodec::h264High);
    settings.pacing = WriterPacing::realTime;
    settings.fragmented = true;
    settings.video->quantiser = 20;
    std::vector<std::weak_ptr<VideoFrame>> lent;
    int64_t accepted = 0;
    {
        MovieWriter writer(directory / "lent.mov", settings);
        for (int i = 0; i < 20; ++i) {
            auto picture = std::make_shared<VideoFrame>();
            testing::paintNumberedFrame(*picture, i, 64, 48);
            lent.push_back(picture);
            const bool taken = writer.appendLentVideoFrame(picture, picture->planes[0].data(),
                                                           picture->strides[0], i / 30.0);
            accepted += taken ? 1 : 0;
            // What the writer no longer holds may be reused at once, as a capture pool does.
            if (picture.use_count() == 1) {
                testing::paintNumberedFrame(*picture, 255, 64, 48);
            }
        }
        writer.finish();
        EXPECT_EQ(accepted + writer.droppedVideoFrames(), 20);
        for (const auto& picture : lent) {
            EXPECT_TRUE(picture.expired()) << "the writer still holds a picture";
        }
    }
    VideoDecoder decoder(directory / "lent.mov");
    VideoFrame frame;
    std::vector<int> numbers;
    while (decoder.nextFrame(frame)) {
        numbers.push_back(testing::readFrameNumber(frame));
    }
    EXPECT_EQ(static_cast<int64_t>(numbers.size()), accepted);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(numbers.front(), 0);
    EXPECT_LT(numbers.back(), 20) << "a picture was encoded after it was given back";
}

// Eight bars of full-strength colour, as wide as the picture allows; at odd sizes the edges
// between bars fall inside 2x2 chroma blocks.
void paintColourBars(VideoFrame& frame, int width, int height) {
    static constexpr uint32_t bars[8] = {0xffffffff, 0xffffff00, 0xff00ffff, 0xff00ff00,
                                         0xffff00ff, 0xffff0000, 0xff0000ff, 0xff000000};
    frame.allocate(PixelLayout::bgra, width, height);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(frame.row(0, y));
        for (int x = 0; x < width; ++x) {
            row[x] = bars[x * 8 / width];
        }
    }
}

void paintNoise(VideoFrame& frame, int width, int height) {
    frame.allocate(PixelLayout::bgra, width, height);
    std::mt19937 random(width * 7919 + height);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int y = 0; y < height; ++y) {
        uint8_t* row = frame.row(0, y);
        for (int x = 0; x < width * 4; ++x) {
            row[x] = static_cast<uint8_t>(byte(random));
        }
    }
}

// What the writer did before it had its own converter: swscale, bilinear, BT.709 limited.
VideoFrame scaledWithSwscale(const VideoFrame& bgra) {
    VideoFrame out;
    out.allocate(PixelLayout::yuv420p, bgra.width, bgra.height);
    detail::SwsPtr scaler(sws_getContext(bgra.width, bgra.height, AV_PIX_FMT_BGRA, bgra.width,
                                         bgra.height, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr,
                                         nullptr, nullptr));
    detail::setColorDetails(scaler.get(), AVCOL_SPC_BT709, false, false, true);
    const uint8_t* source[4] = {bgra.planes[0].data(), nullptr, nullptr, nullptr};
    const int sourceStride[4] = {bgra.strides[0], 0, 0, 0};
    uint8_t* planes[4] = {out.planes[0].data(), out.planes[1].data(), out.planes[2].data(),
                          nullptr};
    const int strides[4] = {out.strides[0], out.strides[1], out.strides[2], 0};
    sws_scale(scaler.get(), source, sourceStride, 0, bgra.height, planes, strides);
    return out;
}

// The exact BT.709 limited-range chroma of the 2x2 block at (x, y) of the chroma plane, the
// last column and row standing in for missing ones at odd sizes.
double exactChroma(const VideoFrame& bgra, int plane, int x, int y) {
    double sum = 0;
    for (int dy = 0; dy < 2; ++dy) {
        for (int dx = 0; dx < 2; ++dx) {
            const uint8_t* pixel = bgra.row(0, std::min(2 * y + dy, bgra.height - 1)) +
                                   std::min(2 * x + dx, bgra.width - 1) * 4;
            const double b = pixel[0], g = pixel[1], r = pixel[2];
            const double luma = 0.2126 * r + 0.7152 * g + 0.0722 * b;
            sum += plane == 1 ? (b - luma) / 1.8556 : (r - luma) / 1.5748;
        }
    }
    return 128 + sum / 4 * 224 / 255;
}

struct ConverterCase {
    const char* name;
    void (*paint)(VideoFrame&, int, int);
    int width;
    int height;
    int threads;
    bool verticallyUniform; // swscale's chroma, filtered over four rows, is then a 2x2 mean too
};

const ConverterCase converterCases[] = {
    {"NoiseEven", paintNoise, 1280, 720, 2, false},
    {"NoiseOdd", paintNoise, 333, 211, 3, false},
    {"BarsEven", paintColourBars, 1920, 1080, 2, true},
    {"BarsOdd", paintColourBars, 1279, 719, 2, true},
    {"BarsOddOneThread", paintColourBars, 65, 3, 1, true},
    {"NoiseTiny", paintNoise, 1, 1, 2, false},
};

class BgraToYuv420pTable : public ::testing::TestWithParam<ConverterCase> {};

// Luma within one step of swscale's everywhere; chroma the exact 2x2 mean rounded (ties aside),
// and within one step of swscale's where the picture does not change down the rows.
TEST_P(BgraToYuv420pTable, MatchesSwscaleAndTheExactMean) {
    const auto& test = GetParam();
    VideoFrame bgra;
    test.paint(bgra, test.width, test.height);
    const VideoFrame expected = scaledWithSwscale(bgra);
    VideoFrame ours;
    ours.allocate(PixelLayout::yuv420p, test.width, test.height);
    detail::BandRunner bands(test.threads);
    detail::bgraToYuv420pBt709(
        bgra.planes[0].data(), bgra.strides[0], test.width, test.height,
        {{ours.planes[0].data(), ours.planes[1].data(), ours.planes[2].data()}, ours.strides},
        bands);
    for (int plane = 0; plane < 3; ++plane) {
        int fromSwscale = 0;
        double fromExact = 0;
        for (int y = 0; y < ours.planeHeight(plane); ++y) {
            for (int x = 0; x < ours.planeWidthBytes(plane); ++x) {
                const int sample = ours.row(plane, y)[x];
                fromSwscale = std::max(fromSwscale, std::abs(sample - expected.row(plane, y)[x]));
                if (plane > 0) {
                    fromExact =
                        std::max(fromExact, std::abs(sample - exactChroma(bgra, plane, x, y)));
                }
            }
        }
        if (plane == 0 || test.verticallyUniform) {
            EXPECT_LE(fromSwscale, 1) << "plane " << plane;
        }
        EXPECT_LE(fromExact, 0.51) << "plane " << plane;
    }

    // The vectorised kernels (where the processor has them) give the portable ones' bytes.
    VideoFrame portable;
    portable.allocate(PixelLayout::yuv420p, test.width, test.height);
    detail::bgraToYuv420pBt709(
        bgra.planes[0].data(), bgra.strides[0], test.width, test.height,
        {{portable.planes[0].data(), portable.planes[1].data(), portable.planes[2].data()},
         portable.strides},
        bands, false);
    for (int plane = 0; plane < 3; ++plane) {
        for (int y = 0; y < ours.planeHeight(plane); ++y) {
            ASSERT_TRUE(std::equal(ours.row(plane, y),
                                   ours.row(plane, y) + ours.planeWidthBytes(plane),
                                   portable.row(plane, y)))
                << "plane " << plane << " row " << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Pictures, BgraToYuv420pTable, ::testing::ValuesIn(converterCases),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(MovieWriter, HdFramesComeBackWithTheirNumbersAndColours) {
    TemporaryDirectory directory;
    MovieWriterSettings settings;
    settings.container = MovieContainer::mp4;
    settings.video = MovieVideoSettings{VideoCodec::h264High, 1280, 720, 30, 0, 0};
    VideoFrame bars;
    paintColourBars(bars, 1280, 720);
    {
        MovieWriter writer(directory / "hd.mp4", settings);
        VideoFrame frame;
        for (int i = 0; i < 3; ++i) {
            testing::paintNumberedFrame(frame, i + 5, 1280, 720);
            ASSERT_TRUE(writer.appendVideoFrame(frame, i / 30.0));
        }
        ASSERT_TRUE(writer.appendVideoFrame(bars, 0.1));
        writer.finish();
    }
    VideoDecoder decoder(directory / "hd.mp4");
    VideoFrame frame;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(decoder.nextFrame(frame));
        EXPECT_EQ(testing::readFrameNumber(frame), i + 5);
    }
    ASSERT_TRUE(decoder.nextFrame(frame));
    // The middle of each bar: the round trip loses up to 12 steps on saturated colours; a wrong
    // matrix or range moves some of them by 20 or more.
    for (int bar = 0; bar < 8; ++bar) {
        const int x = bar * 160 + 80;
        for (int channel = 0; channel < 3; ++channel) {
            EXPECT_NEAR(frame.row(0, 360)[x * 4 + channel], bars.row(0, 360)[x * 4 + channel], 14)
                << "bar " << bar << " channel " << channel;
        }
    }
}

TEST(AudioFileWriter, WritesPcmWavAtTheChosenDepthAndConvertsItsInput) {
    TemporaryDirectory directory;
    const auto tone = testing::sineTone(1000, 0.25, 44100, 1, 0.25f);
    MovieAudioSettings settings;
    settings.input = {44100, 1};
    settings.output = {48000, 2};
    settings.wavFormat = WavSampleFormat::int16;
    {
        AudioFileWriter writer(directory / "mix.wav", MovieContainer::wav, settings);
        writer.append(tone.data(), tone.size());
        writer.finish();
        EXPECT_EQ(writer.framesWritten(), static_cast<int64_t>(tone.size()));
    }
    const MediaProbe probe = probeMediaFile(directory / "mix.wav");
    ASSERT_EQ(probe.audioStreams.size(), 1u);
    EXPECT_EQ(probe.audioStreams[0].codecName, "pcm_s16le");
    EXPECT_EQ(probe.audioStreams[0].sampleRate, 48000);
    EXPECT_EQ(probe.audioStreams[0].channelCount, 2);
    const auto decoded = decodeAudioFile(directory / "mix.wav", {48000, 2});
    EXPECT_NEAR(static_cast<double>(decoded.size()) / 2, 12000, 2);
    EXPECT_NEAR(testing::estimateFrequency(decoded, 48000, 2), 1000, 1);
}

} // namespace
} // namespace orvelle
