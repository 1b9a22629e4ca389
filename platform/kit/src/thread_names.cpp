#include "kit/thread_names.h"

#include <pthread.h>

#include <map>
#include <mutex>

namespace kit {

namespace {

constexpr std::size_t kLongestSystemName = 15;

struct Register {
    std::mutex mutex;
    std::map<std::thread::id, std::string> names;
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
        const std::lock_guard lock(threads.mutex);
        threads.names.erase(std::this_thread::get_id());
    }
};

/// At most 15 bytes, not ending within a UTF-8 character.
std::string CutForSystem(const std::string& name) {
    if (name.size() <= kLongestSystemName) return name;
    std::size_t end = kLongestSystemName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U)
        --end;
    return name.substr(0, end);
}

}  // namespace

void ThreadNames::SetNameOfCurrentThread(const std::string& name) const {
    pthread_setname_np(pthread_self(), CutForSystem(name).c_str());
    // A thread that is ending has nobody left to remove its entry.
    if (threadIsEnding) return;
    thread_local const NameRemover remover;
    Register& threads = GetRegister();
    const std::lock_guard lock(threads.mutex);
    threads.names[std::this_thread::get_id()] = name;
}

std::string ThreadNames::GetNameOfCurrentThread() const {
    return GetName(std::this_thread::get_id());
}

std::string ThreadNames::GetName(std::thread::id thread) const {
    Register& threads = GetRegister();
    const std::lock_guard lock(threads.mutex);
    const auto found = threads.names.find(thread);
    return found != threads.names.end() ? found->second : std::string();
}

}  // namespace kit
