#pragma once

// One export at a time for an editor window: a snapshot of the edit is rendered into a
// movie and, when the user asked for it, uploaded to YouTube, with one progress bar for
// both. The user goes on editing while it runs; the result then says that it is of an
// earlier edit. The published values change on the main thread (the executor given), and
// every call is made there. A run works on a thread of its own; what it has to say is
// dropped once a newer run or a cancel has taken its place (the generation counter), so
// nothing needs a lock.

#include "core/executor.h"
#include "editor/published.h"
#include "export/export_snapshot.h"
#include "online/youtube_upload_client.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace orvelle {

class GoogleOAuthController;

class ExportController {
public:
    struct Configuration {
        // Signs the upload; absent means no account can be connected, and an upload stops
        // with "Connect a Google account before uploading to YouTube.".
        GoogleOAuthController* googleAccount = nullptr;
        YouTubeUploadClient::Options upload;
        // The page a finished upload is watched on ("?v=ID" is added).
        std::string youtubeWatchURL = "https://www.youtube.com/watch";
        // How long a final status stands before it clears.
        std::chrono::milliseconds statusClearDelay{4000};
    };

    // What the panel asks to export: the edit as it is now, absent when there is none.
    using SnapshotProvider = std::function<std::optional<ExportSnapshot>()>;

    ExportController(Executor& mainThread, SnapshotProvider snapshot, Configuration configuration);
    // Stops a running export and waits for its thread (a temporary render is removed).
    ~ExportController();
    ExportController(const ExportController&) = delete;
    ExportController& operator=(const ExportController&) = delete;

    const Published<bool>& isExporting() const { return isExporting_; }
    // The one bar of render and upload together, 0...1.
    const Published<double>& progress() const { return progress_; }
    const Published<std::optional<std::string>>& statusText() const { return statusText_; }
    const Published<bool>& snapshotBecameStale() const { return snapshotBecameStale_; }
    const Published<std::optional<std::string>>& youTubeURL() const { return youTubeURL_; }
    const Published<std::optional<std::filesystem::path>>& renderedURL() const {
        return renderedURL_;
    }
    const Published<bool>& renderedFileIsTemporary() const { return renderedFileIsTemporary_; }

    // The render's share of the bar: 0.55 when an upload follows, otherwise all of it.
    static double renderShare(bool uploads) { return uploads ? 0.55 : 1.0; }

    // Begins a run; false (and nothing changes) when the snapshot provider has no edit.
    // With an upload request, its file is the rendered movie whatever it names. A
    // temporary render is the controller's own: removed when replaced, cancelled or reset.
    // `framesPerSecond` overrides the source's rate (24...60) when given.
    bool start(const std::filesystem::path& outputURL, int outputWidth, int outputHeight,
               RenderExportFileType fileType, RenderExportQuality quality,
               bool renderedFileIsTemporary,
               std::optional<YouTubeUploadRequest> youTubeUploadRequest = std::nullopt,
               std::optional<int> framesPerSecond = std::nullopt);
    // Ends a running export: its temporary render is deleted and "Canceled" shows.
    void cancel();
    // The edit changed: while a run is under way its result is of an earlier edit.
    void noteEditChanged();
    // Moves a temporary render to `destination` (replacing what is there) on a thread of
    // its own; then it is the rendered file, no longer temporary, and "Saved NAME" shows.
    // A failure shows its description.
    void saveTemporaryCopy(const std::filesystem::path& destination);
    // Deletes a temporary render, if there is one.
    void discardTemporaryFileIfNeeded();
    // Another document opens in the window: forget the last result (unless exporting).
    void resetForDocumentLoad();

private:
    struct Run;
    void runExport(const std::shared_ptr<Run>& run, const std::stop_token& stop);
    // Runs `change` on the main thread if `generation` is still current then.
    void publish(int generation, std::function<void()> change);
    void finishRun(int generation);
    void scheduleStatusClear();
    void retire(std::jthread thread);

    Executor& mainThread_;
    SnapshotProvider snapshot_;
    Configuration configuration_;

    Published<bool> isExporting_{false};
    Published<double> progress_{0.0};
    Published<std::optional<std::string>> statusText_;
    Published<bool> snapshotBecameStale_{false};
    Published<std::optional<std::string>> youTubeURL_;
    Published<std::optional<std::filesystem::path>> renderedURL_;
    Published<bool> renderedFileIsTemporary_{false};

    int generation_ = 0;
    int statusClearGeneration_ = 0;
    std::jthread task_;
    std::jthread statusClearTask_;
    std::vector<std::jthread> retired_; // stopped threads, joined when the controller ends
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

} // namespace orvelle
