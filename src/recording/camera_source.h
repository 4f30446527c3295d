#pragma once

// Where the camera's pictures come from: a provider lists the cameras and opens one as a
// source of timed BGRX pictures. The program's provider reads Video4Linux2 devices; a test
// provides its own pictures (no test machine has a webcam).

#include "platform/capture/capture_types.h"
#include "platform/capture/v4l2/v4l2_camera.h"
#include "recording/track_device.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvelle {

class CameraSource {
public:
    virtual ~CameraSource() = default;
    // Pictures go to `deliver` on the source's own thread until stop(). Throws Error.
    virtual void start(std::function<void(CapturedVideoFrameRef)> deliver) = 0;
    // When it returns, `deliver` is called no more.
    virtual void stop() = 0;
};

class CameraSourceProvider {
public:
    virtual ~CameraSourceProvider() = default;
    virtual std::vector<TrackDevice> devices() = 0;
    // Throws CameraRecorderError::noCamera when the device is not there, or Error.
    virtual std::unique_ptr<CameraSource> open(const std::string& deviceID,
                                               CameraStreamFormat wish) = 0;
};

std::unique_ptr<CameraSourceProvider> makeV4L2CameraSourceProvider();

} // namespace orvelle
