#pragma once

// The triangular mel filters of the speech front end: Slaney's mel scale (linear below
// 1 kHz, logarithmic above) with area normalisation, computed in double precision.

#include <optional>
#include <vector>

namespace orvelle::MelFilterBank {

struct FilterBank {
    std::vector<std::vector<float>> rows; // numMelFilters rows of numFreqBins weights
    int numFreqBins = 0;                  // nFFT / 2 + 1
    friend bool operator==(const FilterBank&, const FilterBank&) = default;
};

double hertzToMel(double hertz);
double melToHertz(double mel);

// fMax absent is sampleRate / 2.
FilterBank build(int sampleRate, int nFFT, int numMelFilters, double fMin,
                 std::optional<double> fMax = std::nullopt);

} // namespace orvelle::MelFilterBank
