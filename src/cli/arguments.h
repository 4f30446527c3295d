#pragma once

// The command line of one subcommand: positional words, options with values (possibly
// repeated), and flags. Options are declared up front so that a typo is an error.

#include "core/error.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle::cli {

// A command line that does not parse; the message says what to do instead.
class UsageError : public Error {
public:
    using Error::Error;
};

struct OptionSpec {
    std::string name;        // "--json", "-o"
    bool takesValue = false; // "--time 3" or "--time=3"
    std::string alias;       // "-o" for "--output", may be empty
};

class Arguments {
public:
    // Throws UsageError on an unknown option or a missing value.
    Arguments(const std::vector<std::string>& words, const std::vector<OptionSpec>& options);

    const std::vector<std::string>& positional() const { return positional_; }
    // The positional word at i, or a UsageError naming what is missing.
    const std::string& positional(size_t i, std::string_view what) const;
    bool flag(std::string_view name) const;
    std::optional<std::string> value(std::string_view name) const; // the last one given
    std::vector<std::string> values(std::string_view name) const;  // all, in order

    // Typed readers; a malformed value is a UsageError that names the option.
    std::optional<double> number(std::string_view name) const;
    std::vector<double> numbers(std::string_view name) const;
    std::optional<int> integer(std::string_view name) const;

private:
    std::vector<std::string> positional_;
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

double parseNumber(std::string_view text, std::string_view what);

} // namespace orvelle::cli
