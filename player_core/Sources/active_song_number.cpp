#include "player_core/active_song_number.h"

#include <shared_mutex>

void ActiveSongNumber::lock() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [this] { return readerCount_ == 0 && !hasWriter_; });
    hasWriter_ = true;
}

void ActiveSongNumber::unlock() {
    const std::lock_guard lock(mutex_);
    hasWriter_ = false;
    condition_.notify_all();
}

void ActiveSongNumber::lock_shared() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [this] { return !hasWriter_; });
    ++readerCount_;
}

void ActiveSongNumber::unlock_shared() {
    const std::lock_guard lock(mutex_);
    if (--readerCount_ == 0) condition_.notify_all();
}

std::string ActiveSongNumber::Get() {
    const std::shared_lock guard(*this);
    return songNumber_;
}

void ActiveSongNumber::Set(const std::string& songNumber) {
    const std::unique_lock guard(*this);
    songNumber_ = songNumber;
}
