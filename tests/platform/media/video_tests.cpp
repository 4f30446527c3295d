#include "platform/media/video_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

struct CodecCase {
    const char* name;
    MovieContainer container;
    VideoCodec codec;
    const char* fileName;
    double colourTolerance; // mean absolute difference per channel in the flat half
};

const CodecCase codecCases[] = {
    {"H264", MovieContainer::mp4, VideoCodec::h264High, "movie.mp4", 6.0},
    {"ProRes", MovieContainer::mov, VideoCodec::proRes422Proxy, "movie.mov", 4.0},
    {"H264InMov", MovieContainer::mov, VideoCodec::h264High, "movie.mov", 6.0},
};

class VideoRoundTrip : public ::testing::TestWithParam<CodecCase> {
protected:
    void SetUp() override {
        options.container = GetParam().container;
        options.codec = GetParam().codec;
        path = directory / GetParam().fileName;
        testing::writeNumberedMovie(path, options);
    }

    double meanDifference(const VideoFrame& decoded, int number) const {
        VideoFrame expected;
        testing::paintNumberedFrame(expected, number, options.width, options.height);
        double sum = 0;
        long count = 0;
        // The flat lower half, away from the edge between the halves.
        for (int y = options.height * 5 / 8; y < options.height; ++y) {
            for (int x = 0; x < options.width * 4; ++x) {
                if (x % 4 == 3) {
                    continue;
                }
                sum += std::abs(decoded.row(0, y)[x] - expected.row(0, y)[x]);
                ++count;
            }
        }
        return sum / static_cast<double>(count);
    }

    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    std::filesystem::path path;
};

TEST_P(VideoRoundTrip, DecodesEveryFrameInOrderWithItsTimeAndColours) {
    VideoDecoder decoder(path);
    EXPECT_EQ(decoder.width(), options.width);
    EXPECT_EQ(decoder.height(), options.height);
    EXPECT_NEAR(decoder.nominalFrameRate(), 30.0, 0.01);
    EXPECT_NEAR(decoder.duration(), 1.0, 0.04);
    VideoFrame frame;
    int count = 0;
    while (decoder.nextFrame(frame)) {
        EXPECT_EQ(testing::readFrameNumber(frame), count);
        EXPECT_NEAR(frame.presentationTime, count / 30.0, 1e-4);
        EXPECT_NEAR(frame.duration, 1 / 30.0, 1e-3);
        EXPECT_LT(meanDifference(frame, count), GetParam().colourTolerance) << "frame " << count;
        EXPECT_EQ(frame.row(0, 3)[3], 255) << "opaque";
        ++count;
    }
    EXPECT_EQ(count, options.frameCount);
    EXPECT_FALSE(decoder.nextFrame(frame)) << "the end stays the end";
}

TEST_P(VideoRoundTrip, SeeksToTheFrameOnScreenAtAnyTime) {
    VideoDecoder decoder(path);
    VideoFrame frame;
    struct Probe {
        double time;
        int expected;
    };
    // At frame times, between them, across keyframes (every 10 frames), backwards, and
    // before the start.
    const Probe probes[] = {{0.0, 0},         {17 / 30.0, 17}, {17.5 / 30.0, 17},
                            {9.99 / 30.0, 9}, {10 / 30.0, 10}, {29 / 30.0, 29},
                            {3 / 30.0, 3},    {-1.0, 0},       {29.9 / 30.0, 29}};
    for (const auto& probe : probes) {
        decoder.seek(probe.time);
        ASSERT_TRUE(decoder.nextFrame(frame)) << probe.time;
        EXPECT_EQ(testing::readFrameNumber(frame), probe.expected) << "seek " << probe.time;
        if (probe.expected + 1 < options.frameCount) {
            ASSERT_TRUE(decoder.nextFrame(frame));
            EXPECT_EQ(testing::readFrameNumber(frame), probe.expected + 1)
                << "then decodes forward from " << probe.time;
        } else {
            EXPECT_FALSE(decoder.nextFrame(frame)) << "the last frame is last";
        }
    }
    decoder.seek(2.0);
    EXPECT_FALSE(decoder.nextFrame(frame)) << "past the end";
}

TEST_P(VideoRoundTrip, FrameAtServesForwardRandomAndRepeatedTimes) {
    VideoDecoder decoder(path);
    VideoFrame frame;
    const double times[] = {0.5, 0.51, 0.5, 0.7, 0.2, 0.95, 0.1, 0.99, 0.0};
    for (const double time : times) {
        ASSERT_TRUE(decoder.frameAt(time, frame)) << time;
        const int expected = static_cast<int>(std::floor(time * 30 + 1e-9));
        EXPECT_EQ(testing::readFrameNumber(frame), expected) << "at " << time;
    }
    EXPECT_FALSE(decoder.frameAt(1.5, frame));
}

INSTANTIATE_TEST_SUITE_P(Codecs, VideoRoundTrip, ::testing::ValuesIn(codecCases),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(VideoDecoder, HandsOutScaledAndPlanarPictures) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.frameCount = 3;
    testing::writeNumberedMovie(directory / "m.mp4", options);

    VideoDecoder scaled(directory / "m.mp4", {PixelLayout::bgra, 80, 48});
    VideoFrame frame;
    ASSERT_TRUE(scaled.nextFrame(frame));
    EXPECT_EQ(frame.width, 80);
    EXPECT_EQ(frame.height, 48);
    EXPECT_EQ(testing::readFrameNumber(frame), 0);

    VideoDecoder planar(directory / "m.mp4", {PixelLayout::yuv420p});
    ASSERT_TRUE(planar.nextFrame(frame));
    ASSERT_TRUE(planar.nextFrame(frame));
    EXPECT_EQ(frame.layout, PixelLayout::yuv420p);
    EXPECT_EQ(frame.planeCount(), 3);
    // Frame 1 has only its last bar white: luma is high there and low in the first bar.
    const uint8_t* row = frame.row(0, options.height / 4);
    EXPECT_GT(row[options.width - 5], 200);
    EXPECT_LT(row[5], 40);
    EXPECT_NEAR(frame.presentationTime, 1 / 30.0, 1e-4);
}

// Both layouts, from 8-bit 4:2:0 (H.264) and 10-bit 4:2:2 (ProRes), at a size that is no
// multiple of any vector width.
struct LayoutCase {
    const char* name;
    VideoCodec codec;
    MovieContainer container;
    PixelLayout layout;
};

const LayoutCase layoutCases[] = {
    {"H264Bgra", VideoCodec::h264High, MovieContainer::mp4, PixelLayout::bgra},
    {"H264Yuv", VideoCodec::h264High, MovieContainer::mp4, PixelLayout::yuv420p},
    {"ProResBgra", VideoCodec::proRes422Proxy, MovieContainer::mov, PixelLayout::bgra},
    {"ProResYuv", VideoCodec::proRes422Proxy, MovieContainer::mov, PixelLayout::yuv420p},
};

class PictureLayouts : public ::testing::TestWithParam<LayoutCase> {
protected:
    void SetUp() override {
        options.codec = GetParam().codec;
        options.container = GetParam().container;
        options.width = 170;
        options.height = 102;
        options.frameCount = 4;
        path = directory /
               (std::string("m.") + (options.container == MovieContainer::mp4 ? "mp4" : "mov"));
        testing::writeNumberedMovie(path, options);
    }

    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    std::filesystem::path path;
};

TEST_P(PictureLayouts, AreTheSameInBandsOnAnyNumberOfThreads) {
    std::vector<VideoFrame> single;
    VideoDecoder one(path, {GetParam().layout, 0, 0, 1});
    VideoFrame frame;
    while (one.nextFrame(frame)) {
        single.push_back(frame);
    }
    ASSERT_EQ(single.size(), 4u);
    for (const int threads : {2, 3, 8}) {
        VideoDecoder many(path, {GetParam().layout, 0, 0, threads});
        for (const auto& expected : single) {
            ASSERT_TRUE(many.nextFrame(frame));
            for (int plane = 0; plane < frame.planeCount(); ++plane) {
                for (int y = 0; y < frame.planeHeight(plane); ++y) {
                    ASSERT_EQ(std::memcmp(frame.row(plane, y), expected.row(plane, y),
                                          static_cast<size_t>(frame.planeWidthBytes(plane))),
                              0)
                        << threads << " threads, plane " << plane << ", row " << y;
                }
            }
        }
    }
}

TEST_P(PictureLayouts, KeepTheColoursOfThePicture) {
    VideoDecoder decoder(path, {GetParam().layout});
    VideoFrame frame;
    for (int number = 0; decoder.nextFrame(frame); ++number) {
        VideoFrame painted;
        testing::paintNumberedFrame(painted, number, options.width, options.height);
        // The flat lower half, in BGRA or as BT.601 limited-range YUV (a small picture).
        double difference = 0;
        long count = 0;
        for (int y = options.height * 5 / 8; y < options.height - 1; y += 2) {
            for (int x = 0; x + 1 < options.width; x += 2) {
                const uint8_t* p = painted.row(0, y) + 4 * x;
                const double b = p[0];
                const double g = p[1];
                const double r = p[2];
                if (GetParam().layout == PixelLayout::bgra) {
                    const uint8_t* q = frame.row(0, y) + 4 * x;
                    difference += std::abs(q[0] - b) + std::abs(q[1] - g) + std::abs(q[2] - r);
                    count += 3;
                    continue;
                }
                const double luma = 16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255;
                const double u = 128 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255;
                const double v = 128 + (112.0 * r - 93.786 * g - 18.214 * b) / 255;
                difference += std::abs(frame.row(0, y)[x] - luma) +
                              std::abs(frame.row(1, y / 2)[x / 2] - u) +
                              std::abs(frame.row(2, y / 2)[x / 2] - v);
                count += 3;
            }
        }
        EXPECT_LT(difference / static_cast<double>(count), 4.0) << "frame " << number;
    }
}

INSTANTIATE_TEST_SUITE_P(Sources, PictureLayouts, ::testing::ValuesIn(layoutCases),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(VideoDecoder, ReusesTheStorageOfAFrameHandedBack) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.frameCount = 4;
    testing::writeNumberedMovie(directory / "m.mp4", options);
    VideoDecoder decoder(directory / "m.mp4");
    VideoFrame frame;
    ASSERT_TRUE(decoder.nextFrame(frame));
    const uint8_t* storage = frame.planes[0].data();
    ASSERT_TRUE(decoder.nextFrame(frame));
    EXPECT_EQ(frame.planes[0].data(), storage);
}

TEST(VideoDecoder, FailsWithFFmpegsReason) {
    TemporaryDirectory directory;
    try {
        VideoDecoder decoder(directory / "missing.mov");
        FAIL() << "a missing file must fail";
    } catch (const MediaError& error) {
        EXPECT_NE(std::string(error.what()).find("No such file or directory"), std::string::npos)
            << error.what();
        EXPECT_NE(std::string(error.what()).find("missing.mov"), std::string::npos);
    }
    testing::writeAudioFile(directory / "tone.wav", testing::sineTone(440, 0.1, 48000, 1),
                            {48000, 1});
    EXPECT_THROW(VideoDecoder(directory / "tone.wav"), MediaError) << "no video stream";
}

TEST(VideoDecoder, ReadsATruncatedFragmentedMovieUpToItsLastFragment) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.frameCount = 120; // four seconds, keyframes every 10 frames
    options.fragmented = true;
    options.withAudio = true;
    const auto path = directory / "live.mp4";
    testing::writeNumberedMovie(path, options);
    const auto size = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, size * 6 / 10);

    VideoDecoder decoder(path);
    VideoFrame frame;
    int count = 0;
    while (decoder.nextFrame(frame)) {
        EXPECT_EQ(testing::readFrameNumber(frame), count);
        ++count;
    }
    EXPECT_GT(count, 30) << "at least a second survives";
    EXPECT_LT(count, 120);
}

} // namespace
} // namespace orvelle
