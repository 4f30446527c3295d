#include "platform/capture/pipewire/pipewire_capture_stream.h"

#include "core/error.h"
#include "core/log.h"
#include "core/monotonic_clock.h"
#include "platform/capture/capture_frame_pool.h"

#include <fcntl.h>
#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/type-info.h>
#include <spa/utils/result.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace orvelle {

namespace {

// Room for a pointer picture of up to 64 x 64 pixels beside its position.
constexpr size_t kCursorMetaSize = sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) + 64 * 64 * 4;

void initialisePipeWire() {
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

const char* formatName(uint32_t format) {
    switch (format) {
    case SPA_VIDEO_FORMAT_BGRx:
        return "BGRx";
    case SPA_VIDEO_FORMAT_BGRA:
        return "BGRA";
    case SPA_VIDEO_FORMAT_RGBx:
        return "RGBx";
    case SPA_VIDEO_FORMAT_RGBA:
        return "RGBA";
    default:
        return "unknown";
    }
}

} // namespace

struct PipeWireCaptureStream::State {
    CaptureStreamConfiguration configuration;
    CaptureStreamOutput* output = nullptr;
    PipeWireCaptureTarget target;

    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    pw_registry* registry = nullptr;
    spa_hook coreListener{};
    spa_hook registryListener{};
    spa_hook streamListener{};

    // Guarded by the thread loop's lock.
    bool started = false;
    bool stopping = false;
    bool ended = false;
    bool hasFormat = false;
    uint32_t format = 0;
    int width = 0;
    int height = 0;
    double lastDelivered = -1;

    std::shared_ptr<CaptureFramePool> pool;
    std::atomic<int64_t> skipped = 0;

    mutable std::mutex publicMutex; // guards pointer, nodeID, formatText
    mutable std::condition_variable nodeKnown;
    std::optional<CapturedPointerPosition> pointer;
    std::optional<uint32_t> node;
    std::string formatText;

    // On the loop's thread, once: the stream cannot go on.
    void end(const std::string& message) {
        if (ended || stopping) {
            return;
        }
        ended = true;
        output->streamDidStop(message);
    }

    static void onCoreError(void* data, uint32_t id, int, int res, const char* message) {
        auto* self = static_cast<State*>(data);
        if (id == PW_ID_CORE && res == -EPIPE) {
            self->end("The connection to the screen-sharing service (PipeWire) was lost.");
        } else if (id == PW_ID_CORE) {
            logWarning("capture", "PipeWire: ", message != nullptr ? message : "error");
        }
    }

    // The shared node went away (its window closed, the desktop stopped sharing): the
    // consumer only pauses, so the registry says it.
    static void onGlobalRemoved(void* data, uint32_t id) {
        auto* self = static_cast<State*>(data);
        if (id == self->target.nodeID) {
            self->end("The screen-sharing stream ended: the shared screen or window went away.");
        }
    }

    static void onStateChanged(void* data, pw_stream_state old, pw_stream_state state,
                               const char* error) {
        auto* self = static_cast<State*>(data);
        if (state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING) {
            const uint32_t id = pw_stream_get_node_id(self->stream);
            if (id != SPA_ID_INVALID) {
                std::lock_guard lock(self->publicMutex);
                self->node = id;
                self->nodeKnown.notify_all();
            }
        }
        if (state == PW_STREAM_STATE_ERROR) {
            self->end(std::string("The screen-sharing stream failed (") +
                      (error != nullptr ? error : "unknown error") + ").");
        } else if (state == PW_STREAM_STATE_UNCONNECTED && old != PW_STREAM_STATE_UNCONNECTED &&
                   old != PW_STREAM_STATE_CONNECTING) {
            self->end("The screen-sharing stream ended: the shared screen or window went away.");
        }
    }

    static void onParamChanged(void* data, uint32_t id, const spa_pod* param) {
        auto* self = static_cast<State*>(data);
        if (param == nullptr || id != SPA_PARAM_Format) {
            return;
        }
        uint32_t mediaType = 0;
        uint32_t mediaSubtype = 0;
        if (spa_format_parse(param, &mediaType, &mediaSubtype) < 0 ||
            mediaType != SPA_MEDIA_TYPE_video || mediaSubtype != SPA_MEDIA_SUBTYPE_raw) {
            return;
        }
        spa_video_info_raw info{};
        if (spa_format_video_raw_parse(param, &info) < 0) {
            return;
        }
        self->format = info.format;
        self->width = static_cast<int>(info.size.width);
        self->height = static_cast<int>(info.size.height);
        self->hasFormat = true;
        {
            std::lock_guard lock(self->publicMutex);
            self->formatText = std::string(formatName(info.format)) + " " +
                               std::to_string(info.size.width) + "x" +
                               std::to_string(info.size.height);
        }
        uint8_t buffer[1024];
        spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
        const spa_pod* params[4];
        params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(8, 2, 16), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd))));
        params[1] = static_cast<const spa_pod*>(
            spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
                                       SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
                                       SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
        params[2] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
            SPA_POD_Int(static_cast<int>(kCursorMetaSize))));
        params[3] = static_cast<const spa_pod*>(
            spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
                                       SPA_PARAM_META_type, SPA_POD_Id(SPA_META_VideoCrop),
                                       SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_region))));
        pw_stream_update_params(self->stream, params, 4);
    }

    void readPointer(spa_buffer* buffer) {
        auto* cursor = static_cast<spa_meta_cursor*>(
            spa_buffer_find_meta_data(buffer, SPA_META_Cursor, sizeof(spa_meta_cursor)));
        if (cursor == nullptr) {
            return;
        }
        std::lock_guard lock(publicMutex);
        if (!spa_meta_cursor_is_valid(cursor)) {
            pointer = CapturedPointerPosition{0, 0, false};
            return;
        }
        const double x = cursor->position.x;
        const double y = cursor->position.y;
        pointer = CapturedPointerPosition{x, y, x >= 0 && y >= 0 && x < width && y < height};
    }

    static void onProcess(void* data) {
        auto* self = static_cast<State*>(data);
        pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream);
        if (buffer == nullptr) {
            return;
        }
        // Only the newest picture matters; older ones go straight back.
        while (pw_buffer* newer = pw_stream_dequeue_buffer(self->stream)) {
            self->readPointer(buffer->buffer);
            pw_stream_queue_buffer(self->stream, buffer);
            buffer = newer;
        }
        self->readPointer(buffer->buffer);
        self->deliver(buffer->buffer);
        pw_stream_queue_buffer(self->stream, buffer);
    }

    void deliver(spa_buffer* buffer) {
        if (!hasFormat || stopping || ended || buffer->n_datas < 1) {
            return;
        }
        const auto* header = static_cast<spa_meta_header*>(
            spa_buffer_find_meta_data(buffer, SPA_META_Header, sizeof(spa_meta_header)));
        if (header != nullptr && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0) {
            return;
        }
        const spa_data& plane = buffer->datas[0];
        if (plane.data == nullptr || plane.chunk == nullptr || plane.chunk->size == 0) {
            return; // a pointer-only update
        }
        const double now = monotonicNow();
        const double interval = 1.0 / std::max(1.0, configuration.frameRate);
        if (lastDelivered >= 0 && now - lastDelivered < interval * 0.9) {
            return;
        }
        // The picture, or the part the crop region names.
        int left = 0;
        int top = 0;
        int sourceWidth = width;
        int sourceHeight = height;
        const auto* crop = static_cast<spa_meta_region*>(
            spa_buffer_find_meta_data(buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
        if (crop != nullptr && spa_meta_region_is_valid(crop)) {
            left = std::clamp(crop->region.position.x, 0, width);
            top = std::clamp(crop->region.position.y, 0, height);
            sourceWidth = std::min(static_cast<int>(crop->region.size.width), width - left);
            sourceHeight = std::min(static_cast<int>(crop->region.size.height), height - top);
        }
        const int stride = plane.chunk->stride > 0 ? plane.chunk->stride : width * 4;
        const size_t available = std::min<size_t>(plane.chunk->size, plane.maxsize);
        const auto* source = static_cast<const uint8_t*>(plane.data) + plane.chunk->offset;
        const auto index = pool->acquire();
        if (!index) {
            ++skipped;
            return;
        }
        const auto& slot = pool->buffer(*index);
        const int outWidth = configuration.width;
        const int outHeight = configuration.height;
        const int copyWidth = std::min(sourceWidth, outWidth);
        const int copyHeight = std::min(sourceHeight, outHeight);
        const bool swapRedBlue = format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA;
        std::memset(slot.pixels, 0, slot.size);
        for (int row = 0; row < copyHeight; ++row) {
            const size_t offset = static_cast<size_t>(top + row) * static_cast<size_t>(stride) +
                                  static_cast<size_t>(left) * 4;
            if (offset + static_cast<size_t>(copyWidth) * 4 > available) {
                break;
            }
            const uint8_t* from = source + offset;
            uint8_t* to = slot.pixels + static_cast<size_t>(row) * outWidth * 4;
            if (!swapRedBlue) {
                std::memcpy(to, from, static_cast<size_t>(copyWidth) * 4);
                continue;
            }
            for (int column = 0; column < copyWidth; ++column) {
                to[column * 4 + 0] = from[column * 4 + 2];
                to[column * 4 + 1] = from[column * 4 + 1];
                to[column * 4 + 2] = from[column * 4 + 0];
                to[column * 4 + 3] = 255;
            }
        }
        CapturedVideoFrame frame;
        frame.pixels = slot.pixels;
        frame.stride = outWidth * 4;
        frame.width = outWidth;
        frame.height = outHeight;
        frame.presentationTime = now;
        frame.duration = lastDelivered >= 0 ? now - lastDelivered : interval;
        frame.status = static_cast<int>(CaptureFrameStatus::complete);
        lastDelivered = now;
        output->streamDidOutputVideoFrame(CaptureFramePool::lend(pool, *index, frame));
    }

    static const pw_core_events& coreEvents() {
        static const pw_core_events events = [] {
            pw_core_events made{};
            made.version = PW_VERSION_CORE_EVENTS;
            made.error = onCoreError;
            return made;
        }();
        return events;
    }

    static const pw_registry_events& registryEvents() {
        static const pw_registry_events events = [] {
            pw_registry_events made{};
            made.version = PW_VERSION_REGISTRY_EVENTS;
            made.global_remove = onGlobalRemoved;
            return made;
        }();
        return events;
    }

    static const pw_stream_events& streamEvents() {
        static const pw_stream_events events = [] {
            pw_stream_events made{};
            made.version = PW_VERSION_STREAM_EVENTS;
            made.state_changed = onStateChanged;
            made.param_changed = onParamChanged;
            made.process = onProcess;
            return made;
        }();
        return events;
    }

    void destroy() {
        if (loop != nullptr) {
            pw_thread_loop_stop(loop);
        }
        if (stream != nullptr) {
            pw_stream_destroy(stream);
            stream = nullptr;
        }
        if (registry != nullptr) {
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
            registry = nullptr;
        }
        if (core != nullptr) {
            pw_core_disconnect(core);
            core = nullptr;
        }
        if (context != nullptr) {
            pw_context_destroy(context);
            context = nullptr;
        }
        if (loop != nullptr) {
            pw_thread_loop_destroy(loop);
            loop = nullptr;
        }
    }
};

PipeWireCaptureStream::PipeWireCaptureStream(const PipeWireCaptureTarget& target,
                                             const CaptureStreamConfiguration& configuration,
                                             CaptureStreamOutput& output)
    : state_(std::make_unique<State>()) {
    if (configuration.width <= 0 || configuration.height <= 0) {
        throw Error("A screen stream needs a positive picture size.");
    }
    initialisePipeWire();
    State& s = *state_;
    s.configuration = configuration;
    s.output = &output;
    s.target = target;
    s.pool = CaptureFramePool::withHeapBuffers(std::max(1, configuration.queueDepth),
                                               static_cast<size_t>(configuration.width) * 4 *
                                                   static_cast<size_t>(configuration.height));
    s.loop = pw_thread_loop_new("orvelle-capture", nullptr);
    if (s.loop == nullptr) {
        throw Error("Could not start the screen-sharing stream's thread.");
    }
    s.context = pw_context_new(pw_thread_loop_get_loop(s.loop), nullptr, 0);
    if (s.context == nullptr || pw_thread_loop_start(s.loop) < 0) {
        s.destroy();
        throw Error("Could not start the screen-sharing stream's thread.");
    }
    pw_thread_loop_lock(s.loop);
    if (target.fd >= 0) {
        const int copy = fcntl(target.fd, F_DUPFD_CLOEXEC, 3);
        s.core = copy >= 0 ? pw_context_connect_fd(s.context, copy, nullptr, 0) : nullptr;
    } else {
        pw_properties* properties = nullptr;
        if (!target.remoteName.empty()) {
            properties = pw_properties_new(PW_KEY_REMOTE_NAME, target.remoteName.c_str(), nullptr);
        }
        s.core = pw_context_connect(s.context, properties, 0);
    }
    if (s.core == nullptr) {
        pw_thread_loop_unlock(s.loop);
        s.destroy();
        throw Error("Could not reach the screen-sharing service (PipeWire). Check that "
                    "PipeWire runs in your desktop session.");
    }
    pw_core_add_listener(s.core, &s.coreListener, &State::coreEvents(), &s);
    s.registry = pw_core_get_registry(s.core, PW_VERSION_REGISTRY, 0);
    if (s.registry != nullptr) {
        pw_registry_add_listener(s.registry, &s.registryListener, &State::registryEvents(), &s);
    }
    s.stream = pw_stream_new(s.core, "Orvelle screen capture",
                             pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                               "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    if (s.stream == nullptr) {
        pw_thread_loop_unlock(s.loop);
        s.destroy();
        throw Error("Could not make a screen-sharing stream.");
    }
    pw_stream_add_listener(s.stream, &s.streamListener, &State::streamEvents(), &s);
    pw_thread_loop_unlock(s.loop);
}

PipeWireCaptureStream::~PipeWireCaptureStream() {
    stop();
    state_->destroy();
}

void PipeWireCaptureStream::start() {
    State& s = *state_;
    pw_thread_loop_lock(s.loop);
    if (s.started || s.stopping) {
        pw_thread_loop_unlock(s.loop);
        return;
    }
    s.started = true;
    uint8_t buffer[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    spa_rectangle defaultSize{static_cast<uint32_t>(s.configuration.width),
                              static_cast<uint32_t>(s.configuration.height)};
    spa_rectangle minimumSize{1, 1};
    spa_rectangle maximumSize{16384, 16384};
    spa_fraction defaultRate{static_cast<uint32_t>(std::lround(s.configuration.frameRate)), 1};
    spa_fraction minimumRate{0, 1};
    spa_fraction maximumRate{360, 1};
    const spa_pod* params[1];
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx,
                               SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
        SPA_FORMAT_VIDEO_size,
        SPA_POD_CHOICE_RANGE_Rectangle(&defaultSize, &minimumSize, &maximumSize),
        SPA_FORMAT_VIDEO_framerate,
        SPA_POD_CHOICE_RANGE_Fraction(&defaultRate, &minimumRate, &maximumRate)));
    const int result = pw_stream_connect(
        s.stream, PW_DIRECTION_INPUT, s.target.nodeID,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS),
        params, 1);
    pw_thread_loop_unlock(s.loop);
    if (result < 0) {
        throw Error(std::string("Could not connect to the shared screen (") + spa_strerror(result) +
                    ").");
    }
}

std::optional<std::string> PipeWireCaptureStream::stop() {
    State& s = *state_;
    if (s.loop == nullptr) {
        return std::nullopt;
    }
    pw_thread_loop_lock(s.loop);
    const bool wasStopping = s.stopping;
    s.stopping = true;
    if (!wasStopping && s.stream != nullptr) {
        pw_stream_disconnect(s.stream);
    }
    pw_thread_loop_unlock(s.loop);
    // The loop's thread ends here: nothing reaches the output afterwards.
    pw_thread_loop_stop(s.loop);
    return std::nullopt;
}

int64_t PipeWireCaptureStream::skippedFrames() const {
    return state_->skipped;
}

std::optional<CapturedPointerPosition> PipeWireCaptureStream::pointerPosition() const {
    std::lock_guard lock(state_->publicMutex);
    return state_->pointer;
}

std::optional<uint32_t> PipeWireCaptureStream::nodeID(std::chrono::milliseconds wait) const {
    std::unique_lock lock(state_->publicMutex);
    state_->nodeKnown.wait_for(lock, wait, [this] { return state_->node.has_value(); });
    return state_->node;
}

std::string PipeWireCaptureStream::negotiatedFormat() const {
    std::lock_guard lock(state_->publicMutex);
    return state_->formatText;
}

} // namespace orvelle
