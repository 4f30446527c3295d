#pragma once

// A subcommand of `orvelle`. Each lives in a file of its own under cli/ and is listed
// once in the table of main.cpp.

#include "cli/arguments.h"

#include <iosfwd>
#include <string_view>
#include <vector>

namespace orvelle::cli {

struct Command {
    std::string_view name;    // "project normalize": one or two words
    std::string_view summary; // one line for `orvelle --help`
    std::string_view help;    // the usage and a description, for `orvelle NAME --help`
    std::vector<OptionSpec> options;
    // Returns the exit status. Errors derived from orvelle::Error print their text and
    // exit with 1; UsageError exits with 2.
    int (*run)(const Arguments& arguments);
};

} // namespace orvelle::cli
