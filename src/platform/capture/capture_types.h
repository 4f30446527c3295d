#pragma once

// What a screen capture backend offers and delivers, in plain types: the displays and
// windows that can be recorded, and the timed pictures and sound of a running stream.
// Backends (X11, the desktop portal with PipeWire) implement CaptureStream; nothing of
// their libraries appears here.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

// A rectangle of the desktop in points, origin at the top left of the whole screen, y
// growing downwards (the coordinates streams and window managers use).
struct CaptureRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    bool isEmpty() const { return !(width > 0) || !(height > 0); }

    friend bool operator==(const CaptureRect&, const CaptureRect&) = default;
};

struct CaptureDisplay {
    uint32_t id = 0;
    std::string name;
    CaptureRect frame;
    double scale = 1; // pixels a point

    friend bool operator==(const CaptureDisplay&, const CaptureDisplay&) = default;
};

struct CaptureWindow {
    uint32_t id = 0;
    std::string title;
    std::string application;
    std::string role;      // the program's own name for the window, where it gives one
    int32_t processID = 0; // 0 when the window does not say
    CaptureRect frame;

    friend bool operator==(const CaptureWindow&, const CaptureWindow&) = default;
};

// Everything a backend can record right now. screenHeight is the height of the whole
// desktop: it flips between these top-left coordinates and bottom-left global ones.
struct ShareableContent {
    std::vector<CaptureDisplay> displays;
    std::vector<CaptureWindow> windows;
    double screenHeight = 0;
};

// The state of the picture a frame carries; the numbers are those every stream reports.
enum class CaptureFrameStatus : int {
    complete = 0,  // a new picture
    idle = 1,      // nothing changed since the last frame
    blank = 2,     // nothing to show (the source is hidden)
    suspended = 3, // the source paused delivery
    started = 4,   // the first picture of the stream
    stopped = 5,
};

// One picture of a stream: 4 bytes a pixel in the order B, G, R, X. The fourth byte is
// undefined; the picture is opaque. The pixels stay valid as long as the frame is held;
// a stream has a fixed number of frames in flight, so holders let go soon.
struct CapturedVideoFrame {
    const uint8_t* pixels = nullptr;
    int stride = 0; // bytes a row
    int width = 0;
    int height = 0;
    double presentationTime = 0; // seconds on the monotonic clock (steady_clock)
    double duration = 0;         // seconds; 0 when unknown
    std::optional<int> status;   // a CaptureFrameStatus value; absent when not reported
};
using CapturedVideoFrameRef = std::shared_ptr<const CapturedVideoFrame>;

// Interleaved float samples starting at presentationTime (monotonic seconds).
struct CapturedAudio {
    std::vector<float> samples;
    int sampleRate = 48000;
    int channelCount = 2;
    double presentationTime = 0;

    size_t frameCount() const {
        return channelCount > 0 ? samples.size() / static_cast<size_t>(channelCount) : 0;
    }
};

// Where a stream's pointer is, in the stream's pixels from the top left of its picture.
struct CapturedPointerPosition {
    double x = 0;
    double y = 0;
    bool visible = false;
};

// Receives what a stream delivers, on the stream's own threads: pictures (and the stop) on
// one, whose calls never overlap, and sound, where the stream has it, possibly on another at
// the same time. A receiver must not block for long: the stream waits for it.
class CaptureStreamOutput {
public:
    virtual ~CaptureStreamOutput() = default;
    virtual void streamDidOutputVideoFrame(CapturedVideoFrameRef frame) = 0;
    virtual void streamDidOutputAudio(const CapturedAudio& audio) = 0;
    // The stream ended on its own (its window closed, its service went away); called once,
    // and not after stop().
    virtual void streamDidStop(const std::string& errorMessage) = 0;
};

struct CaptureStreamConfiguration {
    int width = 0; // pixels of every delivered picture (even)
    int height = 0;
    double frameRate = 60; // pictures a second at most
    int queueDepth = 8;    // pictures in flight at once
    bool showsCursor = false;
};

class CaptureStream {
public:
    virtual ~CaptureStream() = default;
    // Starts delivery to the output given at construction. Throws Error with the reason.
    virtual void start() = 0;
    // Stops delivery; when it returns, the output is called no more. Returns the error of
    // the stop, if any. Safe to call twice.
    virtual std::optional<std::string> stop() = 0;
    // Pictures the stream could not deliver: its clock ticked while every frame was in
    // flight or the source was late.
    virtual int64_t skippedFrames() const = 0;
    // Where the pointer is, for streams that carry it as data beside the pictures (absent
    // for others, and while the stream has not said). Thread-safe.
    virtual std::optional<CapturedPointerPosition> pointerPosition() const { return std::nullopt; }
};

} // namespace orvelle
