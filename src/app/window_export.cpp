#include "app/window_export.h"

#include "app/main_thread_executor.h"
#include "core/error.h"
#include "core/log.h"

#include <QTimer>
#include <algorithm>
#include <cctype>

namespace orvelle {

namespace fs = std::filesystem;

WindowExportController::WindowExportController(EditorStore& store, SnapshotProvider snapshot,
                                               WindowExportOptions options)
    : store_(store), snapshot_(std::move(snapshot)), options_(std::move(options)) {
    projectSubscription_ = store_.observeProject([this](const EditorProjectState& project) {
        // Only what the movie shows makes a result stale, not the panel's own choices.
        if (isExporting_.value() && runProject_) {
            EditorProjectState now = project;
            now.exportSettings = runProject_->exportSettings;
            if (now != *runProject_) {
                snapshotBecameStale_.set(true);
            }
        }
    });
}

WindowExportController::~WindowExportController() {
    *alive_ = false;
    joinRun();
    discardTemporaryFileIfNeeded();
}

void WindowExportController::joinRun() {
    if (run_.joinable()) {
        run_.request_stop();
        run_.join();
    }
}

fs::path WindowExportController::withFormatExtension(const fs::path& url,
                                                     RenderExportFileType fileType) {
    const std::string wanted = fileType == RenderExportFileType::mov ? ".mov" : ".mp4";
    std::string extension = url.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == wanted) {
        return url;
    }
    fs::path replaced = url;
    replaced.replace_extension(wanted);
    return replaced;
}

ExportOutputSize WindowExportController::outputSize(const ExportSnapshot& snapshot,
                                                    const ExportRequest& request) {
    return encodableSize(exportOutputSize(snapshot.project.screen.aspectRatio, snapshot.sourceSize,
                                          request.outputWidth, request.outputHeight));
}

bool WindowExportController::start(const ExportRequest& asked) {
    std::optional<ExportSnapshot> snapshot = snapshot_ ? snapshot_() : std::nullopt;
    if (!snapshot) {
        return false;
    }
    ExportRequest request = asked;
    request.outputURL = withFormatExtension(request.outputURL, request.fileType);
    discardTemporaryFileIfNeeded();
    joinRun(); // a cancelled run's thread is still finishing
    const uint64_t generation = ++generation_;
    ++statusClearGeneration_;
    runProject_ = snapshot->project;
    runOutput_ = request.outputURL;
    renderedFileIsTemporary_ = request.renderedFileIsTemporary;
    snapshotBecameStale_.set(false);
    renderedURL_.set(std::nullopt);
    progress_.set(0);
    statusText_.set("Rendering " + request.outputURL.filename().string());
    isExporting_.set(true);

    RenderExportSettings settings;
    try {
        settings = renderExportSettings(*snapshot, request.outputURL, request.outputWidth,
                                        request.outputHeight, request.fileType, request.quality);
    } catch (const std::exception& error) {
        failed(generation, error.what());
        return true;
    }
    const std::shared_ptr<bool> alive = alive_;
    run_ = std::jthread([this, settings = std::move(settings), generation, alive,
                         resources = options_.resources](const std::stop_token& stop) {
        const auto onMain = [alive](std::function<void()> task) {
            mainExecutor().post([alive, task = std::move(task)] {
                if (*alive) {
                    task();
                }
            });
        };
        try {
            const fs::path written = RenderExporterV2::exportMovie(
                settings, resources,
                [this, onMain, generation](double fraction) {
                    onMain([this, generation, fraction] {
                        if (generation == generation_ && isExporting_.value()) {
                            progress_.set(std::clamp(fraction, 0.0, 0.99));
                        }
                    });
                },
                {}, stop);
            onMain([this, generation, written] { finished(generation, written); });
        } catch (const CancellationError&) {
            // cancel() has already said so.
        } catch (const std::exception& error) {
            onMain(
                [this, generation, text = std::string(error.what())] { failed(generation, text); });
        }
    });
    return true;
}

void WindowExportController::finished(uint64_t generation, const fs::path& written) {
    if (generation != generation_) {
        return;
    }
    renderedURL_.set(written);
    progress_.set(1.0);
    statusText_.set(snapshotBecameStale_.value() ? std::string("Rendered previous edit")
                                                 : "Saved " + written.filename().string());
    isExporting_.set(false);
    logInfo("app", "exported ", written.string());
    scheduleStatusClear();
}

void WindowExportController::failed(uint64_t generation, const std::string& description) {
    if (generation != generation_) {
        return;
    }
    // The exporter removes what it wrote; a temporary output is ours to remove as well.
    if (renderedFileIsTemporary_ && runOutput_) {
        std::error_code ignored;
        fs::remove(*runOutput_, ignored);
    }
    statusText_.set(description);
    isExporting_.set(false);
    progress_.set(0);
    scheduleStatusClear();
}

void WindowExportController::cancel() {
    if (!isExporting_.value()) {
        return;
    }
    ++generation_;
    if (run_.joinable()) {
        run_.request_stop();
    }
    isExporting_.set(false);
    progress_.set(0);
    snapshotBecameStale_.set(false);
    discardTemporaryFileIfNeeded();
    statusText_.set(std::string("Canceled"));
    scheduleStatusClear();
}

void WindowExportController::scheduleStatusClear() {
    const uint64_t clear = ++statusClearGeneration_;
    const std::optional<std::string> shown = statusText_.value();
    const std::shared_ptr<bool> alive = alive_;
    QTimer::singleShot(options_.statusClearDelay, [this, alive, clear, shown] {
        if (*alive && clear == statusClearGeneration_ && statusText_.value() == shown) {
            statusText_.set(std::nullopt);
        }
    });
}

void WindowExportController::discardTemporaryFileIfNeeded() {
    if (renderedFileIsTemporary_ && renderedURL_.value()) {
        std::error_code ignored;
        fs::remove(*renderedURL_.value(), ignored);
        renderedURL_.set(std::nullopt);
    }
    renderedFileIsTemporary_ = false;
}

void WindowExportController::resetForDocumentLoad() {
    if (isExporting_.value()) {
        return;
    }
    snapshotBecameStale_.set(false);
    discardTemporaryFileIfNeeded();
}

} // namespace orvelle
