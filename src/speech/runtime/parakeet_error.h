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
    unsupportedModel,
    fftSetupFailed,
};

class ParakeetError : public CodedError<ParakeetErrorCode> {
public:
    // A model folder without all of its files: `missing` names each file it lacks.
    static ParakeetError modelNotFound(const std::filesystem::path& folder,
                                       const std::vector<std::string>& missing);
    static ParakeetError tokenizerLoadFailed(const std::filesystem::path& path,
                                             std::string_view underlying);
    static ParakeetError audioLoadFailed(const std::filesystem::path& path,
                                         std::string_view underlying);
    static ParakeetError audioEmpty(const std::filesystem::path& path);
    static ParakeetError unexpectedOutputShape(std::string_view name,
                                               const std::vector<int64_t>& got,
                                               std::string_view expected);
    static ParakeetError missingOutput(std::string_view name);
    // A model whose inputs or outputs are not those of its part of the transducer.
    static ParakeetError unsupportedModel(const std::filesystem::path& model,
                                          std::string_view reason);
    static ParakeetError fftSetupFailed();

private:
    using CodedError::CodedError;
};

} // namespace orvelle
