#include "platform/process/helper_process_registry.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>

namespace orvelle::HelperProcessRegistry {

namespace {

// A slot holds the target of kill(2): -pgid for a whole group, pid for a lone process;
// 0 when free.
std::array<std::atomic<pid_t>, kCapacity> slots{};
static_assert(std::atomic<pid_t>::is_always_lock_free);

pid_t targetOf(pid_t pid, bool wholeGroup) {
    return wholeGroup ? -pid : pid;
}

bool isGone(pid_t target) {
    return ::kill(target, 0) == -1 && errno == ESRCH;
}

// Takes every target out of the table into `taken` and sends it SIGTERM; returns the count.
int takeAllAndTerminate(std::array<pid_t, kCapacity>& taken) noexcept {
    int count = 0;
    for (auto& slot : slots) {
        const pid_t target = slot.exchange(0);
        if (target != 0) {
            ::kill(target, SIGTERM);
            taken[static_cast<size_t>(count++)] = target;
        }
    }
    return count;
}

void sleepBriefly() noexcept {
    timespec pause{0, 20'000'000};
    ::nanosleep(&pause, nullptr);
}

// Waits until each target is gone or the time is up, then kills what is left. Zombies
// count as present until their parent reaps them, so this may wait for a group that only
// a reap away from gone; the SIGKILL that follows is harmless to it.
void awaitOrKill(std::array<pid_t, kCapacity>& taken, int count, long graceMilliseconds) noexcept {
    for (long waited = 0; waited < graceMilliseconds; waited += 20) {
        bool anyLeft = false;
        for (int i = 0; i < count; ++i) {
            anyLeft = anyLeft || !isGone(taken[static_cast<size_t>(i)]);
        }
        if (!anyLeft) {
            return;
        }
        sleepBriefly();
    }
    for (int i = 0; i < count; ++i) {
        ::kill(taken[static_cast<size_t>(i)], SIGKILL);
    }
}

constexpr std::array kTerminationSignals{SIGINT, SIGTERM, SIGHUP};
std::array<struct sigaction, kTerminationSignals.size()> previousActions{};

extern "C" void terminateHelpersOnSignal(int signal) {
    const int savedErrno = errno;
    for (size_t i = 0; i < kTerminationSignals.size(); ++i) {
        if (kTerminationSignals[i] != signal) {
            continue;
        }
        const struct sigaction& previous = previousActions[i];
        const bool plainHandler = (previous.sa_flags & SA_SIGINFO) == 0;
        if (plainHandler && previous.sa_handler == SIG_IGN) {
            break; // the program ignores this signal: so do its helpers' lives
        }
        terminateAllFromSignalHandler();
        if (plainHandler && previous.sa_handler != SIG_DFL) {
            previous.sa_handler(signal);
            break;
        }
        // The default action (end the program), as if we had never been here.
        ::sigaction(signal, &previous, nullptr);
        ::raise(signal);
        break;
    }
    errno = savedErrno;
}

} // namespace

bool add(pid_t pid, bool wholeGroup) {
    const pid_t target = targetOf(pid, wholeGroup);
    for (auto& slot : slots) {
        pid_t expected = 0;
        if (slot.compare_exchange_strong(expected, target)) {
            return true;
        }
    }
    return false;
}

void remove(pid_t pid) {
    for (auto& slot : slots) {
        pid_t expected = pid;
        if (slot.compare_exchange_strong(expected, 0)) {
            return;
        }
        expected = -pid;
        if (slot.compare_exchange_strong(expected, 0)) {
            return;
        }
    }
}

std::vector<pid_t> trackedProcesses() {
    std::vector<pid_t> result;
    for (const auto& slot : slots) {
        const pid_t target = slot.load();
        if (target != 0) {
            result.push_back(target < 0 ? -target : target);
        }
    }
    return result;
}

void terminateAll(std::chrono::milliseconds grace) {
    std::array<pid_t, kCapacity> taken{};
    const int count = takeAllAndTerminate(taken);
    awaitOrKill(taken, count, static_cast<long>(grace.count()));
}

void terminateAllFromSignalHandler() noexcept {
    std::array<pid_t, kCapacity> taken{};
    const int count = takeAllAndTerminate(taken);
    awaitOrKill(taken, count, 1000);
}

void installTerminationHandlers() {
    static std::once_flag installed;
    std::call_once(installed, [] {
        struct sigaction action {};
        action.sa_handler = terminateHelpersOnSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        for (size_t i = 0; i < kTerminationSignals.size(); ++i) {
            ::sigaction(kTerminationSignals[i], &action, &previousActions[i]);
        }
        std::atexit([] { terminateAll(); });
    });
}

} // namespace orvelle::HelperProcessRegistry
