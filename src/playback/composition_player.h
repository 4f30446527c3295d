#pragma once

// The real-time player of an edit. Its clock runs in edit time and is the sound's: the
// mix plays through the sound server and the pictures follow what is heard. Pictures are
// drawn ahead on a thread of their own ("com.orvelle.playback.video") by the export's
// frame renderer at the preview's size, from frames decoded in order, into a small ring;
// a presenting thread ("com.orvelle.playback.present") shows each when the clock reaches
// its time, and drops (and counts) one that would be late instead of showing it late.
// The pictures lie on a grid of the preview's frame rate from edit time 0, the same grid
// as an export at that rate, and motion builds up over them as in an export: a frame shown
// while playing from the start is the export's frame.
//
// Seeks are accurate and complete when their frame is on screen; a seek, a new item, a
// rate change each start from a still frame. Completions, the periodic time observer and
// the end of the item are delivered on the main executor the caller gives (the Qt event
// loop, or a RunLoop in the command and the tests). The control methods are for the main
// thread; currentTime, currentFrame and statistics may be read from any thread.

#include "core/executor.h"
#include "editor/published.h"
#include "platform/audio/audio_output.h"
#include "playback/player_audio.h"
#include "playback/player_item.h"
#include "playback/preview_frame_cache.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace orvelle {

// One picture of the preview.
struct PreviewFrame {
    Bitmap picture; // premultiplied BGRA at the preview's size; never changed once shown
    int64_t frameIndex = 0;
    double editTime = 0; // frameIndex / frame rate
    double sourceTime = 0;
    double presentedClockTime = 0; // the clock when the frame went on screen
    uint64_t number = 0;           // counts the frames shown by this player
};

struct PlaybackStatistics {
    uint64_t shownFrames = 0;
    uint64_t droppedFrames = 0; // frames that would have been late
    double largestOffset = 0;   // seconds between a frame's time and the clock when shown
    int64_t audioUnderrunFrames = 0;
    double lastSeekSeconds = 0; // from the call to the seek's frame on screen
    double meanRenderSeconds = 0;
};

struct CompositionPlayerOptions {
    int frameRate = 60;
    Size previewSize{1280, 720};
    // Pictures drawn ahead of the clock; 0 for a tenth of a second's worth, at least 3.
    size_t framesAhead = 0;
    // Sound through the sound server; without it (or without a server) nothing sounds and
    // the clock is the system's.
    bool withSound = true;
    AudioOutputOptions audio;
    std::shared_ptr<PreviewFrameCache> frameCache; // made when absent
};

class CompositionPlayer {
public:
    CompositionPlayer(Executor& mainExecutor, const CompositionPlayerOptions& options = {});
    ~CompositionPlayer();
    CompositionPlayer(const CompositionPlayer&) = delete;
    CompositionPlayer& operator=(const CompositionPlayer&) = delete;

    // Plays another item from the present time (held to its length); the completion runs
    // on the main executor once the item is ready to seek in. The playing state is kept.
    void replaceCurrentItem(std::shared_ptr<const PlayerItem> item,
                            std::function<void()> completion = nullptr);
    // The same with what its frames are drawn from, so that no frame mixes the two.
    void replaceCurrentItem(std::shared_ptr<const PlayerItem> item,
                            std::shared_ptr<const PreviewGeometry> geometry,
                            std::function<void()> completion);
    bool hasItem() const;
    // What the next frames are drawn from. While paused the frame on screen is drawn again.
    void setGeometry(std::shared_ptr<const PreviewGeometry> geometry);
    void setPreviewSize(Size size);
    Size previewSize() const;
    int frameRate() const { return frameRate_; }

    // The clock goes to the edit time, and the completion runs with true once the frame
    // there is on screen, or with false when a later seek or item replaced it first. The
    // playing state is kept.
    void seek(double editTime, std::function<void(bool finished)> completion = nullptr);
    // Pending completions run with false.
    void cancelPendingSeeks();
    bool isSeeking() const;

    void play();
    void pause();
    bool isPlaying() const;
    // The speed of the clock, 0.25 to 8; pictures step over the grid at rates of 2 and more.
    void setRate(double rate);
    double rate() const;

    // Edit seconds. Thread-safe.
    double currentTime() const;
    double duration() const;

    // Called on the main executor about every `interval` seconds of wall time while
    // playing, with the clock; a call still waiting to run is not doubled.
    void setPeriodicTimeObserver(double interval, std::function<void(double)> observer);
    // Called on the main executor when playing reaches the end of the item (the player
    // has then stopped there).
    void setEndObserver(std::function<void()> observer);
    // Called on the presenting thread with every frame shown, until the subscription ends;
    // it must return quickly.
    using FrameObserver = std::function<void(const std::shared_ptr<const PreviewFrame>&)>;
    [[nodiscard]] Subscription addFrameObserver(FrameObserver observer);

    // The picture on screen, absent before the first. Thread-safe.
    std::shared_ptr<const PreviewFrame> currentFrame() const;
    PlaybackStatistics statistics() const;
    PreviewFrameCache& frameCache() { return *cache_; }
    PlayerAudio& audio() { return *audio_; }
    bool hasSound() const { return audio_->hasSound(); }
    // Why nothing sounds, when nothing does.
    const std::string& soundProblem() const { return soundProblem_; }

private:
    struct PendingSeek {
        uint64_t generation = 0;
        std::function<void(bool)> completion;
        std::chrono::steady_clock::time_point requested;
    };

    void renderLoop();
    void presentLoop();
    // Under lock_: every frame from here on is drawn anew from the time, shown at once.
    void restartLocked(double editTime);
    void finishSeekLocked(bool finished);
    void post(std::function<void()> task);
    int64_t frameIndexAt(double editTime) const;
    int strideLocked() const;
    double lateness() const;

    Executor& main_;
    const int frameRate_;
    const size_t framesAhead_;
    std::shared_ptr<PreviewFrameCache> cache_;
    std::string soundProblem_;
    std::unique_ptr<PlayerAudio> audio_;
    // Tasks posted to the main executor run only while this lives.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);

    mutable std::mutex lock_;
    std::condition_variable renderWake_;
    std::condition_variable presentWake_;
    bool quit_ = false;
    std::shared_ptr<const PlayerItem> item_;
    uint64_t itemVersion_ = 0;
    std::shared_ptr<const PreviewGeometry> geometry_;
    uint64_t geometryVersion_ = 0;
    Size previewSize_;
    bool playing_ = false;
    double rate_ = 1;
    // A new generation drops the frames made ahead and draws from nextIndex_ anew.
    uint64_t generation_ = 0;
    int64_t nextIndex_ = 0;
    bool firstFramePending_ = true; // the generation's first frame goes on screen at once
    bool resumeAfterFirstFrame_ = false;
    // Playing waits for the frames ahead before the clock runs, so that it starts smoothly.
    bool clockStartPending_ = false;
    bool videoEnded_ = false; // no frame of this generation lies after the last made
    std::deque<std::shared_ptr<PreviewFrame>> ring_;
    std::optional<PendingSeek> pendingSeek_;
    std::optional<std::pair<uint64_t, std::function<void()>>> itemCompletion_;
    std::shared_ptr<const PreviewFrame> current_;
    PlaybackStatistics statistics_;
    double renderSecondsEstimate_ = 0.02;
    uint64_t renderedCount_ = 0;

    double tickInterval_ = 1.0 / 60;
    std::function<void(double)> tickObserver_; // main thread
    std::shared_ptr<std::atomic<bool>> tickQueued_ = std::make_shared<std::atomic<bool>>(false);
    std::function<void()> endObserver_; // main thread
    std::map<int, std::shared_ptr<FrameObserver>> frameObservers_;
    int nextFrameObserver_ = 0;

    std::thread renderThread_;
    std::thread presentThread_;
};

} // namespace orvelle
