// Compositions over real files made at test time: the mixer's samples, splices, speeds and
// ramps; the video reader's frames; loading a take; waveforms, voice and noise reduction.

#include "platform/media/audio_decoder.h"
#include "platform/media/time_stretcher.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/timeline_builders.h"
#include "timeline_media/composition_audio_mixer.h"
#include "timeline_media/composition_video_reader.h"
#include "timeline_media/noise_reduction_cache.h"
#include "timeline_media/timeline_composition.h"
#include "timeline_media/waveform_extractor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>

namespace orvelle {
namespace {

using testing::clip;

using testing::estimateFrequency;
using testing::sineTone;
using testing::TemporaryDirectory;
using testing::writeAudioFile;

constexpr int rate = CompositionAudioMixer::kSampleRate;

std::vector<float> render(CompositionAudioMixer& mixer, int64_t start, size_t count) {
    std::vector<float> samples(count * 2);
    mixer.render(start, count, samples.data());
    return samples;
}

float largestStep(const std::vector<float>& samples) {
    float step = 0;
    for (size_t i = 2; i < samples.size(); i += 2) {
        step = std::max(step, std::fabs(samples[i] - samples[i - 2]));
    }
    return step;
}

// Cents between two frequencies.
double cents(double a, double b) {
    return 1200 * std::log2(a / b);
}

class CompositionMedia : public ::testing::Test {
protected:
    TemporaryDirectory directory;

    // A take of `seconds` whose microphone plays `frequency`, with a screen movie.
    TimelineCompositionSource toneTake(double frequency, double seconds) {
        const auto mic =
            directory.path() / ("mic-" + std::to_string(static_cast<int>(frequency)) + ".wav");
        writeAudioFile(mic, sineTone(frequency, seconds, rate, 1), {rate, 1});
        TimelineCompositionSource source;
        source.duration = seconds;
        source.videoSegments.push_back(
            {directory.path() / "screen.mp4", {}, 0, seconds, 0, seconds});
        source.audioSources.push_back(
            {TimelineCompositionAudioRole::microphone, mic, {}, 0, seconds, 0, seconds});
        return source;
    }
};

TEST_F(CompositionMedia, MixesTheSourceSamplesExactlyWhereNothingIsFaded) {
    const auto source = toneTake(440, 3);
    const auto result = TimelineComposition::make({clip(0.5, 2.5)}, source, {}, {}, {});
    ASSERT_TRUE(result);
    CompositionAudioMixer mixer(result->composition, result->audioMix);
    EXPECT_EQ(mixer.frameCount(), 2 * rate);
    const auto mixed = render(mixer, 0, 2 * rate);
    const auto original = decodeAudioFile(source.audioSources[0].url, {rate, 2}, 0.5, 2);
    ASSERT_EQ(original.size(), mixed.size());
    // Past the 5 ms fade-in and before the fade-out, the mix is the file.
    for (size_t i = 2 * 240; i < mixed.size() - 2 * 240; ++i) {
        ASSERT_NEAR(mixed[i], original[i], 1e-6) << i;
    }
    EXPECT_LT(std::fabs(mixed[0]), 1e-6); // the fade-in starts from silence
}

TEST_F(CompositionMedia, RendersAnyRangeInAnyOrderAsAContinuousRenderDoes) {
    const auto source = toneTake(330, 6);
    const std::vector clips{clip(0, 1), clip(2, 3), clip(3.5, 5), clip(5, 6)};
    const auto result = TimelineComposition::make(clips, source, {}, {}, {});
    ASSERT_TRUE(result);
    CompositionAudioMixer continuous(result->composition, result->audioMix);
    const auto whole = render(continuous, 0, static_cast<size_t>(continuous.frameCount()));
    CompositionAudioMixer seeking(result->composition, result->audioMix);
    std::mt19937 random(3);
    for (int i = 0; i < 30; ++i) {
        const auto start =
            static_cast<int64_t>(random() % static_cast<unsigned>(whole.size() / 2 - 5000));
        const size_t count = 1 + random() % 4999;
        const auto piece = render(seeking, start, count);
        for (size_t k = 0; k < piece.size(); ++k) {
            ASSERT_FLOAT_EQ(piece[k], whole[static_cast<size_t>(start) * 2 + k])
                << start << "+" << k;
        }
    }
    // Past the end there is silence.
    const auto after = render(seeking, continuous.frameCount(), 100);
    EXPECT_EQ(after, std::vector<float>(200, 0.0f));
}

TEST_F(CompositionMedia, AClipSplitBetweenTicksSoundsAsTheWholeClip) {
    // Splits that fall between ticks, where the material simply goes on: no sample may be
    // played twice or dropped at a join, so the mix is the unsplit clip's, sample for sample.
    const auto source = toneTake(440, 4);
    const auto whole = TimelineComposition::make({clip(0.5, 3.5)}, source, {}, {}, {});
    ASSERT_TRUE(whole);
    const double splits[] = {0.5, 1.0008, 1.3341, 1.9995, 2.6669, 3.0, 3.5};
    std::vector<TimelineClip> pieces;
    for (size_t i = 0; i + 1 < std::size(splits); ++i) {
        pieces.push_back(clip(splits[i], splits[i + 1]));
    }
    const auto split = TimelineComposition::make(pieces, source, {}, {}, {});
    ASSERT_TRUE(split);
    CompositionAudioMixer wholeMixer(whole->composition, whole->audioMix);
    CompositionAudioMixer splitMixer(split->composition, split->audioMix);
    ASSERT_EQ(splitMixer.frameCount(), wholeMixer.frameCount());
    const auto expected = render(wholeMixer, 0, static_cast<size_t>(wholeMixer.frameCount()));
    const auto mixed = render(splitMixer, 0, static_cast<size_t>(splitMixer.frameCount()));
    for (size_t i = 0; i < mixed.size(); ++i) {
        ASSERT_EQ(mixed[i], expected[i]) << "sample " << i / 2;
    }
}

TEST_F(CompositionMedia, ACutBetweenTwoTonesHasNoClick) {
    // The first half of the take plays 440 Hz, the second 660 Hz; the edit jumps from the
    // middle of one to the middle of the other, at an arbitrary phase.
    const auto mic = directory.path() / "two-tones.wav";
    auto samples = sineTone(440, 4, rate, 1);
    const auto second = sineTone(660, 4, rate, 1, 0.5f, 1.0);
    samples.insert(samples.end(), second.begin(), second.end());
    writeAudioFile(mic, samples, {rate, 1});
    TimelineCompositionSource source;
    source.duration = 8;
    source.videoSegments.push_back({directory.path() / "screen.mp4", {}, 0, 8, 0, 8});
    source.audioSources.push_back({TimelineCompositionAudioRole::microphone, mic, {}, 0, 8, 0, 8});
    const auto result =
        TimelineComposition::make({clip(1, 2.0123), clip(5.377, 7)}, source, {}, {}, {});
    ASSERT_TRUE(result);
    CompositionAudioMixer mixer(result->composition, result->audioMix);
    const auto mixed = render(mixer, 0, static_cast<size_t>(mixer.frameCount()));
    // The steepest step of a 660 Hz tone of amplitude 0.5 is 2 pi 660 0.5 / 48000 = 0.043.
    EXPECT_LT(largestStep(mixed), 0.05f);
    // Without fades the same cut jumps.
    MediaComposition raw = result->composition;
    CompositionAudioMixer unfaded(raw, AudioMix{});
    const auto edges = render(unfaded, 0, static_cast<size_t>(unfaded.frameCount()));
    EXPECT_GT(largestStep(edges), 0.1f);
}

TEST_F(CompositionMedia, SpeedChangesTheTempoAndKeepsThePitch) {
    const auto source = toneTake(440, 8);
    for (const double speed : {2.0, 0.75}) {
        const auto result = TimelineComposition::make({clip(1, 7, speed)}, source, {}, {}, {});
        ASSERT_TRUE(result);
        CompositionAudioMixer mixer(result->composition, result->audioMix);
        EXPECT_EQ(mixer.frameCount(), std::llround(6 / speed * rate)) << speed;
        const auto mixed = render(mixer, 0, static_cast<size_t>(mixer.frameCount()));
        // The middle, away from the stretcher's start and the fades.
        const size_t quarter = mixed.size() / 4 / 2 * 2;
        const std::vector<float> middle(mixed.begin() + static_cast<ptrdiff_t>(quarter),
                                        mixed.end() - static_cast<ptrdiff_t>(quarter));
        const double frequency = estimateFrequency(middle, rate, 2);
        EXPECT_LT(std::fabs(cents(frequency, 440)), 5) << speed << ": " << frequency;
        // A seek into the stretch lands on the same tone.
        const auto piece = render(mixer, mixer.frameCount() / 2, rate / 4);
        EXPECT_LT(std::fabs(cents(estimateFrequency(piece, rate, 2), 440)), 5) << speed;
    }
}

TEST_F(CompositionMedia, TheStretcherLinesItsOutputUpWithItsInput) {
    // A click at 0.5 s of input comes out at 0.25 s at speed 2 and 0.667 s at 0.75.
    for (const double speed : {2.0, 0.75}) {
        TimeStretcher stretcher(rate, 1, speed);
        std::vector<float> input(rate, 0.0f);
        for (size_t i = 0; i < 48; ++i) {
            input[rate / 2 + i] = 0.9f;
        }
        stretcher.push(input.data(), input.size());
        std::vector<float> zeros(rate, 0.0f);
        stretcher.push(zeros.data(), zeros.size());
        std::vector<float> output(static_cast<size_t>(rate / speed));
        ASSERT_EQ(stretcher.pull(output.data(), output.size()), output.size());
        const auto loudest = std::max_element(output.begin(), output.end(), [](float a, float b) {
            return std::fabs(a) < std::fabs(b);
        });
        const double at = static_cast<double>(loudest - output.begin()) / rate;
        EXPECT_NEAR(at, 0.5 / speed, 0.01) << speed;
    }
}

TEST_F(CompositionMedia, LoopsMusicUnderTheEnvelope) {
    auto source = toneTake(440, 6);
    const auto music = directory.path() / "music.m4a";
    writeAudioFile(music, sineTone(220, 1.5, 44100, 2, 0.8f), {44100, 2});
    source.musicSources["music-0001"] = {music, {}, 1.5};
    AudioSettings settings{.microphoneVolume = 0, .musicVolume = 0.5};
    const std::vector clips{clip(0, 6)};
    const std::vector musicClips{
        MusicClip{Uuid::random(), EditTime(1), EditTime(5), 0, "music-0001", "Loop"}};
    const auto result = TimelineComposition::make(clips, source, settings, musicClips, {});
    ASSERT_TRUE(result);
    ASSERT_TRUE(result->audioLayout.musicTrackID);
    EXPECT_EQ(result->composition.track(*result->audioLayout.musicTrackID)->insertions.size(), 3u);
    CompositionAudioMixer mixer(result->composition, result->audioMix);
    auto peak = [&](double from, double to) {
        const auto samples =
            render(mixer, mixerFrame(from), static_cast<size_t>((to - from) * rate));
        float value = 0;
        for (const float s : samples) {
            value = std::max(value, std::fabs(s));
        }
        return value;
    };
    EXPECT_LT(peak(0, 0.99), 1e-6f);          // before the music clip
    EXPECT_NEAR(peak(2, 2.4), 0.4f, 0.03f);   // 0.8 at half volume, in the first loop
    EXPECT_NEAR(peak(3.2, 3.6), 0.4f, 0.03f); // and in the third
    EXPECT_LT(peak(5.01, 6), 1e-6f);
}

TEST_F(CompositionMedia, ALoopedMusicFileWrapsAroundWithoutAClick) {
    // 1.5 s of a tone that stops part way through its cycle, looped from 1 s to 5 s: the
    // file starts over at 2.5 s and 4 s, where the waveform jumps.
    auto source = toneTake(440, 6);
    const auto music = directory.path() / "loop.wav";
    writeAudioFile(music, sineTone(223.3, 1.5, rate, 2, 0.8f), {rate, 2});
    source.musicSources["music-0001"] = {music, {}, 1.5};
    AudioSettings settings{.microphoneVolume = 0, .musicVolume = 0.5};
    const std::vector musicClips{
        MusicClip{Uuid::random(), EditTime(1), EditTime(5), 0, "music-0001", "Loop"}};
    const auto result = TimelineComposition::make({clip(0, 6)}, source, settings, musicClips, {});
    ASSERT_TRUE(result);
    const int32_t musicTrack = *result->audioLayout.musicTrackID;
    CompositionAudioMixer mixer(result->composition, result->audioMix);
    const auto mixed = render(mixer, 0, static_cast<size_t>(mixer.frameCount()));
    // The steepest step of the tone at half volume is 2 pi 223.3 0.4 / 48000 = 0.0117.
    EXPECT_LT(largestStep(mixed), 0.015f);
    // The dip is brief: 10 ms after a wrap the music is back at its level.
    auto peak = [&](double from, double to) {
        float value = 0;
        for (int64_t i = mixerFrame(from); i < mixerFrame(to); ++i) {
            value = std::max(value, std::fabs(mixed[static_cast<size_t>(2 * i)]));
        }
        return value;
    };
    for (const double wrap : {2.5, 4.0}) {
        EXPECT_LT(peak(wrap - 0.0005, wrap + 0.0005), 0.05f) << wrap;
        EXPECT_NEAR(peak(wrap + 0.01, wrap + 0.05), 0.4f, 0.01f) << wrap;
        EXPECT_NEAR(peak(wrap - 0.05, wrap - 0.01), 0.4f, 0.01f) << wrap;
    }
    // The same track under the envelope alone clicks at each wrap.
    AudioMix envelopeOnly;
    TimelineComposition::applyMusicEnvelope(
        envelopeOnly.mutableParameters(musicTrack),
        TimelineComposition::musicEnvelopeSegments(musicClips, {clip(0, 6)}, false, {}, 0.5, 6));
    CompositionAudioMixer clicking(result->composition, envelopeOnly);
    EXPECT_GT(largestStep(render(clicking, 0, static_cast<size_t>(clicking.frameCount()))), 0.1f);
}

TEST_F(CompositionMedia, TheVideoReaderFindsTheFrameOfAnyEditTime) {
    // Two screen files of 30 frames at 30 fps, lying at take times 0-1 and 1-2.
    testing::TestMovieOptions options;
    const auto first = directory.path() / "screen-1.mp4";
    const auto second = directory.path() / "screen-2.mov";
    testing::writeNumberedMovie(first, options);
    options.container = MovieContainer::mov;
    options.codec = VideoCodec::proRes422Proxy;
    testing::writeNumberedMovie(second, options);
    TimelineCompositionSource source;
    source.duration = 2;
    source.videoSegments.push_back({first, {}, 0, 1, 0, 1});
    source.videoSegments.push_back({second, {}, 1, 1, 0, 1});
    // A clip at speed 2 over the join, then a cut back into the first file.
    const auto result =
        TimelineComposition::make({clip(0.5, 1.5, 2), clip(0.1, 0.3)}, source, {}, {}, {});
    ASSERT_TRUE(result);
    CompositionVideoReader reader(result->composition, result->videoTrackID);
    struct Expectation {
        double edit;
        int mediaID;
        int frame;
    };
    const Expectation table[] = {{0.0, 0, 15},    {0.1, 0, 21},  {0.2499, 0, 29}, {0.25, 1, 0},
                                 {0.4, 1, 9},     {0.5, 0, 3},   {0.6, 0, 6},     {0.3, 1, 3},
                                 {0.0166, 0, 15}, {0.6999, 0, 8}};
    VideoFrame frame;
    for (const auto& e : table) {
        const auto sample = reader.frameAt(e.edit, frame);
        ASSERT_TRUE(sample) << e.edit;
        EXPECT_EQ(sample->mediaID, e.mediaID) << e.edit;
        EXPECT_EQ(testing::readFrameNumber(frame), e.frame) << e.edit;
    }
    EXPECT_FALSE(reader.frameAt(0.7, frame));
    EXPECT_FALSE(reader.frameAt(-0.1, frame));
    // A run of increasing times, as the export asks, gives every frame once.
    CompositionVideoReader pump(result->composition, result->videoTrackID);
    int previous = -1;
    for (int i = 0; i < 15; ++i) {
        ASSERT_TRUE(pump.frameAt(i / 60.0, frame));
        const int number = testing::readFrameNumber(frame);
        EXPECT_GT(number, previous);
        previous = number;
    }
}

TEST_F(CompositionMedia, LoadsATakeWithRealLengthsAndMicrophoneOverrides) {
    testing::TestMovieOptions options;
    options.withAudio = true;
    const auto screen = directory.path() / "take.mp4";
    testing::writeNumberedMovie(screen, options); // 1 s
    const auto mic = directory.path() / "mic.m4a";
    const auto denoised = directory.path() / "mic-clean.m4a";
    writeAudioFile(mic, sineTone(300, 1, rate, 1), {rate, 1});
    writeAudioFile(denoised, sineTone(300, 0.5, rate, 1), {rate, 1});
    TakeManifest manifest;
    using Kind = MediaTrackManifest::Kind;
    // The manifest claims 3 s of screen: the file has 1.
    manifest.segments.push_back(
        {"screen-segment1", "screen", Kind::screen, screen, 0, 3, 0, 3, {}, {}});
    manifest.segments.push_back(
        {"systemAudio-segment1", "systemAudio", Kind::systemAudio, screen, 0, 3, 0, 3, {}, {}});
    manifest.segments.push_back(
        {"microphone-segment1", "microphone", Kind::microphone, mic, 0, 1, 0, 1, {}, {}});
    manifest.segments.push_back(
        {"music-0001", "music", Kind::music, directory.path() / "gone.m4a", 0, 0, 0, 0, {}, {}});
    const auto source = TimelineCompositionSource::load(manifest, {{mic, denoised}});
    ASSERT_TRUE(source);
    EXPECT_DOUBLE_EQ(source->duration, 3);
    ASSERT_EQ(source->videoSegments.size(), 1u);
    EXPECT_NEAR(source->videoSegments[0].mediaDuration, 1, 0.05);
    EXPECT_DOUBLE_EQ(source->naturalWidth, 160);
    ASSERT_EQ(source->audioSources.size(), 2u);
    EXPECT_EQ(source->audioSources[0].role, TimelineCompositionAudioRole::system);
    EXPECT_EQ(source->audioSources[1].url, denoised);
    EXPECT_NEAR(source->audioSources[1].mediaDuration, 0.5, 0.05);
    EXPECT_TRUE(source->musicSources.empty());
    // No screen file: nothing to load.
    TakeManifest noScreen;
    noScreen.segments.push_back({"screen-segment1",
                                 "screen",
                                 Kind::screen,
                                 directory.path() / "none.mp4",
                                 0,
                                 1,
                                 0,
                                 1,
                                 {},
                                 {}});
    EXPECT_FALSE(TimelineCompositionSource::load(noScreen));
}

TEST_F(CompositionMedia, FindsSpeechInMicrophoneSegmentsOnTheTakesClock) {
    // Quiet hiss with a loud tone from 2 to 3.5 s of the file.
    std::vector<float> samples(6 * rate);
    std::mt19937 random(1);
    std::uniform_real_distribution<float> hiss(-0.005f, 0.005f);
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = hiss(random);
        if (i >= 2 * rate && i < 3.5 * rate) {
            samples[i] +=
                0.5f * static_cast<float>(std::sin(2 * M_PI * 200 * static_cast<double>(i) / rate));
        }
    }
    const auto mic = directory.path() / "voice.wav";
    writeAudioFile(mic, samples, {rate, 1});
    const auto waveform = WaveformExtractor::extractWaveform(mic, 60);
    EXPECT_NEAR(waveform.duration, 6, 1e-6);
    ASSERT_EQ(waveform.peaks.size(), 60u);
    EXPECT_LT(waveform.peaks[5], 0.006f);
    EXPECT_NEAR(waveform.peaks[25], 0.5f, 0.01f);
    // The file's seconds 1-6 lie at take time 10-15: speech at 11-12.5, held 0.4 s.
    const TakeSegmentManifest segment{"microphone-segment1",
                                      "microphone",
                                      MediaTrackManifest::Kind::microphone,
                                      mic,
                                      10,
                                      5,
                                      1,
                                      5,
                                      {},
                                      {}};
    const TakeSegmentManifest missing{"microphone-segment2",
                                      "microphone",
                                      MediaTrackManifest::Kind::microphone,
                                      directory.path() / "gone.wav",
                                      20,
                                      5,
                                      0,
                                      5,
                                      {},
                                      {}};
    const auto intervals = VoiceActivityDetector::sourceIntervals({missing, segment});
    ASSERT_EQ(intervals.size(), 1u);
    EXPECT_NEAR(intervals[0].lower, 11, 0.01);
    EXPECT_NEAR(intervals[0].upper, 12.9, 0.01);
    EXPECT_THROW(WaveformExtractor::extractWaveform(directory.path() / "gone.wav", 10), MediaError);
}

TEST_F(CompositionMedia, DenoisesOnceAndKeysTheCopyByTheSource) {
    // A tone under broadband noise, with loud bursts of speech-like noise: one ends the file.
    std::vector<float> samples(3 * rate);
    std::mt19937 random(2);
    std::normal_distribution<float> noise(0, 0.03f);
    std::normal_distribution<float> burst(0, 0.3f);
    for (size_t i = 0; i < samples.size(); ++i) {
        const bool loud = (i >= rate / 2 && i < rate * 7 / 10) || i + rate / 10 >= samples.size();
        samples[i] =
            noise(random) + (loud ? burst(random) : 0.0f) +
            0.3f * static_cast<float>(std::sin(2 * M_PI * 500 * static_cast<double>(i) / rate));
    }
    const auto mic = directory.path() / "noisy.wav";
    writeAudioFile(mic, samples, {rate, 1});
    NoiseReductionCache cache(directory.path() / "cache");
    const auto copy = cache.denoisedURL(mic);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy, cache.cachedURL(mic));
    const auto cleaned = decodeAudioFile(*copy, {rate, 1});
    // The copy lines up with its source to the sample and has its length, so cuts made on
    // the source's times land on the same sound.
    ASSERT_EQ(cleaned.size(), samples.size());
    const auto correlation = [&](long lag) {
        double sum = 0;
        for (size_t i = rate / 2 - 4000; i < rate * 7 / 10 + 4000; ++i) {
            sum += static_cast<double>(samples[i]) *
                   cleaned[static_cast<size_t>(static_cast<long>(i) + lag)];
        }
        return sum;
    };
    long best = 0;
    double bestValue = correlation(0);
    for (long lag = -3000; lag <= 3000; ++lag) {
        if (const double value = correlation(lag); value > bestValue) {
            best = lag;
            bestValue = value;
        }
    }
    EXPECT_EQ(best, 0) << "the copy lags its source by " << best << " samples";
    // The last burst is still there at the very end.
    const double end = static_cast<double>(samples.size()) / rate;
    const double tail = end - 0.01;
    EXPECT_GT(std::pow(testing::rootMeanSquare(cleaned, 1, rate, tail, end), 2),
              0.5 * std::pow(testing::rootMeanSquare(samples, 1, rate, tail, end), 2));
    // Residual after taking out the tone's best fit, over the second second.
    auto residual = [&](const std::vector<float>& x) {
        double sinSum = 0, cosSum = 0;
        for (size_t i = rate; i < 2 * rate; ++i) {
            sinSum += x[i] * std::sin(2 * M_PI * 500 * static_cast<double>(i) / rate);
            cosSum += x[i] * std::cos(2 * M_PI * 500 * static_cast<double>(i) / rate);
        }
        const double a = sinSum * 2 / rate, b = cosSum * 2 / rate;
        double energy = 0;
        for (size_t i = rate; i < 2 * rate; ++i) {
            const double tone = a * std::sin(2 * M_PI * 500 * static_cast<double>(i) / rate) +
                                b * std::cos(2 * M_PI * 500 * static_cast<double>(i) / rate);
            energy += (x[i] - tone) * (x[i] - tone);
        }
        return energy / rate;
    };
    EXPECT_LT(residual(cleaned), residual(samples) * 0.5);
    // A second request reuses the copy; a changed source gets a new one.
    const auto made = std::filesystem::last_write_time(*copy);
    EXPECT_EQ(cache.denoisedURL(mic), copy);
    EXPECT_EQ(std::filesystem::last_write_time(*copy), made);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    writeAudioFile(mic, sineTone(500, 1, rate, 1), {rate, 1});
    EXPECT_NE(cache.cachedURL(mic), copy);
    EXPECT_FALSE(cache.denoisedURL(directory.path() / "gone.wav"));
    // No temporary file is left behind.
    for (const auto& entry : std::filesystem::directory_iterator(cache.directory())) {
        EXPECT_EQ(entry.path().extension(), ".m4a");
        EXPECT_NE(entry.path().filename().string().rfind(".partial", 0), 0u);
    }
}

} // namespace
} // namespace orvelle
