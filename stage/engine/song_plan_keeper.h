#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "stage/engine/song_plan.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace stage {

/// Makes the plans of the songs after and before the one that plays ahead of time, on a thread of its own, so that an
/// attacca and a step to either side find them ready; destroys those that are done with there too. A plan that is ready
/// is only given out while the active change log still says what it was made from: whether one is ready changes nothing
/// but the time it takes. Thread-safe.
class SongPlanKeeper {
public:
    using OldPlans = std::vector<std::shared_ptr<const SongPlan>>;

    /// `takeOldPlans` is asked on the keeper's thread. `showData` and `sounds`, which may be null, outlive the object.
    SongPlanKeeper(const tavo_midi::ShowData& showData, SoundLibrary* sounds, std::function<OldPlans()> takeOldPlans);
    ~SongPlanKeeper();
    SongPlanKeeper(const SongPlanKeeper&) = delete;
    SongPlanKeeper& operator=(const SongPlanKeeper&) = delete;

    /// The song is in, or its neighbours may have changed: their plans will be looked after, the follower's first.
    void PrepareNeighbours(const std::string& songNumber);
    /// The song is about to be loaded: its plan is made here and now, unless it is ready, and kept until it is taken or
    /// another one is prepared. Throws as Make does.
    void Prepare(const std::string& songNumber);
    /// Waits until the neighbours are looked after. For tests.
    void Wait();

    /// The plan that was made ahead, or null where there is none that holds. Waits for no plan being made.
    [[nodiscard]] std::shared_ptr<const SongPlan> TakeIfReady(const std::string& songNumber);
    /// Made here and now. Throws std::out_of_range for a number that the show data or the change log does not have.
    [[nodiscard]] std::shared_ptr<const SongPlan> Make(const std::string& songNumber) const;

private:
    struct Ready {
        std::string songNumber;
        CL::SongLog madeFrom;
        std::shared_ptr<const SongPlan> plan;
    };

    void Run_();
    using FindNeighbour = std::string (*)(const CL::ChangeLog& changeLog, const std::string& songNumber);

    void PrepareNeighbour_(std::size_t which, FindNeighbour find, const std::string& songNumber);
    /// What is ready of that song and still holds, or null.
    [[nodiscard]] std::shared_ptr<const Ready> FindReady_(const std::string& songNumber) const;

    // Constant after construction.
    const tavo_midi::ShowData& showData_;
    SoundLibrary* const sounds_;
    const std::function<OldPlans()> takeOldPlans_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::string songNumber_;
    bool isWanted_ = false;
    bool isWorking_ = false;
    bool isEnding_ = false;
    std::array<std::shared_ptr<const Ready>, 2> ready_;  // of the song after and of the song before
    std::shared_ptr<const Ready> loading_;               // of the one that is about to be loaded
    std::shared_ptr<const Ready> used_;                  // given out; it goes on the keeper's thread

    std::thread thread_;
};

}  // namespace stage
