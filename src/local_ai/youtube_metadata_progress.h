#pragma once

// What the user sees while the model writes: the model's thinking line by line when it
// shows any, otherwise a few fixed words as the keys of the JSON appear.

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

class YouTubeMetadataProgressExtractor {
public:
    static constexpr std::string_view kThoughtStart = "<|channel>thought";
    static constexpr std::string_view kThoughtEnd = "<channel|>";

    // Takes the next piece of output; returns the messages to show now, in order.
    std::vector<std::string> consume(std::string_view piece);

    const std::set<std::string>& emittedFallbackMessages() const { return emitted_; }

private:
    // A whole line of thinking not shown yet, if there is one.
    bool nextThoughtLine(std::string& line);
    void fallbackMessage(std::vector<std::string>& messages);

    std::string output_;
    std::size_t scanned_ = 0; // output_ before this holds no marker still to be found
    bool thinking_ = false;
    std::size_t thoughtStart_ = 0; // where unshown thinking begins
    std::set<std::string> emitted_;
};

} // namespace orvelle
