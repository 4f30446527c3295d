#pragma once

// The sound server's devices: microphones (sources that are not the monitor of an output)
// and outputs (sinks), each with the server's name for it, which stays the same across
// restarts, and the name the user reads.

#include "platform/audio/audio_input.h"

#include <string>
#include <vector>

namespace orvelle {

struct AudioDevice {
    std::string id;   // the server's name: what AudioInputOptions::sourceName takes
    std::string name; // the description the user reads
    int channelCount = 0;
    int sampleRate = 0;
    bool isDefault = false;

    friend bool operator==(const AudioDevice&, const AudioDevice&) = default;
};

struct AudioDeviceList {
    std::vector<AudioDevice> microphones;
    std::vector<AudioDevice> outputs;
};

// Throws AudioInputError when no sound server can be reached.
AudioDeviceList listAudioDevices(const std::string& applicationName = "Orvelle");

} // namespace orvelle
