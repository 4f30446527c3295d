#include "recording/orvelle_error.h"

namespace orvelle {

std::string_view recorderCaptureModeWord(RecorderCaptureMode mode) {
    switch (mode) {
    case RecorderCaptureMode::display:
        return "display";
    case RecorderCaptureMode::window:
        return "window";
    case RecorderCaptureMode::area:
        return "area";
    case RecorderCaptureMode::device:
        return "device";
    }
    return "display";
}

std::string recorderCaptureModeLabel(RecorderCaptureMode mode) {
    std::string label(recorderCaptureModeWord(mode));
    label.front() = static_cast<char>(label.front() - 'a' + 'A');
    return label;
}

OrvelleError OrvelleError::invalidSelection(RecorderCaptureMode mode) {
    return {OrvelleErrorCode::invalidSelection,
            "Choose a single " + std::string(recorderCaptureModeWord(mode)) + " to record."};
}

OrvelleError OrvelleError::invalidCaptureSize(RecorderCaptureMode mode) {
    return {OrvelleErrorCode::invalidCaptureSize, "The selected " +
                                                      std::string(recorderCaptureModeWord(mode)) +
                                                      " did not report a usable capture size."};
}

OrvelleError OrvelleError::displayUnavailable(const std::string& name) {
    return {OrvelleErrorCode::displayUnavailable, name + " is no longer available to record."};
}

OrvelleError OrvelleError::noDisplaysAvailable() {
    return {OrvelleErrorCode::noDisplaysAvailable, "No displays are available to record."};
}

OrvelleError OrvelleError::screenRecordingPermissionDenied() {
    return {OrvelleErrorCode::screenRecordingPermissionDenied,
            "Screen sharing permission is required. Allow Orvelle in your desktop's "
            "screen-sharing prompt, then start the recording again."};
}

OrvelleError OrvelleError::cannotAddWriterInput() {
    return {OrvelleErrorCode::cannotAddWriterInput, "Could not configure the screen video writer."};
}

OrvelleError OrvelleError::cameraRecordingFailed() {
    return {OrvelleErrorCode::cameraRecordingFailed,
            "Webcam recording did not start, so the screen recording was canceled."};
}

OrvelleError OrvelleError::microphoneRequiresCamera() {
    return {OrvelleErrorCode::microphoneRequiresCamera,
            "Enable the webcam before recording microphone audio."};
}

OrvelleError OrvelleError::microphoneRecordingFailed() {
    return {OrvelleErrorCode::microphoneRecordingFailed,
            "Microphone recording did not start, so the screen recording was canceled."};
}

} // namespace orvelle
