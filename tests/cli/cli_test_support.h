#pragma once

// Running `orvelle` in a test: its JSON answer, or its exit status and message.

#include "core/json.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

namespace orvelle::testing {

// Runs orvelle and parses what it printed; a failure of the run fails the test.
inline Json orvelleJson(const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment = {}) {
    const ProgramResult result = runProgram(orvelleBinary(), arguments, environment);
    EXPECT_EQ(result.status, 0) << result.err;
    try {
        return parseJson(result.out);
    } catch (const JsonDecodeError& error) {
        ADD_FAILURE() << "not JSON: " << result.out << "\n" << result.err;
        return nullptr;
    }
}

} // namespace orvelle::testing
