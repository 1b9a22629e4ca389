#include "tests/properties/flow_rig.h"

#include <algorithm>
#include <array>
#include <ostream>

#include "tavo_core/active_change_log.h"
#include "tavo_core/gui_batch.h"
#include "tavo_core/gui_dispatcher.h"

namespace properties {
namespace {

constexpr unsigned int NearTicks = 960;

enum class Kind : std::uint8_t {
    Play,
    Exit,
    Seek,
    SeekToEdit,
    StepLeft,
    StepRight,
    PreviousMeasure,
    NextMeasure,
    Pause,
    Continue,
    StopAtCaesura,
    CancelCaesura,
    ReloadStopped,
    ReloadRunning,
    TempoScale,
    Transposition,
    ChangeSong,
    Reset,
    Recover,
    Attacca,
    ForgetCaesuras,
    Pass,
};

constexpr std::array<const char*, 22> KindNames{
    "play",        "exit",          "seek",        "seek to edit",    "step left",      "step right", "previous bar",
    "next bar",    "pause",         "continue",    "stop at caesura", "cancel caesura", "reload",     "reload running",
    "tempo scale", "transposition", "change song", "reset",           "recover",        "attacca",    "forget caesuras",
    "pass"};

// One of 64 numbers each; what is left of them plays.
struct Share {
    Kind kind;
    int count;
};
constexpr std::array<Share, 21> Shares{{{Kind::Exit, 4},          {Kind::Seek, 2},           {Kind::SeekToEdit, 4},
                                        {Kind::StepLeft, 1},      {Kind::StepRight, 1},      {Kind::PreviousMeasure, 1},
                                        {Kind::NextMeasure, 1},   {Kind::Pause, 1},          {Kind::Continue, 5},
                                        {Kind::StopAtCaesura, 3}, {Kind::CancelCaesura, 2},  {Kind::ReloadStopped, 1},
                                        {Kind::ReloadRunning, 1}, {Kind::TempoScale, 1},     {Kind::Transposition, 1},
                                        {Kind::ChangeSong, 1},    {Kind::Reset, 1},          {Kind::Recover, 1},
                                        {Kind::Attacca, 1},       {Kind::ForgetCaesuras, 1}, {Kind::Pass, 2}}};

Kind KindOf(int number) {
    int left = 63 - number;
    for (const Share& share : Shares) {
        if (left < share.count) return share.kind;
        left -= share.count;
    }
    return Kind::Play;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Action& action) {
    return out << KindNames[static_cast<std::size_t>(KindOf(action.kind))] << " " << action.amount;
}

rc::Gen<Action> RandomAction() {
    const auto among = [](int to) { return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0, to)); };
    return rc::gen::build<Action>(rc::gen::set(&Action::kind, among(64)),
                                  rc::gen::set(&Action::amount, among(1 << 16)));
}

FlowRig::FlowRig(const ShowSpec& show) : show_(show), showData_(BuildShowData(show)) {
    Install_();
    ActivateVersion_();
    song_ = show.size() - 1;
    ChangeSong_();
    Continue_();
}

void FlowRig::Install_() {
    flow_ = std::make_unique<RigShowControl>(player_, showData_);
    player_.SetShowControl(*flow_);
    auto feed = std::make_unique<RigFeed>(player_, [this](unsigned int* tick) {
        *tick = flow_->GetTickIndex();
        return true;
    });
    feed_ = feed.get();
    SetGuiUpdate(std::move(feed));
    heard_ = std::make_unique<test_support::NotificationLog>();
    notify::guiDispatcher.SendVampOff();
    heard_->Take();
}

FlowRig::~FlowRig() {
    SetGuiUpdate(nullptr);
    SetActiveChangeLog(nullptr);
}

void FlowRig::ActivateVersion_() {
    changeLog_ = BuildChangeLog(show_, version_);
    SetActiveChangeLog(changeLog_);
}

const CL::SongLog& FlowRig::SongLog_() const {
    return std::as_const(*changeLog_).GetSongLog(SongNumber(song_));
}

const tavo_midi::SongData& FlowRig::SongData_() const {
    return showData_.GetSongData(SongNumber(song_));
}

std::size_t FlowRig::EditCount_() const {
    return show_[song_].versions[version_].size();
}

void FlowRig::Do(const Action& action) {
    // The display is woken once for all of it: most of a run would go into waking it otherwise.
    const notify::GuiBatch batch;
    ++steps_;
    const auto amount = static_cast<unsigned int>(action.amount);
    const SongSpec& song = show_[song_];
    switch (KindOf(action.kind)) {
        case Kind::Play: {
            // From one tick to the whole song in one block.
            const unsigned int block = amount % 4 == 3 ? Never / 2 : 1 + amount / 4 % (song.ticksPerQuarter * 2);
            return PlayArrivals_(1 + static_cast<int>(amount / 4 % 16), block);
        }
        case Kind::Exit:
            return PressExit_();
        case Kind::Seek:
            return SeekTo_(amount * 31 % (song.endTick + song.ticksPerQuarter));
        case Kind::SeekToEdit:
            return SeekNearEdit_(amount);
        case Kind::StepLeft:
            return Step_(-1);
        case Kind::StepRight:
            return Step_(1);
        case Kind::PreviousMeasure:
            return StepMeasure_(-1);
        case Kind::NextMeasure:
            return StepMeasure_(1);
        case Kind::Pause:
            return player_.Pause(true);
        case Kind::Continue:
            return Continue_();
        case Kind::StopAtCaesura:
            return StopAtCaesura_();
        case Kind::CancelCaesura:
            return CancelCaesura_();
        case Kind::ReloadStopped:
            return ReloadStopped_();
        case Kind::ReloadRunning:
            return ReloadRunning_();
        case Kind::TempoScale:
            return player_.SetTempoScale(0.5 + amount % 16 * 0.1);
        case Kind::Transposition:
            return player_.SetTransposition(action.amount % 12 - 6);
        case Kind::ChangeSong:
            return ChangeSong_();
        case Kind::Reset:
            return Reset_();
        case Kind::Recover:
            return Recover_();
        case Kind::Attacca:
            player_.SetAttaccaState(SongNumber(song_), static_cast<unsigned char>(amount % 3));
            if (amount % 3 == CL::AttaccaNext) reference_.attacca = true;
            return Agree_("a change of attacca");
        case Kind::ForgetCaesuras:
            flow_->ResetCaesuraState(flow_->GetTickIndex());
            reference_.ResetCaesuraState(reference_.tickIndex);
            standsAtCaesura_ = false;
            return Agree_("the caesuras were forgotten");
        case Kind::Pass:
            return MakePass_();
    }
}

void FlowRig::PressExit_() {
    ++steps_;
    if (player_.IsPlaying()) {
        reference_.FlowControlExit();
    } else {
        reference_.CheckForRemainingVampRepeatOrFermata();
    }
    player_.FlowControlExit();
    Agree_("an exit");
    FollowJump_();
}

void FlowRig::SeekTo_(unsigned int tick) {
    const bool isInCut = flow_->Seek(tick);
    Require(isInCut == reference_.Seek(tick), "the seek's answer differs");
    Agree_("a seek");
    CheckFirstLoopContains_(flow_->GetTickIndex());
    FollowJump_();
}

// To an edit's start or end, or a tick beside it.
void FlowRig::SeekNearEdit_(unsigned int choice) {
    const auto& edits = show_[song_].versions[version_];
    if (edits.empty()) return SeekTo_(0);
    const EditSpec& edit = edits[choice / 8 % edits.size()];
    const unsigned int tick = choice % 2 == 0 ? edit.start : edit.end;
    SeekTo_(tick + choice / 2 % 3 - (tick > 0 ? 1 : 0));
}

void FlowRig::Step_(int direction) {
    const unsigned int shown = GetGuiUpdate().GetTickIndex();
    std::vector<unsigned int> markers;
    for (const CL::Marker& marker : SongLog_().GetMarkers())
        markers.push_back(marker.abs_time());
    const auto before = [&markers](unsigned int tick) {
        unsigned int found = 0;
        for (const unsigned int marker : markers)
            found = marker < tick ? marker : found;
        return found;
    };
    if (direction < 0) {
        unsigned int target = before(shown);
        // Asked one before tick 0, the search wraps to the song's last marker.
        if (shown - target < NearTicks) target = before(target - 1);
        player_.SeekLeft();
        reference_.Seek(target);
    } else {
        player_.SeekRight();
        const auto target = std::find_if(markers.begin(), markers.end(), [shown](unsigned int m) { return m > shown; });
        if (target != markers.end()) reference_.Seek(*target);
    }
    Agree_("a marker step");
    FollowJump_();
}

void FlowRig::StepMeasure_(int direction) {
    const unsigned int shown = GetGuiUpdate().GetTickIndex();
    std::vector<unsigned int> bars;
    unsigned int tick = 0;
    for (const int beats : show_[song_].beatsOfBars) {
        bars.push_back(tick);
        tick += static_cast<unsigned int>(beats) * show_[song_].ticksPerQuarter;
    }
    if (direction > 0) {
        player_.SeekToNextMeasure();
        const auto target = std::find_if(bars.begin(), bars.end(), [shown](unsigned int bar) { return bar > shown; });
        if (target != bars.end()) reference_.Seek(*target);
    } else {
        player_.SeekToPreviousMeasure();
        // Bar 1 begins at tick 0: on it there is nothing before, right behind it the step leads back to it.
        const auto atOrBefore = [&bars](unsigned int at) {
            return *std::prev(std::upper_bound(bars.begin(), bars.end(), at));
        };
        if (shown != 0) {
            const unsigned int bar = atOrBefore(shown);
            const bool isNear = shown - bar < NearTicks;
            reference_.Seek(!isNear ? bar : bar == 0 ? 0 : atOrBefore(bar - 1));
        }
    }
    Agree_("a bar step");
    FollowJump_();
}

void FlowRig::StopAtCaesura_() {
    if (!standsAtCaesura_) return;
    player_.GUINotifyCaesura();
    player_.Stop();
    flow_->OnCaesuraStop();
    reference_.OnCaesuraStop();
    Agree_("the stop at a caesura");
    FollowJump_();
    passedCaesura_ = next_;
}

void FlowRig::Continue_() {
    if (player_.IsPlaying()) return;
    reference_.CheckForRemainingVampRepeatOrFermata();
    player_.Continue();
    Agree_("going on");
}

void FlowRig::CancelCaesura_() {
    const bool pends = flow_->HasPendingCaesura();
    player_.UserCancelCaesura();
    Require(!pends || player_.GetUserCanceledCaesura(), "the caesura was not canceled");
    player_.ResetForRecovery();
    if (pends) standsAtCaesura_ = false;
    Agree_("a caesura was canceled");
}

void FlowRig::ReloadStopped_() {
    version_ = 1 - version_;
    ActivateVersion_();
    const unsigned int shown = GetGuiUpdate().GetTickIndex();
    player_.LoadNewChangeLog([](unsigned int tick) { return tick; });
    reference_.LoadNewChangeLog(SongLog_(), SongData_().GetTimeline(), SongData_().GetTicksPerQuarter());
    reference_.FullReset();
    reference_.Seek(shown);
    Agree_("a reload");
    CheckFirstLoopContains_(flow_->GetTickIndex());
    FollowJump_();
}

void FlowRig::ReloadRunning_() {
    version_ = 1 - version_;
    ActivateVersion_();
    player_.NotifyNewChangeLog();
    reference_.LoadNewChangeLog(SongLog_(), SongData_().GetTimeline(), SongData_().GetTicksPerQuarter());
    Agree_("a reload while playing");
    // What was planned belongs to the old edits.
    next_ = flow_->GetTickIndex();
    standsAtCaesura_ = false;
}

void FlowRig::ChangeSong_() {
    song_ = (song_ + 1) % show_.size();
    player_.Stop();
    player_.LoadSong(SongNumber(song_));
    reference_.LoadSong(SongLog_(), SongData_().GetTimeline(), SongData_().GetTicksPerQuarter());
    reference_.FullReset();
    Agree_("a change of song");
    FollowJump_();
}

void FlowRig::Reset_() {
    player_.Stop();
    flow_->FullReset();
    reference_.FullReset();
    Agree_("a reset");
    for (const LoopEvent& loop : ActiveLoops_()) {
        const unsigned int tick = flow_->GetTickIndex();
        Require(loop.start <= tick && tick < loop.end, "a loop outlived the reset");
    }
    FollowJump_();
}

void FlowRig::Recover_() {
    const unsigned int tick = flow_->GetTickIndex();
    Require(flow_->RecoverySeek(tick) == reference_.RecoverySeek(tick), "the recovery lands elsewhere");
    Agree_("a recovery");
    FollowJump_();
}

void FlowRig::MakePass_() {
    reference_.Pass(flow_->GetTickIndex());
    feed_->RunOnePass_();
    // A reload and a jump leave the lamp to the next check.
    reference_.CheckForRemainingVampRepeatOrFermata();
    flow_->CheckForRemainingVampRepeatOrFermata();
    CheckTold_();
    Require(lampIsOn_ == flow_->GetLoopEvents_().GetHasVampOrFermata(), "the lamp tells of another list");
}

}  // namespace properties
