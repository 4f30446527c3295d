#pragma once

// llama.cpp's llama-cli talks to a person: on standard output it prints a banner, echoes the
// prompt ("> " and at most its first 500 bytes), streams the answer, and closes with an
// optional timing line and "Exiting...". The helper passes on only the answer. Output that
// never echoes the prompt (a llama-cli that prints only generated text) passes whole.

#include <string>
#include <string_view>

namespace orvelle {

class LlamaCLIOutputFilter {
public:
    static constexpr std::size_t kEchoLimit = 500;

    explicit LlamaCLIOutputFilter(std::string_view prompt);

    // The answer text that can be passed on now.
    std::string consume(std::string_view bytes);
    // The rest of the answer, at the end of the output.
    std::string finish();

    // What came before the answer (banner, loading messages, errors), for diagnostics.
    const std::string& preamble() const { return preamble_; }
    bool foundAnswer() const { return inAnswer_; }

private:
    std::string marker_;
    std::string preamble_;
    std::string held_; // the answer's last bytes, which may turn out to be the closing lines
    bool inAnswer_ = false;
};

} // namespace orvelle
