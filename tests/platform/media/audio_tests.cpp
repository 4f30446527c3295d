#include "platform/media/audio_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

double rms(const float* samples, size_t count) {
    double sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
    }
    return count == 0 ? 0 : std::sqrt(sum / static_cast<double>(count));
}

// A ramp whose every sample says where it is: sample i holds i / count.
std::vector<float> rampSignal(size_t count) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<float>(i) / static_cast<float>(count);
    }
    return samples;
}

TEST(AudioDecoder, ReadsAFloatWavExactlyInBlocksOfAnySize) {
    TemporaryDirectory directory;
    const auto tone = testing::sineTone(440, 0.5, 48000, 2);
    testing::writeAudioFile(directory / "tone.wav", tone, {48000, 2});
    AudioDecoder decoder(directory / "tone.wav", {48000, 2});
    EXPECT_EQ(decoder.sourceSampleRate(), 48000);
    EXPECT_EQ(decoder.sourceChannelCount(), 2);
    EXPECT_NEAR(decoder.duration(), 0.5, 1e-3);
    std::vector<float> decoded;
    const size_t blocks[] = {1, 7, 1000, 4096, 333};
    size_t next = 0;
    while (true) {
        const size_t want = blocks[next++ % std::size(blocks)];
        std::vector<float> block(want * 2);
        const size_t got = decoder.read(block.data(), want);
        decoded.insert(decoded.end(), block.begin(), block.begin() + static_cast<long>(got * 2));
        if (got < want) {
            break;
        }
    }
    ASSERT_EQ(decoded.size(), tone.size());
    for (size_t i = 0; i < tone.size(); ++i) {
        ASSERT_EQ(decoded[i], tone[i]) << i;
    }
    float scratch[8];
    EXPECT_EQ(decoder.read(scratch, 4), 0u) << "nothing after the end";
}

TEST(AudioDecoder, SeeksToTheExactSample) {
    TemporaryDirectory directory;
    const auto ramp = rampSignal(48000);
    testing::writeAudioFile(directory / "ramp.wav", ramp, {48000, 1});
    AudioDecoder decoder(directory / "ramp.wav", {48000, 1});
    for (const double time : {0.5, 0.123, 0.9, 0.0, 0.25}) {
        decoder.seek(time);
        const auto index = static_cast<int64_t>(std::llround(time * 48000));
        EXPECT_EQ(decoder.position(), index);
        float sample = -1;
        ASSERT_EQ(decoder.read(&sample, 1), 1u);
        EXPECT_EQ(sample, ramp[static_cast<size_t>(index)]) << "at " << time;
        EXPECT_EQ(decoder.position(), index + 1);
    }
    decoder.seek(5);
    float sample = 0;
    EXPECT_EQ(decoder.read(&sample, 1), 0u) << "past the end";
}

TEST(AudioDecoder, ResampledSeeksMatchAContinuousRead) {
    TemporaryDirectory directory;
    const auto tone = testing::sineTone(300, 2.0, 44100, 2, 0.4f);
    testing::writeAudioFile(directory / "tone.m4a", tone, {44100, 2});
    const auto whole = decodeAudioFile(directory / "tone.m4a", {16000, 1});
    AudioDecoder decoder(directory / "tone.m4a", {16000, 1});
    for (const double time : {1.0, 0.4, 1.5}) {
        decoder.seek(time);
        std::vector<float> block(800);
        ASSERT_EQ(decoder.read(block.data(), block.size()), block.size());
        const auto offset = static_cast<size_t>(std::llround(time * 16000));
        double error = 0;
        for (size_t i = 0; i < block.size(); ++i) {
            error = std::max(error, static_cast<double>(std::abs(block[i] - whole[offset + i])));
        }
        EXPECT_LT(error, 2e-3) << "at " << time;
    }
}

struct ConversionCase {
    const char* name;
    const char* fileName;
    AudioFormat written;
    AudioFormat read;
    double levelTolerance;
};

const ConversionCase conversionCases[] = {
    {"WavStereoToMono16k", "a.wav", {48000, 2}, {16000, 1}, 0.01},
    {"AacStereo48kSame", "a.m4a", {48000, 2}, {48000, 2}, 0.03},
    {"AacMono44kToStereo48k", "a.m4a", {44100, 1}, {48000, 2}, 0.03},
    {"WavMono8kTo48kStereo", "a.wav", {8000, 1}, {48000, 2}, 0.01},
};

class AudioConversion : public ::testing::TestWithParam<ConversionCase> {};

TEST_P(AudioConversion, KeepsPitchLevelTimingAndLength) {
    const auto& c = GetParam();
    TemporaryDirectory directory;
    const double seconds = 1.0;
    const auto tone =
        testing::sineTone(440, seconds, c.written.sampleRate, c.written.channelCount, 0.5f);
    testing::writeAudioFile(directory / c.fileName, tone, c.written);
    const auto decoded = decodeAudioFile(directory / c.fileName, c.read);
    const auto frames = decoded.size() / static_cast<size_t>(c.read.channelCount);
    EXPECT_NEAR(static_cast<double>(frames), seconds * c.read.sampleRate, c.read.sampleRate * 0.03);
    EXPECT_NEAR(testing::estimateFrequency(decoded, c.read.sampleRate, c.read.channelCount), 440,
                0.5);
    // The level of the middle part: a sine of amplitude 0.5 has an RMS of 0.354 on every
    // channel, whatever the channel conversion.
    const size_t middle = decoded.size() / 4;
    EXPECT_NEAR(rms(decoded.data() + middle, decoded.size() / 2), 0.5 / std::sqrt(2.0),
                c.levelTolerance);
    // Timing: the decoded tone is in phase with the written one (no encoder delay left).
    const auto reference =
        testing::sineTone(440, seconds, c.read.sampleRate, c.read.channelCount, 0.5f);
    double error = 0;
    for (size_t i = middle; i < middle + 2000; ++i) {
        error += std::abs(decoded[i] - reference[i]);
    }
    EXPECT_LT(error / 2000, 0.03);
}

INSTANTIATE_TEST_SUITE_P(Formats, AudioConversion, ::testing::ValuesIn(conversionCases),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(AudioDecoder, ReadsTheSoundOfAMovie) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.withAudio = true;
    options.frameCount = 30;
    testing::writeNumberedMovie(directory / "m.mp4", options);
    const auto decoded = decodeAudioFile(directory / "m.mp4", {48000, 2}, 0.25, 0.5);
    EXPECT_EQ(decoded.size(), 48000u);
    EXPECT_NEAR(testing::estimateFrequency(decoded, 48000, 2), 440, 0.5);
}

TEST(AudioDecoder, RefusesBadFormatsAndMissingStreams) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.frameCount = 3;
    testing::writeNumberedMovie(directory / "silent.mp4", options);
    EXPECT_THROW(AudioDecoder(directory / "silent.mp4", {48000, 2}), MediaError);
    EXPECT_THROW(AudioDecoder(directory / "silent.mp4", {0, 2}), MediaError);
    EXPECT_THROW(AudioDecoder(directory / "none.wav", {48000, 2}), MediaError);
}

TEST(AudioDecoder, ReadsATruncatedFragmentedRecording) {
    TemporaryDirectory directory;
    const auto path = directory / "mic.m4a";
    {
        MovieAudioSettings settings;
        settings.input = {48000, 1};
        settings.output = {48000, 1};
        AudioFileWriter writer(path, MovieContainer::m4a, settings, true);
        const auto tone = testing::sineTone(440, 5, 48000, 1);
        writer.append(tone.data(), tone.size());
        writer.finish();
    }
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    const auto decoded = decodeAudioFile(path, {48000, 1});
    EXPECT_GT(decoded.size(), 48000u) << "more than a second survives";
    EXPECT_LT(decoded.size(), 5u * 48000u);
    EXPECT_NEAR(testing::estimateFrequency(decoded, 48000, 1), 440, 0.5);
}

} // namespace
} // namespace orvelle
