#include "speech/runtime/parakeet_error.h"

namespace orvelle {

ParakeetError ParakeetError::modelNotFound(const std::filesystem::path& folder,
                                           const std::vector<std::string>& missing) {
    std::string list;
    for (size_t i = 0; i < missing.size(); ++i) {
        list += (i == 0 ? "" : "; ") + missing[i];
    }
    return {ParakeetErrorCode::modelNotFound,
            "The speech model in " + folder.string() + " is incomplete. It lacks: " + list +
                ". Install the model again or copy the missing files there."};
}

ParakeetError ParakeetError::tokenizerLoadFailed(const std::filesystem::path& path,
                                                 std::string_view underlying) {
    return {ParakeetErrorCode::tokenizerLoadFailed,
            "Failed to load tokenizer at " + path.string() + ": " + std::string(underlying)};
}

ParakeetError ParakeetError::audioLoadFailed(const std::filesystem::path& path,
                                             std::string_view underlying) {
    return {ParakeetErrorCode::audioLoadFailed,
            "Failed to load audio at " + path.string() + ": " + std::string(underlying)};
}

ParakeetError ParakeetError::audioEmpty(const std::filesystem::path& path) {
    return {ParakeetErrorCode::audioEmpty,
            "Audio file at " + path.string() + " contains no samples"};
}

ParakeetError ParakeetError::unexpectedOutputShape(std::string_view name,
                                                   const std::vector<int64_t>& got,
                                                   std::string_view expected) {
    std::string shape = "[";
    for (size_t i = 0; i < got.size(); ++i) {
        shape += (i == 0 ? "" : ", ") + std::to_string(got[i]);
    }
    shape += "]";
    return {ParakeetErrorCode::unexpectedOutputShape, "Output \"" + std::string(name) +
                                                          "\" has unexpected shape " + shape +
                                                          "; expected " + std::string(expected)};
}

ParakeetError ParakeetError::missingOutput(std::string_view name) {
    return {ParakeetErrorCode::missingOutput,
            "Missing expected output \"" + std::string(name) + "\" from ONNX Runtime prediction"};
}

ParakeetError ParakeetError::unsupportedModel(const std::filesystem::path& model,
                                              std::string_view reason) {
    return {ParakeetErrorCode::unsupportedModel,
            "The speech model " + model.string() + " cannot be used: " + std::string(reason) + "."};
}

ParakeetError ParakeetError::fftSetupFailed() {
    return {ParakeetErrorCode::fftSetupFailed, "Failed to create FFTW FFT setup"};
}

} // namespace orvelle
