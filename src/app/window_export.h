#pragma once

// One export at a time for an editor window: a snapshot of the edit is rendered to a movie
// on a thread of its own while the user goes on editing, and the window is told where it
// stands through published values. A result made from an edit that has changed since says
// so ("Rendered previous edit"). Every run carries a generation: what an older run has to
// say once a newer one began (or it was cancelled) is dropped. Main thread only; the
// panel that picks the options is not known here. It renders only: publishing (the
// upload after the render, with one progress bar for both) is the export controller's of
// the online services, which takes this one's place when the window publishes.

#include "editor/editor_store.h"
#include "editor/published.h"
#include "export/export_snapshot.h"
#include "export/render_exporter.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace orvelle {

struct ExportRequest {
    std::filesystem::path outputURL;
    int outputWidth = 1920;
    int outputHeight = 1080;
    RenderExportFileType fileType = RenderExportFileType::mp4;
    RenderExportQuality quality = RenderExportQuality::high;
    // The file is the controller's own, deleted when no longer wanted.
    bool renderedFileIsTemporary = false;
};

struct WindowExportOptions {
    RenderComposition::Resources resources = RenderExporterV2::defaultResources();
    std::chrono::milliseconds statusClearDelay{4000};
};

class WindowExportController {
public:
    using SnapshotProvider = std::function<std::optional<ExportSnapshot>()>;

    WindowExportController(EditorStore& store, SnapshotProvider snapshot,
                           WindowExportOptions options = {});
    // Cancels a run under way and waits for its thread; a temporary result is deleted.
    ~WindowExportController();
    WindowExportController(const WindowExportController&) = delete;
    WindowExportController& operator=(const WindowExportController&) = delete;

    // Begins a run; false (and nothing changes) without a snapshot.
    bool start(const ExportRequest& request);
    // Ends a run under way: its half-written file goes, and the status says "Canceled".
    void cancel();
    void discardTemporaryFileIfNeeded();
    // Another document opened in the window: the last result is forgotten.
    void resetForDocumentLoad();

    const Published<bool>& isExporting() const { return isExporting_; }
    const Published<double>& progress() const { return progress_; }
    const Published<std::optional<std::string>>& statusText() const { return statusText_; }
    const Published<bool>& snapshotBecameStale() const { return snapshotBecameStale_; }
    const Published<std::optional<std::filesystem::path>>& renderedURL() const {
        return renderedURL_;
    }
    bool renderedFileIsTemporary() const { return renderedFileIsTemporary_; }

    // The size a request renders at, after the project's aspect ratio.
    static ExportOutputSize outputSize(const ExportSnapshot& snapshot,
                                       const ExportRequest& request);
    // The path with the format's extension ("mp4" or "mov") in place of another.
    static std::filesystem::path withFormatExtension(const std::filesystem::path& url,
                                                     RenderExportFileType fileType);

private:
    void finished(uint64_t generation, const std::filesystem::path& written);
    void failed(uint64_t generation, const std::string& description);
    void scheduleStatusClear();
    void joinRun();

    EditorStore& store_;
    SnapshotProvider snapshot_;
    WindowExportOptions options_;
    uint64_t generation_ = 0;
    uint64_t statusClearGeneration_ = 0;
    std::optional<EditorProjectState> runProject_;
    std::optional<std::filesystem::path> runOutput_;
    std::jthread run_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    Published<bool> isExporting_{false};
    Published<double> progress_{0.0};
    Published<std::optional<std::string>> statusText_;
    Published<bool> snapshotBecameStale_{false};
    Published<std::optional<std::filesystem::path>> renderedURL_;
    bool renderedFileIsTemporary_ = false;
    Subscription projectSubscription_;
};

} // namespace orvelle
