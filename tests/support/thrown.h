#pragma once

// The exception a piece of code throws, for the tests of what a failure says.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace orvelle::testing {

// The exception of type E that `run` throws; nothing, and a test failure, when it throws none.
template <class E, class Run>
std::optional<E> thrown(Run&& run) {
    static_assert(!std::is_same_v<E, std::exception>, "a copy would lose the message");
    try {
        std::forward<Run>(run)();
    } catch (const E& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return std::nullopt;
}

// What the exception of type E that `run` throws says; "" when it throws none.
template <class E, class Run>
std::string messageOf(Run&& run) {
    try {
        std::forward<Run>(run)();
    } catch (const E& error) {
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return "";
}

} // namespace orvelle::testing
