#include "speech/runtime/mel_filter_bank.h"

#include <algorithm>
#include <cmath>

namespace orvelle::MelFilterBank {

namespace {

// Kept in exactly this form: ln(6.4) / 27, and 1000 Hz on the mel axis.
constexpr double logStep = 0.06875177742094912;
constexpr double linearBreakMel = 14.999999999999998;
constexpr double hertzPerMel = 66.66666666666667;

} // namespace

double hertzToMel(double hertz) {
    if (hertz >= 1000) {
        return linearBreakMel + std::log(hertz / 1000) / logStep;
    }
    return hertz / hertzPerMel;
}

double melToHertz(double mel) {
    if (mel >= linearBreakMel) {
        return 1000 * std::exp((mel - linearBreakMel) * logStep);
    }
    return mel * hertzPerMel;
}

FilterBank build(int sampleRate, int nFFT, int numMelFilters, double fMin,
                 std::optional<double> fMax) {
    FilterBank bank;
    bank.numFreqBins = nFFT / 2 + 1;
    const double top = fMax.value_or(sampleRate / 2.0);
    const double melMin = hertzToMel(fMin);
    const double melMax = hertzToMel(top);

    std::vector<double> edges(static_cast<size_t>(numMelFilters) + 2);
    for (size_t i = 0; i < edges.size(); ++i) {
        edges[i] =
            melToHertz(melMin + (melMax - melMin) * static_cast<double>(i) / (numMelFilters + 1));
    }
    bank.rows.assign(static_cast<size_t>(numMelFilters),
                     std::vector<float>(static_cast<size_t>(bank.numFreqBins), 0.0f));
    for (size_t m = 0; m < bank.rows.size(); ++m) {
        const double left = edges[m];
        const double centre = edges[m + 1];
        const double right = edges[m + 2];
        const double norm = 2.0 / (right - left);
        for (int k = 0; k < bank.numFreqBins; ++k) {
            const double frequency = static_cast<double>(k) * sampleRate / nFFT;
            const double rising = (frequency - left) / (centre - left);
            const double falling = (right - frequency) / (right - centre);
            bank.rows[m][static_cast<size_t>(k)] =
                static_cast<float>(norm * std::max(0.0, std::min(rising, falling)));
        }
    }
    return bank;
}

} // namespace orvelle::MelFilterBank
