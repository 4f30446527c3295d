#include "platform/audio/audio_devices.h"
#include "platform/audio/detail/pulse_context.h"

namespace orvelle {

namespace {

struct DeviceListing {
    pa_threaded_mainloop* mainloop = nullptr;
    AudioDeviceList list;
    std::string defaultSink;
    std::string defaultSource;
    bool done = false;
};

void serverInfo(pa_context*, const pa_server_info* info, void* userdata) {
    auto* listing = static_cast<DeviceListing*>(userdata);
    if (info != nullptr) {
        listing->defaultSink = info->default_sink_name != nullptr ? info->default_sink_name : "";
        listing->defaultSource =
            info->default_source_name != nullptr ? info->default_source_name : "";
    }
    pa_threaded_mainloop_signal(listing->mainloop, 0);
}

AudioDevice device(const char* name, const char* description, const pa_sample_spec& sampleFormat) {
    return {name, description != nullptr ? description : name, sampleFormat.channels,
            static_cast<int>(sampleFormat.rate), false};
}

void sourceInfo(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* listing = static_cast<DeviceListing*>(userdata);
    if (eol == 0 && info != nullptr && info->monitor_of_sink == PA_INVALID_INDEX) {
        listing->list.microphones.push_back(
            device(info->name, info->description, info->sample_spec));
    }
    pa_threaded_mainloop_signal(listing->mainloop, 0);
}

void sinkInfo(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
    auto* listing = static_cast<DeviceListing*>(userdata);
    if (eol == 0 && info != nullptr) {
        listing->list.outputs.push_back(device(info->name, info->description, info->sample_spec));
    }
    pa_threaded_mainloop_signal(listing->mainloop, 0);
}

// Under the lock: waits for the operation to finish.
void await(pa_threaded_mainloop* mainloop, pa_operation* operation) {
    if (operation == nullptr) {
        return;
    }
    while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
        pa_threaded_mainloop_wait(mainloop);
    }
    pa_operation_unref(operation);
}

} // namespace

AudioDeviceList listAudioDevices(const std::string& applicationName) {
    detail::PulseContext pulse;
    if (const auto problem = pulse.connect(applicationName)) {
        throw AudioInputError(*problem);
    }
    DeviceListing listing;
    listing.mainloop = pulse.mainloop;
    detail::PulseLock lock(pulse.mainloop);
    await(pulse.mainloop, pa_context_get_server_info(pulse.context, serverInfo, &listing));
    await(pulse.mainloop, pa_context_get_source_info_list(pulse.context, sourceInfo, &listing));
    await(pulse.mainloop, pa_context_get_sink_info_list(pulse.context, sinkInfo, &listing));
    for (auto& microphone : listing.list.microphones) {
        microphone.isDefault = microphone.id == listing.defaultSource;
    }
    for (auto& output : listing.list.outputs) {
        output.isDefault = output.id == listing.defaultSink;
    }
    return listing.list;
}

} // namespace orvelle
