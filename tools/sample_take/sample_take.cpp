#include "sample_take/sample_take.h"

#include "core/files.h"
#include "platform/media/movie_writer.h"
#include "project/cursor_recording.h"
#include "project/recording_take_builder.h"
#include "sample_take/desktop_painter.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <random>

namespace orvelle::SampleTake {

namespace {

namespace fs = std::filesystem;

constexpr const char* kBaseName = "Orvelle Sample";

// A private folder beside the take for what is being made, so that a run that fails
// leaves the last good sample as it was. Removed with everything in it.
class ScratchFolder {
public:
    explicit ScratchFolder(const fs::path& parent) {
        std::string pattern = (parent / ".orvelle-sample-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw FileError("Could not make a folder in \"" + parent.string() + "\".");
        }
        path_ = pattern;
    }
    ~ScratchFolder() { removeIgnoringErrors(path_); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// The pointer as a recorder samples it: 60 times a second, with the timer's jitter.
CursorRecording pointerRecording(const SampleScript& script) {
    CursorRecording recording;
    recording.captureFrame = {0, 0, kDesignWidth, kDesignHeight};
    std::mt19937 random(script.seed + 101U);
    std::normal_distribution<double> jitter(0, 0.0008);
    double previous = -1;
    for (int i = 0;; ++i) {
        double time = i / 60.0 + std::clamp(jitter(random), -0.003, 0.003);
        time = std::max({time, 0.0, previous + 0.001});
        if (time > script.duration) {
            break;
        }
        const Point point = pointerPosition(script, time);
        recording.samples.push_back({time, point.x / kDesignWidth, point.y / kDesignHeight, true});
        previous = time;
    }
    for (const auto& click : script.clicks) {
        if (click.time <= script.duration) {
            recording.clicks.push_back({click.time, 0});
        }
    }
    return recording;
}

void moveInto(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) {
        throw FileError("Could not move the sample take's file to \"" + to.string() +
                        "\": " + error.message());
    }
}

} // namespace

Result make(const fs::path& folder, const Options& options) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw FileError("Could not make the folder \"" + folder.string() +
                        "\": " + error.message());
    }
    const fs::path root = fs::absolute(folder);
    SampleScript script = makeSampleScript();
    script.duration = std::clamp(options.duration, 1.0, 60.0);

    Result result;
    result.width = std::max(2, options.width / 2 * 2);
    result.height = std::max(2, static_cast<int>(std::lround(result.width * 9.0 / 32.0)) * 2);
    result.screenURL = root / (std::string(kBaseName) + ".mov");
    result.microphoneURL = root / (std::string(kBaseName) + "-microphone-001.m4a");
    result.cursorURL = CursorRecording::fileURL(result.screenURL);
    result.manifestURL = TakeManifest::sidecarURL(result.screenURL);

    ScratchFolder scratch(root);
    // The narration is spoken by other processes while the picture is drawn here.
    auto microphone = std::async(std::launch::async, [&script, &scratch] {
        return recordNarration(script, scratch.path());
    });

    MovieWriterSettings settings;
    settings.container = MovieContainer::mov;
    settings.video = MovieVideoSettings{};
    settings.video->codec =
        options.codec == ScreenCodec::proRes ? VideoCodec::proRes422Proxy : VideoCodec::h264High;
    settings.video->width = result.width;
    settings.video->height = result.height;
    settings.video->frameRate = options.frameRate;
    // The sample is made often (demo, tests, benchmarks): the fastest H.264 settings make it
    // in a quarter of the time, at a file size that does not matter here.
    settings.video->speed = EncoderSpeed::fastest;
    settings.audio = MovieAudioSettings{};
    settings.audio->bitRate = 128000;
    // A recorder writes in fragments, so that a crash keeps what was written.
    settings.fragmented = true;
    const fs::path screenScratch = scratch.path() / "screen.mov";
    MovieWriter screen(screenScratch, settings);

    const std::vector<float> system = systemSound(script);
    const double rate = options.frameRate > 0 ? options.frameRate : 30;
    result.frameCount = std::max(1, static_cast<int>(std::lround(script.duration * rate)));
    DesktopPainter painter(script, result.width, result.height);
    size_t audioWritten = 0;
    for (int frame = 0; frame < result.frameCount; ++frame) {
        const double time = frame / rate;
        painter.advance(time);
        screen.appendVideoFrame(painter.videoFrame(), time);
        const auto audioEnd =
            std::min(system.size() / 2,
                     static_cast<size_t>(std::lround((frame + 1) / rate * kAudioSampleRate)));
        if (audioEnd > audioWritten) {
            screen.appendAudio(system.data() + 2 * audioWritten, audioEnd - audioWritten);
            audioWritten = audioEnd;
        }
        if (options.progress) {
            options.progress(0.95 * (frame + 1) / result.frameCount);
        }
    }
    screen.finish();
    const double screenDuration = result.frameCount / rate;

    const MicrophoneTrack voice = microphone.get();
    result.narration = voice.sentences;
    const fs::path microphoneScratch = scratch.path() / "microphone.m4a";
    MovieAudioSettings voiceSettings;
    voiceSettings.input = {kAudioSampleRate, 1};
    voiceSettings.output = {kAudioSampleRate, 1};
    voiceSettings.bitRate = 128000;
    AudioFileWriter microphoneWriter(microphoneScratch, MovieContainer::m4a, voiceSettings, true);
    microphoneWriter.append(voice.samples.data(), voice.samples.size());
    microphoneWriter.finish();
    const double microphoneDuration = static_cast<double>(voice.samples.size()) / kAudioSampleRate;

    moveInto(screenScratch, result.screenURL);
    moveInto(microphoneScratch, result.microphoneURL);
    const CursorRecording pointer = pointerRecording(script);
    result.clickCount = static_cast<int>(pointer.clicks.size());
    pointer.save(result.cursorURL);

    RecordedMediaSegment screenSegment;
    screenSegment.kind = MediaTrackManifest::Kind::screen;
    screenSegment.url = result.screenURL;
    screenSegment.duration = screenDuration;
    screenSegment.mediaDuration = screenDuration;
    screenSegment.width = result.width;
    screenSegment.height = result.height;
    RecordedMediaSegment microphoneSegment;
    microphoneSegment.kind = MediaTrackManifest::Kind::microphone;
    microphoneSegment.url = result.microphoneURL;
    microphoneSegment.duration = microphoneDuration;
    microphoneSegment.mediaDuration = microphoneDuration;
    microphoneSegment.deviceID = "alsa_input.usb-Desk_Microphone-00.mono-fallback";
    microphoneSegment.deviceName = "Desk Microphone";
    result.manifest = TakeManifestWriter::write(result.screenURL, {screenSegment}, {},
                                                {microphoneSegment}, result.cursorURL);
    if (options.progress) {
        options.progress(1.0);
    }
    return result;
}

} // namespace orvelle::SampleTake
