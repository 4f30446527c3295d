#pragma once

// Precise word timing for a whole file: decode the audio once, cut long audio into
// overlapping chunks, run the timing model and the forced aligner on each, then merge,
// fill the holes and smooth. A chunk that fails in a long file costs only rough timing for
// its words, with a warning; a failure of the one chunk of a short file fails the request.
// align() blocks; callers run it off their main thread.

#include "speech/align/alignment_model_bundle.h"
#include "speech/align/alignment_types.h"
#include "speech/align/ctc_vocabulary.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <unordered_map>

namespace orvelle {

class OnnxCTCLogitsProvider;

// Called with the fraction done, from 0 to 1, on the thread that aligns.
using AlignmentProgress = std::function<void(double fraction)>;

class AlignmentEngine {
public:
    virtual ~AlignmentEngine() = default;
    // Throws AlignmentError.
    virtual AlignmentResult align(const AlignmentRequest& request,
                                  const AlignmentProgress& progress = {}) = 0;
};

class OnnxAlignmentEngine : public AlignmentEngine {
public:
    OnnxAlignmentEngine(AlignmentModelBundle bundle, CTCVocabulary vocabulary,
                        std::unique_ptr<OnnxCTCLogitsProvider> logitsProvider);
    ~OnnxAlignmentEngine() override;

    AlignmentResult align(const AlignmentRequest& request,
                          const AlignmentProgress& progress = {}) override;

    const AlignmentModelBundle& bundle() const { return bundle_; }
    const CTCVocabulary& vocabulary() const { return vocabulary_; }

private:
    AlignmentModelBundle bundle_;
    CTCVocabulary vocabulary_;
    std::unique_ptr<OnnxCTCLogitsProvider> logitsProvider_;
};

namespace AlignmentEngineFactory {

// Loads the bundle, refuses a runtime this build does not run ("coreml"), checks the
// installed files and their checksums, reads the vocabulary and loads the model. Throws
// AlignmentError, or OnnxError when ONNX Runtime is missing.
std::unique_ptr<AlignmentEngine> makeEngine(const std::filesystem::path& modelBundleURL);

} // namespace AlignmentEngineFactory

namespace AlignmentMerge {

// The words whose rough midpoint lies in the chunk's source range (the last chunk also
// takes a midpoint on the end of the audio). Words without both rough times belong to none.
std::vector<AlignmentInputWord> wordsForChunk(const std::vector<AlignmentInputWord>& words,
                                              const AlignmentChunk& chunk, double audioDuration);

// One timing per input word: the chunk's when a chunk aligned it, else its rough times
// (fallback), else an even share of the hole between its neighbours; then smoothed.
std::vector<AlignedWordTiming>
mergeAlignedChunkWords(const std::vector<AlignmentInputWord>& words,
                       const std::unordered_map<std::string, AlignedWordTiming>& aligned,
                       double sourceDuration, const AlignmentOptions& options,
                       std::vector<AlignmentWarning>& warnings);

} // namespace AlignmentMerge

} // namespace orvelle
