#include "platform/capture/capture_frame_pool.h"
#include "platform/capture/capture_tick_clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using Clock = CaptureTickClock::Clock;

constexpr auto kPeriod = std::chrono::duration_cast<Clock::duration>(1s) / 60;

// A capture that gets to its next tick at the given moments (milliseconds after the
// clock's origin, never before the tick is due): which ticks it takes and how many it
// loses on the way.
struct ClockRun {
    std::vector<int64_t> taken;
    int64_t lost = 0;
};

ClockRun runClock(const std::vector<double>& arrivals) {
    const Clock::time_point origin{};
    CaptureTickClock clock(origin, kPeriod, CaptureTickClock::toleranceFor(kPeriod));
    ClockRun run;
    for (const double milliseconds : arrivals) {
        const auto now = origin + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double, std::milli>(milliseconds));
        run.lost += clock.passOverLateTicks(std::max(now, clock.due()));
        // Every picture is stamped with its own tick, on the 60 Hz grid.
        const double ticks = clock.dueSeconds() * 60;
        EXPECT_NEAR(ticks, std::round(ticks), 1e-6);
        run.taken.push_back(std::llround(ticks));
        clock.advance();
    }
    return run;
}

TEST(CaptureTickClock, LateGrabsAreCaughtUpWithinTheToleranceAndCountedBeyondIt) {
    const struct {
        const char* name;
        std::vector<double> arrivals;
        std::vector<int64_t> taken;
        int64_t lost;
    } cases[] = {
        {"on time", {0, 16.7, 33.4, 50.0}, {0, 1, 2, 3}, 0},
        // One grab took 40 ms: the two ticks that fell due meanwhile are taken back to back.
        {"one late grab", {0, 16.7, 56.7, 60.0, 63.0, 66.7}, {0, 1, 2, 3, 4, 5}, 0},
        // More than a period late, which used to lose a tick, is within the tolerance.
        {"a period and a half late", {0, 41.7, 45.0}, {0, 1, 2}, 0},
        // A stall of 120 ms at tick 1: ticks 1 to 5 are more than 50 ms overdue by then,
        // tick 6 (due at 100 ms) is still taken.
        {"a long stall", {0, 136.7, 140.0, 150.0}, {0, 6, 7, 8}, 5},
        // Tick 1 may be taken until 50 ms after it was due (66.67 ms), not after.
        {"just inside the deadline", {0, 66.6}, {0, 1}, 0},
        {"just past the deadline", {0, 66.8}, {0, 2}, 1},
    };
    for (const auto& c : cases) {
        const ClockRun run = runClock(c.arrivals);
        EXPECT_EQ(run.taken, c.taken) << c.name;
        EXPECT_EQ(run.lost, c.lost) << c.name;
    }
    EXPECT_EQ(CaptureTickClock::toleranceFor(kPeriod), std::chrono::milliseconds(50));
    EXPECT_EQ(CaptureTickClock::toleranceFor(100ms), 100ms) << "never less than a period";
}

TEST(CaptureFramePool, ATickWaitsForABufferUntilItsDeadline) {
    auto pool = CaptureFramePool::withHeapBuffers(2, 64);
    const auto first = pool->acquire();
    const auto second = pool->acquire();
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(pool->acquire());

    // Nothing comes back: absent once the deadline has passed, not before.
    const auto start = Clock::now();
    EXPECT_FALSE(pool->acquire(start + 30ms));
    EXPECT_GE(Clock::now() - start, 30ms);

    // A frame let go of on another thread (the encoder, done with it) wakes the wait.
    CapturedVideoFrame picture;
    picture.pixels = pool->buffer(*first).pixels;
    auto lent = CaptureFramePool::lend(pool, *first, picture);
    std::thread encoder([&] {
        std::this_thread::sleep_for(20ms);
        lent.reset();
    });
    const auto waited = pool->acquire(Clock::now() + 10s);
    encoder.join();
    EXPECT_EQ(waited, first);
    EXPECT_LT(Clock::now() - start, 5s);
}

} // namespace
} // namespace orvelle
