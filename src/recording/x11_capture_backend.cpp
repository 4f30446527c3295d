#include "core/log.h"
#include "platform/capture/x11/x11_capture_stream.h"
#include "platform/capture/x11/x11_pointer_monitor.h"
#include "platform/capture/x11/x11_shareable_content.h"
#include "recording/capture_backend.h"

#include <atomic>

namespace orvelle {

namespace {

// The X pointer in the recorder's terms: bottom-left global coordinates, presses on the
// main thread.
class X11PointerSource final : public PointerSource {
public:
    X11PointerSource(const std::string& displayName, Executor& mainThread)
        : monitor_(displayName), mainThread_(mainThread) {}
    ~X11PointerSource() override { stopButtonMonitoring(); }

    GlobalPointerLocation location() override {
        const X11PointerPosition position = monitor_.position();
        return {position.x, monitor_.screenHeight() - position.y};
    }

    void startButtonMonitoring(std::function<void(int button)> onButtonDown) override {
        stopButtonMonitoring();
        // Presses travel to the main thread; one that arrives there after monitoring
        // stopped finds its flag cleared and is dropped.
        auto live = std::make_shared<bool>(true);
        live_ = live;
        auto callback = std::make_shared<std::function<void(int)>>(std::move(onButtonDown));
        try {
            monitor_.startButtonMonitoring([this, live, callback](int button) {
                mainThread_.post([live, callback, button] {
                    if (*live) {
                        (*callback)(button);
                    }
                });
            });
        } catch (const Error& error) {
            // Positions still work; the take just has no clicks.
            logWarning("capture", error.what());
        }
    }

    void stopButtonMonitoring() override {
        monitor_.stopButtonMonitoring();
        if (live_) {
            *live_ = false;
            live_.reset();
        }
    }

private:
    X11PointerMonitor monitor_;
    Executor& mainThread_;
    std::shared_ptr<bool> live_; // main thread only
};

class X11CaptureBackend final : public CaptureBackend {
public:
    explicit X11CaptureBackend(std::string displayName) : displayName_(std::move(displayName)) {}

    std::string_view name() const override { return "x11"; }

    ShareableContent shareableContent() override { return x11ShareableContent(displayName_); }

    std::optional<RecorderSourceSelection> pickWithSystemPicker(RecorderCaptureMode) override {
        return std::nullopt;
    }

    std::unique_ptr<CaptureStream> makeStream(const CaptureContentFilter& filter,
                                              const std::optional<CaptureRect>& sourceRect,
                                              const CaptureStreamConfiguration& configuration,
                                              CaptureStreamOutput& output) override {
        X11CaptureTarget target;
        if (filter.style == CaptureContentFilter::Style::window) {
            target.kind = X11CaptureTarget::Kind::window;
            target.window = filter.windowID;
        } else {
            target.kind = X11CaptureTarget::Kind::screenArea;
            target.area = filter.contentRect;
            if (sourceRect) {
                target.area = {filter.contentRect.x + sourceRect->x,
                               filter.contentRect.y + sourceRect->y, sourceRect->width,
                               sourceRect->height};
            }
        }
        if (!filter.excludedWindowIDs.empty()) {
            // An X server without a compositor draws every window into the screen's
            // picture; the program's own windows stay visible if they are over the area.
            logInfo("capture", filter.excludedWindowIDs.size(),
                    " of Orvelle's windows are on screen and will show in the recording");
        }
        return makeX11CaptureStream(displayName_, target, configuration, output);
    }

    std::unique_ptr<PointerSource> makePointerSource(Executor& mainThread, CaptureStream&,
                                                     const CaptureRect&, int, int) override {
        return std::make_unique<X11PointerSource>(displayName_, mainThread);
    }

private:
    std::string displayName_;
};

} // namespace

std::unique_ptr<CaptureBackend> makeX11CaptureBackend(const std::string& displayName) {
    return std::make_unique<X11CaptureBackend>(displayName);
}

} // namespace orvelle
