#pragma once

// What every fuzz target shares: reading the input as JSON, and the checks that turn a
// broken promise into a crash the fuzzer reports.

#include "core/json.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace orvelle::fuzzing {

inline std::optional<Json> parse(const uint8_t* data, size_t size) {
    try {
        return parseJson(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    }
}

// The input read as a T, or absent where it is not JSON or not a T: a clear error is the
// right answer to a bad file.
template <class T>
std::optional<T> decode(const uint8_t* data, size_t size) {
    const auto json = parse(data, size);
    if (!json) {
        return std::nullopt;
    }
    try {
        return decodeJson<T>(*json);
    } catch (const Error&) {
        return std::nullopt;
    }
}

inline void check(bool condition, const char* broken) {
    if (!condition) {
        std::fprintf(stderr, "fuzz check failed: %s\n", broken);
        std::abort();
    }
}

// A value read from a file is written and read back as the same value, and writing it
// again gives the same text.
template <class T>
void expectRoundTrip(const T& value) {
    const Json written = encodeJson(value);
    T reread;
    try {
        reread = decodeJson<T>(parseJson(written.dump()));
    } catch (const Error& error) {
        std::fprintf(stderr, "fuzz check failed: what was written does not read: %s\n",
                     error.what());
        std::abort();
    }
    check(encodeJson(reread) == written, "writing what was read back gives other JSON");
}

} // namespace orvelle::fuzzing
