// Playing an edit in real time, as the editor's preview plays it: sound to the sound
// server, pictures drawn off-screen, with what was shown and dropped each second.

#include "cli/commands.h"
#include "cli/edit_operations.h"
#include "cli/frame_input.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "core/executor.h"
#include "core/file_url.h"
#include "playback/playback_model.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <mutex>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr Size kDefaultPreviewSize{1280, 720};
constexpr auto kLoadTimeout = std::chrono::seconds(120);

// What the frames shown in one second of wall time had in common.
struct SecondTally {
    uint64_t shown = 0;
    double largestOffset = 0;
};

// Edits applied while playing, at seconds of playing.
struct TimedOperations {
    double at = 0;
    std::string file;
    Json operations;
};

std::vector<TimedOperations> timedOperations(const Arguments& arguments) {
    const auto files = arguments.values("--ops");
    const auto times = arguments.numbers("--at");
    if (files.size() != times.size()) {
        throw UsageError("Give each --ops OPS.json its own --at T: the seconds of playing after "
                         "which it is applied.");
    }
    std::vector<TimedOperations> result;
    for (size_t i = 0; i < files.size(); ++i) {
        if (!std::isfinite(times[i]) || times[i] < 0) {
            throw UsageError("The option --at takes seconds of playing, 0 or more.");
        }
        result.push_back({times[i], files[i], readOperations(files[i])});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const auto& a, const auto& b) { return a.at < b.at; });
    return result;
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Seeks spread over the edit, then the same again: the time from each seek to its frame on
// screen, first drawn and then from the frame cache.
Json scrub(PlaybackModel& model, RunLoop& loop, int count, double duration) {
    std::vector<double> drawn;
    std::vector<double> cached;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < count; ++i) {
            const double time = (i + 0.5) / count * duration;
            const auto started = Clock::now();
            model.seekPlayer(EditTime(time), false, false);
            loop.runUntil([&] { return !model.pendingSeekGeneration(); }, kLoadTimeout);
            const double milliseconds =
                std::chrono::duration<double, std::milli>(Clock::now() - started).count();
            (pass == 0 ? drawn : cached).push_back(milliseconds);
        }
    }
    const auto summary = [](const std::vector<double>& values) {
        return Json{
            {"median", median(values)},
            {"max", values.empty() ? 0.0 : *std::max_element(values.begin(), values.end())}};
    };
    const PreviewFrameCacheStatistics cache = model.player().frameCache().statistics();
    return {{"seeks", count},
            {"firstFrameMilliseconds", summary(drawn)},
            {"cachedFirstFrameMilliseconds", summary(cached)},
            {"frameCache",
             {{"frames", cache.frameCount},
              {"bytes", cache.byteCount},
              {"byteLimit", cache.byteLimit},
              {"hits", cache.hits},
              {"misses", cache.misses}}}};
}

int runPlay(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the document to play");
    const EditorDocument document = openDocument(argument);
    const Size size = stageSizeOption(arguments, kDefaultPreviewSize);
    const int fps = frameRateOption(arguments);
    const double rate = arguments.number("--rate").value_or(1.0);
    if (!(rate >= MediaPlaybackSession::kSlowestWorkflowRate &&
          rate <= MediaPlaybackSession::kFastestWorkflowRate)) {
        throw UsageError("The option --rate takes a speed from 0.25 to 8.");
    }
    const double from = arguments.number("--from").value_or(0.0);
    const auto seconds = arguments.number("--seconds");
    if (seconds && !(*seconds > 0)) {
        throw UsageError("The option --seconds takes a positive number of seconds.");
    }
    std::vector<TimedOperations> edits = timedOperations(arguments);
    const auto framesDirectory = arguments.value("--frames");
    if (framesDirectory) {
        fs::create_directories(*framesDirectory);
    }

    RunLoop loop;
    EditorStore store(document.project);
    PlaybackModelOptions options;
    options.player.frameRate = fps;
    options.player.previewSize = size;
    options.player.withSound = !arguments.flag("--no-sound");
    PlaybackModel model(store, loop, options);
    model.load(document);
    // Everything loaded, so that nothing arriving later rebuilds the playback midway.
    const auto ready = [&] {
        return !model.isLoading() && !model.isReplacingScreenItem() &&
               !model.pendingSeekGeneration() && model.player().currentFrame() != nullptr;
    };
    loop.runUntil([&] { return model.hasCompositionSource().value() || !model.isLoading(); },
                  kLoadTimeout);
    if (!model.hasCompositionSource().value()) {
        throw Error("\"" + argument + "\" cannot be played: its screen recording cannot be read.");
    }
    if (!loop.runUntil(ready, kLoadTimeout)) {
        throw Error("\"" + argument + "\" has nothing to play: its edit is empty.");
    }
    const double duration = model.editTimeline().duration();
    if (!std::isfinite(from) || from < 0 || from >= duration) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "The edit runs from 0 to %.3f s; --from %g lies outside it.", duration, from);
        throw UsageError(text);
    }
    if (const auto seeks = arguments.integer("--scrub")) {
        if (*seeks < 1 || *seeks > 10000) {
            throw UsageError("The option --scrub takes a number of seeks, 1 to 10000.");
        }
        Json result = scrub(model, loop, *seeks, duration);
        if (arguments.flag("--json")) {
            printJson(result);
        } else {
            std::printf("%d seeks: first frame in %.1f ms (median), %.1f ms at most; from the "
                        "frame cache %.1f ms; cache %zu frames, %.1f MB.\n",
                        *seeks, result["firstFrameMilliseconds"]["median"].get<double>(),
                        result["firstFrameMilliseconds"]["max"].get<double>(),
                        result["cachedFirstFrameMilliseconds"]["median"].get<double>(),
                        result["frameCache"]["frames"].get<size_t>(),
                        static_cast<double>(result["frameCache"]["bytes"].get<size_t>()) / 1e6);
        }
        return 0;
    }
    model.seekPlayer(EditTime(from), false, false);
    loop.runUntil(ready, kLoadTimeout);
    model.applyWorkflowRate(rate);

    // The frames shown, tallied by second of playing and written out on a queue of their
    // own, so that the presenting thread never waits for a file.
    std::mutex tallyLock;
    std::vector<SecondTally> tallies;
    Clock::time_point started;
    std::optional<SerialQueue> writer;
    if (framesDirectory) {
        writer.emplace("com.orvelle.play.frames");
    }
    const Subscription frames =
        model.player().addFrameObserver([&](const std::shared_ptr<const PreviewFrame>& frame) {
            {
                const std::lock_guard guard(tallyLock);
                const auto second = static_cast<size_t>(
                    std::chrono::duration<double>(Clock::now() - started).count());
                if (tallies.size() <= second) {
                    tallies.resize(second + 1);
                }
                tallies[second].shown += 1;
                tallies[second].largestOffset =
                    std::max(tallies[second].largestOffset,
                             std::abs(frame->presentedClockTime - frame->editTime));
            }
            if (writer) {
                char name[64];
                std::snprintf(name, sizeof name, "frame-%06lld.png",
                              static_cast<long long>(frame->frameIndex));
                const fs::path path = fs::path(*framesDirectory) / name;
                writer->post([frame, path] { writePNG(frame->picture, path); });
            }
        });

    const InterruptStop interrupt;
    Json perSecond = Json::array();
    Json applied = Json::array();
    EditOperations operations(store, model.gestures(), document);
    const bool json = arguments.flag("--json");
    const PlaybackStatistics before = model.player().statistics();
    uint64_t droppedBefore = before.droppedFrames;
    bool endReached = false;
    const Subscription end = model.isPlaying().observe(
        [&](const bool& playing) { endReached = endReached || !playing; });

    started = Clock::now();
    model.play();
    loop.runUntil([&] { return model.isPlaying().value(); }, kLoadTimeout);
    endReached = false;
    size_t nextEdit = 0;
    size_t reported = 0;
    for (;;) {
        loop.runFor(std::chrono::milliseconds(5));
        const double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
        while (nextEdit < edits.size() && edits[nextEdit].at <= elapsed) {
            TimedOperations& edit = edits[nextEdit];
            const double editTimeBefore = model.player().currentTime();
            const double sourceTimeBefore = model.currentCursorTime().value();
            Json results = Json::array();
            for (size_t i = 0; i < edit.operations.size(); ++i) {
                results.push_back(operations.apply(edit.operations[i],
                                                   JsonDecodeContext().key(edit.file).index(i)));
            }
            // The rebuild runs on the next turn; the playhead lands once its seek is done.
            loop.runUntil(
                [&] { return !model.isReplacingScreenItem() && !model.pendingSeekGeneration(); },
                std::chrono::seconds(10));
            applied.push_back(
                {{"at", edit.at},
                 {"file", edit.file},
                 {"results", results},
                 {"before", {{"editTime", editTimeBefore}, {"sourceTime", sourceTimeBefore}}},
                 {"after",
                  {{"editTime", model.player().currentTime()},
                   {"sourceTime", model.currentCursorTime().value()}}}});
            ++nextEdit;
        }
        const bool finished =
            (seconds && elapsed >= *seconds) || endReached || interrupt.interrupted();
        if (static_cast<size_t>(elapsed) > reported || finished) {
            const PlaybackStatistics now = model.player().statistics();
            SecondTally tally;
            {
                const std::lock_guard guard(tallyLock);
                if (reported < tallies.size()) {
                    tally = tallies[reported];
                }
            }
            const Json line{{"second", reported},
                            {"editTime", model.player().currentTime()},
                            {"sourceTime", model.currentCursorTime().value()},
                            {"shownFrames", tally.shown},
                            {"droppedFrames", now.droppedFrames - droppedBefore},
                            {"audioVideoOffset", tally.largestOffset}};
            droppedBefore = now.droppedFrames;
            if (!json) {
                std::printf("%3zu s  edit %7.3f  source %7.3f  shown %3llu  dropped %3llu  "
                            "offset %5.1f ms\n",
                            reported, line["editTime"].get<double>(),
                            line["sourceTime"].get<double>(),
                            static_cast<unsigned long long>(tally.shown),
                            static_cast<unsigned long long>(line["droppedFrames"].get<uint64_t>()),
                            tally.largestOffset * 1000);
                std::fflush(stdout);
            }
            perSecond.push_back(line);
            ++reported;
        }
        if (finished) {
            break;
        }
    }
    const double playedSeconds = std::chrono::duration<double>(Clock::now() - started).count();
    model.pause();
    writer.reset(); // every frame written

    const PlaybackStatistics totals = model.player().statistics();
    const PreviewFrameCacheStatistics cache = model.player().frameCache().statistics();
    if (json) {
        printJson({{"document", documentPath(argument).string()},
                   {"size", {{"width", size.width}, {"height", size.height}}},
                   {"fps", fps},
                   {"rate", rate},
                   {"from", from},
                   {"duration", duration},
                   {"sound", model.player().hasSound()},
                   {"soundProblem", model.player().soundProblem()},
                   {"playedSeconds", playedSeconds},
                   {"endReached", endReached},
                   {"seconds", perSecond},
                   {"edits", applied},
                   {"shownFrames", totals.shownFrames - before.shownFrames},
                   {"droppedFrames", totals.droppedFrames - before.droppedFrames},
                   {"largestAudioVideoOffset", totals.largestOffset},
                   {"audioUnderrunFrames", totals.audioUnderrunFrames},
                   {"meanRenderMilliseconds", totals.meanRenderSeconds * 1000},
                   {"frameCache", {{"frames", cache.frameCount}, {"bytes", cache.byteCount}}},
                   {"frames", framesDirectory ? Json(standardizedPath(*framesDirectory).string())
                                              : Json(nullptr)}});
    } else {
        if (!model.player().hasSound()) {
            std::cerr << "Played without sound: " << model.player().soundProblem() << "\n";
        }
        std::printf("Played %.2f s: %llu frames shown, %llu dropped, largest audio/video offset "
                    "%.1f ms.\n",
                    playedSeconds,
                    static_cast<unsigned long long>(totals.shownFrames - before.shownFrames),
                    static_cast<unsigned long long>(totals.droppedFrames - before.droppedFrames),
                    totals.largestOffset * 1000);
    }
    return interrupt.interrupted() ? 130 : 0;
}

} // namespace

Command playCommand() {
    static const std::string help =
        "orvelle play DOCUMENT [--from T] [--seconds N] [--size WxH] [--fps N] [--rate R]\n"
        "             [--ops OPS.json --at T]... [--frames DIR] [--no-sound] [--json]\n"
        "orvelle play DOCUMENT --scrub N [--size WxH] [--fps N] [--json]\n\n"
        "Plays the edit of DOCUMENT in real time as the editor's preview does: the sound\n"
        "to the sound server (PULSE_SERVER, or your session's), the pictures drawn by the\n"
        "export's renderer on a stage of WxH pixels (default 1280x720) at N frames a\n"
        "second (default 30), from edit time T (default 0) for N seconds of wall time or\n"
        "to the end, at R times speed (0.25 to 8, default 1). Prints each second the edit\n"
        "and source times, the frames shown and dropped and the largest audio/video\n"
        "offset. Each --ops OPS.json (operations as for 'orvelle edit') is applied once T\n"
        "seconds of playing have passed (one --at per --ops), and the playback rebuilt\n"
        "while it plays. --frames DIR writes every frame shown as DIR/frame-NNNNNN.png, by\n"
        "its index on the frame grid (edit time N / fps). Without a sound server, or with\n"
        "--no-sound, the edit plays silently on the system clock. Ctrl-C stops. With\n"
        "--json prints {document, size, fps, rate, from, duration, sound, soundProblem,\n"
        "playedSeconds, endReached, seconds: [{second, editTime, sourceTime, shownFrames,\n"
        "droppedFrames, audioVideoOffset}], edits: [{at, file, results, before, after}],\n"
        "shownFrames, droppedFrames, largestAudioVideoOffset, audioUnderrunFrames,\n"
        "meanRenderMilliseconds, frameCache, frames} at the end.\n\n"
        "With --scrub N it plays nothing: it seeks to N times spread over the edit and then\n"
        "to the same times again, as scrubbing does, and prints how long each seek took to\n"
        "put its frame on screen ({seeks, firstFrameMilliseconds: {median, max},\n"
        "cachedFirstFrameMilliseconds, frameCache: {frames, bytes, byteLimit, hits,\n"
        "misses}}).";
    return {"play",
            "play an edit in real time with sound, as the preview does",
            help,
            {{"--from", true},
             {"--seconds", true},
             {"--size", true},
             {"--fps", true},
             {"--rate", true},
             {"--ops", true},
             {"--at", true},
             {"--frames", true},
             {"--scrub", true},
             {"--no-sound"},
             {"--json"}},
            runPlay};
}

} // namespace orvelle::cli
