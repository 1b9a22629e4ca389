#include "tavo_core/log_holder.h"

#include <stdexcept>
#include <utility>

namespace CL {

void LogHolder::Set(std::shared_ptr<ChangeLog> log) {
    // The old log is destroyed after the lock is released: readers need not wait for that.
    const std::unique_lock lock(mutex_);
    log_.swap(log);
}

void LogHolder::Replace(const std::function<std::shared_ptr<ChangeLog>(const ChangeLog& current)>& makeNext) {
    // Declared before the lock, so that the old log is destroyed after it is released.
    std::shared_ptr<ChangeLog> next;
    const std::unique_lock lock(mutex_);
    next = makeNext(GetOrThrow_());
    if (next != nullptr) log_.swap(next);
}

ChangeLog& LogHolder::GetOrThrow_() const {
    if (log_ == nullptr) throw std::logic_error("no change log is in use: load one first");
    return *log_;
}

}  // namespace CL
