#pragma once

// Speech to a TranscriptAnalysis with the recogniser of the speech runtime. Loaded
// recognisers are shared process-wide, one per model folder and device: two callers that
// ask at once share one load, a load that fails is not kept (the next call tries again),
// and clear() forgets them all so that a replaced model is loaded afresh.

#include "speech/transcript/transcript_analysis.h"

#include <cstddef>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>

namespace orvelle {

class ParakeetTranscriber;

struct RuntimeKey {
    std::string sourceID;     // the model folder's standardised path
    std::string computeUnits; // "ane", "gpu", "cpu" or "all"

    friend bool operator==(const RuntimeKey&, const RuntimeKey&) = default;
    friend bool operator<(const RuntimeKey& a, const RuntimeKey& b) {
        return std::tie(a.sourceID, a.computeUnits) < std::tie(b.sourceID, b.computeUnits);
    }
};

class ParakeetTranscriberRuntime {
public:
    // A loaded recogniser and the lock that keeps two transcriptions off it at once.
    struct Loaded {
        std::unique_ptr<ParakeetTranscriber> transcriber;
        std::mutex busy;
        ~Loaded();
    };

    static ParakeetTranscriberRuntime& shared();

    // Loads on the calling thread, or waits for the load another caller started. Throws
    // what the load threw (ParakeetError, OnnxError).
    std::shared_ptr<Loaded> transcriber(const TranscriptModelSource& modelSource,
                                        TranscriptComputeUnits computeUnits);
    // Forgets every recogniser; loads under way finish for their callers but are not kept.
    void clear();

    // How many loads have been started, for diagnostics and tests.
    size_t loadCount() const;

private:
    mutable std::mutex lock_; // guards the maps, the generation and the count
    std::map<RuntimeKey, std::shared_ptr<Loaded>> transcribers_;
    std::map<RuntimeKey, std::shared_future<std::shared_ptr<Loaded>>> loadingTasks_;
    unsigned long long generation_ = 0;
    size_t loads_ = 0;
};

class ParakeetTranscriptAnalyzer {
public:
    ParakeetTranscriptAnalyzer(TranscriptModelSource modelSource,
                               TranscriptComputeUnits computeUnits);

    // Throws the runtime's errors (ParakeetError, OnnxError) unchanged.
    TranscriptAnalysis analyze(const std::filesystem::path& audioURL) const;
    // Loads the recogniser and nothing else, so that the first analyze is quick.
    void prepare() const;
    static void clearRuntimeCache();

    const TranscriptModelSource& modelSource() const { return modelSource_; }
    TranscriptComputeUnits computeUnits() const { return computeUnits_; }

private:
    TranscriptModelSource modelSource_;
    TranscriptComputeUnits computeUnits_;
};

} // namespace orvelle
