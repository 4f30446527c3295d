#include "publish/export_controller.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "export/render_exporter.h"
#include "online/google_oauth.h"
#include "online/google_oauth_controller.h"

#include <condition_variable>
#include <mutex>

namespace orvelle {

namespace fs = std::filesystem;

struct ExportController::Run {
    int generation = 0;
    ExportSnapshot snapshot;
    fs::path outputURL;
    int outputWidth = 0;
    int outputHeight = 0;
    RenderExportFileType fileType = RenderExportFileType::mp4;
    RenderExportQuality quality = RenderExportQuality::high;
    bool renderedFileIsTemporary = false;
    std::optional<YouTubeUploadRequest> upload;
    std::optional<int> framesPerSecond;
};

namespace {

void removeQuietly(const fs::path& file) {
    std::error_code ignored;
    fs::remove(file, ignored);
}

// Sleeps for `delay` unless `stop` comes first; true when the whole delay passed.
bool sleepFor(std::chrono::milliseconds delay, const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    return !wake.wait_for(lock, stop, delay, [] { return false; }) && !stop.stop_requested();
}

// A rename where it can; across file systems a copy, then the temporary file removed.
void moveReplacing(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (!error) {
        return;
    }
    if (error != std::errc::cross_device_link) {
        throw FileError("Could not save the movie as \"" + to.string() + "\": " + error.message() +
                        ".");
    }
    const fs::path partial = to.parent_path() / ("." + to.filename().string() + ".partial");
    fs::copy_file(from, partial, fs::copy_options::overwrite_existing, error);
    if (!error) {
        fs::rename(partial, to, error);
    }
    if (error) {
        removeQuietly(partial);
        throw FileError("Could not save the movie as \"" + to.string() + "\": " + error.message() +
                        ".");
    }
    removeQuietly(from);
}

} // namespace

ExportController::ExportController(Executor& mainThread, SnapshotProvider snapshot,
                                   Configuration configuration)
    : mainThread_(mainThread), snapshot_(std::move(snapshot)),
      configuration_(std::move(configuration)) {}

ExportController::~ExportController() {
    const bool removeRender = isExporting_.value();
    task_ = {};
    statusClearTask_ = {};
    retired_.clear();
    // A run stopped by the window's end leaves no temporary movie behind.
    if (removeRender || renderedFileIsTemporary_.value()) {
        discardTemporaryFileIfNeeded();
    }
}

void ExportController::publish(int generation, std::function<void()> change) {
    mainThread_.post(
        [this, alive = std::weak_ptr<int>(alive_), generation, change = std::move(change)] {
            if (alive.lock() && generation == generation_) {
                change();
            }
        });
}

void ExportController::retire(std::jthread thread) {
    if (thread.joinable()) {
        thread.request_stop();
        retired_.push_back(std::move(thread));
    }
}

bool ExportController::start(const fs::path& outputURL, int outputWidth, int outputHeight,
                             RenderExportFileType fileType, RenderExportQuality quality,
                             bool renderedFileIsTemporary,
                             std::optional<YouTubeUploadRequest> youTubeUploadRequest,
                             std::optional<int> framesPerSecond) {
    std::optional<ExportSnapshot> snapshot = snapshot_ ? snapshot_() : std::nullopt;
    if (!snapshot) {
        return false;
    }
    discardTemporaryFileIfNeeded();
    ++generation_;
    ++statusClearGeneration_;
    statusClearTask_ = {};
    retire(std::move(task_));

    auto run = std::make_shared<Run>();
    run->generation = generation_;
    run->snapshot = std::move(*snapshot);
    run->outputURL = outputURL;
    run->outputWidth = outputWidth;
    run->outputHeight = outputHeight;
    run->fileType = fileType;
    run->quality = quality;
    run->renderedFileIsTemporary = renderedFileIsTemporary;
    run->upload = std::move(youTubeUploadRequest);
    run->framesPerSecond = framesPerSecond;

    isExporting_.set(true);
    progress_.set(0.0);
    statusText_.set(std::nullopt);
    snapshotBecameStale_.set(false);
    youTubeURL_.set(std::nullopt);
    renderedURL_.set(std::nullopt);
    renderedFileIsTemporary_.set(false);
    task_ = std::jthread([this, run](const std::stop_token& stop) { runExport(run, stop); });
    return true;
}

void ExportController::runExport(const std::shared_ptr<Run>& run, const std::stop_token& stop) {
    const int generation = run->generation;
    const bool uploads = run->upload.has_value();
    const double share = renderShare(uploads);
    // Progress comes often from the encoder's thread; the bar moves in steps of 1/1000.
    auto lastShown = std::make_shared<std::atomic<int>>(-1);
    const auto showProgress = [this, generation, lastShown](double value) {
        const int step = static_cast<int>(std::clamp(value, 0.0, 1.0) * 1000);
        if (lastShown->exchange(step) != step) {
            publish(generation, [this, value] { progress_.set(std::clamp(value, 0.0, 1.0)); });
        }
    };
    bool rendered = false;
    try {
        RenderExportSettings settings =
            renderExportSettings(run->snapshot, run->outputURL, run->outputWidth, run->outputHeight,
                                 run->fileType, run->quality);
        if (run->framesPerSecond) {
            settings.fps = *run->framesPerSecond;
        }
        const fs::path movie = RenderExporterV2::exportMovie(
            settings, RenderExporterV2::defaultResources(),
            [&](double fraction) { showProgress(fraction * share); }, {}, stop);
        rendered = true;
        throwIfCancelled(stop);

        if (!uploads) {
            publish(generation, [this, movie, generation] {
                renderedURL_.set(movie);
                renderedFileIsTemporary_.set(false);
                progress_.set(1.0);
                statusText_.set(snapshotBecameStale_.value()
                                    ? std::string("Rendered previous edit")
                                    : "Saved " + movie.filename().string());
                finishRun(generation);
            });
            return;
        }

        publish(generation, [this, movie, temporary = run->renderedFileIsTemporary, share] {
            renderedURL_.set(movie);
            renderedFileIsTemporary_.set(temporary);
            progress_.set(share);
            statusText_.set(std::string("Authorizing YouTube"));
        });
        if (configuration_.googleAccount == nullptr) {
            throw GoogleOAuthError(GoogleOAuthErrorCode::notConnected);
        }
        const std::string token = configuration_.googleAccount->validAccessToken(stop);
        throwIfCancelled(stop);
        publish(generation, [this] { statusText_.set(std::string("Uploading to YouTube")); });

        YouTubeUploadRequest request = *run->upload;
        request.fileURL = movie;
        const YouTubeUploadResult result = YouTubeUploadClient::upload(
            request, token,
            [&](double fraction) { showProgress(share + (1.0 - share) * fraction); },
            configuration_.upload, stop);
        throwIfCancelled(stop);
        const std::string watch =
            YouTubeUploadClient::watchURL(result, configuration_.youtubeWatchURL);
        logInfo("export", "the movie is on YouTube as video ", result.videoID);
        publish(generation, [this, watch, generation] {
            progress_.set(1.0);
            youTubeURL_.set(watch);
            statusText_.set(std::string(snapshotBecameStale_.value() ? "Uploaded previous edit"
                                                                     : "Uploaded to YouTube"));
            finishRun(generation);
        });
    } catch (const CancellationError&) {
        // cancel() has said what there is to say. A temporary render it may not have known
        // of yet goes too; a half-written movie the exporter removed itself.
        if (rendered && run->renderedFileIsTemporary) {
            removeQuietly(run->outputURL);
        }
    } catch (const std::exception& error) {
        if (stop.stop_requested()) {
            // Cancelled while a step was failing for it (the render removed under the upload).
            if (rendered && run->renderedFileIsTemporary) {
                removeQuietly(run->outputURL);
            }
            return;
        }
        logWarning("export", "the export failed: ", error.what());
        if (rendered && run->renderedFileIsTemporary) {
            removeQuietly(run->outputURL);
        }
        publish(generation,
                [this, message = std::string(error.what()), generation,
                 removed = rendered && run->renderedFileIsTemporary, file = run->outputURL] {
                    if (removed && renderedURL_.value() == file) {
                        renderedURL_.set(std::nullopt);
                        renderedFileIsTemporary_.set(false);
                    }
                    statusText_.set(message);
                    finishRun(generation);
                });
    }
}

void ExportController::finishRun(int generation) {
    if (generation != generation_) {
        return;
    }
    isExporting_.set(false);
    retire(std::move(task_));
    scheduleStatusClear();
}

void ExportController::cancel() {
    if (!isExporting_.value()) {
        return;
    }
    ++generation_;
    retire(std::move(task_));
    isExporting_.set(false);
    progress_.set(0.0);
    snapshotBecameStale_.set(false);
    youTubeURL_.set(std::nullopt);
    discardTemporaryFileIfNeeded();
    statusText_.set(std::string("Canceled"));
    scheduleStatusClear();
}

void ExportController::noteEditChanged() {
    if (isExporting_.value()) {
        snapshotBecameStale_.set(true);
    }
}

void ExportController::scheduleStatusClear() {
    const int clearGeneration = ++statusClearGeneration_;
    const std::optional<std::string> held = statusText_.value();
    statusClearTask_ =
        std::jthread([this, alive = std::weak_ptr<int>(alive_), clearGeneration, held,
                      delay = configuration_.statusClearDelay](const std::stop_token& stop) {
            if (!sleepFor(delay, stop)) {
                return;
            }
            mainThread_.post([this, alive, clearGeneration, held] {
                if (alive.lock() && clearGeneration == statusClearGeneration_ &&
                    statusText_.value() == held) {
                    statusText_.set(std::nullopt);
                }
            });
        });
}

void ExportController::discardTemporaryFileIfNeeded() {
    if (renderedFileIsTemporary_.value() && renderedURL_.value()) {
        removeQuietly(*renderedURL_.value());
        renderedURL_.set(std::nullopt);
        renderedFileIsTemporary_.set(false);
    }
}

void ExportController::saveTemporaryCopy(const fs::path& destination) {
    if (!renderedFileIsTemporary_.value() || !renderedURL_.value()) {
        return;
    }
    const fs::path source = *renderedURL_.value();
    const int generation = generation_;
    retire(std::jthread([this, source, destination, generation] {
        std::optional<std::string> failure;
        try {
            moveReplacing(source, destination);
        } catch (const std::exception& error) {
            failure = error.what();
        }
        publish(generation, [this, source, destination, failure] {
            if (failure) {
                statusText_.set(failure);
            } else {
                if (renderedURL_.value() == source) {
                    renderedURL_.set(destination);
                    renderedFileIsTemporary_.set(false);
                }
                statusText_.set("Saved " + destination.filename().string());
            }
            scheduleStatusClear();
        });
    }));
}

void ExportController::resetForDocumentLoad() {
    if (isExporting_.value()) {
        return;
    }
    snapshotBecameStale_.set(false);
    youTubeURL_.set(std::nullopt);
    discardTemporaryFileIfNeeded();
}

} // namespace orvelle
