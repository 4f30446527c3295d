#pragma once

// A bounded queue between two pipeline stages. put() waits for a free slot and take()
// for an item; close() wakes everyone. A closed queue drops what is put and still gives
// out the items it holds, then nothing. Thread-safe.

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <semaphore>

namespace orvelle {

template <class Element>
class BlockingQueue {
public:
    explicit BlockingQueue(size_t capacity)
        : freeSlots_(static_cast<std::ptrdiff_t>(capacity)), itemsAvailable_(0) {}

    // Returns false when the queue was closed and the element was dropped.
    bool put(Element element) {
        freeSlots_.acquire();
        {
            std::unique_lock lock(lock_);
            if (closed_) {
                lock.unlock();
                freeSlots_.release();
                return false;
            }
            buffer_.push_back(std::move(element));
        }
        itemsAvailable_.release();
        return true;
    }

    // The oldest element, or nothing once the queue is closed and empty.
    std::optional<Element> take() {
        itemsAvailable_.acquire();
        std::unique_lock lock(lock_);
        if (!buffer_.empty()) {
            std::optional<Element> element(std::move(buffer_.front()));
            buffer_.pop_front();
            lock.unlock();
            freeSlots_.release();
            return element;
        }
        lock.unlock();
        itemsAvailable_.release(); // so that the next taker wakes up too
        return std::nullopt;
    }

    void close() {
        bool wasClosed = false;
        {
            std::lock_guard lock(lock_);
            wasClosed = closed_;
            closed_ = true;
        }
        if (!wasClosed) {
            itemsAvailable_.release();
            freeSlots_.release();
        }
    }

private:
    std::deque<Element> buffer_; // guarded by lock_
    bool closed_ = false;        // guarded by lock_
    std::mutex lock_;
    std::counting_semaphore<> freeSlots_;
    std::counting_semaphore<> itemsAvailable_;
};

} // namespace orvelle
