#include "tavo_core/active_change_log.h"

#include <utility>

CL::LogHolder& GetActiveLogHolder() {
    // Never destroyed: threads may read until the very end of the process.
    static CL::LogHolder& active = *new CL::LogHolder;
    return active;
}

std::shared_lock<ChangeLogMutex> GetActiveChangeLogSharedLock() {
    return GetActiveLogHolder().GetSharedLock();
}

std::shared_ptr<const CL::ChangeLog> PeekActiveChangeLog() {
    return GetActiveLogHolder().Peek();
}

void CreateChangeLog(const std::string& path) {
    SetActiveChangeLog(std::make_shared<CL::ChangeLog>(CL::ChangeLog::Load(path)));
}

void SetActiveChangeLog(std::shared_ptr<CL::ChangeLog> log) {
    GetActiveLogHolder().Set(std::move(log));
}

void ReplaceActiveChangeLog(
    const std::function<std::shared_ptr<CL::ChangeLog>(const CL::ChangeLog& current)>& makeNext) {
    GetActiveLogHolder().Replace(makeNext);
}
