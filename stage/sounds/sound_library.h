#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "stage/sounds/sound_clip.h"

namespace stage {

/// A sound of the show, which may still be on its way into memory.
class Sound {
public:
    /// Of the file, relative to the show directory.
    [[nodiscard]] const std::string& GetName() const { return name_; }
    [[nodiscard]] SoundUse GetUse() const { return use_; }
    /// Factor on the amplitude that the settings give it.
    [[nodiscard]] float GetTrim() const { return trim_; }
    /// Null until it is ready, and for good where it cannot be played. Any thread; wait-free.
    [[nodiscard]] const SoundClip* GetClip() const { return ready_.load(std::memory_order_acquire); }
    /// Whether it has been read, as far as it can be. Any thread; wait-free.
    [[nodiscard]] bool IsRead() const { return isRead_.load(std::memory_order_acquire); }
    /// What is wrong with it, words that go after its name; empty for nothing. Once it has been read.
    [[nodiscard]] const std::string& GetProblem() const { return problem_; }
    /// Playback has reached it before it was ready. Any thread; wait-free.
    void NoteLate() const { isLate_.store(true, std::memory_order_relaxed); }
    [[nodiscard]] bool TakeLate() const {
        return isLate_.load(std::memory_order_relaxed) && isLate_.exchange(false, std::memory_order_relaxed);
    }

private:
    friend class SoundLibrary;

    std::string name_;
    SoundUse use_ = SoundUse::Once;
    float trim_ = 1;
    std::filesystem::file_time_type changed_;  // the file, when it was asked for
    std::uintmax_t fileBytes_ = 0;
    // Written once, before the flags.
    SoundClip clip_;
    std::string problem_;
    std::atomic<const SoundClip*> ready_{nullptr};
    std::atomic<bool> isRead_{false};
    mutable std::atomic<bool> isLate_{false};
};

using SoundPointer = std::shared_ptr<const Sound>;

/// The sounds of a show that its songs at hand need, whole in memory. They are read, converted to the output's rate and
/// given up again on a thread of its own; it keeps each one until nobody else does, so that whoever lets go of one
/// never destroys it. Thread-safe; the lock is held for moments.
class SoundLibrary {
public:
    /// All sounds together; one that does not fit beside the others is not played.
    static constexpr std::size_t MostBytes = std::size_t{2} << 30U;

    struct Options {
        std::string directory;
        std::uint32_t framesPerSecond = 48000;
        /// Decibels, by the name of the file.
        std::map<std::string, double> trims;
        std::size_t mostBytes = MostBytes;
    };

    explicit SoundLibrary(Options options);
    /// What is being read is finished first.
    ~SoundLibrary();
    SoundLibrary(const SoundLibrary&) = delete;
    SoundLibrary& operator=(const SoundLibrary&) = delete;

    /// The sound, which will be read unless it has been; an urgent one before all others. A file that was changed since
    /// is read anew. Looks at the file's entry in its directory.
    [[nodiscard]] SoundPointer Find(const std::string& name, SoundUse use, bool isUrgent);
    /// Waits until it has been read.
    void Wait(const Sound& sound);
    /// Gives up, on its own thread, what nobody else has any more.
    void Tidy();

private:
    void Run_();
    void Read_(Sound& sound, std::size_t room) const;
    std::vector<std::shared_ptr<Sound>> TakeUnused_();

    // Constant after construction.
    const Options options_;

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::vector<std::shared_ptr<Sound>> sounds_;
    std::deque<std::shared_ptr<Sound>> wanted_;
    std::size_t bytes_ = 0;
    bool isToTidy_ = false;
    bool isEnding_ = false;

    std::thread thread_;
};

}  // namespace stage
