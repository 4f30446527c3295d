#pragma once

// Long audio is aligned in overlapping chunks, since the aligner's backpointer table grows
// with frames x states. Each chunk answers for its source range and hears a little more
// (the overlap) on both sides for context.

#include "speech/align/alignment_types.h"

#include <vector>

namespace orvelle::AlignmentChunkPlan {

// One chunk covering everything when the audio fits in maximumDuration (at least 1 s);
// otherwise back-to-back source ranges of maximumDuration, each heard with `overlap`
// seconds (at most a third of the maximum) on either side, clipped to the audio.
std::vector<AlignmentChunk> make(double audioDuration, double maximumDuration, double overlap);

} // namespace orvelle::AlignmentChunkPlan
