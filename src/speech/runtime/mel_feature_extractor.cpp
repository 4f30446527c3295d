#include "speech/runtime/mel_feature_extractor.h"

#include "speech/runtime/parakeet_error.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numbers>

namespace orvelle {

namespace {

// FFTW's planner is not thread-safe; executing a plan is.
std::mutex plannerMutex;

template <class T>
struct FftwFree {
    void operator()(T* memory) const { fftw_free(memory); }
};
template <class T>
using FftwBuffer = std::unique_ptr<T[], FftwFree<T>>;

template <class T>
FftwBuffer<T> fftwBuffer(size_t count) {
    auto* memory = static_cast<T*>(fftw_malloc(sizeof(T) * count));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return FftwBuffer<T>(memory);
}

} // namespace

struct MelFeatureExtractor::Plan {
    fftw_plan plan = nullptr;
    ~Plan() {
        if (plan != nullptr) {
            std::lock_guard lock(plannerMutex);
            fftw_destroy_plan(plan);
        }
    }
};

MelFeatureExtractor::MelFeatureExtractor(const Settings& settings) : settings_(settings) {
    if (settings.sampleRate < 1 || settings.hopLength < 1 || settings.winLength < 1 ||
        settings.nFFT < 2 || settings.winLength > settings.nFFT || settings.numMelFilters < 1) {
        throw Error("Invalid mel feature settings: the rate, hop, window, transform length and "
                    "filter count must be positive, and the window no longer than the "
                    "transform.");
    }
    const auto winLength = static_cast<size_t>(settings.winLength);
    hannWindow_.resize(winLength);
    for (size_t i = 0; i < winLength; ++i) {
        // The symmetric form: the denominator is winLength - 1, not winLength.
        const double denominator = winLength > 1 ? static_cast<double>(winLength - 1) : 1.0;
        hannWindow_[i] = static_cast<float>(
            0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / denominator));
    }

    auto bank = MelFilterBank::build(settings.sampleRate, settings.nFFT, settings.numMelFilters, 0,
                                     std::nullopt);
    melRows_ = std::move(bank.rows);
    numFreqBins_ = bank.numFreqBins;
    for (const auto& row : melRows_) {
        const auto first = std::find_if(row.begin(), row.end(), [](float w) { return w != 0; });
        const auto last = std::find_if(row.rbegin(), row.rend(), [](float w) { return w != 0; });
        const auto begin = static_cast<size_t>(first - row.begin());
        const auto end = static_cast<size_t>(row.rend() - last);
        melSupport_.emplace_back(begin, std::max(begin, end));
    }

    fftSetup_ = std::make_unique<Plan>();
    const auto n = static_cast<size_t>(settings.nFFT);
    auto input = fftwBuffer<double>(n);
    auto output = fftwBuffer<fftw_complex>(n / 2 + 1);
    {
        std::lock_guard lock(plannerMutex);
        fftSetup_->plan = fftw_plan_dft_r2c_1d(settings.nFFT, input.get(), output.get(),
                                               FFTW_ESTIMATE | FFTW_DESTROY_INPUT);
    }
    if (fftSetup_->plan == nullptr) {
        throw ParakeetError::fftSetupFailed();
    }
}

MelFeatureExtractor::~MelFeatureExtractor() = default;

MelFeatureExtractor::Features MelFeatureExtractor::extract(std::span<const float> samples) const {
    Features features;
    features.numMelFilters = settings_.numMelFilters;
    if (samples.empty()) {
        return features;
    }
    const auto nFFT = static_cast<size_t>(settings_.nFFT);
    const auto hop = static_cast<size_t>(settings_.hopLength);
    const auto winLength = static_cast<size_t>(settings_.winLength);
    const auto bins = static_cast<size_t>(settings_.numMelFilters);
    const auto freqBins = static_cast<size_t>(numFreqBins_);
    const size_t pad = nFFT / 2;

    // Pre-emphasis over the whole chunk, between zeros (not a reflection) of half a
    // transform on each side.
    std::vector<float> padded(samples.size() + 2 * pad, 0.0f);
    padded[pad] = samples[0];
    for (size_t i = 1; i < samples.size(); ++i) {
        padded[pad + i] = samples[i] - settings_.preemphasis * samples[i - 1];
    }
    const size_t frames = (padded.size() - nFFT) / hop + 1;
    features.mel.resize(frames * bins);
    features.attentionMask.assign(frames, 1);

    // The windowed frame is rounded to 32 bits as the features are defined; from the
    // transform on, double precision. A quiet bin next to a loud one sits some 80 dB below
    // it, where a single-precision transform's rounding moves its log by 1e-4.
    auto frame = fftwBuffer<double>(nFFT);
    auto spectrum = fftwBuffer<fftw_complex>(freqBins);
    std::vector<double> power(freqBins);
    std::vector<double> logMel(frames * bins);
    const size_t offset = (nFFT - winLength) / 2; // the window sits in the middle
    const float* window = hannWindow_.data();
    const double logGuard = settings_.logGuard;

    for (size_t t = 0; t < frames; ++t) {
        double* buffer = frame.get();
        std::fill_n(buffer, nFFT, 0.0);
        const float* source = padded.data() + t * hop + offset;
        for (size_t i = 0; i < winLength; ++i) {
            buffer[offset + i] = source[i] * window[i];
        }
        fftw_execute_dft_r2c(fftSetup_->plan, buffer, spectrum.get());
        for (size_t k = 0; k < freqBins; ++k) {
            const double re = spectrum[k][0];
            const double im = spectrum[k][1];
            const double magnitude = std::sqrt(re * re + im * im);
            power[k] = magnitude * magnitude;
        }
        double* out = logMel.data() + t * bins;
        for (size_t m = 0; m < bins; ++m) {
            const float* weights = melRows_[m].data();
            const auto [first, end] = melSupport_[m];
            double energy = 0;
            for (size_t k = first; k < end; ++k) {
                energy += weights[k] * power[k];
            }
            out[m] = std::log(energy + logGuard);
        }
    }

    // Each bin over this chunk alone, with the unbiased deviation (T - 1, or 1 for a
    // single frame, which then normalises to 0). The mean is summed as offsets from the
    // first frame, so a bin that never changes (silence) has exactly its value as mean
    // and normalises to exactly 0.
    std::vector<double> offsets(bins, 0.0);
    for (size_t t = 1; t < frames; ++t) {
        const double* row = logMel.data() + t * bins;
        for (size_t m = 0; m < bins; ++m) {
            offsets[m] += row[m] - logMel[m];
        }
    }
    std::vector<double> mean(bins);
    for (size_t m = 0; m < bins; ++m) {
        mean[m] = logMel[m] + offsets[m] / static_cast<double>(frames);
    }
    std::vector<double> squares(bins, 0.0);
    for (size_t t = 0; t < frames; ++t) {
        const double* row = logMel.data() + t * bins;
        for (size_t m = 0; m < bins; ++m) {
            const double deviation = row[m] - mean[m];
            squares[m] += deviation * deviation;
        }
    }
    std::vector<double> denominator(bins);
    const double divisor = static_cast<double>(std::max<size_t>(frames - 1, 1));
    for (size_t m = 0; m < bins; ++m) {
        denominator[m] = settings_.epsilon + std::sqrt(squares[m] / divisor);
    }
    for (size_t t = 0; t < frames; ++t) {
        const double* row = logMel.data() + t * bins;
        float* out = features.mel.data() + t * bins;
        for (size_t m = 0; m < bins; ++m) {
            out[m] = static_cast<float>((row[m] - mean[m]) / denominator[m]);
        }
    }
    return features;
}

} // namespace orvelle
