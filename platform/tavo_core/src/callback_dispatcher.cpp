#include "tavo_core/callback_dispatcher.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "kit/mutex.h"

namespace notify {

// Never destroyed, nor is the dispatcher: threads may notify until the very end of the process.
namespace names {
const std::string& internal_cut = *new std::string("internal_cut");
const std::string& stopped_at_end_of_song = *new std::string("stopped_at_end_of_song");
const std::string& reportTargetTempo = *new std::string("reportTargetTempo");
const std::string& midiCommandPlay = *new std::string("midiCommandPlay");
const std::string& midiCommandPause = *new std::string("midiCommandPause");
const std::string& midiCommandStop = *new std::string("midiCommandStop");
const std::string& midiCommandNextSong = *new std::string("midiCommandNextSong");
const std::string& midiCommandPreviousSong = *new std::string("midiCommandPreviousSong");
const std::string& midiCommandNextMarker = *new std::string("midiCommandNextMarker");
const std::string& midiCommandPreviousMarker = *new std::string("midiCommandPreviousMarker");
const std::string& midiCommandContinue = *new std::string("midiCommandContinue");
}  // namespace names

struct CallbackDispatcher::Impl {
    struct Entry {
        const void* target;
        Callback callback;
        bool removed = false;
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;

    /// One callback that runs, or one removal that waits, on a thread.
    struct Activity {
        const void* target;
        std::thread::id thread;
        bool operator==(const Activity&) const = default;
    };

    kit::Mutex mutex;
    std::condition_variable finished;
    // A list of entries is never changed once it stands in the map, so that Notify can walk it unlocked; what an entry
    // says of its removal is guarded like the map.
    std::map<std::string, std::shared_ptr<const Entries>> entriesByName KIT_GUARDED_BY(mutex);
    std::vector<Activity> running KIT_GUARDED_BY(mutex);
    std::vector<Activity> waiting KIT_GUARDED_BY(mutex);

    /// Whether the callback may run now; if so it counts as running.
    bool Begin(const Entry& entry) KIT_EXCLUDES(mutex) {
        const kit::MutexLock lock(mutex);
        if (entry.removed) return false;
        running.push_back({entry.target, std::this_thread::get_id()});
        return true;
    }

    void Finish(const Entry& entry) KIT_EXCLUDES(mutex) {
        const kit::MutexLock lock(mutex);
        running.erase(std::find(running.begin(), running.end(), Activity{entry.target, std::this_thread::get_id()}));
        if (!waiting.empty()) finished.notify_all();
    }

    /// Takes the target's entries out of all lists and returns them.
    Entries TakeOut(const void* target) KIT_REQUIRES(mutex) {
        Entries takenOut;
        for (auto it = entriesByName.begin(); it != entriesByName.end();) {
            Entries kept;
            for (const auto& entry : *it->second)
                (entry->target == target ? takenOut : kept).push_back(entry);
            if (kept.size() != it->second->size()) it->second = std::make_shared<const Entries>(std::move(kept));
            it = it->second->empty() ? entriesByName.erase(it) : std::next(it);
        }
        for (const auto& entry : takenOut)
            entry->removed = true;
        return takenOut;
    }

    /// Whether a callback of the target runs on a thread that `self` may wait for: not its own, and none that itself
    /// waits, directly or through others, for a callback running on `self`.
    bool MustWaitFor(const void* target, std::thread::id self) KIT_REQUIRES(mutex) {
        for (const Activity& run : running) {
            std::vector<std::thread::id> asked;
            if (run.target == target && run.thread != self && !WaitsFor(run.thread, self, asked)) return true;
        }
        return false;
    }

    bool WaitsFor(std::thread::id waiter, std::thread::id other, std::vector<std::thread::id>& asked)
        KIT_REQUIRES(mutex) {
        if (std::find(asked.begin(), asked.end(), waiter) != asked.end()) return false;
        asked.push_back(waiter);
        for (const Activity& wait : waiting) {
            if (wait.thread != waiter) continue;
            for (const Activity& run : running) {
                if (run.target != wait.target || run.thread == waiter) continue;
                if (run.thread == other || WaitsFor(run.thread, other, asked)) return true;
            }
        }
        return false;
    }
};

CallbackDispatcher::CallbackDispatcher() : impl_(std::make_unique<Impl>()) {}

CallbackDispatcher::~CallbackDispatcher() = default;

void CallbackDispatcher::AddCallback(const void* target, const std::string& name, Callback callback) {
    auto entry = std::make_shared<Impl::Entry>(Impl::Entry{target, std::move(callback)});
    const kit::MutexLock lock(impl_->mutex);
    const auto found = impl_->entriesByName.find(name);
    const bool isFirst = found == impl_->entriesByName.end();
    auto grown = isFirst ? std::make_shared<Impl::Entries>() : std::make_shared<Impl::Entries>(*found->second);
    grown->push_back(std::move(entry));
    // Last, so that without memory the map is as before.
    impl_->entriesByName.insert_or_assign(name, std::move(grown));
}

void CallbackDispatcher::RemoveCallbacksForTarget(const void* target) {
    // What the callbacks own is destroyed after the lock, for that may call in here again.
    Impl::Entries takenOut;
    const auto self = std::this_thread::get_id();
    kit::MutexLock lock(impl_->mutex);
    takenOut = impl_->TakeOut(target);
    if (!impl_->MustWaitFor(target, self)) return;
    impl_->waiting.push_back({target, self});
    while (impl_->MustWaitFor(target, self))
        lock.Wait(impl_->finished);
    impl_->waiting.erase(std::find(impl_->waiting.begin(), impl_->waiting.end(), Impl::Activity{target, self}));
}

void CallbackDispatcher::Notify(const std::string& name, void* data) {
    std::shared_ptr<const Impl::Entries> entries;
    {
        const kit::MutexLock lock(impl_->mutex);
        const auto found = impl_->entriesByName.find(name);
        if (found == impl_->entriesByName.end()) return;
        entries = found->second;
    }
    for (const auto& entry : *entries) {
        if (!impl_->Begin(*entry)) continue;
        try {
            entry->callback(data);
        } catch (...) {
            impl_->Finish(*entry);
            throw;
        }
        impl_->Finish(*entry);
    }
}

CallbackDispatcher& callbackDispatcher = *new CallbackDispatcher;

}  // namespace notify
