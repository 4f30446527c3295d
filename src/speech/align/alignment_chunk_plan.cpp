#include "speech/align/alignment_chunk_plan.h"

#include <algorithm>
#include <cmath>

namespace orvelle::AlignmentChunkPlan {

std::vector<AlignmentChunk> make(double audioDuration, double maximumDuration, double overlap) {
    double maximum = maximumDuration;
    if (!(maximum >= 1)) {
        maximum = 1;
        overlap = std::min(overlap, 1.0 / 3.0);
    } else {
        overlap = std::min(overlap, maximum / 3);
    }
    overlap = std::max(overlap, 0.0);

    if (audioDuration <= maximum) {
        return {AlignmentChunk{0, audioDuration, 0, audioDuration}};
    }
    if (!(audioDuration > 0) || !std::isfinite(audioDuration)) {
        return {}; // not a usable duration
    }
    std::vector<AlignmentChunk> chunks;
    double start = 0;
    while (true) {
        const double end = std::min(start + maximum, audioDuration);
        chunks.push_back(AlignmentChunk{start, end, std::max(start - overlap, 0.0),
                                        std::min(end + overlap, audioDuration)});
        if (start + maximum >= audioDuration) {
            break;
        }
        start = end;
    }
    return chunks;
}

} // namespace orvelle::AlignmentChunkPlan
