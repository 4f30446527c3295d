#include "export/render_pipe.h"

#include "core/blocking_queue.h"
#include "core/cancellation.h"
#include "core/log.h"
#include "export/render_export_codec.h"
#include "platform/media/movie_writer.h"
#include "timeline_media/composition_audio_mixer.h"
#include "timeline_media/composition_video_reader.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace orvelle {

OrvelleCompositorError::OrvelleCompositorError(OrvelleCompositorErrorCode code)
    : CodedError(code, code == OrvelleCompositorErrorCode::missingInstruction
                           ? "A frame of the export has no composition instruction."
                           : "The render context could not allocate an output pixel buffer.") {}

namespace RenderPipe {

namespace {

// Frames in flight between two stages. Two keep each stage busy while the next works on
// the frame before; more would only hold memory.
constexpr size_t kFramesInFlight = 3;
// Sound is mixed in blocks of a tenth of a second, and runs at most this far ahead of the
// pictures in the file so that the muxer interleaves without holding much.
constexpr size_t kAudioBlockFrames = 4800;
constexpr size_t kAudioBlocksInFlight = 6;
constexpr double kAudioLead = 0.25;

struct SourceFrames {
    int64_t index = 0;
    double time = 0;
    const OrvelleCompositionInstruction* instruction = nullptr;
    VideoFrame screen;
    VideoFrame camera;
    bool hasScreen = false;
    bool hasCamera = false;
};

struct RenderedFrame {
    double time = 0;
    VideoFrame picture;
};

struct AudioBlock {
    std::vector<float> samples; // interleaved stereo
    size_t frameCount = 0;
};

// A reader, compositor or writer failure, already in the words the user sees.
struct PipeFailure {
    RenderExportErrorCode code = RenderExportErrorCode::writerFailed;
    std::string message;
};

// What the four threads share. The queues carry the work; the recycling queues hand
// finished buffers back so that no frame is allocated after the first few.
class Pipe {
public:
    explicit Pipe(bool withAudio)
        : freeSources_(kFramesInFlight), sources_(kFramesInFlight), freeRendered_(kFramesInFlight),
          rendered_(kFramesInFlight), audio_(withAudio ? kAudioBlocksInFlight : 1) {
        for (size_t i = 0; i < kFramesInFlight; ++i) {
            freeSources_.put(std::make_unique<SourceFrames>());
            freeRendered_.put(std::make_unique<RenderedFrame>());
        }
    }

    // Stops everything; the first failure is the one reported.
    void fail(PipeFailure failure) {
        {
            std::lock_guard lock(lock_);
            if (!failure_) {
                failure_ = std::move(failure);
            }
        }
        stop();
    }

    void stop() {
        stopped_ = true;
        freeSources_.close();
        sources_.close();
        freeRendered_.close();
        rendered_.close();
        audio_.close();
    }

    bool stopped() const { return stopped_; }

    std::optional<PipeFailure> failure() {
        std::lock_guard lock(lock_);
        return failure_;
    }

    BlockingQueue<std::unique_ptr<SourceFrames>> freeSources_;
    BlockingQueue<std::unique_ptr<SourceFrames>> sources_;
    BlockingQueue<std::unique_ptr<RenderedFrame>> freeRendered_;
    BlockingQueue<std::unique_ptr<RenderedFrame>> rendered_;
    BlockingQueue<AudioBlock> audio_;

private:
    std::atomic<bool> stopped_ = false;
    std::mutex lock_; // guards failure_
    std::optional<PipeFailure> failure_;
};

void nameThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
}

// Runs a stage. What it throws stops the pipe: its own errors as they are, anything else
// (a file that cannot be decoded, a frame that cannot be drawn) as the reader's failure.
template <class Body>
std::thread stageThread(Pipe& pipe, const char* name, Body body) {
    return std::thread([&pipe, name, body = std::move(body)]() mutable {
        nameThread(name);
        try {
            body();
        } catch (const RenderExportError& error) {
            pipe.fail({error.code(), error.what()});
        } catch (const std::exception& error) {
            logError("export", name, ": ", error.what());
            const std::string text = error.what();
            pipe.fail(
                {RenderExportErrorCode::writerFailed, text.empty() ? "Reader failed." : text});
        }
    });
}

void decodeFrames(Pipe& pipe, const RenderComposition::Output& composition, int64_t frames) {
    VideoDecoderOptions options;
    options.layout = PixelLayout::bgra;
    CompositionVideoReader screen(composition.composition, composition.screenTrackID, options);
    std::optional<CompositionVideoReader> camera;
    if (composition.cameraTrackID) {
        camera.emplace(composition.composition, *composition.cameraTrackID, options);
    }
    for (int64_t i = 0; i < frames && !pipe.stopped(); ++i) {
        auto slot = pipe.freeSources_.take();
        if (!slot) {
            return;
        }
        SourceFrames& frame = **slot;
        frame.index = i;
        frame.time = static_cast<double>(i) / composition.fps;
        frame.instruction = instruction(composition.instructions, mediaTicks(frame.time));
        frame.hasScreen = screen.frameAt(frame.time, frame.screen).has_value();
        frame.hasCamera = camera && frame.instruction != nullptr &&
                          frame.instruction->cameraTrackID &&
                          camera->frameAt(frame.time, frame.camera).has_value();
        if (!pipe.sources_.put(std::move(*slot))) {
            return;
        }
    }
    pipe.sources_.close();
}

void renderFrames(Pipe& pipe, const RenderComposition::Output& composition,
                  ExportFrameCompositor& compositor) {
    while (auto source = pipe.sources_.take()) {
        if (pipe.stopped()) {
            return;
        }
        auto slot = pipe.freeRendered_.take();
        if (!slot) {
            return;
        }
        RenderedFrame& rendered = **slot;
        SourceFrames& frame = **source;
        rendered.time = frame.time;
        try {
            rendered.picture.allocate(PixelLayout::bgra, composition.width, composition.height);
        } catch (const std::bad_alloc&) {
            throw OrvelleCompositorError(OrvelleCompositorErrorCode::cannotAllocateOutputBuffer);
        }
        rendered.picture.presentationTime = frame.time;
        compositor.compose({frame.index, frame.time, frame.instruction,
                            frame.hasScreen ? &frame.screen : nullptr,
                            frame.hasCamera ? &frame.camera : nullptr},
                           rendered.picture);
        pipe.freeSources_.put(std::move(*source));
        if (!pipe.rendered_.put(std::move(*slot))) {
            return;
        }
    }
    pipe.rendered_.close();
}

void mixAudio(Pipe& pipe, const RenderComposition::Output& composition) {
    CompositionAudioMixer mixer(composition.composition, *composition.audioMix);
    const int64_t total = mixerFrame(composition.timelineDuration);
    for (int64_t start = 0; start < total && !pipe.stopped();) {
        AudioBlock block;
        block.frameCount = static_cast<size_t>(std::min<int64_t>(kAudioBlockFrames, total - start));
        block.samples.resize(block.frameCount * CompositionAudioMixer::kChannelCount);
        mixer.render(start, block.frameCount, block.samples.data());
        start += static_cast<int64_t>(block.frameCount);
        if (!pipe.audio_.put(std::move(block))) {
            return;
        }
    }
    pipe.audio_.close();
}

// The encode thread's sound: blocks appended until the file's sound reaches `until`.
class AudioFeed {
public:
    AudioFeed(Pipe& pipe, MovieWriter& writer, bool enabled)
        : pipe_(pipe), writer_(writer), enabled_(enabled) {}

    void appendUntil(double until) {
        while (enabled_ && !ended_ && written_ < until && !pipe_.stopped()) {
            auto block = pipe_.audio_.take();
            if (!block) {
                ended_ = true;
                return;
            }
            try {
                writer_.appendAudio(block->samples.data(), block->frameCount);
            } catch (const std::exception& error) {
                logError("export", "audio: ", error.what());
                throw RenderExportError(RenderExportErrorCode::writerFailed,
                                        "Failed to append audio sample.");
            }
            written_ += static_cast<double>(block->frameCount) / CompositionAudioMixer::kSampleRate;
        }
    }

private:
    Pipe& pipe_;
    MovieWriter& writer_;
    bool enabled_;
    bool ended_ = false;
    double written_ = 0;
};

void encodeFrames(Pipe& pipe, const RenderComposition::Output& composition, MovieWriter& writer,
                  const Options& options) {
    AudioFeed audio(pipe, writer, composition.audioMix.has_value());
    const double duration = std::max(composition.timelineDuration, 0.01);
    while (auto frame = pipe.rendered_.take()) {
        if (pipe.stopped()) {
            return;
        }
        RenderedFrame& rendered = **frame;
        audio.appendUntil(rendered.time + kAudioLead);
        try {
            writer.appendVideoFrame(rendered.picture, rendered.time);
        } catch (const std::exception& error) {
            logError("export", "video: ", error.what());
            throw RenderExportError(RenderExportErrorCode::writerFailed,
                                    "Failed to append video sample.");
        }
        if (options.progress && std::isfinite(rendered.time) && rendered.time > 0) {
            // The last percent is the writer's, for finishing the file.
            options.progress(std::min(rendered.time / duration * 0.99, 0.99));
        }
        pipe.freeRendered_.put(std::move(*frame));
    }
    if (!pipe.stopped()) {
        audio.appendUntil(std::numeric_limits<double>::infinity());
    }
}

[[noreturn]] void throwFailure(const PipeFailure& failure) {
    throw RenderExportError(failure.code, failure.message);
}

} // namespace

int64_t frameCount(double timelineDuration, int fps) {
    if (!(timelineDuration > 0) || fps <= 0) {
        return 0;
    }
    // A frame whose start lies within a microsecond of the end is not one of the movie's.
    return static_cast<int64_t>(std::ceil(timelineDuration * fps - 1e-6));
}

const OrvelleCompositionInstruction*
instruction(const std::vector<OrvelleCompositionInstruction>& instructions, int64_t tick) {
    if (instructions.empty()) {
        return nullptr;
    }
    const auto after = std::upper_bound(
        instructions.begin(), instructions.end(), tick,
        [](int64_t t, const OrvelleCompositionInstruction& i) { return t < i.timeRange.start; });
    return after == instructions.begin() ? &instructions.front() : &*(after - 1);
}

void run(const RenderComposition::Output& composition, ExportFrameCompositor& compositor,
         const Options& options, const std::stop_token& stop) {
    throwIfCancelled(stop);
    const bool withAudio =
        composition.audioMix.has_value() &&
        !composition.composition.tracksOfType(CompositionMediaType::audio).empty();
    // The reader's side: the composition must have the tracks it names.
    if (composition.composition.track(composition.screenTrackID) == nullptr ||
        (composition.cameraTrackID &&
         composition.composition.track(*composition.cameraTrackID) == nullptr) ||
        composition.width <= 0 || composition.height <= 0 || composition.fps <= 0) {
        throw RenderExportError(RenderExportErrorCode::cannotAddWriterInput);
    }
    std::unique_ptr<MovieWriter> writer;
    try {
        writer = std::make_unique<MovieWriter>(
            options.outputURL,
            RenderExportCodec::writerSettings(options.fileType, options.quality, composition.width,
                                              composition.height, composition.fps, withAudio));
    } catch (const std::exception& error) {
        const std::string text = error.what();
        throw RenderExportError(RenderExportErrorCode::writerFailed,
                                text.empty() ? "Failed to start writing." : text);
    }

    RenderComposition::Output reading = composition;
    if (!withAudio) {
        reading.audioMix.reset();
    }
    Pipe pipe(withAudio);
    const int64_t frames = frameCount(composition.timelineDuration, composition.fps);
    {
        std::stop_callback onStop(stop, [&pipe] { pipe.stop(); });
        std::vector<std::thread> threads;
        threads.push_back(
            stageThread(pipe, "export-decode", [&] { decodeFrames(pipe, reading, frames); }));
        threads.push_back(
            stageThread(pipe, "export-render", [&] { renderFrames(pipe, reading, compositor); }));
        if (withAudio) {
            threads.push_back(stageThread(pipe, "export-audio", [&] { mixAudio(pipe, reading); }));
        }
        threads.push_back(stageThread(pipe, "export-encode",
                                      [&] { encodeFrames(pipe, reading, *writer, options); }));
        for (auto& thread : threads) {
            thread.join();
        }
    }
    if (const auto failure = pipe.failure()) {
        throwFailure(*failure);
    }
    throwIfCancelled(stop);
    if (options.finalizing) {
        options.finalizing();
    }
    try {
        writer->finish();
    } catch (const std::exception& error) {
        const std::string text = error.what();
        throw RenderExportError(RenderExportErrorCode::writerFailed,
                                text.empty() ? "Writer failed." : text);
    }
    throwIfCancelled(stop);
    if (options.progress) {
        options.progress(1.0);
    }
}

} // namespace RenderPipe

} // namespace orvelle
