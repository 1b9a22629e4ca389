#pragma once

#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>

#include "kit/shared_mutex.h"
#include "tavo_core/change_log.h"

/// The process's one active change log and its guards. The lock prefers readers: a second shared acquisition on one
/// thread never waits behind a writer. Acquiring the exclusive guard while the same thread holds the shared one, or the
/// reverse, waits for ever. In the order of locks it comes after the active song number and before the future
/// statuses. There is no active change log until one is created: the guards' operators then throw std::logic_error.

using ChangeLogMutex = kit::ReaderPreferringSharedMutex;

/// Reads the active change log for as long as it lives.
class ActiveChangeLogShared {
public:
    ActiveChangeLogShared();

    const CL::ChangeLog& operator*() const;
    const CL::ChangeLog* operator->() const { return &**this; }
    /// Keeps the log alive beyond the guard, so that pointers into it stay valid when another becomes active. The log
    /// may still be edited by others: read it only under a guard.
    [[nodiscard]] std::shared_ptr<const CL::ChangeLog> Share() const;

private:
    std::shared_lock<ChangeLogMutex> lock_;
};

/// Reads and writes the active change log for as long as it lives.
class ActiveChangeLogExclusive {
public:
    ActiveChangeLogExclusive();

    CL::ChangeLog& operator*() const;
    CL::ChangeLog* operator->() const { return &**this; }

private:
    std::unique_lock<ChangeLogMutex> lock_;
};

/// The active change log's shared lock, not yet taken, for callers that take it together with other locks. While it
/// is held, PeekActiveChangeLog answers without locking again.
[[nodiscard]] std::shared_lock<ChangeLogMutex> GetActiveChangeLogSharedLock();
/// The active change log, kept alive by the result; the caller holds one of the locks above. Null while there is none.
[[nodiscard]] std::shared_ptr<const CL::ChangeLog> PeekActiveChangeLog();

/// Reads the file at `path` and makes it the active change log, swapping it in under the exclusive lock. The caller
/// holds no guard. Throws what CL::ChangeLog::Load throws; the old log then stays.
void CreateChangeLog(const std::string& path);
/// Makes `log` (null: none) the active change log in the same way.
void SetActiveChangeLog(std::shared_ptr<CL::ChangeLog> log);
/// Calls `makeNext` with the active change log under the exclusive lock and makes its result (null: the same again)
/// the active one, so that nothing that others write in place is lost in between. What `makeNext` throws passes
/// through and changes nothing; it takes no guard itself. Throws std::logic_error where there is no active change log.
void ReplaceActiveChangeLog(
    const std::function<std::shared_ptr<CL::ChangeLog>(const CL::ChangeLog& current)>& makeNext);
