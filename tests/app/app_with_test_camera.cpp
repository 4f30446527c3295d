// orvelle-app with the test camera in place of Video4Linux2: no test machine has a webcam.
// Everything else is the application as users run it.

#include "app/app_main.h"
#include "support/test_camera.h"

int main(int argc, char** argv) {
    orvelle::ApplicationOptions options;
    options.cameraProvider = [] {
        return std::make_unique<orvelle::testing::TestCameraProvider>(
            std::make_shared<std::atomic<bool>>(true), 320, 180);
    };
    return orvelle::runApplication(argc, argv, std::move(options));
}
