#pragma once

// Every helper process this program has running, so that none outlives it: runProcess
// lists a tracked child here while it runs, and terminateAll ends them all when the
// program quits or is interrupted.
//
// The list is a fixed table of atomic slots rather than a map under a lock, so that a
// signal handler may walk it: taking a lock there could deadlock on the thread it
// interrupted.

#include <sys/types.h>

#include <chrono>
#include <vector>

namespace orvelle::HelperProcessRegistry {

// How many helpers may run at once; starting one more fails.
inline constexpr int kCapacity = 128;

// Tracks a child: a group leader is stopped with its whole group. Returns false when the
// table is full.
bool add(pid_t pid, bool wholeGroup);
void remove(pid_t pid);

// The tracked children, in no particular order.
std::vector<pid_t> trackedProcesses();

// Sends SIGTERM to every tracked child (and its group), waits up to `grace` for them to go
// and kills what is left; the table is empty afterwards.
void terminateAll(std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

// The same with only async-signal-safe calls and a grace of one second, for handlers.
void terminateAllFromSignalHandler() noexcept;

// SIGINT, SIGTERM and SIGHUP end the tracked helpers first and then do what they did
// before (by default: end the program). Handlers installed later, which restore these
// when they go, take precedence meanwhile. Also ends the helpers at a normal exit.
void installTerminationHandlers();

} // namespace orvelle::HelperProcessRegistry
