#pragma once

// Where screen pictures come from on this desktop. An X session reads the X server
// directly; a Wayland session asks the desktop portal, whose dialog lets the user choose,
// and receives a PipeWire stream. The rest of recording sees only this interface.

#include "core/executor.h"
#include "platform/capture/capture_types.h"
#include "recording/cursor_recorder.h"
#include "recording/recorder_source_selection.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

class CaptureBackend {
public:
    virtual ~CaptureBackend() = default;

    // "x11" or "portal".
    virtual std::string_view name() const = 0;
    // The displays and windows that can be chosen by id. A backend whose desktop chooses
    // for the user returns none.
    virtual ShareableContent shareableContent() = 0;
    // Lets the desktop's own dialog choose a display or a window, where the desktop has
    // one; absent otherwise. Throws Error when the user declines.
    virtual std::optional<RecorderSourceSelection>
    pickWithSystemPicker(RecorderCaptureMode mode) = 0;
    // A stream of the filter's content: a display, an area of it (sourceRect, display-local
    // points) or a window. Throws Error.
    virtual std::unique_ptr<CaptureStream>
    makeStream(const CaptureContentFilter& filter, const std::optional<CaptureRect>& sourceRect,
               const CaptureStreamConfiguration& configuration, CaptureStreamOutput& output) = 0;
    // The pointer for a capture whose frame (bottom-left global coordinates) is given. Its
    // button presses reach the main thread through `mainThread`. May come from the stream
    // itself (where the pointer travels as the stream's data).
    virtual std::unique_ptr<PointerSource> makePointerSource(Executor& mainThread,
                                                             CaptureStream& stream,
                                                             const CaptureRect& captureFrame,
                                                             int streamWidth, int streamHeight) = 0;
};

// `displayName` empty means $DISPLAY.
std::unique_ptr<CaptureBackend> makeX11CaptureBackend(const std::string& displayName = {});
// The desktop portal's ScreenCast with PipeWire streams.
std::unique_ptr<CaptureBackend> makePortalCaptureBackend();
// The backend of the session this process runs in: the portal when WAYLAND_DISPLAY is set
// or XDG_SESSION_TYPE is "wayland", X11 when DISPLAY is set. Throws Error with what to do
// when there is neither.
std::unique_ptr<CaptureBackend> makeSessionCaptureBackend();

// The pointer from a stream that carries it as data (no clicks: such desktops do not
// report them to other programs). Positions are the stream's pixels mapped onto the frame.
class StreamPointerSource final : public PointerSource {
public:
    StreamPointerSource(CaptureStream& stream, const CaptureRect& captureFrame, int streamWidth,
                        int streamHeight);
    GlobalPointerLocation location() override;
    void startButtonMonitoring(std::function<void(int)>) override {}
    void stopButtonMonitoring() override {}

private:
    CaptureStream& stream_;
    CaptureRect frame_;
    int width_;
    int height_;
};

} // namespace orvelle
