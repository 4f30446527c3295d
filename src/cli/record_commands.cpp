#include "cli/capture_source.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "core/executor.h"
#include "core/file_url.h"
#include "platform/audio/audio_devices.h"
#include "recording/camera_recorder.h"
#include "recording/executor_repeating_timer.h"
#include "recording/microphone_recorder.h"
#include "recording/recording_cue_player.h"
#include "recording/window_recorder.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

std::atomic<int> pauseRequests{0};

void requestPauseToggle(int) {
    pauseRequests.fetch_add(1);
}

// SIGUSR1 toggles pause while the object lives.
class PauseSignal {
public:
    PauseSignal() {
        struct sigaction action {};
        action.sa_handler = requestPauseToggle;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGUSR1, &action, &old_);
    }
    ~PauseSignal() { sigaction(SIGUSR1, &old_, nullptr); }
    PauseSignal(const PauseSignal&) = delete;
    PauseSignal& operator=(const PauseSignal&) = delete;

private:
    struct sigaction old_ {};
};

Json devicesJson(const std::vector<TrackDevice>& devices) {
    Json list = Json::array();
    for (const auto& device : devices) {
        list.push_back({{"id", device.id}, {"name", device.name}, {"default", device.isDefault}});
    }
    return list;
}

int runDevices(const Arguments& arguments) {
    std::vector<TrackDevice> cameras = makeV4L2CameraSourceProvider()->devices();
    std::vector<TrackDevice> microphones;
    std::vector<TrackDevice> outputs;
    std::optional<std::string> soundServerError;
    try {
        const AudioDeviceList audio = listAudioDevices();
        for (const auto& device : audio.microphones) {
            microphones.push_back({device.id, device.name, device.isDefault});
        }
        for (const auto& device : audio.outputs) {
            outputs.push_back({device.id, device.name, device.isDefault});
        }
    } catch (const Error& error) {
        soundServerError = error.what();
    }
    if (arguments.flag("--json")) {
        printJson({{"cameras", devicesJson(cameras)},
                   {"microphones", devicesJson(microphones)},
                   {"outputs", devicesJson(outputs)},
                   {"soundServerError", soundServerError ? Json(*soundServerError) : Json()}});
        return 0;
    }
    const auto print = [](const char* title, const std::vector<TrackDevice>& devices) {
        std::cout << title << ":\n";
        if (devices.empty()) {
            std::cout << "  (none)\n";
        }
        for (const auto& device : devices) {
            std::cout << "  " << (device.isDefault ? "* " : "  ") << device.id << "  "
                      << device.name << "\n";
        }
    };
    print("Cameras", cameras);
    print("Microphones", microphones);
    print("Outputs (their sound is the system audio)", outputs);
    if (soundServerError) {
        std::cerr << "orvelle devices: " << *soundServerError << "\n";
    }
    return 0;
}

Json takeJson(const TakeManifest& manifest) {
    Json tracks = Json::array();
    for (const auto& track : manifest.tracks) {
        Json segments = Json::array();
        for (const auto& segment : manifest.segments) {
            if (segment.trackID == track.id) {
                segments.push_back({{"url", fileURLString(segment.url)},
                                    {"programStart", segment.programStart},
                                    {"duration", segment.duration}});
            }
        }
        tracks.push_back({{"id", track.id},
                          {"name", track.displayName ? Json(*track.displayName) : Json()},
                          {"segments", segments}});
    }
    return tracks;
}

int runRecord(const Arguments& arguments) {
    const std::optional<double> seconds = arguments.number("--seconds");
    if (seconds && !(*seconds > 0)) {
        throw UsageError("The option --seconds takes a positive number of seconds.");
    }
    if (arguments.flag("--system-audio") && arguments.flag("--no-system-audio")) {
        throw UsageError("Give --system-audio or --no-system-audio, not both.");
    }
    const bool json = arguments.flag("--json");
    const std::string cameraID = arguments.value("--camera").value_or("none");
    const std::string microphoneID = arguments.value("--microphone").value_or("none");

    auto backend = makeSessionCaptureBackend();
    const RecorderSourceSelection selection = chooseCaptureSource(arguments, *backend);

    RunLoop mainThread;
    SteadyRecorderClock clock;
    ExecutorRepeatingTimerFactory timers(mainThread);

    std::unique_ptr<CameraRecorder> camera;
    if (cameraID != "none") {
        camera = std::make_unique<CameraRecorder>(mainThread, makeV4L2CameraSourceProvider());
        camera->refreshDevices();
        if (cameraID != "default") {
            camera->selectDevice(cameraID);
        }
        camera->enable();
        if (camera->state() != CameraRecorder::State::previewing) {
            throw Error("The webcam could not start: " + camera->detailText.value() +
                        " ('orvelle devices' lists the cameras; --camera none records without).");
        }
    }
    std::unique_ptr<MicrophoneRecorder> microphone;
    if (microphoneID != "none") {
        microphone = std::make_unique<MicrophoneRecorder>(mainThread);
        microphone->refreshDevices();
        if (microphoneID != "default") {
            const auto& list = microphone->devices.value();
            if (std::none_of(list.begin(), list.end(), [&](const TrackDevice& device) {
                    return device.id == microphoneID;
                })) {
                throw Error("No microphone \"" + microphoneID +
                            "\" ('orvelle devices' lists them; --microphone default takes the "
                            "system's own).");
            }
            microphone->selectDevice(microphoneID);
        }
        microphone->setEnabled(true);
    }
    RecordingCuePlayer cues;

    WindowRecorder recorder(
        {mainThread,
         [&mainThread](const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
             return mainThread.runUntil(predicate, timeout);
         },
         *backend, clock, timers, camera.get(), microphone.get(), &cues});
    recorder.systemAudioEnabled.set(!arguments.flag("--no-system-audio"));

    InterruptStop interrupt;
    PauseSignal pauseSignal;
    pauseRequests = 0;
    recorder.startSelection(selection.mode, selection);
    const bool started = recorder.state() == WindowRecorder::State::recording;
    if (started) {
        std::cerr << "Recording " << selection.title << " into "
                  << recorder.outputURL.value().value_or(fs::path()).parent_path().string()
                  << (seconds ? "" : "; press Ctrl-C to stop") << "; kill -USR1 " << getpid()
                  << " pauses and resumes.\n";
    }
    const auto startedAt = std::chrono::steady_clock::now();
    int pauses = 0;
    int handledRequests = 0;
    while (started && !interrupt.interrupted()) {
        const auto state = recorder.state();
        if (state != WindowRecorder::State::recording && state != WindowRecorder::State::paused) {
            break; // failed and stopped on its own
        }
        if (seconds &&
            std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt).count() >=
                *seconds) {
            break;
        }
        while (handledRequests < pauseRequests.load()) {
            ++handledRequests;
            if (recorder.state() == WindowRecorder::State::recording) {
                const auto end =
                    RecordingSessionCoordinator::pause(recorder, camera.get(), microphone.get());
                ++pauses;
                std::cerr << "Paused at " << end.value_or(0) << " s.\n";
            } else if (recorder.state() == WindowRecorder::State::paused) {
                RecordingSessionCoordinator::resume(recorder, camera.get(), microphone.get());
                std::cerr << "Resumed.\n";
            }
        }
        mainThread.runFor(std::chrono::milliseconds(20));
    }
    const auto result =
        RecordingSessionCoordinator::stopAndOpenEditor(recorder, camera.get(), microphone.get());
    const std::optional<std::string> failure = recorder.lastFailure.value();
    std::optional<TakeManifest> manifest;
    if (result) {
        manifest = TakeManifest::load(result->screenURL);
    }
    if (json) {
        printJson(
            {{"folder", result ? Json(result->screenURL.parent_path().string()) : Json()},
             {"screenURL", result ? Json(fileURLString(result->screenURL)) : Json()},
             {"manifestURL",
              result && result->manifestURL ? Json(fileURLString(*result->manifestURL)) : Json()},
             {"duration", manifest ? Json(manifest->duration()) : Json()},
             {"tracks", manifest ? takeJson(*manifest) : Json::array()},
             {"pauses", pauses},
             {"systemAudio", recorder.recordedSystemAudio()},
             {"droppedFrames", {{"screen", recorder.droppedScreenFrames()}}},
             {"status", recorder.statusText.value()},
             {"detail", recorder.detailText.value()},
             {"interrupted", interrupt.interrupted()},
             {"failure", failure ? Json(*failure) : Json()}});
    } else if (result) {
        std::cout << result->screenURL.parent_path().string() << "\n";
    }
    if (!result) {
        std::cerr << "orvelle record: " << (failure ? *failure : recorder.detailText.value())
                  << "\n";
        return 1;
    }
    if (failure) {
        std::cerr << "orvelle record: " << recorder.detailText.value() << "\n";
        return 1;
    }
    if (!result->manifestURL) {
        std::cerr << "orvelle record: The recording files were saved, but the take metadata could "
                     "not be written; 'orvelle recover' can write it from the files.\n";
        return 1;
    }
    return 0;
}

} // namespace

Command devicesCommand() {
    return {"devices",
            "list cameras, microphones and sound outputs",
            "orvelle devices [--json]\n\n"
            "Lists the webcams (Video4Linux2; the id is the stable /dev/v4l/by-id link where\n"
            "there is one), the microphones and the outputs of the sound server, each with\n"
            "its id and name; the default microphone and output are marked. System audio is\n"
            "what the default output plays.",
            {{"--json"}},
            runDevices};
}

Command recordCommand() {
    return {"record",
            "record a take: screen, webcam, microphone and system audio",
            "orvelle record --display ID | --window ID | --area X,Y,W,H\n"
            "               [--camera ID|default|none] [--microphone ID|default|none]\n"
            "               [--system-audio | --no-system-audio] [--seconds N] [--json]\n\n"
            "Records a take into a new folder of the recording store\n"
            "($XDG_DATA_HOME/Orvelle/Captures): the screen movie (with what the computer plays,\n"
            "unless --no-system-audio), the webcam and the microphone as numbered files, the\n"
            "pointer and the take manifest. The webcam and the microphone are off unless named\n"
            "('orvelle devices' lists them). SIGUSR1 (kill -USR1 PID) pauses and resumes;\n"
            "Ctrl-C, or --seconds after the start (pauses included), stops and keeps the take.\n"
            "Prints the take's folder; --json prints the manifest's path, the tracks with their\n"
            "segments, and the dropped frames. A take cut off by a crash is finished with\n"
            "'orvelle recover'.",
            {{"--display", true},
             {"--window", true},
             {"--area", true},
             {"--camera", true},
             {"--microphone", true},
             {"--system-audio"},
             {"--no-system-audio"},
             {"--seconds", true},
             {"--json"}},
            runRecord};
}

} // namespace orvelle::cli
