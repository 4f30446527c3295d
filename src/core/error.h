#pragma once

#include <stdexcept>
#include <string>

namespace orvelle {

// The base of every failure the system raises. what() is the user-facing text.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An error family with its cases in an enum, so callers can branch on code().
template <class Code>
class CodedError : public Error {
public:
    CodedError(Code code, const std::string& message) : Error(message), code_(code) {}
    Code code() const noexcept { return code_; }

private:
    Code code_;
};

// A file could not be read or written; the text names the file and the system's reason.
class FileError : public Error {
public:
    using Error::Error;
};

// Work stopped because its stop token was triggered.
class CancellationError : public Error {
public:
    CancellationError() : Error("The operation was cancelled.") {}
};

} // namespace orvelle
