#include "tests/stress/stress_show.h"

#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"

namespace stress {
namespace {

constexpr unsigned int Bar = 1920;

tavo_midi::SongData MakeSong(const std::string& number) {
    TL::Timeline timeline(0, StressShow::EndTick);
    timeline.SetSongTitle("Song " + number);
    timeline.GetMeters().Append(TL::Meter(0, 4, 4));
    timeline.GetKeys().Append(TL::Key(0, 0, false));
    for (unsigned int beat = 0; beat < 64; ++beat) {
        const unsigned int tick = beat * Bar / 4;
        timeline.GetBarsBeats().Append(TL::BarsBeats(tick, 1 + beat % 4, std::to_string(1 + beat / 4)));
        timeline.GetTempos().Append(TL::Tempo(tick, 500000 - 1000 * beat));
        if (beat % 8 == 0) timeline.GetPageNums().Append(TL::PageNum(tick, 1 + beat / 8));
    }
    return {number, std::move(timeline), 480};
}

// Every kind of edit; the versions differ by a shift of all places.
void AddEdits(CL::SongLog& log, unsigned int shift) {
    log.GetRepeats().Add(CL::Repeat(shift, 2 * Bar + shift, 2));
    log.GetVamps().Add(CL::Vamp(Bar + shift, 3 * Bar + shift));
    log.GetVamps().Add(CL::Vamp(4 * Bar, 5 * Bar + shift, 2));
    log.GetVamps().Add(CL::Vamp(6 * Bar + shift, 6 * Bar + shift));
    log.GetCuts().Add(CL::Cut(5 * Bar + shift, 6 * Bar));
    log.GetCuts().Add(CL::Cut(6 * Bar, 6 * Bar + 480 + shift));
    log.GetFermatas().Add(CL::Fermata(8 * Bar, 8 * Bar + 960 + shift));
    log.GetCaesuras().Add(CL::Caesura(10 * Bar + shift, "//", 0));
    log.GetCaesuras().Add(CL::Caesura(10 * Bar + 480 + shift, "//", 0));
    log.GetClicks().Add(CL::Click(11 * Bar, 12 * Bar + shift, 4));
    log.GetTempoScales().Add(CL::TempoScale(12 * Bar, 13 * Bar + shift, 1.25F));
    log.GetTranspositions().Add(CL::Transposition(13 * Bar, 14 * Bar + shift, -3));
    for (unsigned int bar = 0; bar < 16; bar += 3)
        log.GetMarkers().Add(CL::Marker(bar * Bar + shift, "Letter"));
}

}  // namespace

FindNextControlEventResult StressShowControl::Result() {
    const std::lock_guard lock(GetSeekLock());
    return GetResult_();
}

unsigned int StressShowControl::FirstLoopEnd() {
    const std::lock_guard lock(GetSeekLock());
    return GetLoopEvents_().IsEmpty() ? StressShow::EndTick : GetLoopEvents_().GetFirstLoopEvent().end;
}

void StressShowControl::Report(unsigned int tick) {
    const std::lock_guard lock(GetSeekLock());
    SetTickIndex(tick);
    howToPlay_.Advance(tick);
}

bool StressShowControl::SkipAhead(unsigned int from, unsigned int target) {
    const std::lock_guard lock(GetSeekLock());
    if (GetTickIndex() != from) return false;
    DoSkipAhead(target);
    return true;
}

bool StressPlayer::StopIfPlaying() {
    const bool wasPlaying = IsPlaying();
    Stop();
    return wasPlaying;
}

void StressPlayer::LoadSong(const std::string& songNumber) {
    const std::lock_guard lock(loadMutex_);
    Stop();
    SetActiveSongNumber(songNumber);
    showControl_->LoadSong();
    ResetPlayerNoFillBuffers();
}

bool StressPlayer::NextSong() {
    std::string next;
    try {
        const std::string current = GetActiveSongNumberRef().Get();
        const ActiveChangeLogShared changeLog;
        next = tavo_ext::get_song_after(*changeLog, current);
    } catch (const tavo_ext::EndOfShow&) {
        return true;
    }
    LoadSong(next);
    return false;
}

void StressPlayer::PrevSong() {
    std::string previous;
    try {
        const std::string current = GetActiveSongNumberRef().Get();
        const ActiveChangeLogShared changeLog;
        previous = tavo_ext::get_song_before(*changeLog, current);
    } catch (const tavo_ext::StartOfShow&) {
        return;
    }
    LoadSong(previous);
}

void StressPlayer::JumpToInternalCut(unsigned int tickIndex) {
    ++internalCuts;
    showControl_->Seek(tickIndex);
}

StressShow::StressShow() {
    for (const char* number : {"1", "2", "3"})
        showData_.AddSong(MakeSong(number));
    flow_ = std::make_unique<StressShowControl>(player_, showData_);
    player_.SetShowControl(*flow_);
    ActivateVersion(0);
}

StressShow::~StressShow() {
    SetActiveChangeLog(nullptr);
}

void StressShow::ActivateVersion(unsigned int version) {
    auto changeLog = std::make_shared<CL::ChangeLog>();
    for (const char* number : {"1", "2", "3"}) {
        CL::SongLog& log = changeLog->GetSongLogs()[number];
        log.SetAttacca(static_cast<unsigned char>(version % 3));
        AddEdits(log, 120 * version);
    }
    changeLog->GetSongLogs()["1"].SetAttacca(CL::AttaccaNormal);
    SetActiveChangeLog(std::move(changeLog));
}

}  // namespace stress
