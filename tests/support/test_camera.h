#pragma once

// The camera no test machine has: numbered pictures at 30 a second, stamped on the
// monotonic clock like a driver's, from a thread of its own. The provider lists one camera,
// "test-camera", while `present` holds.

#include "recording/camera_source.h"

#include <atomic>
#include <memory>

namespace orvelle::testing {

class TestCameraProvider final : public CameraSourceProvider {
public:
    static constexpr const char* kDeviceID = "test-camera";

    explicit TestCameraProvider(
        std::shared_ptr<std::atomic<bool>> present = std::make_shared<std::atomic<bool>>(true),
        int width = 320, int height = 180);
    std::vector<TrackDevice> devices() override;
    // Throws CameraRecorderError::noCamera when absent or asked for another id.
    std::unique_ptr<CameraSource> open(const std::string& id, CameraStreamFormat) override;

private:
    std::shared_ptr<std::atomic<bool>> present_;
    int width_;
    int height_;
};

} // namespace orvelle::testing
