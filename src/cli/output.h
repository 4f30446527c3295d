#pragma once

// What every subcommand prints: JSON on stdout, progress on stderr.

#include "core/json.h"

#include <chrono>
#include <string>

namespace orvelle::cli {

void printJson(const Json& json);

// A bar with percentage and time left when stderr is a terminal; otherwise a plain line
// at every whole percent, so logs stay readable.
class ProgressReporter {
public:
    explicit ProgressReporter(std::string label);
    ~ProgressReporter();
    void update(double fraction); // 0...1; thread-safe enough for one producer
    void finish();                // ends the line

private:
    std::string label_;
    bool terminal_;
    int lastPercent_ = -1;
    bool finished_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDraw_;
};

} // namespace orvelle::cli
