#include "recording/system_audio_capture_stream.h"

#include "core/error.h"
#include "core/log.h"
#include "platform/audio/audio_input.h"

#include <optional>
#include <string>

namespace orvelle {

namespace {

class SystemAudioCaptureStream final : public CaptureStream {
public:
    SystemAudioCaptureStream(std::unique_ptr<CaptureStream> stream, CaptureStreamOutput& output)
        : stream_(std::move(stream)), output_(output), input_(connect()) {}

    ~SystemAudioCaptureStream() override { input_->stop(); }

    void start() override {
        stream_->start();
        try {
            input_->start(
                [this](const float* interleaved, size_t frameCount, double presentationTime) {
                    CapturedAudio audio;
                    audio.sampleRate = input_->options().sampleRate;
                    audio.channelCount = input_->options().channelCount;
                    audio.presentationTime = presentationTime;
                    audio.samples.assign(interleaved,
                                         interleaved +
                                             frameCount * static_cast<size_t>(audio.channelCount));
                    output_.streamDidOutputAudio(audio);
                },
                [](const std::string& message) {
                    logWarning("capture", "system audio ends here: ", message);
                });
        } catch (const Error& error) {
            stream_->stop();
            throw Error("System audio cannot be recorded: " + std::string(error.what()));
        }
    }

    std::optional<std::string> stop() override {
        input_->stop();
        return stream_->stop();
    }

    int64_t skippedFrames() const override { return stream_->skippedFrames(); }

    std::optional<CapturedPointerPosition> pointerPosition() const override {
        return stream_->pointerPosition();
    }

private:
    static std::unique_ptr<AudioInput> connect() {
        AudioInputOptions options;
        options.sourceName = kSystemAudioSource;
        options.streamName = "System audio";
        try {
            return std::make_unique<AudioInput>(options);
        } catch (const AudioInputError& error) {
            throw Error("System audio cannot be recorded: " + std::string(error.what()) +
                        " Or record without system audio.");
        }
    }

    std::unique_ptr<CaptureStream> stream_;
    CaptureStreamOutput& output_;
    std::unique_ptr<AudioInput> input_;
};

} // namespace

std::unique_ptr<CaptureStream> withSystemAudio(std::unique_ptr<CaptureStream> stream,
                                               CaptureStreamOutput& output) {
    return std::make_unique<SystemAudioCaptureStream>(std::move(stream), output);
}

} // namespace orvelle
