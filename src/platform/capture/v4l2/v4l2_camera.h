#pragma once

// Webcams through Video4Linux2, in plain types. A device is known by a stable id (its
// /dev/v4l/by-id link where the system makes one, else its /dev/video node) and the name
// it reports. A stream delivers BGRX pictures with their capture time on a thread of its
// own.

#include "core/error.h"
#include "platform/capture/capture_types.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvelle {

class CameraDeviceError : public Error {
public:
    using Error::Error;
};

struct CameraDeviceInfo {
    std::string id;   // "/dev/v4l/by-id/usb-...-video-index0" or "/dev/video0"
    std::string path; // the node opened
    std::string name; // the card name the driver reports
};

// The video capture devices present now. Never throws.
std::vector<CameraDeviceInfo> listV4L2Cameras();

struct CameraStreamFormat {
    int width = 1280;
    int height = 720;
    double frameRate = 30;
};

class V4L2CameraStream {
public:
    using FrameHandler = std::function<void(CapturedVideoFrameRef)>;

    // Opens the device (an id or a node path) and chooses the supported size nearest the
    // wish (YUYV or MJPEG) and the rate nearest it. Throws CameraDeviceError.
    V4L2CameraStream(const std::string& device, CameraStreamFormat wish);
    ~V4L2CameraStream();
    V4L2CameraStream(const V4L2CameraStream&) = delete;
    V4L2CameraStream& operator=(const V4L2CameraStream&) = delete;

    // The format chosen.
    CameraStreamFormat format() const;
    // Starts delivery on the stream's thread. Throws CameraDeviceError.
    void start(FrameHandler handler);
    // When it returns, the handler is called no more.
    void stop();
    // False once the device stopped delivering (unplugged).
    bool isHealthy() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
