#pragma once

// The pointer's click in the preview: each click gets a sounding of its own, so that
// clicks close together overlap, laid over the player's sound. The click file is found
// once among the resources and read once. Main thread only.

#include "playback/player_audio.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace orvelle {

class CursorClickSoundPlayer {
public:
    CursorClickSoundPlayer(PlayerAudio& audio, std::filesystem::path resourcesDirectory);

    // Nothing at a volume of 0 or below, or without a readable click file; otherwise a new
    // sounding at min(volume, 1). Soundings that have ended are let go first.
    void playNormal(double volume);

    // The click file, looked up on first use.
    const std::optional<std::filesystem::path>& resourceURL();
    size_t activePlayerCount() const { return activePlayers_.size(); }

private:
    PlayerAudio& audio_;
    std::filesystem::path resourcesDirectory_;
    bool looked_ = false;
    std::optional<std::filesystem::path> resourceURL_;
    std::shared_ptr<const SoundBuffer> sound_;
    bool unreadable_ = false;
    std::vector<std::shared_ptr<SoundVoice>> activePlayers_;
};

} // namespace orvelle
