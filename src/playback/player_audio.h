#pragma once

// The player's sound and its master clock. The composition's mix is rendered ahead on a
// thread of its own ("com.orvelle.playback.audio") into a short queue, sped up with the
// pitch kept when the player's rate is not 1, and played through the sound server; the
// clock is the server's playback position mapped back to edit time, so the pictures follow
// what is heard. Short sounds (the pointer's clicks) are laid over the stream as they are
// asked for. Without a sound server the clock is the system's and nothing sounds.
//
// Thread-safe. The clock stands still except while a run plays: locate() places it,
// start() runs it once enough sound is ready, stop() holds it where it is.

#include "platform/audio/audio_output.h"
#include "playback/player_item.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace orvelle {

class CompositionAudioMixer;
class TimeStretcher;

// A short sound in memory: interleaved stereo at the mixer's rate.
struct SoundBuffer {
    std::vector<float> samples;
    size_t frameCount() const { return samples.size() / 2; }
};

// One sounding of a SoundBuffer; it ends by itself.
class SoundVoice {
public:
    SoundVoice(std::shared_ptr<const SoundBuffer> sound, float volume)
        : sound_(std::move(sound)), volume_(volume) {}
    bool isPlaying() const { return !finished_.load(); }

private:
    friend class PlayerAudio;
    std::shared_ptr<const SoundBuffer> sound_;
    float volume_;
    size_t position_ = 0; // guarded by PlayerAudio's voice lock
    std::atomic<bool> finished_{false};
};

class PlayerAudio {
public:
    static constexpr int kSampleRate = 48000;

    // Without an output the clock is the system's.
    explicit PlayerAudio(std::unique_ptr<AudioOutput> output);
    ~PlayerAudio();
    PlayerAudio(const PlayerAudio&) = delete;
    PlayerAudio& operator=(const PlayerAudio&) = delete;

    bool hasSound() const { return output_ != nullptr; }

    // The mix to play; the clock stops where it is.
    void setItem(std::shared_ptr<const PlayerItem> item);
    // The clock at an edit time, stopped; sound is prepared from there.
    void locate(double editTime);
    // Speed of the clock; the clock stops where it is.
    void setRate(double rate);
    // Runs the clock from where it stands as soon as enough sound is ready.
    void start();
    // Holds the clock where it is now and silences the output.
    void stop();
    // Edit seconds.
    double clockTime() const;
    // True from start() to stop(), also while the first sound is still being prepared.
    bool isStarted() const;

    // Lays a sound over the output at the volume (0...1); it sounds only while the clock
    // runs. The voice says when it has ended.
    std::shared_ptr<SoundVoice> play(std::shared_ptr<const SoundBuffer> sound, float volume);

    // Frames of silence the output had to play because the mix was not ready in time.
    int64_t underrunFrames() const;

private:
    void run();
    void fill(float* output, size_t frameCount);
    void mixVoices(float* output, size_t frameCount);
    double runningTime(double playedSeconds) const; // under lock_

    std::unique_ptr<AudioOutput> output_;

    // Serialises the output's start and stop; never taken by the output's callback.
    std::mutex runLock_;
    mutable std::mutex lock_;
    std::condition_variable wake_;
    bool quit_ = false;
    std::shared_ptr<const PlayerItem> item_;
    uint64_t itemVersion_ = 0;
    double anchor_ = 0; // edit time where the clock stands, or where the run began
    double rate_ = 1;
    uint64_t epoch_ = 0; // a new one discards the queue and renders from the anchor
    bool wantRunning_ = false;
    bool running_ = false; // the output plays this run
    std::atomic<uint64_t> runSequence_{0};
    std::chrono::steady_clock::time_point wallStart_; // the run's start, without an output
    // The sound made ahead, from the anchor on: interleaved stereo frames of this epoch.
    std::deque<float> queue_;
    int64_t streamFrames_ = 0; // handed to the output in this run
    struct Gap {
        int64_t streamFrame = 0;
        int64_t frames = 0;
    };
    std::vector<Gap> gaps_; // silence played in this run for want of sound
    int64_t underrunFrames_ = 0;

    std::mutex voiceLock_;
    std::vector<std::shared_ptr<SoundVoice>> voices_;

    std::thread thread_;
};

} // namespace orvelle
