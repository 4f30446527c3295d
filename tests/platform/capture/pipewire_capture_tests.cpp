#include "core/error.h"
#include "platform/capture/pipewire/pipewire_capture_stream.h"
#include "platform/capture/pipewire/screencast_portal.h"
#include "support/pipewire_daemon.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>
#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;

constexpr int kWidth = 320;
constexpr int kHeight = 240;

// A screen as a desktop would share it: a video node the test publishes itself, driving
// its own clock at 60 pictures a second, each carrying its number and the pointer's place
// as metadata (the pointer walks along the diagonal, one pixel a picture).
class PublishedScreen {
public:
    explicit PublishedScreen(const std::string& remote) {
        pw_init(nullptr, nullptr);
        loop_ = pw_thread_loop_new("test-screen", nullptr);
        context_ = pw_context_new(pw_thread_loop_get_loop(loop_), nullptr, 0);
        pw_thread_loop_start(loop_);
        pw_thread_loop_lock(loop_);
        core_ = pw_context_connect(
            context_, pw_properties_new(PW_KEY_REMOTE_NAME, remote.c_str(), nullptr), 0);
        stream_ = pw_stream_new(core_, "test screen",
                                pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CLASS,
                                                  "Video/Source", nullptr));
        static const pw_stream_events events = [] {
            pw_stream_events made{};
            made.version = PW_VERSION_STREAM_EVENTS;
            made.process = [](void* data) { static_cast<PublishedScreen*>(data)->produce(); };

            return made;
        }();
        pw_stream_add_listener(stream_, &listener_, &events, this);
        uint8_t buffer[1024];
        spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
        spa_rectangle size{kWidth, kHeight};
        spa_fraction rate{60, 1};
        const spa_pod* params[4];
        params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
            SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
            SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
            SPA_POD_Id(SPA_VIDEO_FORMAT_BGRx), SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size),
            SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate)));
        params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
            SPA_PARAM_BUFFERS_size, SPA_POD_Int(kWidth * kHeight * 4), SPA_PARAM_BUFFERS_stride,
            SPA_POD_Int(kWidth * 4), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int(1 << SPA_DATA_MemFd)));
        params[2] = static_cast<const spa_pod*>(
            spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
                                       SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
                                       SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
        params[3] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
            SPA_POD_CHOICE_RANGE_Int(sizeof(spa_meta_cursor), sizeof(spa_meta_cursor),
                                     sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) +
                                         64 * 64 * 4)));
        pw_stream_connect(
            stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY,
            static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS),
            params, 4);
        timer_ = pw_loop_add_timer(
            pw_thread_loop_get_loop(loop_),
            [](void* data, uint64_t) {
                pw_stream_trigger_process(static_cast<PublishedScreen*>(data)->stream_);
            },
            this);
        timespec first{0, 1};
        timespec every{0, 16666667};
        pw_loop_update_timer(pw_thread_loop_get_loop(loop_), timer_, &first, &every, false);
        pw_thread_loop_unlock(loop_);
    }

    ~PublishedScreen() { end(); }

    // The node, once the daemon has made it.
    uint32_t nodeID() {
        for (int attempt = 0; attempt < 500; ++attempt) {
            pw_thread_loop_lock(loop_);
            const uint32_t id =
                stream_ != nullptr ? pw_stream_get_node_id(stream_) : SPA_ID_INVALID;
            pw_thread_loop_unlock(loop_);
            if (id != SPA_ID_INVALID) {
                return id;
            }
            std::this_thread::sleep_for(10ms);
        }
        return SPA_ID_INVALID;
    }

    // Links this node to a consumer, as a session manager would.
    void linkTo(uint32_t consumer) {
        pw_thread_loop_lock(loop_);
        const std::string output = std::to_string(pw_stream_get_node_id(stream_));
        const std::string input = std::to_string(consumer);
        pw_properties* properties =
            pw_properties_new(PW_KEY_LINK_OUTPUT_NODE, output.c_str(), PW_KEY_LINK_INPUT_NODE,
                              input.c_str(), PW_KEY_OBJECT_LINGER, "true", nullptr);
        link_ = static_cast<pw_proxy*>(pw_core_create_object(
            core_, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties->dict, 0));
        pw_properties_free(properties);
        pw_thread_loop_unlock(loop_);
    }

    // Stops publishing: the shared screen goes away.
    void end() {
        if (loop_ == nullptr) {
            return;
        }
        pw_thread_loop_lock(loop_);
        if (link_ != nullptr) {
            pw_proxy_destroy(link_);
        }
        pw_stream_destroy(stream_);
        stream_ = nullptr;
        pw_thread_loop_unlock(loop_);
        pw_thread_loop_stop(loop_);
        pw_core_disconnect(core_);
        pw_context_destroy(context_);
        pw_thread_loop_destroy(loop_);
        loop_ = nullptr;
    }

private:
    void produce() {
        pw_buffer* buffer = pw_stream_dequeue_buffer(stream_);
        if (buffer == nullptr) {
            return;
        }
        spa_data& plane = buffer->buffer->datas[0];
        if (plane.data != nullptr) {
            testing::paintNumberedFrame(picture_, number_, kWidth, kHeight);
            for (int row = 0; row < kHeight; ++row) {
                std::memcpy(static_cast<uint8_t*>(plane.data) +
                                static_cast<size_t>(row) * kWidth * 4,
                            picture_.row(0, row), kWidth * 4);
            }
            plane.chunk->offset = 0;
            plane.chunk->stride = kWidth * 4;
            plane.chunk->size = kWidth * kHeight * 4;
        }
        if (auto* cursor = static_cast<spa_meta_cursor*>(spa_buffer_find_meta_data(
                buffer->buffer, SPA_META_Cursor, sizeof(spa_meta_cursor)))) {
            cursor->id = 1;
            cursor->flags = 0;
            cursor->position.x = number_ % kHeight;
            cursor->position.y = number_ % kHeight;
            cursor->hotspot.x = 0;
            cursor->hotspot.y = 0;
            cursor->bitmap_offset = 0;
        }
        ++number_;
        pw_stream_queue_buffer(stream_, buffer);
    }

    pw_thread_loop* loop_ = nullptr;
    pw_context* context_ = nullptr;
    pw_core* core_ = nullptr;
    pw_stream* stream_ = nullptr;
    pw_proxy* link_ = nullptr;
    spa_source* timer_ = nullptr;
    spa_hook listener_{};
    VideoFrame picture_;
    int number_ = 0;
};

// What the consumer delivered: each picture's number and time.
class Received final : public CaptureStreamOutput {
public:
    void streamDidOutputVideoFrame(CapturedVideoFrameRef frame) override {
        VideoFrame view;
        view.width = frame->width;
        view.height = frame->height;
        view.strides[0] = frame->stride;
        view.planes[0].assign(frame->pixels,
                              frame->pixels + static_cast<size_t>(frame->stride) * frame->height);
        std::lock_guard lock(mutex_);
        numbers_.push_back(testing::readFrameNumber(view));
        times_.push_back(frame->presentationTime);
        sizes_.emplace_back(frame->width, frame->height);
        changed_.notify_all();
    }
    void streamDidOutputAudio(const CapturedAudio&) override {}
    void streamDidStop(const std::string& message) override {
        std::lock_guard lock(mutex_);
        stops_.push_back(message);
        changed_.notify_all();
    }
    bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, condition);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> numbers_;
    std::vector<double> times_;
    std::vector<std::pair<int, int>> sizes_;
    std::vector<std::string> stops_;
};

TEST(PipeWireCapture, RecordsAPublishedNodeWithItsPointerAndEndsWithIt) {
    testing::PipeWireDaemon daemon;
    PublishedScreen screen(daemon.socketPath());
    const uint32_t node = screen.nodeID();
    ASSERT_NE(node, SPA_ID_INVALID);

    Received received;
    PipeWireCaptureTarget target;
    target.nodeID = node;
    target.remoteName = daemon.socketPath();
    PipeWireCaptureStream stream(target, {kWidth, kHeight, 60, 8, false}, received);
    stream.start();
    const auto consumer = stream.nodeID(10s);
    ASSERT_TRUE(consumer);
    screen.linkTo(*consumer);

    ASSERT_TRUE(received.waitFor([&] { return received.numbers_.size() >= 30; }, 20s))
        << "no pictures arrived";
    EXPECT_EQ(stream.negotiatedFormat(), "BGRx 320x240");
    {
        std::lock_guard lock(received.mutex_);
        // The pictures are the published ones, in order, at most sixty a second.
        for (size_t index = 1; index < received.numbers_.size(); ++index) {
            EXPECT_GT(received.numbers_[index], received.numbers_[index - 1]);
            EXPECT_GT(received.times_[index] - received.times_[index - 1], 1.0 / 60 * 0.85);
        }
        EXPECT_EQ(received.sizes_.back(), std::make_pair(kWidth, kHeight));
    }
    // The pointer came as data, on the diagonal where the picture's number puts it.
    const auto pointer = stream.pointerPosition();
    ASSERT_TRUE(pointer);
    EXPECT_TRUE(pointer->visible);
    EXPECT_EQ(pointer->x, pointer->y);

    // The shared screen goes away: the stream says so, once.
    screen.end();
    ASSERT_TRUE(received.waitFor([&] { return !received.stops_.empty(); }, 10s));
    EXPECT_NE(received.stops_[0].find("screen-sharing stream"), std::string::npos)
        << received.stops_[0];
    EXPECT_EQ(stream.stop(), std::nullopt);
    EXPECT_EQ(received.stops_.size(), 1U);
}

TEST(PipeWireCapture, ADaemonThatIsNotThereIsAClearError) {
    Received received;
    PipeWireCaptureTarget target;
    target.remoteName = "/nonexistent/pipewire-0";
    try {
        PipeWireCaptureStream stream(target, {320, 240, 60, 8, false}, received);
        FAIL() << "connected to nothing";
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find("PipeWire"), std::string::npos) << error.what();
    }
}

// A session bus of the test's own, on which no portal runs.
TEST(ScreenCastPortal, ADesktopWithoutAPortalIsAClearErrorNotAHang) {
    testing::TemporaryDirectory folder;
    const auto socket = folder / "bus";
    testing::writeTextFile(
        folder / "bus.conf",
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
        "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig><type>session</type><listen>unix:path=" +
            socket.string() +
            "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow "
            "send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
            "</policy></busconfig>\n");
    const auto program = testing::findProgram("dbus-daemon");
    ASSERT_TRUE(program) << "dbus-daemon is not installed (run scripts/bootstrap)";
    testing::ChildProcess bus(*program,
                              {"--config-file=" + (folder / "bus.conf").string(), "--nofork"});
    ASSERT_TRUE(testing::waitUntil([&] { return std::filesystem::exists(socket); }, 20s));
    const char* previous = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    const std::string saved = previous != nullptr ? previous : "";
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + socket.string()).c_str(), 1);
    try {
        ScreenCastPortalSession::open({true, false}, 5s);
        ADD_FAILURE() << "a portal answered on an empty bus";
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find("xdg-desktop-portal"), std::string::npos)
            << error.what();
    }
    if (previous != nullptr) {
        setenv("DBUS_SESSION_BUS_ADDRESS", saved.c_str(), 1);
    } else {
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
}

} // namespace
} // namespace orvelle
