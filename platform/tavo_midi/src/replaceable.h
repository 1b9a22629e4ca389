#pragma once

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tavo_midi {

/// What a host gave to be called, which it may replace at any time. No lock is held while it is called. Thread-safe;
/// every operation may be called from inside of a call.
template <class T>
class Replaceable {
public:
    /// When this has returned, the value before is in no other thread's use and is not used any more. Blocks until
    /// then; does not wait for the calling thread's own use.
    void Set(std::shared_ptr<const T> value) {
        std::unique_lock lock(mutex_);
        value_.swap(value);
        ended_.wait(lock, [&] {
            return std::none_of(uses_.begin(), uses_.end(), [&](const Use& use) {
                return use.value == value && use.thread != std::this_thread::get_id();
            });
        });
        // What the host gave is destroyed off the lock: the argument lives longer.
    }

    /// Calls `call` with the value, null if there is none. What it throws reaches the caller.
    template <class Call>
    auto With(Call call) {
        const Using guard(*this);
        return call(guard.GetValue());
    }

private:
    struct Use {
        std::shared_ptr<const T> value;
        std::thread::id thread;
    };

    class Using {
    public:
        explicit Using(Replaceable& from) : from_(from) {
            const std::lock_guard lock(from_.mutex_);
            value_ = from_.value_;
            if (value_) from_.uses_.push_back({value_, std::this_thread::get_id()});
        }
        ~Using() {
            if (!value_) return;
            const std::lock_guard lock(from_.mutex_);
            // Of several uses by one thread any one may go: they are alike.
            from_.uses_.erase(std::find_if(from_.uses_.begin(), from_.uses_.end(), [this](const Use& use) {
                return use.value == value_ && use.thread == std::this_thread::get_id();
            }));
            from_.ended_.notify_all();
        }
        Using(const Using&) = delete;
        Using& operator=(const Using&) = delete;

        [[nodiscard]] const T* GetValue() const { return value_.get(); }

    private:
        Replaceable& from_;
        std::shared_ptr<const T> value_;
    };

    std::mutex mutex_;
    std::condition_variable ended_;
    // Guarded by mutex_:
    std::shared_ptr<const T> value_;
    std::vector<Use> uses_;
};

}  // namespace tavo_midi
