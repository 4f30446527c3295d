#include "speech/runtime/mel_feature_extractor.h"
#include "speech/runtime/mel_filter_bank.h"
#include "speech/runtime/parakeet_error.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// The reference above fixes the window, the filters, the log and the normalisation; these are
// the edges it does not reach.
TEST(MelFeatureExtractor, EdgesTheReferenceDoesNotReach) {
    const MelFeatureExtractor extractor;
    // Silence, one sample and a chunk shorter than a window normalise to zeros (no deviation,
    // or one frame divided by 1, not 0), with a mask of ones.
    for (const auto& samples :
         {std::vector<float>(4800, 0.0f), std::vector<float>{0.7f}, noise(100, 4)}) {
        const auto features = extractor.extract(samples);
        ASSERT_EQ(features.frameCount(), samples.size() / 160 + 1);
        EXPECT_EQ(features.attentionMask, std::vector<int32_t>(features.frameCount(), 1));
        EXPECT_TRUE(std::all_of(features.mel.begin(), features.mel.end(), [](float value) {
            return value == 0.0f;
        })) << samples.size();
    }
    EXPECT_EQ(extractor.extract({}).frameCount(), 0u);
    // The buffers are reused without carrying over: the same chunk, the same features.
    const auto chunk = tone(1000, 3200);
    const auto first = extractor.extract(chunk);
    (void)extractor.extract(noise(8000, 2, 0.9f));
    EXPECT_EQ(extractor.extract(chunk), first);
    // Settings that make no frames are refused.
    MelFeatureSettings settings;
    settings.winLength = 600;
    EXPECT_THROW(MelFeatureExtractor{settings}, Error);
    settings = {};
    settings.hopLength = 0;
    EXPECT_THROW(MelFeatureExtractor{settings}, Error);
    // A bank with a lower top frequency has nothing above it.
    const auto narrow = MelFilterBank::build(16000, 512, 40, 0, 4000.0);
    for (size_t k = 0; k < 257; ++k) {
        if (k * 16000.0 / 512 > 4000) {
            EXPECT_EQ(narrow.rows.back()[k], 0.0f) << k;
        }
    }
}

} // namespace
} // namespace orvelle
