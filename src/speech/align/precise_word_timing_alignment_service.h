#pragma once

// What the editor calls: precise word timing for an editor transcript. Finds the model
// bundle, aligns the transcript's words against the audio, writes the corrected times into
// a copy of the transcript and reports what moved against the rough times from before the
// first alignment, which are kept in the transcript once and never overwritten.

#include "core/uuid.h"
#include "speech/align/alignment_engine.h"
#include "speech/transcript/editor_transcript.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct PreciseWordTimingChange {
    std::string word;
    std::optional<double> oldStart;
    std::optional<double> oldEnd;
    double newStart = 0;
    double newEnd = 0;

    friend bool operator==(const PreciseWordTimingChange&,
                           const PreciseWordTimingChange&) = default;
};

struct PreciseWordTimingReport {
    Uuid id;
    AlignmentReport alignmentReport;
    std::vector<AlignmentWarning> warnings;
    std::vector<PreciseWordTimingChange> baselineChanges;

    // A few lines for a person: words aligned, words changed, average and largest shift,
    // and how many words fell back or warned.
    std::string summaryText() const;
};

struct PreciseWordTimingAlignmentResult {
    EditorTranscript transcript;
    PreciseWordTimingReport report;
};

enum class PreciseWordTimingAlignmentErrorCode { audioMissing, noWords };

class PreciseWordTimingAlignmentError : public CodedError<PreciseWordTimingAlignmentErrorCode> {
public:
    static PreciseWordTimingAlignmentError audioMissing(const std::filesystem::path& path);
    static PreciseWordTimingAlignmentError noWords();

private:
    using CodedError::CodedError;
};

class PreciseWordTimingAlignmentService {
public:
    using EngineFactory =
        std::function<std::unique_ptr<AlignmentEngine>(const std::filesystem::path&)>;

    // With no bundle given, the one of the environment variable
    // ORVELLE_PRECISE_WORD_TIMING_MODEL_BUNDLE when it names something that exists, else
    // the installed one.
    explicit PreciseWordTimingAlignmentService(
        std::optional<std::filesystem::path> bundleURL = std::nullopt,
        EngineFactory makeEngine = AlignmentEngineFactory::makeEngine);

    std::filesystem::path bundleURL() const;

    // Throws PreciseWordTimingAlignmentError, AlignmentError, or OnnxError when ONNX
    // Runtime is missing. Blocks; run it off the main thread.
    PreciseWordTimingAlignmentResult alignTranscript(const EditorTranscript& transcript,
                                                     const std::filesystem::path& audioURL,
                                                     double sourceDuration,
                                                     const AlignmentProgress& progress = {});

    static constexpr std::string_view kBundleEnvironmentVariable =
        "ORVELLE_PRECISE_WORD_TIMING_MODEL_BUNDLE";
    static constexpr std::string_view kModelDescriptionSuffix = " + native precise word timing";

private:
    std::optional<std::filesystem::path> bundleURL_;
    EngineFactory makeEngine_;
};

template <>
struct JsonCoder<PreciseWordTimingChange> {
    static Json encode(const PreciseWordTimingChange& change);
};

template <>
struct JsonCoder<PreciseWordTimingReport> {
    static Json encode(const PreciseWordTimingReport& report);
};

} // namespace orvelle
