#include "stage/engine/song_plan_keeper.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/log_change.h"

namespace stage {

namespace {

template <class Edit>
bool IsSame(const CL::ChangeLogSequence<Edit>& a, const CL::ChangeLogSequence<Edit>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Edit& one, const Edit& other) { return CL::IsSameEdit(one, other); });
}

// In everything that a plan is made from.
bool MakesTheSamePlan(const CL::SongLog& a, const CL::SongLog& b) {
    return IsSame(a.GetTempoScales(), b.GetTempoScales()) && IsSame(a.GetTranspositions(), b.GetTranspositions()) &&
           IsSame(a.GetClicks(), b.GetClicks()) && IsSame(a.GetSfxs(), b.GetSfxs()) &&
           IsSame(a.GetSfxAmbients(), b.GetSfxAmbients()) && IsSame(a.GetOscs(), b.GetOscs()) &&
           IsSame(a.GetVamps(), b.GetVamps()) && IsSame(a.GetRepeats(), b.GetRepeats()) &&
           IsSame(a.GetFermatas(), b.GetFermatas()) && IsSame(a.GetCaesuras(), b.GetCaesuras()) &&
           IsSame(a.GetCuts(), b.GetCuts());
}

// Places of the neighbours among what is ready.
constexpr std::size_t After = 0;
constexpr std::size_t Before = 1;

}  // namespace

SongPlanKeeper::SongPlanKeeper(const tavo_midi::ShowData& showData, SoundLibrary* sounds,
                               std::function<OldPlans()> takeOldPlans)
    : showData_(showData), sounds_(sounds), takeOldPlans_(std::move(takeOldPlans)), thread_([this] { Run_(); }) {}

SongPlanKeeper::~SongPlanKeeper() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void SongPlanKeeper::PrepareNeighbours(const std::string& songNumber) {
    {
        const std::lock_guard lock(mutex_);
        songNumber_ = songNumber;
        isWanted_ = true;
    }
    changed_.notify_all();
}

void SongPlanKeeper::Wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !isWanted_ && !isWorking_; });
}

std::shared_ptr<const SongPlanKeeper::Ready> SongPlanKeeper::FindReady_(const std::string& songNumber) const {
    std::shared_ptr<const Ready> found;
    {
        const std::lock_guard lock(mutex_);
        for (const std::shared_ptr<const Ready>& ready : {loading_, ready_[After], ready_[Before]})
            if (found == nullptr && ready != nullptr && ready->songNumber == songNumber) found = ready;
    }
    if (found == nullptr) return nullptr;
    const ActiveChangeLogShared changeLog;
    return MakesTheSamePlan(found->madeFrom, changeLog->GetSongLog(songNumber)) ? found : nullptr;
}

void SongPlanKeeper::Prepare(const std::string& songNumber) {
    if (FindReady_(songNumber) != nullptr) return;
    auto loading = std::make_shared<Ready>();
    loading->songNumber = songNumber;
    loading->madeFrom = ActiveChangeLogShared()->GetSongLog(songNumber);
    loading->plan = std::make_shared<const SongPlan>(showData_.GetSongData(songNumber), loading->madeFrom, sounds_);
    const std::lock_guard lock(mutex_);
    loading_ = std::move(loading);
}

std::shared_ptr<const SongPlan> SongPlanKeeper::TakeIfReady(const std::string& songNumber) {
    const std::shared_ptr<const Ready> ready = FindReady_(songNumber);
    if (ready == nullptr) return nullptr;
    const std::lock_guard lock(mutex_);
    for (std::shared_ptr<const Ready>* place : {&ready_[After], &ready_[Before], &loading_})
        if (*place == ready) used_ = std::exchange(*place, nullptr);
    return ready->plan;
}

std::shared_ptr<const SongPlan> SongPlanKeeper::Make(const std::string& songNumber) const {
    const tavo_midi::SongData& song = showData_.GetSongData(songNumber);
    // From a copy: a writer that waits for the change log keeps readers waiting too, the rendering thread among them.
    const CL::SongLog songLog = ActiveChangeLogShared()->GetSongLog(songNumber);
    return std::make_shared<const SongPlan>(song, songLog, sounds_);
}

void SongPlanKeeper::Run_() {
    kit::threadNames.SetNameOfCurrentThread("song plans");
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isEnding_ || isWanted_; });
        if (isEnding_) return;
        isWanted_ = false;
        isWorking_ = true;
        const std::string songNumber = songNumber_;
        std::shared_ptr<const Ready> used = std::exchange(used_, nullptr);
        // Meanwhile another song may be asked for: then there is another turn.
        lock.unlock();
        try {
            PrepareNeighbour_(After, tavo_ext::get_song_after, songNumber);
            PrepareNeighbour_(Before, tavo_ext::get_song_before, songNumber);
            static_cast<void>(takeOldPlans_());
            used.reset();
            if (sounds_ != nullptr) sounds_->Tidy();
        } catch (const std::exception& error) {
            kit::AppendToThreadExceptionLog(error.what());
        }
        lock.lock();
        isWorking_ = false;
        changed_.notify_all();
    }
}

void SongPlanKeeper::PrepareNeighbour_(std::size_t which, FindNeighbour find, const std::string& songNumber) {
    auto next = std::make_shared<Ready>();
    try {
        const ActiveChangeLogShared changeLog;
        next->songNumber = find(*changeLog, songNumber);
        next->madeFrom = changeLog->GetSongLog(next->songNumber);
    } catch (const std::out_of_range&) {  // an end of the show
        return;
    }
    if (FindReady_(next->songNumber) != nullptr) return;
    next->plan =
        std::make_shared<const SongPlan>(showData_.GetSongData(next->songNumber), next->madeFrom, sounds_, false);
    const std::lock_guard lock(mutex_);
    ready_[which] = std::move(next);
}

}  // namespace stage
