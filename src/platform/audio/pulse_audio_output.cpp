#include "core/log.h"
#include "platform/audio/audio_output.h"
#include "platform/audio/detail/pulse_context.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvelle {

namespace {

std::string pulseReason(int error) {
    return pa_strerror(error);
}

} // namespace

struct AudioOutput::State {
    AudioOutputOptions options;
    detail::PulseContext pulse; // declared first: destroyed after the stream is closed
    pa_threaded_mainloop* mainloop = nullptr;
    pa_context* context = nullptr;
    pa_stream* stream = nullptr; // guarded by the mainloop's lock
    RenderCallback render;       // guarded by the mainloop's lock
    size_t frameBytes = 0;

    using Lock = detail::PulseLock;

    static void streamStateChanged(pa_stream*, void* userdata) {
        pa_threaded_mainloop_signal(static_cast<State*>(userdata)->mainloop, 0);
    }

    // The server asks for `bytes` more: they are written straight into its memory.
    static void streamWantsData(pa_stream* stream, size_t bytes, void* userdata) {
        auto* state = static_cast<State*>(userdata);
        while (bytes >= state->frameBytes) {
            void* data = nullptr;
            size_t size = bytes;
            if (pa_stream_begin_write(stream, &data, &size) < 0 || data == nullptr) {
                return;
            }
            size -= size % state->frameBytes;
            if (size == 0) {
                pa_stream_cancel_write(stream);
                return;
            }
            const size_t frames = size / state->frameBytes;
            if (state->render) {
                state->render(static_cast<float*>(data), frames);
            } else {
                std::memset(data, 0, size);
            }
            pa_stream_write(stream, data, size, nullptr, 0, PA_SEEK_RELATIVE);
            bytes -= std::min(bytes, size);
        }
    }

    void connect() {
        if (auto failure = pulse.connect(options.applicationName)) {
            throw AudioOutputError(*failure);
        }
        mainloop = pulse.mainloop;
        context = pulse.context;
    }

    static std::string unreachable(int error) { return detail::PulseContext::unreachable(error); }

    // Under the lock.
    void closeStream() {
        if (stream == nullptr) {
            return;
        }
        pa_stream_set_write_callback(stream, nullptr, nullptr);
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        stream = nullptr;
        render = nullptr;
    }

    ~State() {
        if (mainloop != nullptr) {
            Lock lock(mainloop);
            closeStream();
        }
    }
};

AudioOutput::AudioOutput(AudioOutputOptions options) : state_(std::make_unique<State>()) {
    state_->options = std::move(options);
    state_->options.sampleRate = std::clamp(state_->options.sampleRate, 8000, 192000);
    state_->options.channelCount = std::clamp(state_->options.channelCount, 1, 8);
    state_->frameBytes = sizeof(float) * static_cast<size_t>(state_->options.channelCount);
    state_->connect();
}

AudioOutput::~AudioOutput() = default;

const AudioOutputOptions& AudioOutput::options() const {
    return state_->options;
}

void AudioOutput::start(RenderCallback render) {
    State& state = *state_;
    State::Lock lock(state.mainloop);
    state.closeStream();
    if (pa_context_get_state(state.context) != PA_CONTEXT_READY) {
        throw AudioOutputError(State::unreachable(pa_context_errno(state.context)));
    }
    pa_sample_spec sampleSpec{};
    sampleSpec.format = PA_SAMPLE_FLOAT32NE;
    sampleSpec.rate = static_cast<uint32_t>(state.options.sampleRate);
    sampleSpec.channels = static_cast<uint8_t>(state.options.channelCount);
    pa_channel_map map;
    pa_channel_map_init_extend(&map, sampleSpec.channels, PA_CHANNEL_MAP_DEFAULT);
    state.stream =
        pa_stream_new(state.context, state.options.streamName.c_str(), &sampleSpec, &map);
    if (state.stream == nullptr) {
        throw AudioOutputError("The sound server refused the playback stream (" +
                               pulseReason(pa_context_errno(state.context)) + ").");
    }
    state.render = std::move(render);
    pa_stream_set_state_callback(state.stream, State::streamStateChanged, &state);
    pa_stream_set_write_callback(state.stream, State::streamWantsData, &state);

    const double seconds = std::clamp(state.options.bufferSeconds, 0.005, 2.0);
    const auto bytes = [&](double s) {
        return static_cast<uint32_t>(std::lround(s * state.options.sampleRate)) *
               static_cast<uint32_t>(state.frameBytes);
    };
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.tlength = bytes(seconds);
    // Sound starts with the first samples, and a late sample plays as silence without
    // stopping the stream: the clock keeps running.
    attributes.prebuf = 0;
    attributes.minreq = bytes(seconds / 4);
    attributes.fragsize = static_cast<uint32_t>(-1);
    const auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY);
    if (pa_stream_connect_playback(state.stream, nullptr, &attributes, flags, nullptr, nullptr) <
        0) {
        const int error = pa_context_errno(state.context);
        state.closeStream();
        throw AudioOutputError("The sound server refused the playback stream (" +
                               pulseReason(error) + ").");
    }
    for (;;) {
        const pa_stream_state_t s = pa_stream_get_state(state.stream);
        if (s == PA_STREAM_READY) {
            return;
        }
        if (!PA_STREAM_IS_GOOD(s)) {
            const int error = pa_context_errno(state.context);
            state.closeStream();
            throw AudioOutputError("The sound server refused the playback stream (" +
                                   pulseReason(error) + ").");
        }
        pa_threaded_mainloop_wait(state.mainloop);
    }
}

void AudioOutput::stop() {
    State::Lock lock(state_->mainloop);
    state_->closeStream();
}

bool AudioOutput::isRunning() const {
    State::Lock lock(state_->mainloop);
    return state_->stream != nullptr;
}

double AudioOutput::playedSeconds() const {
    State::Lock lock(state_->mainloop);
    if (state_->stream == nullptr) {
        return 0;
    }
    pa_usec_t usec = 0;
    if (pa_stream_get_time(state_->stream, &usec) < 0) {
        return 0; // no timing report yet
    }
    return static_cast<double>(usec) / 1e6;
}

double AudioOutput::latencySeconds() const {
    State::Lock lock(state_->mainloop);
    if (state_->stream == nullptr) {
        return 0;
    }
    pa_usec_t usec = 0;
    int negative = 0;
    if (pa_stream_get_latency(state_->stream, &usec, &negative) < 0 || negative != 0) {
        return 0;
    }
    return static_cast<double>(usec) / 1e6;
}

bool AudioOutput::isConnected() const {
    State::Lock lock(state_->mainloop);
    return pa_context_get_state(state_->context) == PA_CONTEXT_READY;
}

} // namespace orvelle
