#include "core/error.h"
#include "platform/crypto/sha256.h"

#include <openssl/evp.h>

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

    std::string hex() {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (EVP_DigestFinal_ex(context_.get(), digest, &length) != 1) {
            throw std::runtime_error("SHA-256 final failed");
        }
        static constexpr char kHex[] = "0123456789abcdef";
        std::string text;
        text.reserve(static_cast<size_t>(length) * 2);
        for (unsigned int i = 0; i < length; ++i) {
            text.push_back(kHex[digest[i] >> 4]);
            text.push_back(kHex[digest[i] & 15]);
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
