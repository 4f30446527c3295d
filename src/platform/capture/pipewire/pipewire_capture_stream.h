#pragma once

// A screen stream received from PipeWire: the consumer of a video node that a desktop
// portal (or anything else) publishes. Pictures arrive as the producer sends them, at
// most at the configured rate, in BGRx (RGB orders are converted); a pointer sent as
// metadata is kept as the stream's pointer position. A producer that goes away ends the
// stream through streamDidStop.

#include "platform/capture/capture_types.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace orvelle {

struct PipeWireCaptureTarget {
    uint32_t nodeID = 0;
    // A connection handed over by the portal (the consumer takes a copy); -1 to connect
    // to a daemon by name.
    int fd = -1;
    // The daemon's socket name or path; empty for the session's default.
    std::string remoteName;
};

class PipeWireCaptureStream final : public CaptureStream {
public:
    // Connects to the daemon. Throws Error when it cannot be reached.
    PipeWireCaptureStream(const PipeWireCaptureTarget& target,
                          const CaptureStreamConfiguration& configuration,
                          CaptureStreamOutput& output);
    ~PipeWireCaptureStream() override;

    // Connects the consumer to the node; pictures flow once the two are linked.
    void start() override;
    std::optional<std::string> stop() override;
    int64_t skippedFrames() const override;
    std::optional<CapturedPointerPosition> pointerPosition() const override;

    // The consumer's own node, once the daemon has made it (after start).
    std::optional<uint32_t> nodeID(std::chrono::milliseconds wait) const;
    // The size and format the producer agreed to ("BGRx 320x240"); empty before.
    std::string negotiatedFormat() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
