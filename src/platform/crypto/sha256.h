#pragma once

// SHA-256 digests as lower-case hexadecimal text (64 characters), or as raw bytes.

#include <filesystem>
#include <string>
#include <string_view>

namespace orvelle {

std::string sha256Hex(std::string_view bytes);

// The 32 bytes of the digest themselves.
std::string sha256Digest(std::string_view bytes);

// Reads the file in blocks, so a model of any size never sits in memory whole. Throws
// FileError naming the file when it cannot be read.
std::string sha256HexOfFile(const std::filesystem::path& path);

} // namespace orvelle
