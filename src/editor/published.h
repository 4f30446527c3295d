#pragma once

// The editor's small observer mechanism: a value that tells its observers after each
// change. Observers are called synchronously, on the thread that made the change, which
// for the editor is the main thread; an observer may drop its subscription while called.

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace orvelle {

// Ends an observation when destroyed.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    ~Subscription() { cancel(); }
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            cancel();
            cancel_ = std::exchange(other.cancel_, nullptr);
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    void cancel() {
        if (cancel_) {
            std::exchange(cancel_, nullptr)();
        }
    }

private:
    std::function<void()> cancel_;
};

template <class T>
class Published {
public:
    using Observer = std::function<void(const T&)>;

    explicit Published(T value = T()) : value_(std::move(value)) {}

    const T& value() const { return value_; }

    // Sets the value and, when it differs, tells every observer.
    void set(T value) {
        if (value == value_) {
            return;
        }
        value_ = std::move(value);
        // A copy: an observer may subscribe or cancel while it runs.
        const auto observers = observers_->entries;
        for (const auto& [token, observer] : observers) {
            if (observers_->contains(token)) {
                (*observer)(value_);
            }
        }
    }

    // The subscription may outlive the value; cancelling it then does nothing.
    [[nodiscard]] Subscription observe(Observer observer) const {
        const int token = observers_->next++;
        observers_->entries.emplace_back(token, std::make_shared<Observer>(std::move(observer)));
        std::weak_ptr<Observers> list = observers_;
        return Subscription([list, token] {
            if (auto observers = list.lock()) {
                std::erase_if(observers->entries,
                              [token](const auto& e) { return e.first == token; });
            }
        });
    }

private:
    struct Observers {
        int next = 0;
        std::vector<std::pair<int, std::shared_ptr<Observer>>> entries;
        bool contains(int token) const {
            for (const auto& entry : entries) {
                if (entry.first == token) {
                    return true;
                }
            }
            return false;
        }
    };

    T value_;
    std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
};

} // namespace orvelle
