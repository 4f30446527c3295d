#include "timeline_media/composition_video_reader.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvelle {

namespace {

constexpr size_t decoderLimit = 2;

struct OpenDecoder {
    int mediaID = 0;
    std::unique_ptr<VideoDecoder> decoder;
};

} // namespace

struct CompositionVideoReader::State {
    MediaComposition composition;
    const CompositionTrack* track = nullptr;
    VideoDecoderOptions options;
    std::vector<OpenDecoder> decoders; // most recently used last

    VideoDecoder& decoder(int mediaID) {
        const auto found = std::find_if(decoders.begin(), decoders.end(),
                                        [&](const OpenDecoder& d) { return d.mediaID == mediaID; });
        if (found != decoders.end()) {
            std::rotate(found, found + 1, decoders.end());
            return *decoders.back().decoder;
        }
        if (decoders.size() >= decoderLimit) {
            decoders.erase(decoders.begin());
        }
        decoders.push_back(
            {mediaID, std::make_unique<VideoDecoder>(
                          composition.media[static_cast<size_t>(mediaID)], options)});
        return *decoders.back().decoder;
    }
};

CompositionVideoReader::CompositionVideoReader(MediaComposition composition, int32_t trackID,
                                               VideoDecoderOptions options)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.composition = std::move(composition);
    s.options = options;
    s.track = s.composition.track(trackID);
    if (s.track == nullptr || s.track->type != CompositionMediaType::video) {
        throw MediaError("The composition has no video track " + std::to_string(trackID) + ".");
    }
}

CompositionVideoReader::~CompositionVideoReader() = default;

std::optional<CompositionVideoSample> CompositionVideoReader::sampleAt(double editSeconds) const {
    const State& s = *state_;
    if (!std::isfinite(editSeconds)) {
        return std::nullopt;
    }
    // The insertion whose edit range holds the time, compared in seconds so that a time
    // between two ticks still finds its insertion.
    const auto& insertions = s.track->insertions;
    auto after = std::upper_bound(insertions.begin(), insertions.end(), editSeconds,
                                  [](double t, const CompositionTrackInsertion& i) {
                                      return t < i.editRange.startSeconds();
                                  });
    if (after == insertions.begin()) {
        return std::nullopt;
    }
    const auto& insertion = *(after - 1);
    if (editSeconds >= insertion.editRange.endSeconds()) {
        return std::nullopt;
    }
    const double offset = (editSeconds - insertion.editRange.startSeconds()) * insertion.rate();
    return CompositionVideoSample{static_cast<size_t>(after - 1 - insertions.begin()),
                                  insertion.mediaID, insertion.sourceRange.startSeconds() + offset};
}

std::optional<CompositionVideoSample> CompositionVideoReader::frameAt(double editSeconds,
                                                                      VideoFrame& frame) {
    const auto sample = sampleAt(editSeconds);
    if (!sample) {
        return std::nullopt;
    }
    if (!state_->decoder(sample->mediaID).frameAt(sample->mediaTime, frame)) {
        return std::nullopt;
    }
    return sample;
}

} // namespace orvelle
