#include "speech/align/alignment_types.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace orvelle {

AlignmentReport AlignmentReport::make(const std::vector<AlignedWordTiming>& words,
                                      const std::vector<AlignmentInputWord>& inputWords,
                                      const AlignmentOptions& options) {
    AlignmentReport report;
    report.totalWords = static_cast<int>(words.size());

    std::unordered_map<std::string_view, const AlignmentInputWord*> inputByID;
    for (const auto& input : inputWords) {
        inputByID.emplace(input.id, &input);
    }
    double shiftSum = 0;
    int shiftCount = 0;
    for (const auto& word : words) {
        const auto found = inputByID.find(word.wordID);
        if (found == inputByID.end() || !found->second->roughStart || !found->second->roughEnd) {
            continue;
        }
        const AlignmentInputWord& input = *found->second;
        const double shift = std::max(std::abs(word.start - *input.roughStart),
                                      std::abs(word.end - *input.roughEnd));
        shiftSum += shift;
        shiftCount += 1;
        if (shift >= options.significantShiftThreshold) {
            report.changedWords += 1;
        }
        if (!report.largestShiftWordID || shift > report.largestBoundaryShift) {
            report.largestBoundaryShift = shift;
            report.largestShiftWordID = word.wordID;
            report.largestShiftWord = word.text;
        }
    }
    report.averageBoundaryShift = shiftCount > 0 ? shiftSum / shiftCount : 0;

    // Each run of words without aligned timing becomes one span.
    for (size_t i = 0; i < words.size();) {
        if (words[i].quality == AlignmentWordQuality::aligned) {
            ++i;
            continue;
        }
        size_t last = i;
        while (last + 1 < words.size() &&
               words[last + 1].quality != AlignmentWordQuality::aligned) {
            ++last;
        }
        report.failedSpans.push_back(AlignmentFailedSpan{
            .startWordID = words[i].wordID,
            .endWordID = words[last].wordID,
            .startTime = words[i].start,
            .endTime = words[last].end,
            .wordCount = static_cast<int>(last - i + 1),
            .reason = std::string(enumName(words[i].quality)),
        });
        i = last + 1;
    }
    return report;
}

} // namespace orvelle
