#include "platform/capture/x11/x11_capture_stream.h"

#include "core/error.h"
#include "core/log.h"
#include "platform/capture/capture_frame_pool.h"
#include "platform/capture/capture_tick_clock.h"
#include "platform/capture/x11/detail/xcb_connection.h"

#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <xcb/shm.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace orvelle {

namespace {

using detail::XcbConnection;
using detail::XcbReply;
using Clock = std::chrono::steady_clock;

struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool isEmpty() const { return width <= 0 || height <= 0; }
};

PixelRect intersection(PixelRect a, PixelRect b) {
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    const int right = std::min(a.x + a.width, b.x + b.width);
    const int bottom = std::min(a.y + a.height, b.y + b.height);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

// The X server hands out pictures as 32-bit little-endian pixels with red in the third
// byte: B, G, R, X in memory. Anything else (a 16-bit display, a big-endian server) is
// refused rather than recorded in the wrong colours.
void checkPixelFormat(XcbConnection& x) {
    const xcb_setup_t* setup = xcb_get_setup(x.get());
    const uint8_t depth = x.screen()->root_depth;
    bool thirtyTwoBits = false;
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem > 0; xcb_format_next(&it)) {
        if (it.data->depth == depth && it.data->bits_per_pixel == 32) {
            thirtyTwoBits = true;
        }
    }
    bool bgr = false;
    for (auto depths = xcb_screen_allowed_depths_iterator(x.screen()); depths.rem > 0;
         xcb_depth_next(&depths)) {
        for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
             xcb_visualtype_next(&visuals)) {
            const xcb_visualtype_t* visual = visuals.data;
            if (visual->visual_id == x.screen()->root_visual) {
                bgr = visual->red_mask == 0xff0000 && visual->green_mask == 0xff00 &&
                      visual->blue_mask == 0xff;
            }
        }
    }
    if ((depth != 24 && depth != 32) || !thirtyTwoBits || !bgr ||
        setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST) {
        throw Error("The X display " + x.displayName() + " uses " + std::to_string(depth) +
                    "-bit colour; Orvelle records 24-bit colour displays only.");
    }
}

bool hasSharedMemory(XcbConnection& x) {
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(x.get(), &xcb_shm_id);
    if (shm == nullptr || shm->present == 0) {
        return false;
    }
    const XcbReply<xcb_shm_query_version_reply_t> version(
        xcb_shm_query_version_reply(x.get(), xcb_shm_query_version(x.get()), nullptr));
    return static_cast<bool>(version);
}

class X11CaptureStream final : public CaptureStream {
public:
    X11CaptureStream(const std::string& displayName, const X11CaptureTarget& target,
                     const CaptureStreamConfiguration& configuration, CaptureStreamOutput& output)
        : x_(displayName), target_(target), configuration_(configuration), output_(output) {
        if (configuration_.width <= 0 || configuration_.height <= 0) {
            throw Error("A screen stream needs a positive picture size.");
        }
        checkPixelFormat(x_);
        if (target_.kind == X11CaptureTarget::Kind::window) {
            // Fail now, not at the first tick, when the window is already gone.
            if (auto failure = windowRect(); !failure.second.empty()) {
                throw Error(failure.second);
            }
        }
        makePool();
    }

    ~X11CaptureStream() override { stop(); }

    void start() override {
        std::lock_guard lock(mutex_);
        if (thread_.joinable() || stopping_) {
            return;
        }
        thread_ = std::thread([this] { run(); });
    }

    std::optional<std::string> stop() override {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        if (thread_.joinable()) {
            thread_.join();
            if (const int64_t skipped = skippedFrames(); skipped > 0) {
                logInfo("capture", "ticks lost: ", skipped, " (", lateTicks_.load(),
                        " taken too late, ", busyTicks_.load(), " with every buffer in use)");
            }
        }
        for (const uint32_t segment : segments_) {
            xcb_shm_detach(x_.get(), segment);
        }
        segments_.clear();
        xcb_flush(x_.get());
        return std::nullopt;
    }

    int64_t skippedFrames() const override { return lateTicks_ + busyTicks_; }

private:
    size_t frameBytes() const {
        return static_cast<size_t>(configuration_.width) * 4 *
               static_cast<size_t>(configuration_.height);
    }

    void makePool() {
        const int count = std::max(1, configuration_.queueDepth);
        if (!hasSharedMemory(x_)) {
            logWarning("capture", "the X display has no MIT-SHM; reading pictures by copy");
            pool_ = CaptureFramePool::withHeapBuffers(count, frameBytes());
            return;
        }
        std::vector<CaptureFramePool::Buffer> buffers;
        try {
            for (int index = 0; index < count; ++index) {
                buffers.push_back(makeSharedBuffer());
            }
        } catch (...) {
            for (auto& buffer : buffers) {
                buffer.release();
            }
            for (const uint32_t segment : segments_) {
                xcb_shm_detach(x_.get(), segment);
            }
            segments_.clear();
            throw;
        }
        pool_ = std::make_shared<CaptureFramePool>(std::move(buffers));
    }

    CaptureFramePool::Buffer makeSharedBuffer() {
        const size_t size = frameBytes();
        const int id = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
        if (id < 0) {
            throw Error("Could not make shared memory for screen pictures (" +
                        std::string(std::strerror(errno)) + ").");
        }
        void* address = shmat(id, nullptr, 0);
        // shmat reports failure as the address -1 (MAP_FAILED has the same value).
        if (address == MAP_FAILED) {
            shmctl(id, IPC_RMID, nullptr);
            throw Error("Could not map shared memory for screen pictures.");
        }
        const uint32_t segment = xcb_generate_id(x_.get());
        const XcbReply<xcb_generic_error_t> error(xcb_request_check(
            x_.get(), xcb_shm_attach_checked(x_.get(), segment, static_cast<uint32_t>(id), 0)));
        // Marked for removal now: the memory goes away with its last user, even if this
        // process is killed.
        shmctl(id, IPC_RMID, nullptr);
        if (error) {
            shmdt(address);
            throw Error("The X display " + x_.displayName() +
                        " refused shared memory for screen pictures.");
        }
        segments_.push_back(segment);
        return {static_cast<uint8_t*>(address), size, [address] { shmdt(address); }};
    }

    // The window's rectangle on the screen, or the reason it cannot be recorded.
    std::pair<PixelRect, std::string> windowRect() {
        const auto attributesCookie = xcb_get_window_attributes(x_.get(), target_.window);
        const auto geometryCookie = xcb_get_geometry(x_.get(), target_.window);
        const auto originCookie =
            xcb_translate_coordinates(x_.get(), target_.window, x_.root(), 0, 0);
        const XcbReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(x_.get(), attributesCookie, nullptr));
        const XcbReply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(x_.get(), geometryCookie, nullptr));
        const XcbReply<xcb_translate_coordinates_reply_t> origin(
            xcb_translate_coordinates_reply(x_.get(), originCookie, nullptr));
        if (!attributes || !geometry || !origin) {
            return {{}, "The window being recorded was closed."};
        }
        if (attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
            return {{}, "The window being recorded was hidden or minimised."};
        }
        return {{origin->dst_x, origin->dst_y, geometry->width, geometry->height}, {}};
    }

    void run() {
        pthread_setname_np(pthread_self(), "orvelle.x11grab");
        const auto period = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(1.0 / std::max(1.0, configuration_.frameRate)));
        CaptureTickClock clock(Clock::now(), period, CaptureTickClock::toleranceFor(period));
        while (true) {
            {
                std::unique_lock lock(mutex_);
                if (wake_.wait_until(lock, clock.due(), [this] { return stopping_; })) {
                    return;
                }
            }
            lateTicks_ += clock.passOverLateTicks(Clock::now());
            const double time = clock.dueSeconds();
            const Clock::time_point deadline = clock.deadline();
            clock.advance();
            if (auto failure = captureFrame(time, period, deadline); !failure.empty()) {
                output_.streamDidStop(failure);
                return;
            }
        }
    }

    // Reads one picture and hands it to the output; returns why the stream must end, if it
    // must. A tick whose buffers are all still with the encoder waits for one to come back
    // until the tick's deadline.
    std::string captureFrame(double time, Clock::duration period, Clock::time_point deadline) {
        const auto index = pool_->acquire(deadline);
        if (!index) {
            ++busyTicks_;
            return {};
        }
        const auto& buffer = pool_->buffer(*index);
        const PixelRect screen{0, 0, x_.screen()->width_in_pixels, x_.screen()->height_in_pixels};
        PixelRect wanted{static_cast<int>(std::lround(target_.area.x)),
                         static_cast<int>(std::lround(target_.area.y)), configuration_.width,
                         configuration_.height};
        if (target_.kind == X11CaptureTarget::Kind::window) {
            auto [rect, failure] = windowRect();
            if (!failure.empty()) {
                pool_->giveBack(*index);
                return failure;
            }
            wanted = {rect.x, rect.y, std::min(rect.width, configuration_.width),
                      std::min(rect.height, configuration_.height)};
        }
        const PixelRect visible = intersection(wanted, screen);
        CapturedVideoFrame frame;
        frame.pixels = buffer.pixels;
        frame.stride = configuration_.width * 4;
        frame.width = configuration_.width;
        frame.height = configuration_.height;
        frame.presentationTime = time;
        frame.duration = std::chrono::duration<double>(period).count();
        frame.status = static_cast<int>(CaptureFrameStatus::complete);
        if (visible.isEmpty()) {
            std::memset(buffer.pixels, 0, buffer.size);
            frame.status = static_cast<int>(CaptureFrameStatus::blank);
        } else {
            if (auto failure = readPixels(*index, visible); !failure.empty()) {
                pool_->giveBack(*index);
                return failure;
            }
            place(buffer.pixels, visible, visible.x - wanted.x, visible.y - wanted.y);
        }
        output_.streamDidOutputVideoFrame(CaptureFramePool::lend(pool_, *index, frame));
        return {};
    }

    // The rectangle's pixels, tightly packed, at the start of the buffer.
    std::string readPixels(size_t index, PixelRect rect) {
        const auto x = static_cast<int16_t>(rect.x);
        const auto y = static_cast<int16_t>(rect.y);
        const auto width = static_cast<uint16_t>(rect.width);
        const auto height = static_cast<uint16_t>(rect.height);
        xcb_generic_error_t* rawError = nullptr;
        if (!segments_.empty()) {
            const XcbReply<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(
                x_.get(),
                xcb_shm_get_image(x_.get(), x_.root(), x, y, width, height, ~0U,
                                  XCB_IMAGE_FORMAT_Z_PIXMAP, segments_[index], 0),
                &rawError));
            const XcbReply<xcb_generic_error_t> error(rawError);
            if (!reply) {
                return readFailure();
            }
            return {};
        }
        const XcbReply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            x_.get(),
            xcb_get_image(x_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, x_.root(), x, y, width, height, ~0U),
            &rawError));
        const XcbReply<xcb_generic_error_t> error(rawError);
        if (!reply) {
            return readFailure();
        }
        const size_t bytes = std::min(static_cast<size_t>(xcb_get_image_data_length(reply.get())),
                                      pool_->buffer(index).size);
        std::memcpy(pool_->buffer(index).pixels, xcb_get_image_data(reply.get()), bytes);
        return {};
    }

    std::string readFailure() {
        if (xcb_connection_has_error(x_.get()) != 0) {
            return "The connection to the X display " + x_.displayName() + " was lost.";
        }
        return "The screen could not be read: the recorded area is no longer on the screen.";
    }

    // Moves the tightly packed rectangle to its place in the frame (offset by dx, dy) and
    // clears the rest. Rows move from the last to the first, so no row is overwritten
    // before it has moved.
    void place(uint8_t* pixels, PixelRect rect, int dx, int dy) const {
        const size_t stride = static_cast<size_t>(configuration_.width) * 4;
        const size_t rowBytes = static_cast<size_t>(rect.width) * 4;
        if (dx == 0 && dy == 0 && rect.width == configuration_.width &&
            rect.height == configuration_.height) {
            return;
        }
        for (int row = rect.height - 1; row >= 0; --row) {
            std::memmove(pixels + static_cast<size_t>(dy + row) * stride +
                             static_cast<size_t>(dx) * 4,
                         pixels + static_cast<size_t>(row) * rowBytes, rowBytes);
        }
        std::memset(pixels, 0, static_cast<size_t>(dy) * stride);
        for (int row = dy; row < dy + rect.height; ++row) {
            uint8_t* line = pixels + static_cast<size_t>(row) * stride;
            std::memset(line, 0, static_cast<size_t>(dx) * 4);
            std::memset(line + static_cast<size_t>(dx) * 4 + rowBytes, 0,
                        stride - static_cast<size_t>(dx) * 4 - rowBytes);
        }
        std::memset(pixels + static_cast<size_t>(dy + rect.height) * stride, 0,
                    static_cast<size_t>(configuration_.height - dy - rect.height) * stride);
    }

    XcbConnection x_;
    X11CaptureTarget target_;
    CaptureStreamConfiguration configuration_;
    CaptureStreamOutput& output_;
    std::shared_ptr<CaptureFramePool> pool_;
    std::vector<uint32_t> segments_; // one per pool buffer; empty without MIT-SHM
    std::thread thread_;
    std::mutex mutex_; // guards stopping_
    std::condition_variable wake_;
    bool stopping_ = false;
    std::atomic<int64_t> lateTicks_ = 0; // passed over: the capture came too late for them
    std::atomic<int64_t> busyTicks_ = 0; // every buffer was still with the encoder
};

} // namespace

std::unique_ptr<CaptureStream> makeX11CaptureStream(const std::string& displayName,
                                                    const X11CaptureTarget& target,
                                                    const CaptureStreamConfiguration& configuration,
                                                    CaptureStreamOutput& output) {
    return std::make_unique<X11CaptureStream>(displayName, target, configuration, output);
}

} // namespace orvelle
