#pragma once

#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>

#include "tavo_core/log_holder.h"

/// The process's one active change log and its guards. All functions are thread-safe and block while a writer is in or
/// waits, writers while anybody is in. In the order of locks this one comes after the active song number and before the
/// future statuses: what a thread asks for while it holds a guard must be one of those that come later, or its own
/// already. There is no active change log until one is created: the guards' operators then throw std::logic_error.

/// Where the active change log is held; lives until the process ends.
[[nodiscard]] CL::LogHolder& GetActiveLogHolder();

/// Reads the active change log for as long as it lives.
class ActiveChangeLogShared : public CL::LogHolder::Shared {
public:
    /// Blocks while a writer is in or waits, unless this thread reads already.
    ActiveChangeLogShared() : Shared(GetActiveLogHolder()) {}
};

/// Reads and writes the active change log for as long as it lives.
class ActiveChangeLogExclusive : public CL::LogHolder::Exclusive {
public:
    /// Blocks while anybody else is in; forever where this thread is.
    ActiveChangeLogExclusive() : Exclusive(GetActiveLogHolder()) {}
};

/// The active change log's shared lock, not yet taken, for callers that take it together with other locks. While it
/// is held, PeekActiveChangeLog answers without locking again.
[[nodiscard]] std::shared_lock<ChangeLogMutex> GetActiveChangeLogSharedLock();
/// The active change log, kept alive by the result; the caller holds one of the locks above. Null while there is none.
[[nodiscard]] std::shared_ptr<const CL::ChangeLog> PeekActiveChangeLog();

/// Reads the file at `path` and makes it the active change log, swapping it in under the exclusive lock. The caller
/// holds no guard. Throws what CL::ChangeLog::Load throws; the old log then stays. Blocks on the disk.
void CreateChangeLog(const std::string& path);
/// Makes `log` (null: none) the active change log in the same way.
void SetActiveChangeLog(std::shared_ptr<CL::ChangeLog> log);
/// CL::LogHolder::Replace on the active change log.
void ReplaceActiveChangeLog(
    const std::function<std::shared_ptr<CL::ChangeLog>(const CL::ChangeLog& current)>& makeNext);
