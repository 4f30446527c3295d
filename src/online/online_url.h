#pragma once

// The little URL work the online services need: percent-escaping for query strings and
// form bodies, query items added to a URL or read from one, and the rule that every
// service address uses https unless it points at this machine.

#include "core/error.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvelle {

using URLQueryItem = std::pair<std::string, std::string>;

// A service address that is not usable: not https and not on this machine, or not a URL.
class OnlineConfigurationError : public Error {
public:
    using Error::Error;
};

// Every byte outside the unreserved set (letters, digits, "-._~") and outside `alsoKept`
// as %XX.
std::string percentEscaped(std::string_view text, std::string_view alsoKept = {});
// "%41" as "A"; with `plusIsSpace`, "+" as a blank (query strings). Malformed escapes are
// kept as they stand.
std::string percentUnescaped(std::string_view text, bool plusIsSpace);

// key=value pairs joined by "&", keys and values escaped with the query characters kept
// except "+", "&" and "=" (an OAuth form body).
std::string formBody(const std::vector<URLQueryItem>& items);

// `url` with the items appended to its query ("?" or "&"), before any fragment.
std::string appendingQueryItems(const std::string& url, const std::vector<URLQueryItem>& items);

// The parts of an absolute URL. Absent when it has no "scheme://host".
struct URLComponents {
    std::string scheme; // lower case
    std::string host;   // lower case, without brackets for IPv6
    std::optional<int> port;
    std::string path; // "/" when empty
    std::string query;

    static std::optional<URLComponents> parse(std::string_view url);
    // The decoded items of the query, in order; "a" without "=" has an empty value.
    std::vector<URLQueryItem> queryItems() const;
    std::optional<std::string> queryValue(std::string_view name) const;
};

// 127.0.0.0/8, ::1 or "localhost".
bool isLoopbackHost(std::string_view host);

// Throws OnlineConfigurationError naming `what` unless `url` is an https URL, or an http
// URL of a loopback host.
void requireSecureURL(const std::string& url, std::string_view what);

// `base` with exactly one "/" between it and `path` ("https://a/v1/" + "audio/").
std::string joinedURL(const std::string& base, std::string_view path);

} // namespace orvelle
