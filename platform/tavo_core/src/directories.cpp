#include "tavo_core/directories.h"

#include "kit/mutex.h"

namespace {

struct Stored {
    kit::Mutex mutex;
    std::string show KIT_GUARDED_BY(mutex);
    std::string settings KIT_GUARDED_BY(mutex);
};

// Never destroyed: threads may ask until the very end of the process.
Stored& GetStored() {
    static Stored& stored = *new Stored;
    return stored;
}

void Set(std::string Stored::*which, const std::string& path) {
    Stored& stored = GetStored();
    const kit::MutexLock lock(stored.mutex);
    stored.*which = path;
}

std::string Get(std::string Stored::*which) {
    Stored& stored = GetStored();
    const kit::MutexLock lock(stored.mutex);
    return stored.*which;
}

}  // namespace

void Directories::SetShowDirectory(const std::string& path) {
    Set(&Stored::show, path);
}

std::string Directories::GetShowDirectory() {
    return Get(&Stored::show);
}

void Directories::SetSettingsDirectory(const std::string& path) {
    Set(&Stored::settings, path);
}

std::string Directories::GetSettingsDirectory() {
    return Get(&Stored::settings);
}
