#include "speech/runtime/greedy_tdt_decoder.h"

#include "speech/runtime/parakeet_error.h"

#include <algorithm>
#include <chrono>

namespace orvelle::GreedyTDTDecoder {

namespace {

// The index of the largest value; the first one wins a tie.
size_t argmax(std::span<const float> values) {
    return static_cast<size_t>(std::max_element(values.begin(), values.end()) - values.begin());
}

} // namespace

Output decode(const EncoderOutput& encoder, DecoderWorker& worker, int blankTokenId,
              std::span<const int> durations, int maxSymbolsPerStep) {
    const auto started = std::chrono::steady_clock::now();
    Output output;
    if (encoder.hiddenShape.size() != 3) {
        throw ParakeetError::unexpectedOutputShape("encoder_hidden", encoder.hiddenShape,
                                                   "[1, T, hidden]");
    }
    const int64_t frames = encoder.hiddenShape[1];
    const auto width = static_cast<size_t>(std::max<int64_t>(encoder.hiddenShape[2], 0));
    const size_t maskCount =
        encoder.maskShape.empty()
            ? 0
            : std::min(encoder.mask.size(),
                       static_cast<size_t>(std::max<int64_t>(encoder.maskShape.back(), 0)));
    int64_t maskSum = 0;
    for (size_t i = 0; i < maskCount; ++i) {
        maskSum += encoder.mask[i];
    }
    const int64_t valid =
        std::min({frames, maskSum,
                  static_cast<int64_t>(encoder.hidden.size() / std::max<size_t>(width, 1))});

    worker.reset(blankTokenId);
    bool primed = false;
    int64_t t = 0;
    while (t < valid) {
        worker.setEncoderFrame(
            std::span<const float>(encoder.hidden).subspan(static_cast<size_t>(t) * width, width));
        int symbols = 0;
        for (; symbols < maxSymbolsPerStep; ++symbols) {
            // The held id, not the joint's last answer, decides: after the first token of
            // the chunk the decoder runs again at every step, even after blanks.
            if (!primed || worker.inputId() != blankTokenId) {
                worker.runDecoderStep();
            }
            const JointLogits logits = worker.runJoint();
            const auto token = static_cast<int>(argmax(logits.tokenLogits));
            const size_t durationIndex = argmax(logits.durationLogits);
            if (durationIndex >= durations.size()) {
                throw ParakeetError::unexpectedOutputShape(
                    "duration_logits", {1, static_cast<int64_t>(logits.durationLogits.size())},
                    "[1, " + std::to_string(durations.size()) + "]");
            }
            const int duration = durations[durationIndex];
            if (token == blankTokenId) {
                t += std::max(duration, 1);
                primed = true;
                break;
            }
            output.tokenIds.push_back(token);
            output.frameIndices.push_back(static_cast<int>(t));
            output.durations.push_back(duration);
            worker.setInputId(token);
            primed = true;
            if (duration >= 1) {
                t += duration;
                break;
            }
        }
        if (symbols == maxSymbolsPerStep) {
            t += 1; // as many tokens of duration 0 as one frame may give
        }
    }
    output.elapsedSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return output;
}

} // namespace orvelle::GreedyTDTDecoder
