#include "playback/cursor_click_sound_player.h"

#include "core/log.h"
#include "motion/cursor_click_sound_resource.h"
#include "platform/media/audio_decoder.h"

#include <algorithm>

namespace orvelle {

CursorClickSoundPlayer::CursorClickSoundPlayer(PlayerAudio& audio,
                                               std::filesystem::path resourcesDirectory)
    : audio_(audio), resourcesDirectory_(std::move(resourcesDirectory)) {}

const std::optional<std::filesystem::path>& CursorClickSoundPlayer::resourceURL() {
    if (!looked_) {
        looked_ = true;
        resourceURL_ = CursorClickSoundResource::url(resourcesDirectory_);
    }
    return resourceURL_;
}

void CursorClickSoundPlayer::playNormal(double volume) {
    if (!(volume > 0)) {
        return;
    }
    const auto& url = resourceURL();
    if (!url) {
        return;
    }
    std::erase_if(activePlayers_, [](const auto& player) { return !player->isPlaying(); });
    if (!sound_ && !unreadable_) {
        try {
            auto sound = std::make_shared<SoundBuffer>();
            sound->samples = decodeAudioFile(*url, {PlayerAudio::kSampleRate, 2});
            sound_ = std::move(sound);
        } catch (const Error& error) {
            unreadable_ = true;
            logInfo("playback", "no click sound: ", error.what());
        }
    }
    if (!sound_) {
        return;
    }
    activePlayers_.push_back(audio_.play(sound_, static_cast<float>(std::min(volume, 1.0))));
}

} // namespace orvelle
