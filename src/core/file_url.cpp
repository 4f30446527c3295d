#include "core/file_url.h"

#include "core/error.h"

namespace orvelle {

namespace fs = std::filesystem;

namespace {

bool isUnreservedPathCharacter(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        return true;
    }
    switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case '/':
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
    case ':':
    case '@':
        return true;
    default:
        return false;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

std::string percentEncodePath(std::string_view path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(path.size());
    for (const char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if (isUnreservedPathCharacter(c)) {
            out.push_back(ch);
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
    }
    return out;
}

std::string percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            const int high = hexValue(text[i + 1]);
            const int low = hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                out.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        out.push_back(text[i]);
    }
    return out;
}

fs::path standardizedPath(const fs::path& path) {
    fs::path absolute = path.is_absolute() ? path : fs::current_path() / path;
    fs::path normal = absolute.lexically_normal();
    std::string text = normal.string();
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return fs::path(text);
}

std::string fileURLString(const fs::path& path) {
    return "file://" + percentEncodePath(standardizedPath(path).string());
}

fs::path pathFromFileURL(std::string_view url) {
    constexpr std::string_view kScheme = "file://";
    if (url.size() >= kScheme.size() &&
        std::equal(kScheme.begin(), kScheme.end(), url.begin(), [](char a, char b) {
            return a == std::tolower(static_cast<unsigned char>(b));
        })) {
        std::string_view rest = url.substr(kScheme.size());
        if (rest.starts_with("localhost/")) {
            rest.remove_prefix(std::string_view("localhost").size());
        }
        if (!rest.starts_with('/')) {
            throw Error("Not a local file URL: " + std::string(url));
        }
        if (const auto cut = rest.find_first_of("?#"); cut != std::string_view::npos) {
            rest = rest.substr(0, cut);
        }
        return fs::path(percentDecode(rest));
    }
    if (url.starts_with('/')) {
        return fs::path(std::string(url));
    }
    throw Error("Not a local file URL: " + std::string(url));
}

fs::path replacingExtension(const fs::path& path, std::string_view extension) {
    fs::path result = path;
    result.replace_extension();
    result += ".";
    result += std::string(extension);
    return result;
}

std::string baseName(const fs::path& path) {
    return path.filename().replace_extension().string();
}

} // namespace orvelle
