#include "platform/capture/pipewire/pipewire_capture_stream.h"
#include "platform/capture/pipewire/screencast_portal.h"
#include "recording/capture_backend.h"

namespace orvelle {

namespace {

// A Wayland desktop lists nothing to other programs: its portal's dialog is the picker,
// and what was picked arrives as a PipeWire node.
class PortalCaptureBackend final : public CaptureBackend {
public:
    std::string_view name() const override { return "portal"; }

    ShareableContent shareableContent() override { return {}; }

    std::optional<RecorderSourceSelection> pickWithSystemPicker(RecorderCaptureMode mode) override {
        if (mode != RecorderCaptureMode::display && mode != RecorderCaptureMode::window) {
            throw Error("On Wayland the desktop shares whole displays or single windows; "
                        "choose a display or a window.");
        }
        const bool window = mode == RecorderCaptureMode::window;
        session_.reset();
        session_ = ScreenCastPortalSession::open({!window, window}, std::chrono::minutes(5));
        const ScreenCastStreamInfo& stream = session_->streams().front();
        if (!stream.frame || stream.frame->isEmpty()) {
            throw Error("The desktop did not say how large the shared " +
                        std::string(recorderCaptureModeWord(mode)) + " is.");
        }
        RecorderSourceSelection selection;
        selection.mode = mode;
        selection.title = window ? "Shared Window" : "Shared Display";
        selection.filter.style =
            window ? CaptureContentFilter::Style::window : CaptureContentFilter::Style::display;
        selection.filter.displayID = stream.nodeID;
        selection.filter.windowID = stream.nodeID;
        selection.filter.contentRect = *stream.frame;
        selection.filter.pointPixelScale = 1;
        // The pointer arrives relative to the stream; its frame only has to have the
        // stream's size.
        selection.captureFrame = CaptureRect{0, 0, stream.frame->width, stream.frame->height};
        selection.previewFrame = stream.frame;
        return selection;
    }

    std::unique_ptr<CaptureStream> makeStream(const CaptureContentFilter&,
                                              const std::optional<CaptureRect>&,
                                              const CaptureStreamConfiguration& configuration,
                                              CaptureStreamOutput& output) override {
        if (!session_) {
            throw Error("Choose what to share in the desktop's dialog first.");
        }
        PipeWireCaptureTarget target;
        target.nodeID = session_->streams().front().nodeID;
        target.fd = session_->pipeWireFd();
        return std::make_unique<PipeWireCaptureStream>(target, configuration, output);
    }

    std::unique_ptr<PointerSource> makePointerSource(Executor&, CaptureStream& stream,
                                                     const CaptureRect& captureFrame,
                                                     int streamWidth, int streamHeight) override {
        if (!session_ || !session_->pointerIsMetadata()) {
            return nullptr;
        }
        return std::make_unique<StreamPointerSource>(stream, captureFrame, streamWidth,
                                                     streamHeight);
    }

private:
    std::unique_ptr<ScreenCastPortalSession> session_;
};

} // namespace

std::unique_ptr<CaptureBackend> makePortalCaptureBackend() {
    return std::make_unique<PortalCaptureBackend>();
}

} // namespace orvelle
