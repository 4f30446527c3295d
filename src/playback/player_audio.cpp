#include "playback/player_audio.h"

#include "core/log.h"
#include "platform/media/time_stretcher.h"
#include "timeline_media/composition_audio_mixer.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

constexpr size_t kChannels = 2;
constexpr size_t kBlockFrames = 1024;
// Sound made ahead before a run starts, and at most.
constexpr size_t kPrimeFrames = PlayerAudio::kSampleRate / 10;
constexpr size_t kQueueFrames = PlayerAudio::kSampleRate / 4;

} // namespace

PlayerAudio::PlayerAudio(std::unique_ptr<AudioOutput> output) : output_(std::move(output)) {
    thread_ = std::thread([this] { run(); });
}

PlayerAudio::~PlayerAudio() {
    {
        const std::lock_guard lock(lock_);
        quit_ = true;
    }
    wake_.notify_all();
    thread_.join();
    if (output_) {
        output_->stop();
    }
}

void PlayerAudio::setItem(std::shared_ptr<const PlayerItem> item) {
    stop();
    const std::lock_guard lock(lock_);
    item_ = std::move(item);
    ++itemVersion_;
    ++epoch_;
    wake_.notify_all();
}

void PlayerAudio::locate(double editTime) {
    stop();
    const std::lock_guard lock(lock_);
    anchor_ = std::max(editTime, 0.0);
    ++epoch_;
    wake_.notify_all();
}

void PlayerAudio::setRate(double rate) {
    const bool wasStarted = isStarted();
    stop();
    {
        const std::lock_guard lock(lock_);
        if (rate_ != rate) {
            rate_ = rate;
            ++epoch_;
        }
    }
    if (wasStarted) {
        start();
    }
}

void PlayerAudio::start() {
    const std::lock_guard lock(lock_);
    wantRunning_ = true;
    wake_.notify_all();
}

void PlayerAudio::stop() {
    const std::lock_guard run(runLock_);
    const double now = clockTime();
    bool wasRunning = false;
    {
        const std::lock_guard lock(lock_);
        wantRunning_ = false;
        wasRunning = running_;
    }
    if (wasRunning && output_) {
        output_->stop();
    }
    {
        const std::lock_guard lock(lock_);
        if (running_) {
            running_ = false;
            anchor_ = now;
            // The server dropped what it held: the queue no longer follows the clock.
            ++epoch_;
            ++runSequence_;
        }
        wake_.notify_all();
    }
    const std::lock_guard voices(voiceLock_);
    for (const auto& voice : voices_) {
        voice->finished_ = true;
    }
    voices_.clear();
}

bool PlayerAudio::isStarted() const {
    const std::lock_guard lock(lock_);
    return wantRunning_;
}

double PlayerAudio::clockTime() const {
    for (;;) {
        const uint64_t sequence = runSequence_.load();
        const double played = output_ ? output_->playedSeconds() : 0;
        const std::lock_guard lock(lock_);
        if (sequence != runSequence_.load()) {
            continue; // a run began or ended meanwhile
        }
        return running_ ? runningTime(played) : anchor_;
    }
}

double PlayerAudio::runningTime(double playedSeconds) const {
    if (!output_) {
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart_).count();
        return anchor_ + elapsed * rate_;
    }
    // Silence played for want of sound moved the stream on but not the mix.
    const auto played = static_cast<int64_t>(std::llround(playedSeconds * kSampleRate));
    int64_t silent = 0;
    for (const Gap& gap : gaps_) {
        if (gap.streamFrame >= played) {
            break;
        }
        silent += std::min(gap.frames, played - gap.streamFrame);
    }
    return anchor_ + static_cast<double>(played - silent) / kSampleRate * rate_;
}

std::shared_ptr<SoundVoice> PlayerAudio::play(std::shared_ptr<const SoundBuffer> sound,
                                              float volume) {
    auto voice = std::make_shared<SoundVoice>(std::move(sound), std::clamp(volume, 0.0F, 1.0F));
    if (!output_) {
        voice->finished_ = true; // nowhere to sound
        return voice;
    }
    const std::lock_guard lock(voiceLock_);
    voices_.push_back(voice);
    return voice;
}

int64_t PlayerAudio::underrunFrames() const {
    const std::lock_guard lock(lock_);
    return underrunFrames_;
}

void PlayerAudio::fill(float* output, size_t frameCount) {
    {
        const std::lock_guard lock(lock_);
        const size_t frames = std::min(frameCount, queue_.size() / kChannels);
        const auto end = queue_.begin() + static_cast<ptrdiff_t>(frames * kChannels);
        std::copy(queue_.begin(), end, output);
        queue_.erase(queue_.begin(), end);
        if (frames < frameCount) {
            std::fill(output + frames * kChannels, output + frameCount * kChannels, 0.0F);
            const auto missing = static_cast<int64_t>(frameCount - frames);
            gaps_.push_back({streamFrames_ + static_cast<int64_t>(frames), missing});
            underrunFrames_ += missing;
        }
        streamFrames_ += static_cast<int64_t>(frameCount);
    }
    wake_.notify_all();
    mixVoices(output, frameCount);
}

void PlayerAudio::mixVoices(float* output, size_t frameCount) {
    const std::lock_guard lock(voiceLock_);
    for (const auto& voice : voices_) {
        const std::vector<float>& samples = voice->sound_->samples;
        const size_t frames = std::min(frameCount, voice->sound_->frameCount() - voice->position_);
        const float* from = samples.data() + voice->position_ * kChannels;
        for (size_t i = 0; i < frames * kChannels; ++i) {
            output[i] += from[i] * voice->volume_;
        }
        voice->position_ += frames;
        if (voice->position_ >= voice->sound_->frameCount()) {
            voice->finished_ = true;
        }
    }
    std::erase_if(voices_, [](const auto& voice) { return voice->finished_.load(); });
}

void PlayerAudio::run() {
    std::unique_ptr<CompositionAudioMixer> mixer;
    uint64_t mixerVersion = 0;
    std::unique_ptr<TimeStretcher> stretcher;
    uint64_t renderEpoch = 0;
    bool positioned = false;
    int64_t mixFrame = 0;
    std::vector<float> block(kBlockFrames * kChannels);
    std::vector<float> stretched;

    std::unique_lock lock(lock_);
    while (!quit_) {
        if (itemVersion_ != mixerVersion) {
            const auto item = item_;
            const uint64_t version = itemVersion_;
            lock.unlock();
            mixer.reset();
            if (item && output_) {
                try {
                    mixer =
                        std::make_unique<CompositionAudioMixer>(item->composition, item->audioMix);
                } catch (const Error& error) {
                    logWarning("playback", "the edit plays without sound: ", error.what());
                }
            }
            lock.lock();
            mixerVersion = version;
            positioned = false;
            continue;
        }
        if (!positioned || renderEpoch != epoch_) {
            positioned = true;
            renderEpoch = epoch_;
            queue_.clear();
            mixFrame = mixerFrame(anchor_);
            if (rate_ != 1) {
                stretcher = std::make_unique<TimeStretcher>(kSampleRate, 2, rate_);
            } else {
                stretcher.reset();
            }
        }

        const size_t queued = queue_.size() / kChannels;
        const bool primed = !mixer || queued >= kPrimeFrames;
        if (wantRunning_ && !running_ && primed) {
            lock.unlock();
            {
                const std::lock_guard run(runLock_);
                bool begin = false;
                {
                    const std::lock_guard state(lock_);
                    begin = wantRunning_ && !running_ && renderEpoch == epoch_;
                    streamFrames_ = 0;
                    gaps_.clear();
                }
                bool started = begin;
                if (begin && output_) {
                    try {
                        output_->start([this](float* out, size_t frames) { fill(out, frames); });
                    } catch (const AudioOutputError& error) {
                        logWarning("playback", "the edit plays without sound: ", error.what());
                        started = false;
                        const std::lock_guard state(lock_);
                        wantRunning_ = false;
                    }
                }
                if (started) {
                    const std::lock_guard state(lock_);
                    running_ = true;
                    wallStart_ = std::chrono::steady_clock::now();
                    ++runSequence_;
                }
            }
            lock.lock();
            continue;
        }

        if (mixer && queued < kQueueFrames) {
            const uint64_t epoch = renderEpoch;
            const int64_t from = mixFrame;
            lock.unlock();
            const float* made = block.data();
            size_t madeFrames = kBlockFrames;
            try {
                mixer->render(from, kBlockFrames, block.data());
            } catch (const Error& error) {
                logWarning("playback", "the mix could not be read: ", error.what());
                std::fill(block.begin(), block.end(), 0.0F);
            }
            if (stretcher) {
                stretcher->push(block.data(), kBlockFrames);
                stretched.resize(stretcher->available() * kChannels);
                madeFrames = stretcher->pull(stretched.data(), stretched.size() / kChannels);
                made = stretched.data();
            }
            lock.lock();
            if (epoch == epoch_) {
                queue_.insert(queue_.end(), made, made + madeFrames * kChannels);
                mixFrame = from + static_cast<int64_t>(kBlockFrames);
            }
            continue;
        }
        wake_.wait(lock);
    }
}

} // namespace orvelle
