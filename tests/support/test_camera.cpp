#include "support/test_camera.h"

#include "recording/camera_recorder.h"
#include "support/test_media.h"

#include <chrono>
#include <thread>

namespace orvelle::testing {

namespace {

class TestCameraSource final : public CameraSource {
public:
    TestCameraSource(int width, int height) : width_(width), height_(height) {}
    ~TestCameraSource() override { stop(); }

    void start(std::function<void(CapturedVideoFrameRef)> deliver) override {
        running_ = true;
        thread_ = std::thread([this, deliver = std::move(deliver)] {
            int number = 0;
            auto due = std::chrono::steady_clock::now();
            while (running_) {
                struct Owned {
                    VideoFrame picture;
                    CapturedVideoFrame frame;
                };
                auto owned = std::make_shared<Owned>();
                paintNumberedFrame(owned->picture, number++, width_, height_);
                const double time = std::chrono::duration<double>(
                                        std::chrono::steady_clock::now().time_since_epoch())
                                        .count();
                owned->frame = {owned->picture.planes[0].data(),
                                owned->picture.strides[0],
                                width_,
                                height_,
                                time,
                                1.0 / 30,
                                std::nullopt};
                deliver({owned, &owned->frame});
                due += std::chrono::microseconds(33333);
                std::this_thread::sleep_until(due);
            }
        });
    }

    void stop() override {
        running_ = false;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    int width_;
    int height_;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

} // namespace

TestCameraProvider::TestCameraProvider(std::shared_ptr<std::atomic<bool>> present, int width,
                                       int height)
    : present_(std::move(present)), width_(width), height_(height) {}

std::vector<TrackDevice> TestCameraProvider::devices() {
    if (!*present_) {
        return {};
    }
    return {{kDeviceID, "Test Camera", true}};
}

std::unique_ptr<CameraSource> TestCameraProvider::open(const std::string& id, CameraStreamFormat) {
    if (!*present_ || id != kDeviceID) {
        throw CameraRecorderError::noCamera();
    }
    return std::make_unique<TestCameraSource>(width_, height_);
}

} // namespace orvelle::testing
