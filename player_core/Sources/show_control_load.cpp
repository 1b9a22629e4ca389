// Loading: what playback consults, built from the song and its edits.

#include <algorithm>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "player_core/gui_update.h"
#include "player_core/show_control.h"
#include "tavo_core/active_change_log.h"

namespace {

bool IsEarlier(const cmn::TavoEvent& a, const cmn::TavoEvent& b) {
    return a.abs_time() < b.abs_time();
}

template <class Event>
std::vector<const Event*> SortedPointers(const CL::ChangeLogSequence<Event>& events) {
    std::vector<const Event*> pointers;
    pointers.reserve(events.size());
    for (const Event& event : events)
        pointers.push_back(&event);
    std::sort(pointers.begin(), pointers.end(), [](const Event* a, const Event* b) { return IsEarlier(*a, *b); });
    return pointers;
}

bool IsInRange(const cmn::TavoEvent& event, long long from, long long to) {
    return event.abs_time() >= from && event.abs_time() <= to;
}

}  // namespace

void ShowControl::LoadSong() {
    {
        const SeekLock lock(seekMutex_);
        const std::shared_lock songGuard(activeSongNumber_);
        songData_ = &showData_.GetSongData(activeSongNumber_.Peek());
        LoadStartAndEndTickIndices();
    }
    FinishLoadingSongLog_();
}

void ShowControl::LoadNewChangeLog() {
    FinishLoadingSongLog_();
}

void ShowControl::LoadStartAndEndTickIndices() {
    startTickIndex_ = songData_->GetTimeline().GetStartTickIndex();
    endTickIndex_ = songData_->GetTimeline().GetEndTickIndex();
}

void ShowControl::FinishLoadingSongLog_() {
    // Let go of the old log only when no lock is held: the last owner destroys it.
    std::shared_ptr<const CL::ChangeLog> oldOwner;
    const SeekLock seekLock(seekMutex_);
    const std::lock_guard guiLock(GetGuiUpdate().GetMutex());
    const std::shared_lock songGuard(activeSongNumber_);
    auto changeLogLock = GetActiveChangeLogSharedLock();
    changeLogLock.lock();
    if (songData_ == nullptr) throw std::logic_error("no song is loaded that a change log could be applied to");
    std::shared_ptr<const CL::ChangeLog> changeLog = PeekActiveChangeLog();
    if (changeLog == nullptr) throw std::logic_error("no change log is active");
    const std::string& songNumber = activeSongNumber_.Peek();
    const CL::SongLog& songLog = changeLog->GetSongLog(songNumber);

    SetDataOnGuiAndHowToPlay_(songNumber, songLog);
    jump_ = false;
    jumpForVampRepeatOrCut_ = false;
    loopEvents_.Clear();
    pairedEventMap_.Clear();
    spentEvents_.clear();
    ++buildCount_;
    oldOwner = std::exchange(songLogOwner_, std::move(changeLog));
    BuildPairedEventMap_(songLog);
    attacca_ = songLog.GetAttacca() == CL::AttaccaNext;
    BuildSfxEventStructures_(songLog);
    BuildAmbientEventStructures_(songLog);
    BuildOscEventStructures_(songLog);
}

void ShowControl::SetDataOnGuiAndHowToPlay_(const std::string& songNumber, const CL::SongLog& songLog) {
    const unsigned int ticksPerQuarter = songData_->GetTicksPerQuarter();
    GetGuiUpdate().SetData(songLog, songData_->GetTimeline(), ticksPerQuarter);
    GetHowToPlay().SetData(songLog, songData_->GetTimeline(), ticksPerQuarter);
    timeCodeConverter_.UpdateToNewSong(songNumber, ticksPerQuarter);
}

void ShowControl::BuildPairedEventMap_(const CL::SongLog& songLog) {
    caesuraStack_.clear();
    caesuraCounter_ =
        CaesuraCounter(songLog, songData_->GetTimeline(), songData_->GetTicksPerQuarter(),
                       [this](unsigned int tickIndex) { return GetCaesuraTickIndexAlignedWithClock(tickIndex); });

    std::vector<PairedEventMap::Entry> entries;
    entries.reserve(caesuraCounter_.GetCountdownCaesuras().size() + songLog.GetVamps().size() +
                    songLog.GetRepeats().size() + songLog.GetCuts().size() + songLog.GetFermatas().size());
    // A caesura is met where its countdown begins, not where it stands.
    for (const CountdownCaesura& caesura : caesuraCounter_.GetCountdownCaesuras()) {
        entries.push_back({caesura.GetFirstCountdownTickIndex(), &caesura});
    }
    const auto addAll = [&entries](const auto& events) {
        for (const cmn::TavoEvent& event : events)
            entries.push_back({event.abs_time(), &event});
    };
    addAll(songLog.GetVamps());
    addAll(songLog.GetRepeats());
    addAll(songLog.GetCuts());
    addAll(songLog.GetFermatas());
    pairedEventMap_ = PairedEventMap(entries);
}

void ShowControl::BuildSfxEventStructures_(const CL::SongLog& songLog) {
    sfxEvents_ = SortedPointers(songLog.GetSfxs());
}

void ShowControl::BuildAmbientEventStructures_(const CL::SongLog& songLog) {
    ambientSfxEvents_ = SortedPointers(songLog.GetSfxAmbients());
}

void ShowControl::BuildOscEventStructures_(const CL::SongLog& songLog) {
    oscEvents_.assign(songLog.GetOscs().begin(), songLog.GetOscs().end());
    std::sort(oscEvents_.begin(), oscEvents_.end(), IsEarlier);
}

std::vector<const CL::SfxAmbient*> ShowControl::GetAmbientSfxInTickRange_(long long from, long long to) {
    const SeekLock lock(seekMutex_);
    // Open to the right: who asks wants to know what will sound from here on, and only needs one in range to ask.
    const auto first = std::find_if(ambientSfxEvents_.begin(), ambientSfxEvents_.end(),
                                    [from, to](const CL::SfxAmbient* event) { return IsInRange(*event, from, to); });
    return {first, ambientSfxEvents_.end()};
}

std::vector<const CL::Sfx*> ShowControl::GetSfxInTickRange_(long long from, long long to) {
    const SeekLock lock(seekMutex_);
    // The labels run straight into the numbers; log readers cut the lines up in just this form.
    const auto first = std::find_if(sfxEvents_.cbegin(), sfxEvents_.cend(), [from, to](const CL::Sfx* event) {
        const bool isInRange = IsInRange(*event, from, to);
        std::cout << "Start Index" << from << ", End Index" << to << "\n"
                  << "SFX: " << event->abs_time() << " " << event->end() << "\n"
                  << "Result: " << (isInRange ? "true" : "false") << std::endl;
        return isInRange;
    });
    // Open to the right, as for ambient sounds.
    const std::vector<const CL::Sfx*> found(first, sfxEvents_.cend());
    for (const CL::Sfx* event : found) {
        std::cout << "Start Index" << from << ", End Index" << to << std::endl
                  << "SFX: " << event->abs_time() << " " << event->end() << std::endl;
    }
    return found;
}

void ShowControl::SetOscCallback(std::shared_ptr<tavo::PlayerOscCallback> callback) {
    oscCallback_ = std::move(callback);
}
