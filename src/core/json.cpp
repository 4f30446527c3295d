#include "core/json.h"

#include "core/file_url.h"
#include "core/files.h"

#include <cmath>

namespace orvelle {

JsonDecodeError::JsonDecodeError(const std::string& path, const std::string& problem)
    : Error(path.empty() ? problem : path + ": " + problem), path_(path), problem_(problem) {}

JsonDecodeContext JsonDecodeContext::key(std::string_view name) const {
    JsonDecodeContext child = *this;
    if (!child.path.empty()) {
        child.path += ".";
    }
    child.path += name;
    return child;
}

JsonDecodeContext JsonDecodeContext::index(size_t i) const {
    JsonDecodeContext child = *this;
    child.path += "[" + std::to_string(i) + "]";
    return child;
}

void JsonDecodeContext::fail(const std::string& problem) const {
    throw JsonDecodeError(path, problem);
}

JsonObjectReader::JsonObjectReader(const Json& json, JsonDecodeContext context)
    : json_(json), context_(std::move(context)) {
    if (!json_.is_object()) {
        context_.fail("expected an object");
    }
}

const Json* JsonObjectReader::find(std::string_view key) const {
    const auto it = json_.find(key);
    if (it == json_.end() || it->is_null()) {
        return nullptr;
    }
    return &*it;
}

bool JsonObjectReader::contains(std::string_view key) const {
    return find(key) != nullptr;
}

const Json& JsonObjectReader::raw(std::string_view key) const {
    const Json* value = find(key);
    if (value == nullptr) {
        context_.key(key).fail("required key is missing");
    }
    return *value;
}

double sanitisedNumber(double value, double low, double high, double fallback) {
    if (!std::isfinite(value)) {
        return fallback;
    }
    return std::clamp(value, low, high);
}

double JsonObjectReader::sanitised(std::string_view key, double low, double high,
                                   double fallback) const {
    const auto number = optional<double>(key);
    return number ? sanitisedNumber(*number, low, high, fallback) : fallback;
}

std::string decodeString(const Json& json, const JsonDecodeContext& context) {
    if (!json.is_string()) {
        context.fail("expected a string");
    }
    return json.get<std::string>();
}

bool JsonCoder<bool>::decode(const Json& json, const JsonDecodeContext& context) {
    if (!json.is_boolean()) {
        context.fail("expected true or false");
    }
    return json.get<bool>();
}

double JsonCoder<double>::decode(const Json& json, const JsonDecodeContext& context) {
    if (!json.is_number()) {
        context.fail("expected a number");
    }
    return json.get<double>();
}

namespace {

std::int64_t decodeInteger(const Json& json, const JsonDecodeContext& context) {
    if (json.is_number_integer()) {
        return json.get<std::int64_t>();
    }
    if (json.is_number_float()) {
        const double value = json.get<double>();
        if (std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < 9.0e15) {
            return static_cast<std::int64_t>(value);
        }
    }
    context.fail("expected a whole number");
}

} // namespace

int JsonCoder<int>::decode(const Json& json, const JsonDecodeContext& context) {
    const std::int64_t value = decodeInteger(json, context);
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
        context.fail("number out of range");
    }
    return static_cast<int>(value);
}

std::int64_t JsonCoder<std::int64_t>::decode(const Json& json, const JsonDecodeContext& context) {
    return decodeInteger(json, context);
}

Uuid JsonCoder<Uuid>::decode(const Json& json, const JsonDecodeContext& context) {
    const std::string text = decodeString(json, context);
    if (auto id = Uuid::parse(text)) {
        return *id;
    }
    context.fail("not a UUID: \"" + text + "\"");
}

Date JsonCoder<Date>::decode(const Json& json, const JsonDecodeContext& context) {
    if (context.dates == DateDecoding::secondsSinceReferenceDate) {
        if (!json.is_number()) {
            context.fail("expected a number of seconds");
        }
        return Date::fromSecondsSinceReferenceDate(json.get<double>());
    }
    const std::string text = decodeString(json, context);
    if (auto date = Date::parseISO8601(text)) {
        return *date;
    }
    context.fail("not an ISO 8601 date: \"" + text + "\"");
}

std::filesystem::path JsonCoder<std::filesystem::path>::decode(const Json& json,
                                                               const JsonDecodeContext& context) {
    const std::string text = decodeString(json, context);
    try {
        return pathFromFileURL(text);
    } catch (const Error& error) {
        context.fail(error.what());
    }
}

Json JsonCoder<std::filesystem::path>::encode(const std::filesystem::path& value) {
    return fileURLString(value);
}

Json parseJson(std::string_view text) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& error) { // a syntax error, or a number out of range
        throw JsonDecodeError("", std::string("not valid JSON (") + error.what() + ")");
    }
}

std::string prettyJson(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json readJsonFile(const std::filesystem::path& path) {
    return parseJson(readFile(path));
}

void writeJsonAtomically(const std::filesystem::path& path, const Json& json) {
    writeFileAtomically(path, prettyJson(json));
}

} // namespace orvelle
