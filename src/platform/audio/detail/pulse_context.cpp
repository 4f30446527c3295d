#include "platform/audio/detail/pulse_context.h"

namespace orvelle::detail {

namespace {

void contextStateChanged(pa_context*, void* userdata) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(userdata), 0);
}

} // namespace

std::string PulseContext::unreachable(int error) {
    return std::string("No sound server could be reached (") + pa_strerror(error) +
           "): start PulseAudio or PipeWire's pulse service for your session, or set "
           "PULSE_SERVER to one.";
}

std::optional<std::string> PulseContext::connect(const std::string& applicationName) {
    mainloop = pa_threaded_mainloop_new();
    if (mainloop == nullptr) {
        return "The sound server's connection could not be prepared: out of memory.";
    }
    context = pa_context_new(pa_threaded_mainloop_get_api(mainloop), applicationName.c_str());
    if (context == nullptr) {
        return "The sound server's connection could not be prepared: out of memory.";
    }
    pa_context_set_state_callback(context, contextStateChanged, mainloop);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        return unreachable(pa_context_errno(context));
    }
    if (pa_threaded_mainloop_start(mainloop) < 0) {
        return "The sound server's connection could not start its thread.";
    }
    PulseLock lock(mainloop);
    for (;;) {
        const pa_context_state_t s = pa_context_get_state(context);
        if (s == PA_CONTEXT_READY) {
            return std::nullopt;
        }
        if (!PA_CONTEXT_IS_GOOD(s)) {
            return unreachable(pa_context_errno(context));
        }
        pa_threaded_mainloop_wait(mainloop);
    }
}

bool PulseContext::isReady() const {
    return context != nullptr && pa_context_get_state(context) == PA_CONTEXT_READY;
}

PulseContext::~PulseContext() {
    if (mainloop != nullptr && context != nullptr) {
        PulseLock lock(mainloop);
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
    }
    if (mainloop != nullptr) {
        pa_threaded_mainloop_stop(mainloop);
    }
    if (context != nullptr) {
        pa_context_unref(context);
    }
    if (mainloop != nullptr) {
        pa_threaded_mainloop_free(mainloop);
    }
}

} // namespace orvelle::detail
