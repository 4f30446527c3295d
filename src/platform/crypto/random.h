#pragma once

// Secrets made on this machine: bytes from the system's cryptographic random source, and
// their URL-safe text form.

#include <cstddef>
#include <string>
#include <string_view>

namespace orvelle {

// `count` bytes from OpenSSL's random generator (seeded by the kernel). Throws Error when
// the source cannot give them.
std::string secureRandomBytes(size_t count);

// Base64 with the URL- and file-safe alphabet ("-" and "_" for "+" and "/") and no "="
// padding, as PKCE verifiers and challenges are written.
std::string base64URLEncoded(std::string_view bytes);

} // namespace orvelle
