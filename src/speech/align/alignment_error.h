#pragma once

// Failures of precise word timing. what() is the text the user sees.

#include "core/error.h"

#include <string>

namespace orvelle {

enum class AlignmentErrorCode {
    modelBundleMissing,
    manifestMissing,
    unsupportedRuntime,
    missingVocabulary,
    missingModelFile,
    audioDecodeFailed,
    tokenizationFailed,
    ctcAlignmentFailed,
    malformedModelOutput,
    modelBundleValidationFailed,
    noAlignableWords,
};

class AlignmentError : public CodedError<AlignmentErrorCode> {
public:
    // The detail is the path, runtime name or reason that the case's sentence ends with;
    // noAlignableWords takes none.
    AlignmentError(AlignmentErrorCode code, const std::string& detail = {});

    const std::string& detail() const { return detail_; }

private:
    std::string detail_;
};

} // namespace orvelle
