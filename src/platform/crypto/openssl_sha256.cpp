#include "core/error.h"
#include "platform/crypto/random.h"
#include "platform/crypto/sha256.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace orvelle {

namespace {

struct DigestContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

class Sha256 {
public:
    Sha256() : context_(EVP_MD_CTX_new()) {
        if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
            throw std::runtime_error("SHA-256 is not available in this OpenSSL");
        }
    }

    void update(const void* data, size_t size) {
        if (EVP_DigestUpdate(context_.get(), data, size) != 1) {
            throw std::runtime_error("SHA-256 update failed");
        }
    }

    std::string bytes() {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (EVP_DigestFinal_ex(context_.get(), digest, &length) != 1) {
            throw std::runtime_error("SHA-256 final failed");
        }
        return {reinterpret_cast<const char*>(digest), length};
    }

    std::string hex() {
        static constexpr char kHex[] = "0123456789abcdef";
        const std::string digest = bytes();
        std::string text;
        text.reserve(digest.size() * 2);
        for (const char c : digest) {
            const auto byte = static_cast<unsigned char>(c);
            text.push_back(kHex[byte >> 4]);
            text.push_back(kHex[byte & 15]);
        }
        return text;
    }

private:
    std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context_;
};

} // namespace

std::string sha256Hex(std::string_view bytes) {
    Sha256 digest;
    digest.update(bytes.data(), bytes.size());
    return digest.hex();
}

std::string sha256Digest(std::string_view bytes) {
    Sha256 digest;
    digest.update(bytes.data(), bytes.size());
    return digest.bytes();
}

std::string secureRandomBytes(size_t count) {
    std::string bytes(count, '\0');
    if (count > 0 &&
        RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) != 1) {
        throw Error("The system's secure random source is not available.");
    }
    return bytes;
}

std::string base64URLEncoded(std::string_view bytes) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    const auto byte = [&bytes](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    for (; i + 3 <= bytes.size(); i += 3) {
        const unsigned value = (byte(i) << 16U) | (byte(i + 1) << 8U) | byte(i + 2);
        text.push_back(kAlphabet[(value >> 18U) & 63U]);
        text.push_back(kAlphabet[(value >> 12U) & 63U]);
        text.push_back(kAlphabet[(value >> 6U) & 63U]);
        text.push_back(kAlphabet[value & 63U]);
    }
    if (const size_t rest = bytes.size() - i; rest > 0) {
        const unsigned value = (byte(i) << 16U) | (rest == 2 ? byte(i + 1) << 8U : 0U);
        text.push_back(kAlphabet[(value >> 18U) & 63U]);
        text.push_back(kAlphabet[(value >> 12U) & 63U]);
        if (rest == 2) {
            text.push_back(kAlphabet[(value >> 6U) & 63U]);
        }
    }
    return text;
}

std::string sha256HexOfFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw FileError("Could not open \"" + path.string() + "\": " + std::strerror(errno));
    }
    Sha256 digest;
    std::vector<char> block(1 << 20);
    while (in) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        if (in.gcount() > 0) {
            digest.update(block.data(), static_cast<size_t>(in.gcount()));
        }
    }
    if (in.bad()) {
        throw FileError("Could not read \"" + path.string() + "\": " + std::strerror(errno));
    }
    return digest.hex();
}

} // namespace orvelle
