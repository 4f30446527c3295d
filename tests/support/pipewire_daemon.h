#pragma once

// A private PipeWire daemon for one test: its own runtime folder and socket, no session
// manager, the native protocol, client nodes and the link factory. Ended with the object.

#include "support/child_process.h"
#include "support/temporary_directory.h"

#include <memory>
#include <string>

namespace orvelle::testing {

class PipeWireDaemon {
public:
    PipeWireDaemon();
    ~PipeWireDaemon();
    PipeWireDaemon(const PipeWireDaemon&) = delete;
    PipeWireDaemon& operator=(const PipeWireDaemon&) = delete;

    // The socket's full path, for a client's remote name.
    std::string socketPath() const;

private:
    TemporaryDirectory folder_;
    std::unique_ptr<ChildProcess> process_;
};

} // namespace orvelle::testing
