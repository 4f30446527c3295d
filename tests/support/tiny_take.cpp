#include "support/tiny_take.h"

#include "project/cursor_recording.h"
#include "project/recording_take_builder.h"
#include "support/test_media.h"

#include <cmath>

namespace orvelle::testing {

TinyTake writeTinyTake(const std::filesystem::path& folder, const TinyTakeOptions& options) {
    std::filesystem::create_directories(folder);
    TinyTake take;
    take.screenURL = folder / "Tiny Take.mp4";
    const int frames = static_cast<int>(std::lround(options.seconds * options.frameRate));
    TestMovieOptions movie{.width = options.width,
                           .height = options.height,
                           .frameRate = options.frameRate,
                           .frameCount = frames};
    writeNumberedMovie(take.screenURL, movie);

    RecordedMediaSegment screen{.url = take.screenURL,
                                .duration = options.seconds,
                                .mediaDuration = options.seconds,
                                .width = options.width,
                                .height = options.height};

    std::vector<RecordedMediaSegment> microphones;
    if (options.withMicrophone) {
        take.microphoneURL = folder / "Tiny Take-microphone-001.wav";
        writeAudioFile(*take.microphoneURL,
                       options.microphoneSamples.empty() ? sineTone(440, options.seconds, 48000, 1)
                                                         : options.microphoneSamples,
                       {48000, 1});
        RecordedMediaSegment microphone{.kind = MediaTrackManifest::Kind::microphone,
                                        .url = *take.microphoneURL};
        const double heard = options.microphoneSamples.empty()
                                 ? options.seconds
                                 : static_cast<double>(options.microphoneSamples.size()) / 48000;
        microphone.duration = heard;
        microphone.mediaDuration = heard;
        microphones.push_back(microphone);
    }

    std::vector<RecordedMediaSegment> cameras;
    if (options.camera) {
        const auto [from, to] = *options.camera;
        take.cameraURL = folder / "Tiny Take-camera-001.mp4";
        TestMovieOptions cameraMovie{
            .width = 64,
            .height = 48,
            .frameRate = options.frameRate,
            .frameCount = static_cast<int>(std::lround((to - from) * options.frameRate))};
        writeNumberedMovie(*take.cameraURL, cameraMovie);
        RecordedMediaSegment camera{.kind = MediaTrackManifest::Kind::camera,
                                    .url = *take.cameraURL,
                                    .programStart = from,
                                    .duration = to - from,
                                    .mediaDuration = to - from,
                                    .width = 64,
                                    .height = 48};
        cameras.push_back(camera);
    }

    if (options.withPointer) {
        take.cursorURL = CursorRecording::fileURL(take.screenURL);
        CursorRecording pointer;
        pointer.captureFrame = {0, 0, static_cast<double>(options.width),
                                static_cast<double>(options.height)};
        for (double t = 0; t <= options.seconds + 1e-9; t += 1.0 / 60) {
            const double f = t / options.seconds;
            pointer.samples.push_back({t, 0.2 + 0.6 * f, 0.3 + 0.4 * f * f, true});
        }
        for (const double time : options.clicks) {
            pointer.clicks.push_back({time, 0});
        }
        pointer.save(*take.cursorURL);
    }
    take.manifest =
        TakeManifestWriter::write(take.screenURL, {screen}, cameras, microphones, take.cursorURL);
    take.manifestURL = folder / "Tiny Take.take.json";
    return take;
}

} // namespace orvelle::testing
