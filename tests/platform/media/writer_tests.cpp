#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "platform/media/movie_writer.h"
#include "platform/media/video_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

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
