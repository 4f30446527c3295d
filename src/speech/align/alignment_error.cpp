#include "speech/align/alignment_error.h"

namespace orvelle {

namespace {

std::string describe(AlignmentErrorCode code, const std::string& detail) {
    using Code = AlignmentErrorCode;
    switch (code) {
    case Code::modelBundleMissing:
        return "Precise word timing model bundle was not found at " + detail;
    case Code::manifestMissing:
        return "Precise word timing model manifest was not found at " + detail;
    case Code::unsupportedRuntime:
        return "Precise word timing runtime '" + detail + "' is not supported in this build.";
    case Code::missingVocabulary:
        return "Precise word timing vocabulary was not found at " + detail;
    case Code::missingModelFile:
        return "Precise word timing model file was not found at " + detail;
    case Code::audioDecodeFailed:
        return "Audio could not be prepared for precise word timing: " + detail;
    case Code::tokenizationFailed:
        return "Transcript text could not be mapped to the timing model tokenizer: " + detail;
    case Code::ctcAlignmentFailed:
        return "Precise word timing alignment failed: " + detail;
    case Code::malformedModelOutput:
        return "Precise word timing model output was not usable: " + detail;
    case Code::modelBundleValidationFailed:
        return "Precise word timing model bundle is invalid: " + detail;
    case Code::noAlignableWords:
        return "The transcript has no timestampable words.";
    }
    return detail;
}

} // namespace

AlignmentError::AlignmentError(AlignmentErrorCode code, const std::string& detail)
    : CodedError(code, describe(code, detail)), detail_(detail) {}

} // namespace orvelle
