#include "core/monotonic_clock.h"
#include "platform/audio/audio_input.h"
#include "platform/audio/detail/pulse_context.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>

namespace orvelle {

namespace {

// A block whose measured time strays this far from the sample count's starts a new count.
constexpr double kRetimeAfterSeconds = 0.1;

} // namespace

struct AudioInput::State {
    AudioInputOptions options;
    detail::PulseContext pulse;  // declared first: destroyed after the stream is closed
    pa_stream* stream = nullptr; // the rest is guarded by the mainloop's lock
    CaptureCallback onSamples;
    EndCallback onEnd;
    bool ended = false;
    size_t frameBytes = 0;
    // The time of the count's first frame and the frames since; absent: the next block
    // starts a count.
    std::optional<double> countStart;
    int64_t countedFrames = 0;
    int64_t framesCaptured = 0;

    using Lock = detail::PulseLock;

    static void streamStateChanged(pa_stream* changed, void* userdata) {
        auto* state = static_cast<State*>(userdata);
        const pa_stream_state_t s = pa_stream_get_state(changed);
        if ((s == PA_STREAM_FAILED || s == PA_STREAM_TERMINATED) && state->stream == changed &&
            !state->ended) {
            state->ended = true;
            if (state->onEnd) {
                state->onEnd("Recording sound stopped: the sound server ended the stream (" +
                             state->pulse.lastError() + ").");
            }
        }
        pa_threaded_mainloop_signal(state->pulse.mainloop, 0);
    }

    static void streamOverflowed(pa_stream*, void* userdata) {
        static_cast<State*>(userdata)->countStart.reset();
    }

    // The age of the oldest sound not yet read, as the server's timing says; absent before
    // its first report.
    std::optional<double> unreadAge() const {
        pa_usec_t usec = 0;
        int negative = 0;
        if (pa_stream_get_latency(stream, &usec, &negative) < 0) {
            return std::nullopt;
        }
        return negative != 0 ? 0.0 : static_cast<double>(usec) / 1e6;
    }

    static void streamHasData(pa_stream* readable, size_t, void* userdata) {
        auto* state = static_cast<State*>(userdata);
        for (;;) {
            const void* data = nullptr;
            size_t bytes = 0;
            if (pa_stream_peek(readable, &data, &bytes) < 0 || bytes == 0) {
                return;
            }
            if (data == nullptr) { // a hole: sound was lost, times start afresh
                state->countStart.reset();
            } else {
                state->deliver(static_cast<const float*>(data), bytes / state->frameBytes);
            }
            pa_stream_drop(readable);
        }
    }

    void deliver(const float* samples, size_t frames) {
        if (frames == 0) {
            return;
        }
        const double rate = options.sampleRate;
        const double now = monotonicNow();
        const double blockSeconds = static_cast<double>(frames) / rate;
        // This block is the oldest unread sound: it began that long ago.
        const double measured = now - std::max(unreadAge().value_or(blockSeconds), blockSeconds);
        if (countStart) {
            const double counted = *countStart + static_cast<double>(countedFrames) / rate;
            if (std::abs(counted - measured) > kRetimeAfterSeconds) {
                countStart.reset();
            }
        }
        if (!countStart) {
            countStart = measured;
            countedFrames = 0;
        }
        const double time = *countStart + static_cast<double>(countedFrames) / rate;
        countedFrames += static_cast<int64_t>(frames);
        framesCaptured += static_cast<int64_t>(frames);
        if (onSamples) {
            onSamples(samples, frames, time);
        }
    }

    // Under the lock.
    void closeStream() {
        if (stream == nullptr) {
            return;
        }
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_set_overflow_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        stream = nullptr;
        onSamples = nullptr;
        onEnd = nullptr;
    }

    std::string refused(const std::string& reason) const {
        const std::string source = options.sourceName.empty() ? "the default sound input"
                                                              : "\"" + options.sourceName + "\"";
        return "The sound server would not record from " + source + " (" + reason +
               "): check that the device is connected, or choose another.";
    }

    ~State() {
        if (pulse.mainloop != nullptr) {
            Lock lock(pulse.mainloop);
            closeStream();
        }
    }
};

AudioInput::AudioInput(AudioInputOptions options) : state_(std::make_unique<State>()) {
    state_->options = std::move(options);
    state_->options.sampleRate = std::clamp(state_->options.sampleRate, 8000, 192000);
    state_->options.channelCount = std::clamp(state_->options.channelCount, 1, 8);
    state_->frameBytes = sizeof(float) * static_cast<size_t>(state_->options.channelCount);
    if (auto failure = state_->pulse.connect(state_->options.applicationName)) {
        throw AudioInputError(*failure);
    }
}

AudioInput::~AudioInput() = default;

const AudioInputOptions& AudioInput::options() const {
    return state_->options;
}

void AudioInput::start(CaptureCallback onSamples, EndCallback onEnd) {
    State& state = *state_;
    State::Lock lock(state.pulse.mainloop);
    state.closeStream();
    if (!state.pulse.isReady()) {
        throw AudioInputError(
            detail::PulseContext::unreachable(pa_context_errno(state.pulse.context)));
    }
    pa_sample_spec sampleSpec{};
    sampleSpec.format = PA_SAMPLE_FLOAT32NE;
    sampleSpec.rate = static_cast<uint32_t>(state.options.sampleRate);
    sampleSpec.channels = static_cast<uint8_t>(state.options.channelCount);
    pa_channel_map map;
    pa_channel_map_init_extend(&map, sampleSpec.channels, PA_CHANNEL_MAP_DEFAULT);
    state.stream =
        pa_stream_new(state.pulse.context, state.options.streamName.c_str(), &sampleSpec, &map);
    if (state.stream == nullptr) {
        throw AudioInputError(state.refused(state.pulse.lastError()));
    }
    state.onSamples = std::move(onSamples);
    state.onEnd = nullptr; // set once running: a refused start is this call's error
    state.ended = false;
    state.countStart.reset();
    state.framesCaptured = 0;
    pa_stream_set_state_callback(state.stream, State::streamStateChanged, &state);
    pa_stream_set_read_callback(state.stream, State::streamHasData, &state);
    pa_stream_set_overflow_callback(state.stream, State::streamOverflowed, &state);

    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.fragsize = static_cast<uint32_t>(
        std::lround(std::clamp(state.options.blockSeconds, 0.005, 0.5) * state.options.sampleRate) *
        static_cast<long>(state.frameBytes));
    const auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY);
    const char* device =
        state.options.sourceName.empty() ? nullptr : state.options.sourceName.c_str();
    if (pa_stream_connect_record(state.stream, device, &attributes, flags) < 0) {
        const std::string reason = state.pulse.lastError();
        state.closeStream();
        throw AudioInputError(state.refused(reason));
    }
    for (;;) {
        const pa_stream_state_t s = pa_stream_get_state(state.stream);
        if (s == PA_STREAM_READY) {
            state.onEnd = std::move(onEnd);
            return;
        }
        if (!PA_STREAM_IS_GOOD(s)) {
            const std::string reason = state.pulse.lastError();
            state.closeStream();
            throw AudioInputError(state.refused(reason));
        }
        pa_threaded_mainloop_wait(state.pulse.mainloop);
    }
}

void AudioInput::stop() {
    State::Lock lock(state_->pulse.mainloop);
    state_->closeStream();
}

bool AudioInput::isRunning() const {
    State::Lock lock(state_->pulse.mainloop);
    return state_->stream != nullptr && !state_->ended;
}

int64_t AudioInput::framesCaptured() const {
    State::Lock lock(state_->pulse.mainloop);
    return state_->framesCaptured;
}

} // namespace orvelle
