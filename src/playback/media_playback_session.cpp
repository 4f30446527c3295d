#include "playback/media_playback_session.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

MediaPlaybackSession::MediaPlaybackSession(CompositionPlayer& screenPlayer)
    : screenPlayer_(screenPlayer) {}

void MediaPlaybackSession::play(double auxiliaryRate, double /*sourceTime*/) {
    lastAuxiliaryRate_ = std::isfinite(auxiliaryRate) ? auxiliaryRate : 1.0;
    screenPlayer_.setRate(workflowRate_);
    screenPlayer_.play();
}

void MediaPlaybackSession::pause() {
    screenPlayer_.pause();
}

void MediaPlaybackSession::applyWorkflowRate(double rate) {
    workflowRate_ =
        std::clamp(std::isfinite(rate) ? rate : 1.0, kSlowestWorkflowRate, kFastestWorkflowRate);
    if (screenPlayer_.isPlaying()) {
        screenPlayer_.setRate(workflowRate_);
    }
}

void MediaPlaybackSession::seekScreen(EditTime time, std::function<void(bool)> completion) {
    screenPlayer_.seek(time.seconds, std::move(completion));
}

void MediaPlaybackSession::clearAuxiliaryPlayback() {
    lastAuxiliaryRate_ = 1;
}

} // namespace orvelle
