#pragma once

// The error bodies of Google's APIs, in both of their shapes: OAuth's
// {"error": "invalid_grant", "error_description": "..."} and the Data APIs'
// {"error": {"code": 403, "message": "...", "status": "...", "errors": [{"reason": ...}]}},
// flattened into one record, and the one line of detail shown to the user.

#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

struct GoogleAPIErrorDetails {
    std::optional<int> code;
    std::optional<std::string> message;
    std::optional<std::string> status;
    std::optional<std::string> reason;           // the first nested error's reason
    std::optional<std::string> errorCode;        // OAuth's string "error"
    std::optional<std::string> errorDescription; // OAuth's "error_description"

    // Absent when the body is not a JSON object with an "error" or "error_description".
    static std::optional<GoogleAPIErrorDetails> parse(std::string_view body);

    // The program's own words for the reasons a user can act on, by `reason` if there is
    // one, otherwise by `errorCode`.
    std::optional<std::string> mappedMessage() const;

    // The first non-empty of: mappedMessage, message, errorDescription, errorCode with "_"
    // as blanks, "The request failed.".
    std::string detail() const;

    friend bool operator==(const GoogleAPIErrorDetails&, const GoogleAPIErrorDetails&) = default;
};

// The detail of a failed answer's body, absent when the body is no Google error.
std::optional<std::string> googleErrorDetail(std::string_view body);

// "<prefix> " + status + ": " + detail, or "<prefix> " + status + "." without a detail.
std::string httpFailureMessage(std::string_view prefix, int status,
                               const std::optional<std::string>& detail);

} // namespace orvelle
