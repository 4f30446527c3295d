#include "core/blocking_queue.h"
#include "core/error.h"
#include "core/executor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

namespace orvelle {
namespace {

TEST(SerialQueue, RunsTasksOneAtATimeInOrderOffTheCallingThread) {
    std::vector<int> order;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    {
        SerialQueue queue("com.orvelle.test");
        for (int i = 0; i < 100; ++i) {
            queue.post([&, i] {
                if (running.fetch_add(1) != 0) {
                    overlapped = true;
                }
                order.push_back(i);
                EXPECT_TRUE(queue.isCurrent());
                running.fetch_sub(1);
            });
        }
        EXPECT_FALSE(queue.isCurrent());
    } // the destructor drains the queue
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[static_cast<size_t>(i)], i);
    }
    EXPECT_FALSE(overlapped);
}

TEST(SerialQueue, SyncWaitsAndRethrows) {
    SerialQueue queue("sync");
    int value = 0;
    queue.sync([&] { value = 7; });
    EXPECT_EQ(value, 7);
    EXPECT_THROW(queue.sync([] { throw Error("boom"); }), Error);
    queue.sync([&] { value = 8; }); // still alive after a failure
    EXPECT_EQ(value, 8);
}

TEST(RunLoop, RunsPostedTasksOnTheThreadThatRunsIt) {
    RunLoop loop;
    SerialQueue worker("worker");
    std::thread::id ranOn;
    bool done = false;
    worker.post([&] {
        loop.post([&] {
            ranOn = std::this_thread::get_id();
            done = true;
        });
    });
    EXPECT_TRUE(loop.runUntil([&] { return done; }, std::chrono::seconds(5)));
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(RunLoop, RunStopsWhenAskedFromATask) {
    RunLoop loop;
    int count = 0;
    loop.post([&] { ++count; });
    loop.post([&] { loop.stop(); });
    loop.post([&] { ++count; });
    loop.run();
    EXPECT_EQ(count, 1);
    EXPECT_EQ(loop.runFor(std::chrono::milliseconds(0)), 1u); // the task after the stop
    EXPECT_EQ(count, 2);
}

TEST(BlockingQueue, ClosedQueueGivesOutWhatItHoldsThenNothing) {
    BlockingQueue<int> queue(2);
    EXPECT_TRUE(queue.put(1));
    EXPECT_TRUE(queue.put(2));
    std::thread producer([&] { EXPECT_FALSE(queue.put(3)) << "dropped: closed while waiting"; });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    queue.close();
    producer.join();
    EXPECT_EQ(queue.take(), 1);
    EXPECT_EQ(queue.take(), 2);
    EXPECT_EQ(queue.take(), std::nullopt);
    EXPECT_EQ(queue.take(), std::nullopt) << "every later taker wakes too";
}

TEST(BlockingQueue, OneProducerAndSeveralConsumersSeeEveryItemOnce) {
    BlockingQueue<int> queue(3);
    std::vector<std::vector<int>> seen(3);
    std::vector<std::thread> consumers;
    consumers.reserve(seen.size());
    for (auto& mine : seen) {
        consumers.emplace_back([&queue, &mine] {
            while (const auto item = queue.take()) {
                mine.push_back(*item);
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        queue.put(i);
    }
    queue.close();
    for (auto& consumer : consumers) {
        consumer.join();
    }
    std::vector<int> all;
    for (const auto& mine : seen) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    std::vector<int> expected(500);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(all, expected);
}

} // namespace
} // namespace orvelle
