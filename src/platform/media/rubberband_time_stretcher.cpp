#include "platform/media/time_stretcher.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <vector>

namespace orvelle {

namespace {

constexpr size_t blockFrames = 1024;

} // namespace

struct TimeStretcher::State {
    int channels = 2;
    double speed = 1;
    std::unique_ptr<RubberBand::RubberBandStretcher> engine;
    std::vector<std::vector<float>> planes; // deinterleaving scratch, one per channel
    std::vector<float*> pointers;
    size_t delayToDrop = 0; // output frames of the engine's start delay still to discard

    void start() {
        engine->reset();
        // Priming with the preferred pad and dropping the start delay lines output frame 0
        // up with input frame 0.
        const size_t pad = engine->getPreferredStartPad();
        delayToDrop = engine->getStartDelay();
        std::vector<float> zeros(std::max<size_t>(pad, 1) * static_cast<size_t>(channels), 0.0f);
        if (pad > 0) {
            pushFrames(zeros.data(), pad);
        }
    }

    void pushFrames(const float* interleaved, size_t frameCount) {
        const auto c = static_cast<size_t>(channels);
        size_t done = 0;
        while (done < frameCount) {
            const size_t take = std::min(blockFrames, frameCount - done);
            for (size_t ch = 0; ch < c; ++ch) {
                float* plane = planes[ch].data();
                const float* source = interleaved + done * c + ch;
                for (size_t i = 0; i < take; ++i) {
                    plane[i] = source[i * c];
                }
                pointers[ch] = plane;
            }
            engine->process(pointers.data(), take, false);
            done += take;
        }
    }

    void dropDelay() {
        while (delayToDrop > 0) {
            const int ready = engine->available();
            if (ready <= 0) {
                return;
            }
            const size_t take = std::min({delayToDrop, static_cast<size_t>(ready), blockFrames});
            for (size_t ch = 0; ch < static_cast<size_t>(channels); ++ch) {
                pointers[ch] = planes[ch].data();
            }
            engine->retrieve(pointers.data(), take);
            delayToDrop -= take;
        }
    }
};

TimeStretcher::TimeStretcher(int sampleRate, int channelCount, double speed)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.channels = std::max(channelCount, 1);
    s.speed = speed;
    using Options = RubberBand::RubberBandStretcher;
    // The R2 engine: its cost hardly grows with the ratio (up to 24 times), and speech stays
    // clear; smooth transients avoid the phasey attacks of the crisp setting on voices.
    const int options = Options::OptionProcessRealTime | Options::OptionEngineFaster |
                        Options::OptionTransientsMixed | Options::OptionPitchHighConsistency |
                        Options::OptionChannelsTogether;
    s.engine = std::make_unique<RubberBand::RubberBandStretcher>(static_cast<size_t>(sampleRate),
                                                                 static_cast<size_t>(s.channels),
                                                                 options, 1.0 / speed, 1.0);
    s.engine->setMaxProcessSize(blockFrames);
    s.planes.assign(static_cast<size_t>(s.channels), std::vector<float>(blockFrames));
    s.pointers.assign(static_cast<size_t>(s.channels), nullptr);
    s.start();
}

TimeStretcher::~TimeStretcher() = default;

double TimeStretcher::speed() const {
    return state_->speed;
}

int TimeStretcher::channelCount() const {
    return state_->channels;
}

size_t TimeStretcher::inputFramesWanted() const {
    return std::max<size_t>(state_->engine->getSamplesRequired(), 1);
}

void TimeStretcher::push(const float* interleaved, size_t frameCount) {
    state_->pushFrames(interleaved, frameCount);
    state_->dropDelay();
}

size_t TimeStretcher::available() const {
    State& s = *state_;
    s.dropDelay();
    if (s.delayToDrop > 0) {
        return 0;
    }
    return static_cast<size_t>(std::max(s.engine->available(), 0));
}

size_t TimeStretcher::pull(float* interleaved, size_t frameCount) {
    State& s = *state_;
    const auto c = static_cast<size_t>(s.channels);
    size_t written = 0;
    while (written < frameCount) {
        const size_t ready = available();
        if (ready == 0) {
            break;
        }
        const size_t take = std::min({ready, frameCount - written, blockFrames});
        for (size_t ch = 0; ch < c; ++ch) {
            s.pointers[ch] = s.planes[ch].data();
        }
        const size_t got = s.engine->retrieve(s.pointers.data(), take);
        for (size_t ch = 0; ch < c; ++ch) {
            const float* plane = s.planes[ch].data();
            float* destination = interleaved + written * c + ch;
            for (size_t i = 0; i < got; ++i) {
                destination[i * c] = plane[i];
            }
        }
        written += got;
        if (got == 0) {
            break;
        }
    }
    return written;
}

void TimeStretcher::reset() {
    state_->start();
}

} // namespace orvelle
