#include "cli/arguments.h"

#include <charconv>
#include <cmath>

namespace orvelle::cli {

Arguments::Arguments(const std::vector<std::string>& words,
                     const std::vector<OptionSpec>& options) {
    auto findOption = [&](std::string_view name) -> const OptionSpec* {
        for (const auto& option : options) {
            if (option.name == name || (!option.alias.empty() && option.alias == name)) {
                return &option;
            }
        }
        return nullptr;
    };
    bool onlyPositional = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (onlyPositional || word.size() < 2 || word[0] != '-' ||
            (word[1] >= '0' && word[1] <= '9') || word[1] == '.') {
            positional_.push_back(word);
            continue;
        }
        if (word == "--") {
            onlyPositional = true;
            continue;
        }
        std::string name = word;
        std::optional<std::string> inlineValue;
        if (const auto equals = word.find('='); equals != std::string::npos && word[1] == '-') {
            name = word.substr(0, equals);
            inlineValue = word.substr(equals + 1);
        }
        const OptionSpec* option = findOption(name);
        if (option == nullptr) {
            throw UsageError("Unknown option " + name + ".");
        }
        if (!option->takesValue) {
            if (inlineValue) {
                throw UsageError("The option " + option->name + " takes no value.");
            }
            values_[option->name].emplace_back();
            continue;
        }
        if (!inlineValue) {
            if (i + 1 >= words.size()) {
                throw UsageError("The option " + option->name + " needs a value.");
            }
            inlineValue = words[++i];
        }
        values_[option->name].push_back(*inlineValue);
    }
}

const std::string& Arguments::positional(size_t i, std::string_view what) const {
    if (i >= positional_.size()) {
        throw UsageError("Missing " + std::string(what) + ".");
    }
    return positional_[i];
}

bool Arguments::flag(std::string_view name) const {
    return values_.find(name) != values_.end();
}

std::optional<std::string> Arguments::value(std::string_view name) const {
    const auto it = values_.find(name);
    if (it == values_.end() || it->second.empty()) {
        return std::nullopt;
    }
    return it->second.back();
}

std::vector<std::string> Arguments::values(std::string_view name) const {
    const auto it = values_.find(name);
    return it == values_.end() ? std::vector<std::string>{} : it->second;
}

double parseNumber(std::string_view text, std::string_view what) {
    double value = 0;
    const auto* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(value)) {
        throw UsageError("The value \"" + std::string(text) + "\" of " + std::string(what) +
                         " is not a number.");
    }
    return value;
}

std::optional<double> Arguments::number(std::string_view name) const {
    const auto text = value(name);
    return text ? std::optional(parseNumber(*text, name)) : std::nullopt;
}

std::vector<double> Arguments::numbers(std::string_view name) const {
    std::vector<double> result;
    for (const auto& text : values(name)) {
        result.push_back(parseNumber(text, name));
    }
    return result;
}

std::optional<int> Arguments::integer(std::string_view name) const {
    const auto text = value(name);
    if (!text) {
        return std::nullopt;
    }
    int value = 0;
    const auto* end = text->data() + text->size();
    const auto result = std::from_chars(text->data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) {
        throw UsageError("The value \"" + *text + "\" of " + std::string(name) +
                         " is not a whole number.");
    }
    return value;
}

} // namespace orvelle::cli
