#include "recording/screen_capture_engine.h"

#include "core/error.h"
#include "core/files.h"
#include "core/log.h"
#include "project/cursor_recording.h"
#include "recording/system_audio_capture_stream.h"

#include <unistd.h>

namespace orvelle {

PreparedScreenCapture ScreenCaptureEngine::prepare(CaptureBackend& backend,
                                                   const RecorderSourceSelection& selection,
                                                   const std::filesystem::path& outputURL,
                                                   ScreenStreamOutput::Callbacks callbacks,
                                                   Executor& mainThread,
                                                   ScreenCaptureOptions options) {
    namespace Geometry = ScreenCaptureGeometry;
    Geometry::validateSelection(selection.mode, selection.sourceRect, selection.filter);
    const ShareableContent content = backend.shareableContent();
    const CaptureContentFilter filter = Geometry::contentFilterForRecording(
        selection.filter, selection.mode, selection.display, options.excludedOverlayWindowID,
        content, static_cast<int32_t>(getpid()));
    const auto [width, height] =
        Geometry::captureDimensions(filter, selection.mode, selection.sourceRect);

    PreparedScreenCapture prepared;
    prepared.width = width;
    prepared.height = height;
    prepared.captureFrame =
        selection.captureFrame ? selection.captureFrame : Geometry::captureFrame(filter, content);
    prepared.outputURL = outputURL;
    prepared.cursorURL = CursorRecording::fileURL(outputURL);
    removeIgnoringErrors(prepared.outputURL);
    removeIgnoringErrors(prepared.cursorURL);

    auto gate = std::make_shared<CaptureReadinessGate>();
    prepared.readinessGate = gate;
    callbacks.onReadyFrame = [gate, onReady = std::move(callbacks.onReadyFrame)] {
        gate->open();
        if (onReady) {
            onReady();
        }
    };
    prepared.output = std::make_unique<ScreenStreamOutput>(
        outputURL, width, height, options.includeAudio, std::move(callbacks), options.frameRate);
    CaptureStreamConfiguration configuration;
    configuration.width = width;
    configuration.height = height;
    configuration.frameRate = options.frameRate;
    configuration.queueDepth = 8;
    configuration.showsCursor = false;
    prepared.stream =
        backend.makeStream(filter, selection.sourceRect, configuration, *prepared.output);
    if (options.includeAudio) {
        prepared.stream = withSystemAudio(std::move(prepared.stream), *prepared.output);
    }
    if (prepared.captureFrame) {
        try {
            prepared.pointerSource = backend.makePointerSource(
                mainThread, *prepared.stream, *prepared.captureFrame, width, height);
        } catch (const Error& error) {
            logWarning("capture", "no pointer data for this recording: ", error.what());
        }
    }
    return prepared;
}

void ScreenCaptureEngine::install(PreparedScreenCapture prepared) {
    active_ = {};
    active_.output = std::move(prepared.output);
    active_.stream = std::move(prepared.stream);
    active_.pointerSource = std::move(prepared.pointerSource);
    cursorURL_ = prepared.cursorURL;
    captureFrame_ = prepared.captureFrame;
    readinessGate_ = std::move(prepared.readinessGate);
    recordedSegments_.clear();
}

void ScreenCaptureEngine::startCapture() {
    if (active_.stream) {
        active_.stream->start();
    }
}

bool ScreenCaptureEngine::waitUntilReady(std::chrono::nanoseconds timeout) {
    return readinessGate_ && readinessGate_->waitUntilReady(timeout);
}

void ScreenCaptureEngine::armWriting() {
    if (active_.output) {
        active_.output->armWriting();
    }
}

void ScreenCaptureEngine::startCursorRecording(RecorderClock& clock,
                                               RepeatingTimerFactory& timers) {
    if (!captureFrame_ || !active_.pointerSource || active_.cursorRecorder) {
        return;
    }
    const CaptureRect& frame = *captureFrame_;
    active_.cursorRecorder =
        std::make_unique<CursorRecorder>(CodableRect{frame.x, frame.y, frame.width, frame.height},
                                         cursorURL_, *active_.pointerSource, clock, timers);
    active_.cursorRecorder->start();
}

void ScreenCaptureEngine::stopCursorSampling() {
    if (active_.cursorRecorder) {
        active_.cursorRecorder->stopSampling();
    }
}

std::optional<double> ScreenCaptureEngine::pause() {
    if (!active_.output) {
        return std::nullopt;
    }
    if (active_.cursorRecorder) {
        active_.cursorRecorder->pause();
    }
    const double programEnd = active_.output->pauseRecording();
    recordedSegments_ = active_.output->segments();
    return programEnd;
}

void ScreenCaptureEngine::resume(std::optional<double> programStart,
                                 std::chrono::duration<double> afterPauseDuration) {
    if (!active_.output) {
        return;
    }
    active_.output->resumeRecording(programStart);
    if (active_.cursorRecorder) {
        active_.cursorRecorder->resume(afterPauseDuration);
    }
}

ActiveScreenCapture ScreenCaptureEngine::detachForTeardown() {
    readinessGate_.reset();
    return std::exchange(active_, {});
}

std::optional<std::string> ScreenCaptureEngine::stopCapture(ActiveScreenCapture& active) {
    if (!active.stream) {
        return std::nullopt;
    }
    return active.stream->stop();
}

ScreenCaptureEngine::FinalizeResult ScreenCaptureEngine::finalize(ActiveScreenCapture& active,
                                                                  bool finishWriter) {
    FinalizeResult result;
    if (finishWriter) {
        if (active.output) {
            auto finished = active.output->finish();
            recordedSegments_ = finished.segments;
            result.tailError = std::move(finished.tailError);
        }
        if (active.cursorRecorder) {
            try {
                active.cursorRecorder->finish();
            } catch (const std::exception& error) {
                result.cursorError = error.what();
            }
        }
    } else {
        if (active.output) {
            active.output->cancel();
        }
        if (active.cursorRecorder) {
            active.cursorRecorder->cancel();
        }
        recordedSegments_.clear();
    }
    result.screenSegments = recordedSegments_;
    return result;
}

} // namespace orvelle
