#include "tavo_core/active_change_log.h"

#include <stdexcept>
#include <utility>

namespace {

struct Active {
    ChangeLogMutex mutex;
    std::shared_ptr<CL::ChangeLog> log;
};

// Never destroyed: threads may read until the very end of the process.
Active& GetActive() {
    static Active& active = *new Active;
    return active;
}

CL::ChangeLog& GetLogOrThrow() {
    CL::ChangeLog* log = GetActive().log.get();
    if (log == nullptr) throw std::logic_error("There is no active change log.");
    return *log;
}

}  // namespace

ActiveChangeLogShared::ActiveChangeLogShared() : lock_(GetActive().mutex) {}

const CL::ChangeLog& ActiveChangeLogShared::operator*() const {
    return GetLogOrThrow();
}

std::shared_ptr<const CL::ChangeLog> ActiveChangeLogShared::Share() const {
    return GetActive().log;
}

ActiveChangeLogExclusive::ActiveChangeLogExclusive() : lock_(GetActive().mutex) {}

CL::ChangeLog& ActiveChangeLogExclusive::operator*() const {
    return GetLogOrThrow();
}

std::shared_lock<ChangeLogMutex> GetActiveChangeLogSharedLock() {
    return {GetActive().mutex, std::defer_lock};
}

std::shared_ptr<const CL::ChangeLog> PeekActiveChangeLog() {
    return GetActive().log;
}

void CreateChangeLog(const std::string& path) {
    SetActiveChangeLog(std::make_shared<CL::ChangeLog>(CL::ChangeLog::Load(path)));
}

void SetActiveChangeLog(std::shared_ptr<CL::ChangeLog> log) {
    // The old log is destroyed after the lock is released: readers need not wait for that.
    const std::unique_lock lock(GetActive().mutex);
    GetActive().log.swap(log);
}

void ReplaceActiveChangeLog(
    const std::function<std::shared_ptr<CL::ChangeLog>(const CL::ChangeLog& current)>& makeNext) {
    // Declared before the lock, so that the old log is destroyed after it is released.
    std::shared_ptr<CL::ChangeLog> next;
    const std::unique_lock lock(GetActive().mutex);
    next = makeNext(GetLogOrThrow());
    if (next != nullptr) GetActive().log.swap(next);
}
