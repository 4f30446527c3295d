#pragma once

// The players of an open document and the user's preview speed. The screen player plays
// the whole composition; the camera's pictures are a track of that composition, drawn into
// the same frames on the same clock, so the camera never drifts from the screen. The
// workflow rate is the preview's speed apart from each clip's own. Main thread only.

#include "playback/composition_player.h"

#include <functional>

namespace orvelle {

class MediaPlaybackSession {
public:
    static constexpr double kSlowestWorkflowRate = 0.25;
    static constexpr double kFastestWorkflowRate = 8.0;

    explicit MediaPlaybackSession(CompositionPlayer& screenPlayer);

    CompositionPlayer& screenPlayer() { return screenPlayer_; }
    const CompositionPlayer& screenPlayer() const { return screenPlayer_; }

    double workflowRate() const { return workflowRate_; }
    // The clip's speed at the time playback last started.
    double lastAuxiliaryRate() const { return lastAuxiliaryRate_; }
    bool hasCameraOverlay = false;
    bool hasMicrophoneAudio = false;

    // Starts the screen at once at the workflow rate.
    void play(double auxiliaryRate, double sourceTime);
    void pause();
    // Holds the rate to [0.25, 8] and stores it; a playing screen takes it at once.
    void applyWorkflowRate(double rate);
    void seekScreen(EditTime time, std::function<void(bool finished)> completion);
    // Forgets the rate of the last start.
    void clearAuxiliaryPlayback();

private:
    CompositionPlayer& screenPlayer_;
    double workflowRate_ = 1;
    double lastAuxiliaryRate_ = 1;
};

} // namespace orvelle
