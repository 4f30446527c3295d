#include "cli/output.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <iostream>

namespace orvelle::cli {

void printJson(const Json& json) {
    std::cout << prettyJson(json);
    std::cout.flush();
}

ProgressReporter::ProgressReporter(std::string label)
    : label_(std::move(label)), terminal_(::isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()) {}

ProgressReporter::~ProgressReporter() {
    if (!finished_ && terminal_ && lastPercent_ >= 0) {
        std::fputs("\n", stderr);
    }
}

void ProgressReporter::update(double fraction) {
    if (!std::isfinite(fraction)) {
        return;
    }
    fraction = std::clamp(fraction, 0.0, 1.0);
    const int percent = static_cast<int>(std::floor(fraction * 100.0));
    const auto now = std::chrono::steady_clock::now();
    if (!terminal_) {
        if (percent != lastPercent_) {
            std::fprintf(stderr, "%s: %d%%\n", label_.c_str(), percent);
            lastPercent_ = percent;
        }
        return;
    }
    if (percent == lastPercent_ && now - lastDraw_ < std::chrono::milliseconds(250)) {
        return;
    }
    lastPercent_ = percent;
    lastDraw_ = now;
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(std::round(fraction * kWidth));
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), '-');
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    std::string eta = "--:--";
    if (fraction > 0.01 && elapsed > 0.5) {
        const int left = static_cast<int>(std::round(elapsed / fraction - elapsed));
        char text[32];
        std::snprintf(text, sizeof text, "%02d:%02d", left / 60, left % 60);
        eta = text;
    }
    std::fprintf(stderr, "\r%s [%s] %3d%%  %s left ", label_.c_str(), bar.c_str(), percent,
                 eta.c_str());
    std::fflush(stderr);
}

void ProgressReporter::finish() {
    if (finished_) {
        return;
    }
    update(1.0);
    if (terminal_) {
        std::fputs("\n", stderr);
    }
    finished_ = true;
}

} // namespace orvelle::cli
