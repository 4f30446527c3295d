#include "speech/runtime/mel_feature_extractor.h"
#include "speech/runtime/mel_filter_bank.h"
#include "speech/runtime/parakeet_error.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <numbers>
#include <random>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

std::vector<float> tone(double frequency, size_t count, float amplitude = 0.5f) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i) {
        samples[i] = amplitude * static_cast<float>(std::sin(2 * std::numbers::pi * frequency *
                                                             static_cast<double>(i) / 16000));
    }
    return samples;
}

std::vector<float> noise(size_t count, unsigned seed, float amplitude = 0.3f) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-amplitude, amplitude);
    std::vector<float> samples(count);
    for (auto& sample : samples) {
        sample = uniform(random);
    }
    return samples;
}

// The features of the numpy reference, frame-major, 128 per frame.
std::vector<float> referenceFeatures(const std::vector<float>& samples) {
    const testing::TemporaryDirectory folder;
    {
        std::ofstream out(folder / "samples.f32", std::ios::binary);
        out.write(reinterpret_cast<const char*>(samples.data()),
                  static_cast<std::streamsize>(samples.size() * sizeof(float)));
    }
    const std::string command =
        "/usr/bin/python3 '" +
        (testing::sourceDirectory() / "tests/speech/runtime/mel_reference.py").string() + "' '" +
        (folder / "samples.f32").string() + "' '" + (folder / "features.f32").string() + "'";
    if (std::system(command.c_str()) != 0) {
        ADD_FAILURE() << "the reference failed: " << command;
        return {};
    }
    std::ifstream in(folder / "features.f32", std::ios::binary);
    std::vector<float> values;
    float value = 0;
    while (in.read(reinterpret_cast<char*>(&value), sizeof value)) {
        values.push_back(value);
    }
    return values;
}

struct ReferenceCase {
    const char* name;
    std::vector<float> samples;
};

class MelMatchesReference : public ::testing::TestWithParam<ReferenceCase> {};

TEST_P(MelMatchesReference, WithinOneTenThousandthAfterNormalisation) {
    const auto& samples = GetParam().samples;
    const MelFeatureExtractor extractor;
    const auto features = extractor.extract(samples);
    const auto reference = referenceFeatures(samples);
    ASSERT_EQ(features.frameCount(), samples.size() / 160 + 1);
    ASSERT_EQ(features.mel.size(), reference.size());
    double largest = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        largest = std::max(largest, std::abs(double(features.mel[i]) - reference[i]));
    }
    EXPECT_LT(largest, 1e-4) << GetParam().name;
}

std::vector<float> speechLike() {
    // Two tones that glide and a noise burst, over silence: wide dynamic range per bin.
    std::vector<float> samples(size_t{48000}, 0.0f);
    const auto burst = noise(4000, 11, 0.2f);
    for (size_t i = 0; i < 16000; ++i) {
        const double t = static_cast<double>(i) / 16000;
        samples[4000 + i] =
            0.4f * static_cast<float>(std::sin(2 * std::numbers::pi * (180 + 120 * t) * t)) +
            0.1f * static_cast<float>(std::sin(2 * std::numbers::pi * 2300 * t));
    }
    std::copy(burst.begin(), burst.end(), samples.begin() + 30000);
    return samples;
}

INSTANTIATE_TEST_SUITE_P(
    Signals, MelMatchesReference,
    ::testing::Values(ReferenceCase{"silence", std::vector<float>(16000, 0.0f)},
                      ReferenceCase{"tone", tone(440, 16000)},
                      ReferenceCase{"noise", noise(16000, 5)}, ReferenceCase{"one sample", {0.25f}},
                      ReferenceCase{"multiple of the hop", noise(size_t{5920}, 9)}, // 37 hops,
                      ReferenceCase{"speech-like", speechLike()}),
    [](const auto& testInfo) {
        std::string name = testInfo.param.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

TEST(MelFeatureExtractor, FrameCountsFollowTheHop) {
    const MelFeatureExtractor extractor;
    for (const size_t count : {size_t{1}, size_t{159}, size_t{160}, size_t{161}, size_t{320},
                               size_t{16000}, size_t{160 * 25 + 7}}) {
        const auto features = extractor.extract(noise(count, 1));
        EXPECT_EQ(features.frameCount(), count / 160 + 1) << count;
        EXPECT_EQ(features.mel.size(), features.frameCount() * 128);
        EXPECT_EQ(features.attentionMask, std::vector<int32_t>(features.frameCount(), 1));
    }
    const auto empty = extractor.extract({});
    EXPECT_EQ(empty.frameCount(), 0u);
    EXPECT_TRUE(empty.mel.empty());
}

TEST(MelFeatureExtractor, NormalisedBinsHaveZeroMeanAndUnitDeviation) {
    const MelFeatureExtractor extractor;
    const auto features = extractor.extract(noise(16000, 3));
    const size_t frames = features.frameCount();
    for (size_t m = 0; m < 128; m += 17) {
        double sum = 0;
        double squares = 0;
        for (size_t t = 0; t < frames; ++t) {
            sum += features.frame(t)[m];
        }
        for (size_t t = 0; t < frames; ++t) {
            squares += std::pow(features.frame(t)[m] - sum / frames, 2);
        }
        EXPECT_NEAR(sum / frames, 0, 1e-5) << m;
        EXPECT_NEAR(std::sqrt(squares / (frames - 1)), 1, 1e-3) << m;
    }
}

TEST(MelFeatureExtractor, DegenerateChunksNormaliseToZero) {
    // Silence: every filter's energy is 0, every log value ln(2^-24), no deviation. One
    // frame: the squared deviations are divided by 1, not 0.
    const MelFeatureExtractor extractor;
    for (const auto& samples :
         {std::vector<float>(4800, 0.0f), std::vector<float>{0.7f}, noise(100, 4)}) {
        const auto features = extractor.extract(samples);
        ASSERT_FALSE(features.mel.empty());
        for (const float value : features.mel) {
            ASSERT_EQ(value, 0.0f) << samples.size();
        }
    }
}

TEST(MelFeatureExtractor, BuffersAreReusedWithoutCarryingOver) {
    // The same chunk gives the same features before and after another chunk.
    const MelFeatureExtractor extractor;
    const auto chunk = tone(1000, 3200);
    const auto first = extractor.extract(chunk);
    (void)extractor.extract(noise(8000, 2, 0.9f));
    EXPECT_EQ(extractor.extract(chunk), first);
}

TEST(MelFeatureExtractor, WindowIsSymmetricHann) {
    const MelFeatureExtractor extractor;
    const auto& window = extractor.hannWindow();
    ASSERT_EQ(window.size(), 400u);
    EXPECT_EQ(window.front(), 0.0f);
    EXPECT_NEAR(window.back(), 0.0f, 1e-7) << "symmetric: the last value is 0 too";
    EXPECT_NEAR(window[200], 0.5 - 0.5 * std::cos(2 * std::numbers::pi * 200 / 399), 1e-7);
    EXPECT_EQ(extractor.numFreqBins(), 257);
}

TEST(MelFeatureExtractor, RejectsSettingsThatMakeNoFrames) {
    MelFeatureSettings settings;
    settings.winLength = 600;
    EXPECT_THROW(MelFeatureExtractor{settings}, Error);
    settings = {};
    settings.hopLength = 0;
    EXPECT_THROW(MelFeatureExtractor{settings}, Error);
}

TEST(MelFilterBank, SlaneyScaleIsLinearBelowOneKilohertzAndLogarithmicAbove) {
    EXPECT_DOUBLE_EQ(MelFilterBank::hertzToMel(0), 0);
    EXPECT_DOUBLE_EQ(MelFilterBank::hertzToMel(500), 7.5);
    EXPECT_DOUBLE_EQ(MelFilterBank::hertzToMel(1000), 14.999999999999998);
    EXPECT_NEAR(MelFilterBank::hertzToMel(6400), 15 + 27, 1e-12);
    for (const double hertz : {0.0, 123.0, 999.0, 1000.0, 4321.0, 8000.0}) {
        EXPECT_NEAR(MelFilterBank::melToHertz(MelFilterBank::hertzToMel(hertz)), hertz, 1e-9);
    }
}

TEST(MelFilterBank, TrianglesHaveSlaneyAreaNormalisation) {
    const auto bank = MelFilterBank::build(16000, 512, 128, 0);
    ASSERT_EQ(bank.rows.size(), 128u);
    EXPECT_EQ(bank.numFreqBins, 257);
    // Each triangle's peak is 2 / (right - left) at its centre, so its area in hertz is 1;
    // summed over bins of 31.25 Hz that is about 1 / 31.25 for filters a few bins wide.
    for (size_t m = 90; m < 128; m += 5) {
        double area = 0;
        for (const float weight : bank.rows[m]) {
            area += weight;
        }
        EXPECT_NEAR(area * 31.25, 1.0, 0.05) << m;
    }
    const auto narrow = MelFilterBank::build(16000, 512, 40, 0, 4000.0);
    for (size_t k = 0; k < 257; ++k) {
        if (k * 16000.0 / 512 > 4000) {
            EXPECT_EQ(narrow.rows.back()[k], 0.0f) << k;
        }
    }
}

} // namespace
} // namespace orvelle
