#include "playback/composition_player.h"

#include "composition/frame_renderer.h"
#include "composition/frame_rendering_context.h"
#include "core/log.h"
#include "timeline_media/composition_video_reader.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kPresentTolerance = 0.0005; // a frame due this soon goes on screen now

std::unique_ptr<AudioOutput> openOutput(const CompositionPlayerOptions& options,
                                        std::string& problem) {
    if (!options.withSound) {
        problem = "Sound is off.";
        return nullptr;
    }
    try {
        return std::make_unique<AudioOutput>(options.audio);
    } catch (const AudioOutputError& error) {
        problem = error.what();
        logWarning("playback", "playing without sound: ", error.what());
        return nullptr;
    }
}

Size validSize(Size size) {
    return {std::max(std::round(size.width), 2.0), std::max(std::round(size.height), 2.0)};
}

} // namespace

CompositionPlayer::CompositionPlayer(Executor& mainExecutor,
                                     const CompositionPlayerOptions& options)
    : main_(mainExecutor), frameRate_(std::clamp(options.frameRate, 1, 240)),
      framesAhead_(options.framesAhead > 0
                       ? options.framesAhead
                       : std::max<size_t>(3, static_cast<size_t>((frameRate_ + 9) / 10))),
      cache_(options.frameCache ? options.frameCache : std::make_shared<PreviewFrameCache>()),
      previewSize_(validSize(options.previewSize)) {
    audio_ = std::make_unique<PlayerAudio>(openOutput(options, soundProblem_));
    tickInterval_ = 1.0 / frameRate_;
    renderThread_ = std::thread([this] { renderLoop(); });
    presentThread_ = std::thread([this] { presentLoop(); });
}

CompositionPlayer::~CompositionPlayer() {
    alive_.reset();
    {
        const std::lock_guard lock(lock_);
        quit_ = true;
    }
    renderWake_.notify_all();
    presentWake_.notify_all();
    renderThread_.join();
    presentThread_.join();
    audio_.reset();
}

void CompositionPlayer::post(std::function<void()> task) {
    std::weak_ptr<int> alive = alive_;
    main_.post([alive = std::move(alive), task = std::move(task)] {
        if (alive.lock()) {
            task();
        }
    });
}

int64_t CompositionPlayer::frameIndexAt(double editTime) const {
    auto index = static_cast<int64_t>(std::floor(std::max(editTime, 0.0) * frameRate_ + 1e-6));
    if (item_) {
        const auto last = static_cast<int64_t>(std::ceil(item_->duration * frameRate_ - 1e-6)) - 1;
        index = std::min(index, std::max<int64_t>(last, 0));
    }
    return index;
}

int CompositionPlayer::strideLocked() const {
    return std::max(1, static_cast<int>(std::floor(rate_ + 1e-9)));
}

double CompositionPlayer::lateness() const {
    return std::min(1.0 / frameRate_, 0.020);
}

void CompositionPlayer::restartLocked(double editTime) {
    ++generation_;
    clockStartPending_ = false;
    ring_.clear();
    nextIndex_ = frameIndexAt(editTime);
    firstFramePending_ = true;
    videoEnded_ = false;
    renderWake_.notify_all();
    presentWake_.notify_all();
}

void CompositionPlayer::finishSeekLocked(bool finished) {
    if (!pendingSeek_) {
        return;
    }
    PendingSeek seek = std::move(*pendingSeek_);
    pendingSeek_.reset();
    if (finished) {
        statistics_.lastSeekSeconds =
            std::chrono::duration<double>(Clock::now() - seek.requested).count();
    }
    if (seek.completion) {
        post([completion = std::move(seek.completion), finished] { completion(finished); });
    }
}

void CompositionPlayer::replaceCurrentItem(std::shared_ptr<const PlayerItem> item,
                                           std::function<void()> completion) {
    replaceCurrentItem(std::move(item), nullptr, std::move(completion));
}

void CompositionPlayer::replaceCurrentItem(std::shared_ptr<const PlayerItem> item,
                                           std::shared_ptr<const PreviewGeometry> geometry,
                                           std::function<void()> completion) {
    const double now = audio_->clockTime();
    const std::lock_guard lock(lock_);
    if (geometry) {
        geometry_ = std::move(geometry);
        ++geometryVersion_;
    }
    item_ = std::move(item);
    ++itemVersion_;
    const double time = item_ ? std::clamp(now, 0.0, item_->duration) : 0;
    audio_->setItem(item_);
    audio_->locate(time);
    finishSeekLocked(false);
    if (itemCompletion_ && itemCompletion_->second) {
        // Replaced before it was ready: it is ready as much as it will be.
        post(std::move(itemCompletion_->second));
    }
    itemCompletion_.reset();
    if (!item_) {
        current_.reset();
        if (completion) {
            post(std::move(completion)); // nothing to prepare
        }
    } else {
        itemCompletion_.emplace(itemVersion_, std::move(completion));
    }
    restartLocked(time);
    resumeAfterFirstFrame_ = playing_;
}

bool CompositionPlayer::hasItem() const {
    const std::lock_guard lock(lock_);
    return item_ != nullptr;
}

void CompositionPlayer::setGeometry(std::shared_ptr<const PreviewGeometry> geometry) {
    const double now = audio_->clockTime();
    const std::lock_guard lock(lock_);
    geometry_ = std::move(geometry);
    ++geometryVersion_;
    if (playing_ && !firstFramePending_) {
        // Playing on: the frames made ahead were drawn with the old look.
        ++generation_;
        ring_.clear();
        nextIndex_ = frameIndexAt(now) + 1;
        videoEnded_ = false;
        renderWake_.notify_all();
    } else if (!firstFramePending_) {
        restartLocked(now);
    } else {
        // The picture the seek waits for may be drawn with the old look already: it is
        // dropped and drawn again at the same index.
        ++generation_;
        ring_.clear();
        renderWake_.notify_all();
    }
}

void CompositionPlayer::setPreviewSize(Size size) {
    size = validSize(size);
    const double now = audio_->clockTime();
    const std::lock_guard lock(lock_);
    if (size == previewSize_) {
        return;
    }
    previewSize_ = size;
    if (playing_ && !firstFramePending_) {
        ++generation_;
        ring_.clear();
        nextIndex_ = frameIndexAt(now) + 1;
        videoEnded_ = false;
        renderWake_.notify_all();
    } else {
        restartLocked(now);
    }
}

Size CompositionPlayer::previewSize() const {
    const std::lock_guard lock(lock_);
    return previewSize_;
}

void CompositionPlayer::seek(double editTime, std::function<void(bool finished)> completion) {
    const std::lock_guard lock(lock_);
    finishSeekLocked(false);
    const double duration = item_ ? item_->duration : 0;
    const double time = std::clamp(std::isfinite(editTime) ? editTime : 0.0, 0.0, duration);
    audio_->locate(time);
    restartLocked(time);
    resumeAfterFirstFrame_ = playing_;
    pendingSeek_ = PendingSeek{generation_, std::move(completion), Clock::now()};
}

void CompositionPlayer::cancelPendingSeeks() {
    const std::lock_guard lock(lock_);
    finishSeekLocked(false);
}

bool CompositionPlayer::isSeeking() const {
    const std::lock_guard lock(lock_);
    return pendingSeek_.has_value();
}

void CompositionPlayer::play() {
    const std::lock_guard lock(lock_);
    if (playing_ || !item_) {
        return;
    }
    playing_ = true;
    if (firstFramePending_) {
        resumeAfterFirstFrame_ = true;
    } else {
        clockStartPending_ = true;
    }
    presentWake_.notify_all();
    renderWake_.notify_all();
}

void CompositionPlayer::pause() {
    const std::lock_guard lock(lock_);
    if (!playing_) {
        return;
    }
    playing_ = false;
    resumeAfterFirstFrame_ = false;
    clockStartPending_ = false;
    audio_->stop();
    // The frame on screen is drawn again without motion: a paused picture shows no blur.
    const double now = audio_->clockTime();
    if (!firstFramePending_) {
        restartLocked(now);
    }
    presentWake_.notify_all();
}

bool CompositionPlayer::isPlaying() const {
    const std::lock_guard lock(lock_);
    return playing_;
}

void CompositionPlayer::setRate(double rate) {
    rate = std::clamp(std::isfinite(rate) ? rate : 1.0, 0.25, 8.0);
    const std::lock_guard lock(lock_);
    if (rate == rate_) {
        return;
    }
    rate_ = rate;
    audio_->setRate(rate);
    presentWake_.notify_all();
}

double CompositionPlayer::rate() const {
    const std::lock_guard lock(lock_);
    return rate_;
}

double CompositionPlayer::currentTime() const {
    const double time = audio_->clockTime();
    const std::lock_guard lock(lock_);
    return item_ ? std::clamp(time, 0.0, item_->duration) : 0.0;
}

double CompositionPlayer::duration() const {
    const std::lock_guard lock(lock_);
    return item_ ? item_->duration : 0.0;
}

void CompositionPlayer::setPeriodicTimeObserver(double interval,
                                                std::function<void(double)> observer) {
    const std::lock_guard lock(lock_);
    tickInterval_ = std::clamp(interval, 0.001, 1.0);
    tickObserver_ = std::move(observer);
}

void CompositionPlayer::setEndObserver(std::function<void()> observer) {
    const std::lock_guard lock(lock_);
    endObserver_ = std::move(observer);
}

Subscription CompositionPlayer::addFrameObserver(FrameObserver observer) {
    const std::lock_guard lock(lock_);
    const int token = nextFrameObserver_++;
    frameObservers_.emplace(token, std::make_shared<FrameObserver>(std::move(observer)));
    std::weak_ptr<int> alive = alive_;
    return Subscription([this, alive, token] {
        if (alive.lock()) {
            const std::lock_guard guard(lock_);
            frameObservers_.erase(token);
        }
    });
}

std::shared_ptr<const PreviewFrame> CompositionPlayer::currentFrame() const {
    const std::lock_guard lock(lock_);
    return current_;
}

PlaybackStatistics CompositionPlayer::statistics() const {
    const std::lock_guard lock(lock_);
    PlaybackStatistics statistics = statistics_;
    statistics.audioUnderrunFrames = audio_->underrunFrames();
    statistics.meanRenderSeconds = renderSecondsEstimate_;
    return statistics;
}

// ---- Drawing ahead ----------------------------------------------------------------------

void CompositionPlayer::renderLoop() {
    uint64_t itemVersion = 0;
    std::shared_ptr<const PlayerItem> item;
    std::unique_ptr<CompositionVideoReader> screen;
    std::unique_ptr<CompositionVideoReader> camera;
    uint64_t geometryVersion = 0;
    Size size;
    std::shared_ptr<const PreviewGeometry> geometry;
    std::unique_ptr<RenderFrameResolver> resolver;
    std::optional<RenderFrameSource> tracksSource;
    RenderFrameTracks tracks;
    FrameRenderingContext context;
    VideoFrame screenFrame;
    VideoFrame cameraFrame;
    uint64_t resolvedGeneration = 0;
    int64_t lastResolved = -1;

    std::unique_lock lock(lock_);
    for (;;) {
        // Ahead while playing; while paused only the frame that goes on screen, so that a
        // scrub's next seek finds the thread free.
        renderWake_.wait(lock, [&] {
            const size_t wanted = playing_ ? framesAhead_ : (firstFramePending_ ? 1 : 0);
            return quit_ || (item_ && geometry_ && !videoEnded_ && ring_.size() < wanted);
        });
        if (quit_) {
            return;
        }
        const uint64_t generation = generation_;
        const int64_t index = nextIndex_;
        const int stride = strideLocked();
        const bool playing = playing_ && !firstFramePending_;
        const bool first = firstFramePending_;
        const uint64_t wantedItemVersion = itemVersion_;
        const auto wantedItem = item_;
        const uint64_t wantedGeometryVersion = geometryVersion_;
        const auto wantedGeometry = geometry_;
        const Size wantedSize = previewSize_;
        lock.unlock();

        if (wantedItemVersion != itemVersion) {
            item = wantedItem;
            itemVersion = wantedItemVersion;
            screen.reset();
            camera.reset();
            try {
                screen = std::make_unique<CompositionVideoReader>(item->composition,
                                                                  item->screenTrackID);
                if (item->cameraTrackID) {
                    camera = std::make_unique<CompositionVideoReader>(item->composition,
                                                                      *item->cameraTrackID);
                }
            } catch (const Error& error) {
                logWarning("playback", "the edit's pictures cannot be read: ", error.what());
            }
            lastResolved = -1;
            lock.lock();
            if (itemCompletion_ && itemCompletion_->first <= itemVersion) {
                if (itemCompletion_->second) {
                    post(std::move(itemCompletion_->second));
                }
                itemCompletion_.reset();
            }
            continue; // the state may have moved on meanwhile
        }
        if (wantedGeometryVersion != geometryVersion || wantedSize != size || !resolver) {
            geometry = wantedGeometry;
            geometryVersion = wantedGeometryVersion;
            size = wantedSize;
            RenderFrameSource source = geometry->source;
            source.stageSize = size;
            if (!tracksSource || !RenderFrameTracks::sameInputs(*tracksSource, source)) {
                tracks = RenderFrameResolver::prepareTracks(source);
                tracksSource = source;
            }
            resolver = std::make_unique<RenderFrameResolver>(std::move(source), tracks);
            lastResolved = -1;
            lock.lock();
            continue;
        }

        const double time = static_cast<double>(index) / frameRate_;
        if (!(time < item->duration - 1e-9)) {
            lock.lock();
            if (generation == generation_) {
                videoEnded_ = true;
                presentWake_.notify_all();
            }
            continue;
        }

        // Motion builds up over every frame of the grid, also those stepped over.
        const bool continues = resolvedGeneration == generation && lastResolved >= 0 &&
                               index > lastResolved && index - lastResolved <= 8;
        if (continues) {
            for (int64_t i = lastResolved + 1; i < index; ++i) {
                resolver->resolve(static_cast<double>(i) / frameRate_, true);
            }
        }
        const FrameComposition composition = resolver->resolve(time, continues);
        resolvedGeneration = generation;
        lastResolved = index;

        // A frame that cannot be drawn before it is due is not drawn.
        if (playing && !first) {
            const double clock = audio_->clockTime();
            if (clock + renderSecondsEstimate_ > time + lateness()) {
                lock.lock();
                if (generation == generation_) {
                    ++statistics_.droppedFrames;
                    nextIndex_ = index + stride;
                }
                continue;
            }
        }

        const bool still =
            composition.cameraFrameMotion == MotionBlurVector{} && composition.zoomFrameMotion == 0;
        const int width = static_cast<int>(size.width);
        const int height = static_cast<int>(size.height);
        const PreviewFrameKey key{geometry->snapshotKey, width, height, frameRate_, index};
        std::optional<Bitmap> picture = still ? cache_->find(key) : std::nullopt;
        if (!picture) {
            const auto started = Clock::now();
            try {
                const VideoFrame* screenPicture =
                    screen && screen->frameAt(time, screenFrame) ? &screenFrame : nullptr;
                const VideoFrame* cameraPicture =
                    composition.hasCameraOverlay && camera && camera->frameAt(time, cameraFrame)
                        ? &cameraFrame
                        : nullptr;
                picture =
                    FrameRenderer::render(FrameRenderer::rendererInput(composition, screenPicture,
                                                                       cameraPicture, context),
                                          context)
                        .render({0, 0, size.width, size.height});
            } catch (const Error& error) {
                logWarning("playback", "a frame could not be drawn: ", error.what());
                picture = FrameRenderer::render(
                              FrameRenderer::rendererInput(composition, nullptr, nullptr, context),
                              context)
                              .render({0, 0, size.width, size.height});
            }
            if (still) {
                cache_->insert(key, *picture);
            }
            // What a frame takes while playing on; the first after a seek also seeks the
            // decoders and may fill the rendering context's caches.
            if (playing && !first) {
                const double seconds =
                    std::chrono::duration<double>(Clock::now() - started).count();
                lock.lock();
                renderSecondsEstimate_ += (seconds - renderSecondsEstimate_) * 0.2;
                lock.unlock();
            }
        }

        auto frame = std::make_shared<PreviewFrame>();
        frame->picture = std::move(*picture);
        frame->frameIndex = index;
        frame->editTime = time;
        frame->sourceTime = composition.sourceTime.seconds;
        lock.lock();
        if (generation == generation_) {
            ring_.push_back(std::move(frame));
            nextIndex_ = index + stride;
            presentWake_.notify_all();
        }
    }
}

// ---- Showing on time ----------------------------------------------------------------------

void CompositionPlayer::presentLoop() {
    std::unique_lock lock(lock_);
    auto nextTick = Clock::now();
    uint64_t shownCount = 0;

    const auto show = [&](const std::shared_ptr<PreviewFrame>& frame, double clock) {
        frame->presentedClockTime = clock;
        frame->number = ++shownCount;
        current_ = frame;
        ++statistics_.shownFrames;
        statistics_.largestOffset =
            std::max(statistics_.largestOffset, std::abs(clock - frame->editTime));
        std::vector<std::shared_ptr<FrameObserver>> observers;
        for (const auto& [token, observer] : frameObservers_) {
            observers.push_back(observer);
        }
        renderWake_.notify_all();
        if (!observers.empty()) {
            lock.unlock();
            for (const auto& observer : observers) {
                (*observer)(frame);
            }
            lock.lock();
        }
    };

    while (!quit_) {
        if (firstFramePending_ && !ring_.empty()) {
            auto frame = std::move(ring_.front());
            ring_.pop_front();
            firstFramePending_ = false;
            const bool resume = resumeAfterFirstFrame_ && playing_;
            resumeAfterFirstFrame_ = false;
            if (pendingSeek_ && pendingSeek_->generation <= generation_) {
                finishSeekLocked(true);
            }
            clockStartPending_ = resume;
            show(frame, audio_->clockTime());
            nextTick = Clock::now();
            continue;
        }
        if (!playing_ || firstFramePending_) {
            presentWake_.wait(lock);
            continue;
        }

        if (clockStartPending_) {
            if (ring_.size() < framesAhead_ && !videoEnded_) {
                presentWake_.wait_for(lock, std::chrono::milliseconds(50));
                continue;
            }
            clockStartPending_ = false;
            audio_->start();
        }
        const uint64_t generation = generation_;
        lock.unlock();
        const double clock = audio_->clockTime();
        lock.lock();
        if (generation != generation_ || !playing_ || quit_) {
            continue;
        }

        const auto now = Clock::now();
        if (now >= nextTick && tickObserver_ && !tickQueued_->exchange(true)) {
            std::weak_ptr<std::atomic<bool>> queued = tickQueued_;
            post([this, queued] {
                if (const auto flag = queued.lock()) {
                    flag->store(false);
                }
                std::function<void(double)> observer;
                {
                    const std::lock_guard guard(lock_);
                    observer = tickObserver_;
                }
                if (observer) {
                    observer(currentTime());
                }
            });
            nextTick = now + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(tickInterval_));
        }

        const double duration = item_ ? item_->duration : 0;
        if (clock >= duration) {
            playing_ = false;
            audio_->stop();
            audio_->locate(duration);
            if (endObserver_) {
                post([this] {
                    std::function<void()> observer;
                    {
                        const std::lock_guard guard(lock_);
                        observer = endObserver_;
                    }
                    if (observer) {
                        observer();
                    }
                });
            }
            continue;
        }

        auto deadline = nextTick;
        if (!ring_.empty()) {
            const auto& head = ring_.front();
            const bool nextIsDue = ring_.size() > 1 && ring_[1]->editTime <= clock;
            if (clock > head->editTime + lateness() || nextIsDue) {
                ring_.pop_front();
                ++statistics_.droppedFrames;
                renderWake_.notify_all();
                continue;
            }
            if (head->editTime <= clock + kPresentTolerance) {
                auto frame = std::move(ring_.front());
                ring_.pop_front();
                show(frame, clock);
                continue;
            }
            const double wait = (head->editTime - clock) / std::max(rate_, 0.01);
            deadline = std::min(deadline, now + std::chrono::duration_cast<Clock::duration>(
                                                    std::chrono::duration<double>(wait)));
        }
        deadline = std::min(deadline, now + std::chrono::milliseconds(10));
        presentWake_.wait_until(lock, deadline);
    }
}

} // namespace orvelle
