#pragma once

// The failures of the speech runtime, each with the words the user sees. Errors of ONNX
// Runtime itself (a model that cannot be loaded or run) pass through as OnnxError.

#include "core/error.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

enum class ParakeetErrorCode {
    modelNotFound,
    tokenizerLoadFailed,
    audioLoadFailed,
    audioEmpty,
    unexpectedOutputShape,
    missingOutput,
    fftSetupFailed,
};

class ParakeetError : public CodedError<ParakeetErrorCode> {
public:
    static ParakeetError modelNotFound(const std::filesystem::path& path);
    static ParakeetError tokenizerLoadFailed(const std::filesystem::path& path,
                                             std::string_view underlying);
    static ParakeetError audioLoadFailed(const std::filesystem::path& path,
                                         std::string_view underlying);
    static ParakeetError audioEmpty(const std::filesystem::path& path);
    static ParakeetError unexpectedOutputShape(std::string_view name,
                                               const std::vector<int64_t>& got,
                                               std::string_view expected);
    static ParakeetError missingOutput(std::string_view name);
    static ParakeetError fftSetupFailed();

private:
    using CodedError::CodedError;
};

} // namespace orvelle
