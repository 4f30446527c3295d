#include "recording/recording_cue_player.h"

#include "core/log.h"
#include "core/resources.h"
#include "platform/audio/audio_output.h"
#include "platform/media/audio_decoder.h"

#include <atomic>
#include <chrono>
#include <mutex>

namespace orvelle {

namespace {

constexpr int kSampleRate = 48000;

} // namespace

struct RecordingCuePlayer::State {
    std::vector<float> cues[2];
    std::unique_ptr<AudioOutput> output;
    std::mutex mutex;
    const std::vector<float>* playing = nullptr; // guarded by mutex
    size_t position = 0;                         // guarded by mutex
    double length = 0;
    std::chrono::steady_clock::time_point deadline;
    bool active = false;
};

RecordingCuePlayer::RecordingCuePlayer() : state_(std::make_unique<State>()) {
    const char* names[2] = {"recording-start.wav", "recording-stop.wav"};
    for (int index = 0; index < 2; ++index) {
        const auto url = resourcesDirectory() / "Sounds" / names[index];
        try {
            state_->cues[index] = decodeAudioFile(url, {kSampleRate, 2});
        } catch (const std::exception& error) {
            logWarning("RecordingCue", "no cue ", names[index], ": ", error.what());
        }
    }
}

RecordingCuePlayer::~RecordingCuePlayer() {
    stop();
}

bool RecordingCuePlayer::begin(Cue cue) {
    stop();
    State& state = *state_;
    const auto& samples = state.cues[cue == Cue::start ? 0 : 1];
    if (samples.empty()) {
        return false;
    }
    try {
        if (!state.output) {
            AudioOutputOptions options;
            options.streamName = "Recording cue";
            options.bufferSeconds = 0.05;
            state.output = std::make_unique<AudioOutput>(options);
        }
        {
            std::lock_guard lock(state.mutex);
            state.playing = &samples;
            state.position = 0;
        }
        state.output->start([&state](float* out, size_t frames) {
            std::lock_guard lock(state.mutex);
            const size_t wanted = frames * 2;
            const size_t available =
                state.playing ? std::min(wanted, state.playing->size() - state.position) : 0;
            if (available > 0) {
                std::copy_n(state.playing->data() + state.position, available, out);
                state.position += available;
            }
            std::fill(out + available, out + wanted, 0.0f);
        });
    } catch (const Error& error) {
        logWarning("RecordingCue", "the cue cannot sound: ", error.what());
        state.output.reset();
        return false;
    }
    state.length = static_cast<double>(samples.size()) / 2.0 / kSampleRate;
    // Should the server's clock never move, the cue ends on the wall clock.
    state.deadline = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<int>(state.length * 1000) + 1000);
    state.active = true;
    return true;
}

bool RecordingCuePlayer::isPlaying() {
    State& state = *state_;
    if (!state.active) {
        return false;
    }
    const bool heard =
        state.output->playedSeconds() >= state.length + 0.08 || !state.output->isConnected();
    if (heard || std::chrono::steady_clock::now() >= state.deadline) {
        stop();
        return false;
    }
    return true;
}

void RecordingCuePlayer::stop() {
    State& state = *state_;
    if (state.output) {
        state.output->stop();
    }
    std::lock_guard lock(state.mutex);
    state.playing = nullptr;
    state.active = false;
}

} // namespace orvelle
