#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "kit/shared_mutex.h"
#include "tavo_core/change_log.h"

/// Guards a change log in use; shared for reading, exclusive for writing, fair to writers.
using ChangeLogMutex = kit::FairSharedMutex;

namespace CL {

/// Where a change log is in use: the log, which may be replaced by another, and the lock that guards it. The process's
/// active change log is one (tavo_core/active_change_log.h); a tool that edits a show that it does not play has one of
/// its own. Thread-safe. A thread that reads may take it shared again and never waits behind a writer then; a writer
/// gets in as soon as those who read have left. Acquiring it exclusively on a thread that holds it shared, or the
/// reverse, waits forever.
class LogHolder {
public:
    LogHolder() = default;
    /// `log` is shared with whoever else keeps it; null is as none.
    explicit LogHolder(std::shared_ptr<ChangeLog> log) : log_(std::move(log)) {}
    LogHolder(const LogHolder&) = delete;
    LogHolder& operator=(const LogHolder&) = delete;

    /// Reads the log for as long as it lives. The operators throw std::logic_error where there is no log.
    class Shared {
    public:
        /// Blocks while a writer is in or waits, unless this thread reads already. `holder` outlives the guard.
        explicit Shared(const LogHolder& holder) : holder_(&holder), lock_(holder.mutex_) {}

        /// Good for as long as the guard lives.
        const ChangeLog& operator*() const { return holder_->GetOrThrow_(); }
        /// Likewise; never null.
        const ChangeLog* operator->() const { return &**this; }
        /// Keeps the log alive beyond the guard, so that pointers into it stay valid when another takes its place; null
        /// where there is none. The log may still be written in place by others: read it only under a guard.
        [[nodiscard]] std::shared_ptr<const ChangeLog> Share() const { return holder_->log_; }

    private:
        const LogHolder* holder_;
        std::shared_lock<ChangeLogMutex> lock_;
    };

    /// Reads and writes the log for as long as it lives. Otherwise like Shared.
    class Exclusive {
    public:
        /// Blocks while anybody else is in; forever where this thread is. `holder` outlives the guard.
        explicit Exclusive(LogHolder& holder) : holder_(&holder), lock_(holder.mutex_) {}

        /// May be changed in place, but no edit of it removed while a song is loaded, for flow control points at them:
        /// that is for Replace.
        ChangeLog& operator*() const { return holder_->GetOrThrow_(); }
        /// Likewise; never null.
        ChangeLog* operator->() const { return &**this; }

    private:
        LogHolder* holder_;
        std::unique_lock<ChangeLogMutex> lock_;
    };

    /// The shared lock, not yet taken, for callers that take it together with other locks. While it is held, Peek
    /// answers without locking again.
    [[nodiscard]] std::shared_lock<ChangeLogMutex> GetSharedLock() const { return {mutex_, std::defer_lock}; }
    /// The log, kept alive by the result; the caller holds the lock. Null where there is none.
    [[nodiscard]] std::shared_ptr<const ChangeLog> Peek() const { return log_; }

    /// Puts `log` (null: none) in the place of the one there is. Takes the lock exclusively; the old log is destroyed
    /// after it is released.
    void Set(std::shared_ptr<ChangeLog> log);
    /// Calls `makeNext` with the log under the exclusive lock and puts its result (null: the same again) in its place,
    /// so that nothing that others write in place is lost in between. What `makeNext` throws passes through and
    /// changes nothing; it takes no guard of this holder. Throws std::logic_error where there is no log.
    void Replace(const std::function<std::shared_ptr<ChangeLog>(const ChangeLog& current)>& makeNext);

private:
    [[nodiscard]] ChangeLog& GetOrThrow_() const;

    mutable ChangeLogMutex mutex_;
    std::shared_ptr<ChangeLog> log_;  // guarded by mutex_
};

}  // namespace CL
