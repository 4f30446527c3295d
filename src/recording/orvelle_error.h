#pragma once

// The recording session's failures, each with the text the user sees.

#include "core/error.h"

#include <string>
#include <string_view>

namespace orvelle {

enum class RecorderCaptureMode { display, window, area, device };

// "display", "window", "area", "device"
std::string_view recorderCaptureModeWord(RecorderCaptureMode mode);
// "Display", "Window", "Area", "Device"
std::string recorderCaptureModeLabel(RecorderCaptureMode mode);

enum class OrvelleErrorCode {
    invalidSelection,
    invalidCaptureSize,
    displayUnavailable,
    noDisplaysAvailable,
    screenRecordingPermissionDenied,
    cannotAddWriterInput,
    cameraRecordingFailed,
    microphoneRequiresCamera,
    microphoneRecordingFailed,
};

class OrvelleError : public CodedError<OrvelleErrorCode> {
public:
    using CodedError::CodedError;

    static OrvelleError invalidSelection(RecorderCaptureMode mode);
    static OrvelleError invalidCaptureSize(RecorderCaptureMode mode);
    static OrvelleError displayUnavailable(const std::string& name);
    static OrvelleError noDisplaysAvailable();
    static OrvelleError screenRecordingPermissionDenied();
    static OrvelleError cannotAddWriterInput();
    static OrvelleError cameraRecordingFailed();
    static OrvelleError microphoneRequiresCamera();
    static OrvelleError microphoneRecordingFailed();
};

} // namespace orvelle
