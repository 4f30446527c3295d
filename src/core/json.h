#pragma once

// JSON coding for every persisted record. Objects keep their keys sorted, text is
// pretty-printed with two spaces, and readers name the offending key in every error.

#include "core/date.h"
#include "core/error.h"
#include "core/uuid.h"

#include <nlohmann/json.hpp>

#include <array>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace orvelle {

using Json = nlohmann::json; // std::map objects: keys come out sorted

// A document or value that does not decode. what() is "<path>: <problem>", or just the
// problem for the top level.
class JsonDecodeError : public Error {
public:
    JsonDecodeError(const std::string& path, const std::string& problem);
    const std::string& path() const { return path_; }
    const std::string& problem() const { return problem_; }

private:
    std::string path_;
    std::string problem_;
};

// How a date field reads: the ISO 8601 text of this program, or the numeric form of
// older files (seconds since 2001-01-01T00:00:00Z).
enum class DateDecoding { iso8601, secondsSinceReferenceDate };

// Where in a document a decoder stands, for error messages, and the date form in force.
struct JsonDecodeContext {
    std::string path;
    DateDecoding dates = DateDecoding::iso8601;

    JsonDecodeContext key(std::string_view name) const;
    JsonDecodeContext index(size_t i) const;
    [[noreturn]] void fail(const std::string& problem) const;
};

// Specialise for each record: static T decode(const Json&, const JsonDecodeContext&) and
// static Json encode(const T&).
template <class T, class Enable = void>
struct JsonCoder;

template <class T>
T decodeJson(const Json& json, const JsonDecodeContext& context = {}) {
    return JsonCoder<T>::decode(json, context);
}

// Decodes a record that holds dates as this program writes them (ISO 8601) or, failing
// that, as older files did (numbers): the two passes that let every earlier file open. When
// both fail, the first pass's error is thrown.
template <class T>
T decodeJsonWithEitherDateForm(const Json& json) {
    try {
        return decodeJson<T>(json, JsonDecodeContext{"", DateDecoding::iso8601});
    } catch (const JsonDecodeError&) {
        try {
            return decodeJson<T>(json,
                                 JsonDecodeContext{"", DateDecoding::secondsSinceReferenceDate});
        } catch (const JsonDecodeError&) {
        }
        throw;
    }
}

template <class T>
Json encodeJson(const T& value) {
    return JsonCoder<T>::encode(value);
}

// Reads the keys of one object. A key that is missing or null counts as absent.
class JsonObjectReader {
public:
    JsonObjectReader(const Json& json, JsonDecodeContext context);

    bool contains(std::string_view key) const;
    const Json& raw(std::string_view key) const; // required, any type

    template <class T>
    T required(std::string_view key) const {
        const Json* value = find(key);
        if (value == nullptr) {
            context_.key(key).fail("required key is missing");
        }
        return decodeJson<T>(*value, context_.key(key));
    }

    template <class T>
    T value(std::string_view key, T fallback) const {
        const Json* value = find(key);
        return value == nullptr ? fallback : decodeJson<T>(*value, context_.key(key));
    }

    template <class T>
    std::optional<T> optional(std::string_view key) const {
        const Json* value = find(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        return decodeJson<T>(*value, context_.key(key));
    }

    // Missing or not finite gives the fallback; anything else is clamped into [low, high].
    double sanitised(std::string_view key, double low, double high, double fallback) const;

    const JsonDecodeContext& context() const { return context_; }
    const Json& json() const { return json_; }

private:
    const Json* find(std::string_view key) const;

    const Json& json_;
    JsonDecodeContext context_;
};

// Clamps a number into [low, high]; a value that is not finite gives the fallback.
double sanitisedNumber(double value, double low, double high, double fallback);

// Leaves the key out when the value is absent.
template <class T>
void setOptional(Json& object, const char* key, const std::optional<T>& value) {
    if (value) {
        object[key] = encodeJson(*value);
    }
}

// Enumerations are stored by case name. An enum type opts in by declaring, next to
// itself, `std::span<const EnumName<E>> jsonNames(E)` returning its table.
template <class E>
struct EnumName {
    E value;
    std::string_view name;
};

template <class E>
concept JsonEnumeration = std::is_enum_v<E> && requires(E e) {
    { jsonNames(e) } -> std::convertible_to<std::span<const EnumName<E>>>;
};

template <JsonEnumeration E>
std::string_view enumName(E value) {
    for (const auto& entry : jsonNames(E{})) {
        if (entry.value == value) {
            return entry.name;
        }
    }
    return "";
}

template <JsonEnumeration E>
std::optional<E> enumFromName(std::string_view name) {
    for (const auto& entry : jsonNames(E{})) {
        if (entry.name == name) {
            return entry.value;
        }
    }
    return std::nullopt;
}

std::string decodeString(const Json& json, const JsonDecodeContext& context);

template <JsonEnumeration E>
struct JsonCoder<E> {
    static E decode(const Json& json, const JsonDecodeContext& context) {
        const std::string name = decodeString(json, context);
        if (auto value = enumFromName<E>(name)) {
            return *value;
        }
        context.fail("unknown value \"" + name + "\"");
    }
    static Json encode(E value) { return std::string(enumName(value)); }
};

template <>
struct JsonCoder<bool> {
    static bool decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(bool value) { return value; }
};

template <>
struct JsonCoder<double> {
    static double decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(double value) { return value; }
};

template <>
struct JsonCoder<int> {
    static int decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(int value) { return value; }
};

template <>
struct JsonCoder<std::int64_t> {
    static std::int64_t decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(std::int64_t value) { return value; }
};

template <>
struct JsonCoder<std::string> {
    static std::string decode(const Json& json, const JsonDecodeContext& context) {
        return decodeString(json, context);
    }
    static Json encode(const std::string& value) { return value; }
};

template <>
struct JsonCoder<Uuid> {
    static Uuid decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const Uuid& value) { return value.string(); }
};

template <>
struct JsonCoder<Date> {
    static Date decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const Date& value) { return value.iso8601(); }
};

// A file path, stored as a "file://" URL string.
template <>
struct JsonCoder<std::filesystem::path> {
    static std::filesystem::path decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const std::filesystem::path& value);
};

template <class T>
struct JsonCoder<std::vector<T>> {
    static std::vector<T> decode(const Json& json, const JsonDecodeContext& context) {
        if (!json.is_array()) {
            context.fail("expected a list");
        }
        std::vector<T> result;
        result.reserve(json.size());
        for (size_t i = 0; i < json.size(); ++i) {
            result.push_back(decodeJson<T>(json[i], context.index(i)));
        }
        return result;
    }
    static Json encode(const std::vector<T>& values) {
        Json array = Json::array();
        for (const auto& value : values) {
            array.push_back(encodeJson(value));
        }
        return array;
    }
};

// Text I/O.
Json parseJson(std::string_view text);    // throws JsonDecodeError
std::string prettyJson(const Json& json); // two-space indent, sorted keys, trailing newline
Json readJsonFile(const std::filesystem::path& path); // throws FileError or JsonDecodeError
void writeJsonAtomically(const std::filesystem::path& path, const Json& json);

} // namespace orvelle
