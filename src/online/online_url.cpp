#include "online/online_url.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace orvelle {

namespace {

bool isUnreserved(unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~';
}

std::string lowercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace

std::string percentEscaped(std::string_view text, std::string_view alsoKept) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isUnreserved(byte) || alsoKept.find(c) != std::string_view::npos) {
            result.push_back(c);
        } else {
            result.push_back('%');
            result.push_back(kHex[byte >> 4U]);
            result.push_back(kHex[byte & 15U]);
        }
    }
    return result;
}

std::string percentUnescaped(std::string_view text, bool plusIsSpace) {
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            const int high = hexValue(text[i + 1]);
            const int low = hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                result.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        result.push_back(plusIsSpace && text[i] == '+' ? ' ' : text[i]);
    }
    return result;
}

std::string formBody(const std::vector<URLQueryItem>& items) {
    // The query characters (sub-delims, ":", "@", "/", "?") stay as they are, less the
    // three that would change the meaning of a form.
    static constexpr std::string_view kKept = "!$'()*,;:@/?";
    std::string body;
    for (const auto& [key, value] : items) {
        if (!body.empty()) {
            body += '&';
        }
        body += percentEscaped(key, kKept) + "=" + percentEscaped(value, kKept);
    }
    return body;
}

std::string appendingQueryItems(const std::string& url, const std::vector<URLQueryItem>& items) {
    const auto hash = url.find('#');
    std::string head = url.substr(0, hash);
    const std::string fragment = hash == std::string::npos ? "" : url.substr(hash);
    const std::string query = formBody(items);
    if (!query.empty()) {
        const bool hasQuery = head.find('?') != std::string::npos;
        head += hasQuery ? (head.ends_with('?') || head.ends_with('&') ? "" : "&") : "?";
        head += query;
    }
    return head + fragment;
}

std::optional<URLComponents> URLComponents::parse(std::string_view url) {
    const auto schemeEnd = url.find("://");
    if (schemeEnd == std::string_view::npos || schemeEnd == 0) {
        return std::nullopt;
    }
    URLComponents parts;
    parts.scheme = lowercase(url.substr(0, schemeEnd));
    if (!std::all_of(parts.scheme.begin(), parts.scheme.end(), [](unsigned char c) {
            return std::isalnum(c) != 0 || c == '+' || c == '-' || c == '.';
        })) {
        return std::nullopt;
    }
    std::string_view rest = url.substr(schemeEnd + 3);
    const auto hash = rest.find('#');
    rest = rest.substr(0, hash);
    const auto authorityEnd = rest.find_first_of("/?");
    std::string_view authority = rest.substr(0, authorityEnd);
    std::string_view tail = authorityEnd == std::string_view::npos ? "" : rest.substr(authorityEnd);
    if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
        authority = authority.substr(at + 1);
    }
    std::string_view host = authority;
    std::string_view port;
    if (authority.starts_with('[')) {
        const auto close = authority.find(']');
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        host = authority.substr(1, close - 1);
        const std::string_view after = authority.substr(close + 1);
        if (!after.empty()) {
            if (!after.starts_with(':')) {
                return std::nullopt;
            }
            port = after.substr(1);
        }
    } else if (const auto colon = authority.rfind(':'); colon != std::string_view::npos) {
        host = authority.substr(0, colon);
        port = authority.substr(colon + 1);
    }
    if (host.empty()) {
        return std::nullopt;
    }
    parts.host = lowercase(host);
    if (!port.empty()) {
        int value = 0;
        const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), value);
        if (error != std::errc() || end != port.data() + port.size() || value < 0 ||
            value > 65535) {
            return std::nullopt;
        }
        parts.port = value;
    }
    const auto question = tail.find('?');
    parts.path = std::string(tail.substr(0, question));
    if (parts.path.empty()) {
        parts.path = "/";
    }
    if (question != std::string_view::npos) {
        parts.query = std::string(tail.substr(question + 1));
    }
    return parts;
}

std::vector<URLQueryItem> URLComponents::queryItems() const {
    std::vector<URLQueryItem> items;
    size_t start = 0;
    while (start <= query.size() && !query.empty()) {
        auto end = query.find('&', start);
        if (end == std::string::npos) {
            end = query.size();
        }
        const std::string_view piece = std::string_view(query).substr(start, end - start);
        if (!piece.empty()) {
            const auto equals = piece.find('=');
            items.emplace_back(percentUnescaped(piece.substr(0, equals), true),
                               equals == std::string_view::npos
                                   ? ""
                                   : percentUnescaped(piece.substr(equals + 1), true));
        }
        start = end + 1;
    }
    return items;
}

std::optional<std::string> URLComponents::queryValue(std::string_view name) const {
    for (const auto& [key, value] : queryItems()) {
        if (key == name) {
            return value;
        }
    }
    return std::nullopt;
}

bool isLoopbackHost(std::string_view host) {
    const std::string name = lowercase(host);
    if (name == "localhost" || name == "::1") {
        return true;
    }
    // 127.x.y.z, written as four decimal numbers.
    if (!name.starts_with("127.")) {
        return false;
    }
    int dots = 0;
    for (const char c : name) {
        if (c == '.') {
            ++dots;
        } else if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return dots == 3;
}

void requireSecureURL(const std::string& url, std::string_view what) {
    const auto parts = URLComponents::parse(url);
    if (!parts || (parts->scheme != "https" && parts->scheme != "http")) {
        throw OnlineConfigurationError("The address of " + std::string(what) + " (\"" + url +
                                       "\") is not an http or https URL.");
    }
    if (parts->scheme == "http" && !isLoopbackHost(parts->host)) {
        throw OnlineConfigurationError(
            "The address of " + std::string(what) + " (\"" + url +
            "\") must use https; plain http is allowed only for this machine (127.0.0.1, ::1, "
            "localhost).");
    }
}

std::string joinedURL(const std::string& base, std::string_view path) {
    std::string result = base;
    while (result.ends_with('/')) {
        result.pop_back();
    }
    while (path.starts_with('/')) {
        path.remove_prefix(1);
    }
    return result + "/" + std::string(path);
}

} // namespace orvelle
