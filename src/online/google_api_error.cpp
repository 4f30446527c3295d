#include "online/google_api_error.h"

#include "core/json.h"

#include <array>
#include <utility>

namespace orvelle {

namespace {

std::string trimmedText(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

std::optional<std::string> stringAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

} // namespace

std::optional<GoogleAPIErrorDetails> GoogleAPIErrorDetails::parse(std::string_view body) {
    const Json json = Json::parse(body, nullptr, false);
    if (json.is_discarded() || !json.is_object() ||
        (!json.contains("error") && !json.contains("error_description"))) {
        return std::nullopt;
    }
    GoogleAPIErrorDetails details;
    if (const auto error = json.find("error"); error != json.end()) {
        if (error->is_string()) {
            details.errorCode = error->get<std::string>();
        } else if (error->is_object()) {
            if (const auto code = error->find("code");
                code != error->end() && code->is_number_integer()) {
                details.code = code->get<int>();
            }
            details.message = stringAt(*error, "message");
            details.status = stringAt(*error, "status");
            if (const auto errors = error->find("errors");
                errors != error->end() && errors->is_array()) {
                for (const auto& nested : *errors) {
                    if (nested.is_object()) {
                        if (auto reason = stringAt(nested, "reason")) {
                            details.reason = std::move(reason);
                            break;
                        }
                    }
                }
            }
        }
    }
    details.errorDescription = stringAt(json, "error_description");
    return details;
}

std::optional<std::string> GoogleAPIErrorDetails::mappedMessage() const {
    static const std::array<std::pair<std::string_view, std::string_view>, 7> kMessages{{
        {"quotaExceeded", "YouTube upload quota has been exceeded."},
        {"uploadLimitExceeded", "This YouTube account has reached its upload limit."},
        {"youtubeSignupRequired",
         "This Google account needs a YouTube channel before it can upload."},
        {"insufficientPermissions",
         "Google is missing the YouTube upload permission. Disconnect and connect again."},
        {"insufficient_scope",
         "Google is missing the YouTube upload permission. Disconnect and connect again."},
        {"invalid_grant", "Google sign-in expired. Disconnect and connect again."},
        {"access_denied", "Google access was denied."},
    }};
    const std::optional<std::string>& key = reason ? reason : errorCode;
    if (!key) {
        return std::nullopt;
    }
    for (const auto& [value, text] : kMessages) {
        if (*key == value) {
            return std::string(text);
        }
    }
    return std::nullopt;
}

std::string GoogleAPIErrorDetails::detail() const {
    std::optional<std::string> spelledCode;
    if (errorCode) {
        spelledCode = *errorCode;
        for (char& c : *spelledCode) {
            if (c == '_') {
                c = ' ';
            }
        }
    }
    for (const auto& candidate : {mappedMessage(), message, errorDescription, spelledCode}) {
        if (candidate) {
            if (std::string text = trimmedText(*candidate); !text.empty()) {
                return text;
            }
        }
    }
    return "The request failed.";
}

std::optional<std::string> googleErrorDetail(std::string_view body) {
    if (const auto details = GoogleAPIErrorDetails::parse(body)) {
        return details->detail();
    }
    return std::nullopt;
}

std::string httpFailureMessage(std::string_view prefix, int status,
                               const std::optional<std::string>& detail) {
    return std::string(prefix) + " " + std::to_string(status) +
           (detail ? ": " + *detail : std::string("."));
}

} // namespace orvelle
