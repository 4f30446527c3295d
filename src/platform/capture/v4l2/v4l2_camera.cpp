#include "platform/capture/v4l2/v4l2_camera.h"

#include "core/monotonic_clock.h"

#include <fcntl.h>
#include <libyuv.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <thread>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

int retrying(int fd, unsigned long request, void* argument) {
    int result = 0;
    do {
        result = ::ioctl(fd, request, argument);
    } while (result < 0 && errno == EINTR);
    return result;
}

bool isVideoCapture(int fd, std::string& card) {
    v4l2_capability capability{};
    if (retrying(fd, VIDIOC_QUERYCAP, &capability) < 0) {
        return false;
    }
    const uint32_t caps = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0
                              ? capability.device_caps
                              : capability.capabilities;
    card = reinterpret_cast<const char*>(capability.card);
    return (caps & V4L2_CAP_VIDEO_CAPTURE) != 0 && (caps & V4L2_CAP_STREAMING) != 0;
}

} // namespace

std::vector<CameraDeviceInfo> listV4L2Cameras() {
    std::vector<CameraDeviceInfo> cameras;
    std::error_code error;
    std::vector<fs::path> nodes;
    for (const auto& entry : fs::directory_iterator("/dev", error)) {
        if (entry.path().filename().string().starts_with("video")) {
            nodes.push_back(entry.path());
        }
    }
    std::sort(nodes.begin(), nodes.end());
    // Stable names: the by-id links that point at each node.
    std::vector<std::pair<fs::path, fs::path>> links;
    for (const auto& entry : fs::directory_iterator("/dev/v4l/by-id", error)) {
        links.emplace_back(entry.path(), fs::canonical(entry.path(), error));
    }
    for (const auto& node : nodes) {
        const int fd = ::open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        std::string card;
        const bool capture = isVideoCapture(fd, card);
        ::close(fd);
        if (!capture) {
            continue; // metadata nodes and output devices
        }
        CameraDeviceInfo info{node.string(), node.string(), card};
        for (const auto& [link, target] : links) {
            if (target == node) {
                info.id = link.string();
                break;
            }
        }
        cameras.push_back(std::move(info));
    }
    return cameras;
}

struct V4L2CameraStream::State {
    int fd = -1;
    std::string name;
    CameraStreamFormat format;
    uint32_t pixelFormat = 0;
    uint32_t bytesPerLine = 0;
    struct Buffer {
        void* start = MAP_FAILED;
        size_t length = 0;
    };
    std::vector<Buffer> buffers;
    std::thread thread;
    std::atomic<bool> running{false};
    std::atomic<bool> healthy{true};
    int wakeFds[2] = {-1, -1};

    ~State() {
        for (auto& buffer : buffers) {
            if (buffer.start != MAP_FAILED) {
                ::munmap(buffer.start, buffer.length);
            }
        }
        if (fd >= 0) {
            ::close(fd);
        }
        for (int wake : wakeFds) {
            if (wake >= 0) {
                ::close(wake);
            }
        }
    }

    CameraDeviceError failure(const std::string& what) const {
        return CameraDeviceError("The webcam \"" + name + "\" " + what + " (" +
                                 std::strerror(errno) +
                                 "); check that it is connected and not used by another program.");
    }

    void chooseFormat(CameraStreamFormat wish) {
        // The size nearest the wish (by area, then shape), in a format we can convert.
        uint32_t bestFormat = 0;
        int bestWidth = 0;
        int bestHeight = 0;
        double bestScore = INFINITY;
        for (const uint32_t candidate : {V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_MJPEG}) {
            v4l2_frmsizeenum size{};
            size.pixel_format = candidate;
            for (size.index = 0; retrying(fd, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
                int width = 0;
                int height = 0;
                if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
                    width = static_cast<int>(size.discrete.width);
                    height = static_cast<int>(size.discrete.height);
                } else {
                    width = std::clamp(wish.width, static_cast<int>(size.stepwise.min_width),
                                       static_cast<int>(size.stepwise.max_width));
                    height = std::clamp(wish.height, static_cast<int>(size.stepwise.min_height),
                                        static_cast<int>(size.stepwise.max_height));
                }
                const double score =
                    std::abs(std::log(static_cast<double>(width) * height /
                                      (static_cast<double>(wish.width) * wish.height))) +
                    // Uncompressed is preferred at the same size: no decoding.
                    (candidate == V4L2_PIX_FMT_MJPEG ? 0.01 : 0);
                if (score < bestScore) {
                    bestScore = score;
                    bestFormat = candidate;
                    bestWidth = width;
                    bestHeight = height;
                }
                if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
                    break;
                }
            }
        }
        v4l2_format request{};
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.fmt.pix.width = static_cast<uint32_t>(bestFormat != 0 ? bestWidth : wish.width);
        request.fmt.pix.height = static_cast<uint32_t>(bestFormat != 0 ? bestHeight : wish.height);
        request.fmt.pix.pixelformat = bestFormat != 0 ? bestFormat : V4L2_PIX_FMT_YUYV;
        request.fmt.pix.field = V4L2_FIELD_ANY;
        if (retrying(fd, VIDIOC_S_FMT, &request) < 0) {
            throw failure("refused every picture format");
        }
        pixelFormat = request.fmt.pix.pixelformat;
        if (pixelFormat != V4L2_PIX_FMT_YUYV && pixelFormat != V4L2_PIX_FMT_MJPEG) {
            throw CameraDeviceError("The webcam \"" + name +
                                    "\" offers no picture format Orvelle can read (YUYV or "
                                    "MJPEG).");
        }
        format.width = static_cast<int>(request.fmt.pix.width);
        format.height = static_cast<int>(request.fmt.pix.height);
        bytesPerLine = request.fmt.pix.bytesperline;
        // The rate: the device's nearest; a device that cannot set it runs at its own.
        v4l2_streamparm parameters{};
        parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        parameters.parm.capture.timeperframe.numerator = 1000;
        parameters.parm.capture.timeperframe.denominator =
            static_cast<uint32_t>(std::lround(wish.frameRate * 1000));
        format.frameRate = wish.frameRate;
        if (retrying(fd, VIDIOC_S_PARM, &parameters) == 0 &&
            parameters.parm.capture.timeperframe.numerator > 0) {
            format.frameRate =
                static_cast<double>(parameters.parm.capture.timeperframe.denominator) /
                parameters.parm.capture.timeperframe.numerator;
        }
    }

    void mapBuffers() {
        v4l2_requestbuffers request{};
        request.count = 4;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        if (retrying(fd, VIDIOC_REQBUFS, &request) < 0 || request.count == 0) {
            throw failure("gave no capture buffers");
        }
        buffers.resize(request.count);
        for (uint32_t index = 0; index < request.count; ++index) {
            v4l2_buffer buffer{};
            buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
            buffer.memory = V4L2_MEMORY_MMAP;
            buffer.index = index;
            if (retrying(fd, VIDIOC_QUERYBUF, &buffer) < 0) {
                throw failure("gave no capture buffers");
            }
            buffers[index].length = buffer.length;
            buffers[index].start = ::mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE,
                                          MAP_SHARED, fd, buffer.m.offset);
            if (buffers[index].start == MAP_FAILED) {
                throw failure("could not share its buffers");
            }
        }
    }

    // One picture into a frame of our own, converted to BGRX.
    CapturedVideoFrameRef convert(const uint8_t* data, size_t used, double time) {
        struct Owned {
            std::vector<uint8_t> pixels;
            CapturedVideoFrame frame;
        };
        auto owned = std::make_shared<Owned>();
        const int stride = format.width * 4;
        owned->pixels.resize(static_cast<size_t>(stride) * format.height);
        int result = 0;
        if (pixelFormat == V4L2_PIX_FMT_YUYV) {
            result = libyuv::YUY2ToARGB(data, static_cast<int>(bytesPerLine), owned->pixels.data(),
                                        stride, format.width, format.height);
        } else {
            result = libyuv::MJPGToARGB(data, used, owned->pixels.data(), stride, format.width,
                                        format.height, format.width, format.height);
        }
        if (result != 0) {
            return nullptr; // a damaged picture is skipped
        }
        owned->frame = {owned->pixels.data(), stride, format.width,
                        format.height,        time,   1.0 / std::max(1.0, format.frameRate),
                        std::nullopt};
        return {owned, &owned->frame};
    }

    void run(const FrameHandler& handler) {
        while (running.load()) {
            pollfd waits[2] = {{fd, POLLIN, 0}, {wakeFds[0], POLLIN, 0}};
            const int ready = ::poll(waits, 2, 2000);
            if (ready < 0 && errno == EINTR) {
                continue;
            }
            if (!running.load()) {
                break;
            }
            if (ready <= 0 || (waits[0].revents & (POLLERR | POLLHUP)) != 0) {
                if (ready < 0 || (waits[0].revents & (POLLERR | POLLHUP)) != 0) {
                    healthy = false;
                    break;
                }
                continue; // a slow camera: wait on
            }
            v4l2_buffer buffer{};
            buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
            buffer.memory = V4L2_MEMORY_MMAP;
            if (retrying(fd, VIDIOC_DQBUF, &buffer) < 0) {
                if (errno == EAGAIN) {
                    continue;
                }
                healthy = false;
                break;
            }
            // The driver's time stamp is on the monotonic clock when it says so.
            double time = monotonicNow();
            if ((buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) ==
                V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC) {
                time = static_cast<double>(buffer.timestamp.tv_sec) +
                       static_cast<double>(buffer.timestamp.tv_usec) / 1e6;
            }
            if ((buffer.flags & V4L2_BUF_FLAG_ERROR) == 0 && buffer.index < buffers.size()) {
                if (auto frame = convert(static_cast<const uint8_t*>(buffers[buffer.index].start),
                                         buffer.bytesused, time)) {
                    handler(std::move(frame));
                }
            }
            if (retrying(fd, VIDIOC_QBUF, &buffer) < 0) {
                healthy = false;
                break;
            }
        }
    }
};

V4L2CameraStream::V4L2CameraStream(const std::string& device, CameraStreamFormat wish)
    : state_(std::make_unique<State>()) {
    state_->name = device;
    state_->fd = ::open(device.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (state_->fd < 0) {
        throw state_->failure("could not be opened");
    }
    std::string card;
    if (!isVideoCapture(state_->fd, card)) {
        throw CameraDeviceError("\"" + device +
                                "\" is not a webcam ('orvelle devices' lists them).");
    }
    state_->name = card;
    state_->chooseFormat(wish);
    state_->mapBuffers();
    if (::pipe2(state_->wakeFds, O_CLOEXEC | O_NONBLOCK) < 0) {
        throw state_->failure("could not be watched");
    }
}

V4L2CameraStream::~V4L2CameraStream() {
    stop();
}

CameraStreamFormat V4L2CameraStream::format() const {
    return state_->format;
}

void V4L2CameraStream::start(FrameHandler handler) {
    stop();
    for (uint32_t index = 0; index < state_->buffers.size(); ++index) {
        v4l2_buffer buffer{};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        buffer.index = index;
        if (retrying(state_->fd, VIDIOC_QBUF, &buffer) < 0) {
            throw state_->failure("refused its buffers");
        }
    }
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (retrying(state_->fd, VIDIOC_STREAMON, &type) < 0) {
        throw state_->failure("did not start");
    }
    state_->healthy = true;
    state_->running = true;
    state_->thread =
        std::thread([state = state_.get(), handler = std::move(handler)] { state->run(handler); });
}

void V4L2CameraStream::stop() {
    if (!state_->thread.joinable()) {
        return;
    }
    state_->running = false;
    const char wake = 1;
    [[maybe_unused]] const auto written = ::write(state_->wakeFds[1], &wake, 1);
    state_->thread.join();
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    retrying(state_->fd, VIDIOC_STREAMOFF, &type);
    char drain[16];
    while (::read(state_->wakeFds[0], drain, sizeof drain) > 0) {
    }
}

bool V4L2CameraStream::isHealthy() const {
    return state_->healthy.load();
}

} // namespace orvelle
