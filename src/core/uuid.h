#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

// A 128-bit identifier, written in upper case ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F").
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    static Uuid random();
    // Accepts either case; absent unless the text is 8-4-4-4-12 hexadecimal digits.
    static std::optional<Uuid> parse(std::string_view text);
    std::string string() const;

    friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

} // namespace orvelle

template <>
struct std::hash<orvelle::Uuid> {
    size_t operator()(const orvelle::Uuid& id) const noexcept {
        size_t h = 0;
        for (auto b : id.bytes) {
            h = h * 131 + b;
        }
        return h;
    }
};
