#pragma once

// The main thread of the application is Qt's event loop: work posted here runs there, in
// the order posted, as queued calls on the application object. Posting is thread-safe;
// tasks posted after the application object is gone are dropped.

#include "core/executor.h"

namespace orvelle {

class QtMainExecutor final : public Executor {
public:
    void post(std::function<void()> task) override;
};

// The one executor of the process's main thread.
QtMainExecutor& mainExecutor();

} // namespace orvelle
