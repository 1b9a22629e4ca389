#include "kit/thread_names.h"

#include <pthread.h>

#include <map>

#include "kit/mutex.h"
#include "kit/utf8.h"

namespace kit {

namespace {

constexpr std::size_t LongestSystemName = 15;

struct Register {
    Mutex mutex;
    std::map<std::thread::id, std::string> names KIT_GUARDED_BY(mutex);
};

// Never destroyed, because threads may still be named while static objects are.
Register& GetRegister() {
    static Register& names = *new Register;
    return names;
}

thread_local constinit bool threadIsEnding = false;

struct NameRemover {
    ~NameRemover() {
        threadIsEnding = true;
        Register& threads = GetRegister();
        const MutexLock lock(threads.mutex);
        threads.names.erase(std::this_thread::get_id());
    }
};

}  // namespace

void ThreadNames::SetNameOfCurrentThread(const std::string& name) const {
    pthread_setname_np(pthread_self(), name.substr(0, CutUtf8(name, LongestSystemName)).c_str());
    // A thread that is ending has nobody left to remove its entry.
    if (threadIsEnding) return;
    thread_local const NameRemover remover;
    Register& threads = GetRegister();
    const MutexLock lock(threads.mutex);
    threads.names[std::this_thread::get_id()] = name;
}

std::string ThreadNames::GetNameOfCurrentThread() const {
    return GetName(std::this_thread::get_id());
}

std::string ThreadNames::GetName(std::thread::id thread) const {
    Register& threads = GetRegister();
    const MutexLock lock(threads.mutex);
    const auto found = threads.names.find(thread);
    return found != threads.names.end() ? found->second : std::string();
}

}  // namespace kit
