#pragma once

// The pump that writes a composition into a movie. Four threads overlap, joined by short
// bounded queues, in strict pull mode: the encoder's pace decides how far the others may
// run ahead, so memory stays the same for a movie of any length.
//
//   decode   the source pictures of frame i (screen, and camera where the instruction has
//            one) at i / fps, converted to BGRA
//   render   each frame's picture, in frame order, by the compositor
//   encode   the pictures and the mixed sound into the movie writer, with progress
//   audio    the composition's sound through its mix, 48 kHz stereo, block by block
//
// The first failure anywhere, or the stop token, stops every thread; the caller removes
// what was written.

#include "core/error.h"
#include "platform/media/video_frame.h"
#include "timeline_media/render_composition.h"

#include <filesystem>
#include <functional>
#include <stop_token>

namespace orvelle {

// What the compositor is asked to draw: one output frame and its source pictures.
struct ExportFrameRequest {
    int64_t frameIndex = 0;
    double compositionTime = 0; // edit seconds
    const OrvelleCompositionInstruction* instruction = nullptr;
    const VideoFrame* screen = nullptr; // BGRA; absent where the recording has no picture
    const VideoFrame* camera = nullptr; // BGRA; absent without a camera picture here
};

// What a compositor cannot draw: a frame without its instruction, or no frame to draw into.
enum class OrvelleCompositorErrorCode { missingInstruction, cannotAllocateOutputBuffer };

class OrvelleCompositorError : public CodedError<OrvelleCompositorErrorCode> {
public:
    explicit OrvelleCompositorError(OrvelleCompositorErrorCode code);
};

// Draws the export's frames. Called from the render thread only, once for each frame, in
// frame order; once the export stops, the frames still waiting are dropped undrawn. A
// failure (an OrvelleCompositorError or any other) is thrown and ends the export as a
// failure to read, with its text.
class ExportFrameCompositor {
public:
    virtual ~ExportFrameCompositor() = default;
    // Fills `output`, already allocated as BGRA at the render size, with the frame.
    virtual void compose(const ExportFrameRequest& request, VideoFrame& output) = 0;
};

namespace RenderPipe {

// Frames of the movie: one every 1 / fps seconds from 0 while before the timeline's end.
int64_t frameCount(double timelineDuration, int fps);

// The instruction whose range holds the edit tick; the last one past the end.
const OrvelleCompositionInstruction*
instruction(const std::vector<OrvelleCompositionInstruction>& instructions, int64_t tick);

struct Options {
    std::filesystem::path outputURL;
    RenderExportFileType fileType = RenderExportFileType::mp4;
    RenderExportQuality quality = RenderExportQuality::high;
    std::function<void(double)> progress; // from the encode thread; at most 0.99 until done
    std::function<void()> finalizing;     // before the file's index is written
};

// Writes the movie. Throws RenderExportError (cannotAddWriterInput, writerFailed) or
// CancellationError; the file may then be left half-written for the caller to remove.
void run(const RenderComposition::Output& composition, ExportFrameCompositor& compositor,
         const Options& options, const std::stop_token& stop);

} // namespace RenderPipe

} // namespace orvelle
