#include "stage/session/show_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>

#include "kit/clock.h"
#include "kit/path.h"
#include "player_core/gui_update.h"
#include "stage/engine/show_parts.h"
#include "stage/show/show_directory.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/log_change_text.h"

namespace stage {

namespace {

// The log that the settings choose; empty for the newest. A directory that is not a show is for the façade to refuse.
std::string FindChosenLog(const std::string& showPath, const Settings& settings) {
    return settings.changeLog.empty() ? "" : ScanShowDirectory(showPath).LogNameInUse(settings);
}

constexpr std::string_view ShownMark = "shown ";

// What reads the display's playhead finds it there; the display itself is told nothing.
void ShowPlayheadAt(std::uint32_t tick) {
    gui::DisplayState state = GetGuiUpdate().Snapshot();
    if (state.tick == tick) return;
    state.tick = tick;
    GetGuiUpdate().Restore(state);
}

}  // namespace

ShowSession::ShowSession(const std::string& showPath, const std::string& settingsPath, const Options& options)
    : ShowSession(showPath, settingsPath, options, ReadSettings(kit::path::Join(showPath, "settings.json"))) {}

ShowSession::ShowSession(const std::string& showPath, const std::string& settingsPath, const Options& options,
                         Settings settings)
    : Interface(showPath, settingsPath, options.hasRunningFeed,
                options.changeLog.empty() ? FindChosenLog(showPath, settings) : options.changeLog),
      options_(options),
      settings_(std::move(settings)),
      desk_(*this, CommandDesk::Options{std::chrono::milliseconds(settings_.pressGuardMs)}) {
    Initialize();
    synth_ =
        std::make_unique<Synth>(options_.soundFont.empty() ? ChooseSoundFont(settings_, showPath) : options_.soundFont,
                                options_.framesPerSecond, CountChannels(GetShowData()));
    player_ = std::make_unique<StagePlayer>(showPath, GetShowData(), *synth_, options_.framesPerSecond,
                                            options_.advanceFrames);
    if (options_.sendsTimeCode) {
        timeCodeFollower_ = std::make_unique<TimeCodeFollower>(GetMidiTimeCodeController(), player_->GetUserControls(),
                                                               options_.framesPerSecond);
        player_->GetEngine().Subscribe(*timeCodeFollower_);
    }
    const auto reportPosition = [this](unsigned int* tickIndex) { return player_->ReportPosition(tickIndex); };
    if (options_.hasRunningFeed) {
        SetGuiUpdate(std::make_unique<gui::GuiUpdate>(*player_, reportPosition));
        GetGuiUpdate().StartUpdateGenerator();
    } else {
        auto feed = std::make_unique<SteppedFeed>(*player_, reportPosition);
        steppedFeed_ = feed.get();
        SetGuiUpdate(std::move(feed));
    }
    player_->SetVolume(settings_.volumes.master, tavo_audio::Master);
    player_->SetVolume(settings_.volumes.synth, tavo_audio::Synth);
    try {
        OpenJournal_();
        ListenToMidiCommands_();
    } catch (...) {
        SetGuiUpdate(nullptr);
        throw;
    }
}

std::vector<std::string> ShowSession::GetWarnings() {
    std::vector<std::string> warnings = GetShow().GetWarnings();
    for (const auto& more :
         {GetMidiCommands().GetSettingsWarnings(), GetMidiTimeCodeController().GetSettingsWarnings()})
        warnings.insert(warnings.end(), more.begin(), more.end());
    return warnings;
}

ShowSession::~ShowSession() {
    // No command may reach the player from here on, nor the display feed ask it.
    GetMidiCommands().SetCommandFilter({});
    notify::callbackDispatcher.RemoveCallbacksForTarget(static_cast<Interface*>(this));
    GetMidiMessageDispatcher().Disconnect();
    player_->HaltOutput();
    // After PrepareForExit the feed's threads have been told to end and stay as they are until the process does.
    if (!player_->IsPreparedForExit()) SetGuiUpdate(nullptr);
}

tavo_sec::CipherStream* ShowSession::GetScoreTar() {
    if (GetScoreFilename().empty()) throw std::runtime_error("the show has no score");
    score_ = std::make_unique<tavo_sec::CipherStream>(kit::path::Join(GetShowDirectory(), GetScoreFilename()),
                                                      options_.scorePassphrase);
    return score_.get();
}

std::vector<tavo_audio::VolumeType> ShowSession::GetVolumeTypes() const {
    return {tavo_audio::Synth, tavo_audio::Master, tavo_audio::Click, tavo_audio::Effects};
}

SteppedFeed& ShowSession::GetSteppedFeed() {
    if (steppedFeed_ == nullptr) throw std::logic_error("the session's display feed keeps itself going");
    return *steppedFeed_;
}

CommandPlace ShowSession::GetPlace() {
    return {GetCurrentSongNumber(), player_->GetEngine().GetPosition(), player_->GetEngine().GetFrame()};
}

void ShowSession::Panic() {
    player_->HaltOutput();
    Stop();
}

void ShowSession::ConductBeat(std::chrono::nanoseconds /*moment*/) {
    player_->ConductBeat();
}

void ShowSession::Quit() {
    if (quitHandler_) quitHandler_();
}

// The engine is led to the place by a jump, like one of a seek.
void ShowSession::Restore(const std::string& state) {
    FlowState flow = FlowStateFromText(state);
    if (flow.song != GetCurrentSongNumber())
        throw std::runtime_error(fmt::format("the state is of song {}, which is not loaded", flow.song));
    Stop();
    if (!flow.jump) {
        flow.jump = true;
        flow.jumpForVampRepeatOrCut = false;
        flow.preJumpTick = flow.tick;
        flow.jumpTargetTick = flow.tick;
    }
    // Until playback has followed, what is reported is from before.
    flow.display.seekFromTick = GetGuiUpdate().GetTickIndex();
    flow.display.tick = flow.jumpTargetTick;
    flow.display.seekForward = flow.display.tick > flow.display.seekFromTick;
    flow.display.seekPending = flow.display.tick != flow.display.seekFromTick;
    player_->GetShowControl().Restore(flow);
}

void ShowSession::LoadChangeLogEditor() {
    AddMissingSongLogs(GetShowData());
    Interface::LoadChangeLogEditor();
}

// The journal.

void ShowSession::OpenJournal_() {
    unsaved_ = {};
    if (options_.editing != Options::Editing::Kept) return;
    unsaved_ = ReadUnsavedEdits(GetChangelogFilename(), GetShowData());
    if (unsaved_.changes.empty()) GetChangeLogEditor()->KeepJournal(GetChangelogFilename());
}

void ShowSession::RecoverEdits() {
    if (unsaved_.changes.empty()) return;
    std::vector<CL::LogChange> changes = std::exchange(unsaved_.changes, {});
    try {
        EditAndTell_([&changes](CL::Editor& editor) { editor.ApplyRecovered(changes); });
    } catch (...) {
        unsaved_.changes = std::move(changes);
        throw;
    }
    unsaved_.lines.clear();
    GetChangeLogEditor()->KeepJournal(GetChangelogFilename());
}

void ShowSession::DiscardRecoveredEdits() {
    if (unsaved_.changes.empty()) return;
    CL::EditJournal(GetChangelogFilename()).Discard();
    unsaved_.changes.clear();
    unsaved_.lines.clear();
    GetChangeLogEditor()->KeepJournal(GetChangelogFilename());
}

// Editing.

template <class MakeEdit>
void ShowSession::EditAndTell_(MakeEdit&& edit) {
    if (!IsEditable_()) throw std::logic_error("the show is open for playing only, its edits stay as they are");
    if (!unsaved_.changes.empty())
        throw std::logic_error("the edits that were left in the journal are undecided: recover or discard them first");
    const std::shared_ptr<const CL::ChangeLog> before = ActiveChangeLogShared().Share();
    edit(*GetChangeLogEditor());
    CL::LogChange change;
    {
        const ActiveChangeLogShared after;
        change = CL::Compare(*before, *after);
    }
    if (isPerformed_) {
        TellPlayerBetweenBlocks_(change);
    } else {
        TellPlayer_(change);
    }
}

// The edit is made and kept; where playback stands when the player hears of it is for the desk's log.
void ShowSession::TellPlayerBetweenBlocks_(const CL::LogChange& change) {
    if (change.IsEmpty()) return;
    std::promise<CommandRecord> decided;
    std::future<CommandRecord> record = decided.get_future();
    const unsigned int shown = GetGuiUpdate().GetTickIndex();
    desk_.Post(
        {Verb::Edit,
         {fmt::format("{}{} {}", ShownMark, shown, CL::WriteLogChange(change))},
         {Door::Automatic, "edit"},
         0,
         kit::GetClock().Now()},
        [&decided](const CommandRecord& made) { decided.set_value(made); },
        [&] {
            ShowPlayheadAt(shown);
            TellPlayer_(change);
        });
    if (const CommandRecord made = record.get(); !made.IsTaken()) throw std::runtime_error(made.sentence);
}

// "shown 960 {...}": the playhead that the display showed then, where an edit looks for the place to go on from.
void ShowSession::EditAsText(const std::string& change) {
    std::string_view text = change;
    if (text.starts_with(ShownMark)) {
        text.remove_prefix(ShownMark.size());
        const std::size_t end = std::min(text.find(' '), text.size());
        ShowPlayheadAt(static_cast<std::uint32_t>(ReadNumber(text.substr(0, end), 0, 4294967295.0, "The tick")));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    const CL::LogChange read = CL::ReadLogChange(text, "The edit");
    EditAndTell_([&read](CL::Editor& editor) { editor.ApplyRecovered({read}); });
}

void ShowSession::TellPlayer_(const CL::LogChange& change) {
    const std::string current = GetCurrentSongNumber();
    for (const CL::SongChange& song : change.songs) {
        if (song.songNumber != current) continue;
        if (song.attacca) player_->SetAttaccaState(current, song.attacca->after);
        if (song.removed.empty() && song.added.empty()) continue;
        if (GetIsStopped()) {
            LoadNewChangeLog();
            continue;
        }
        player_->NotifyNewChangeLog();
        for (const CL::AnyEdit& edit : song.added) {
            if (const auto* cut = std::get_if<CL::Cut>(&edit)) MovePlayheadOutOfCut(cut->start(), cut->end());
        }
    }
    player_->PrepareNextSong();
}

void ShowSession::AddEdit(const std::string& songNumber, const CL::AnyEdit& edit) {
    EditAndTell_([&](CL::Editor& editor) { editor.Add(songNumber, edit); });
}

void ShowSession::RemoveEdits(const std::string& songNumber, const std::vector<CL::AnyEdit>& edits) {
    EditAndTell_([&](CL::Editor& editor) { editor.Remove(songNumber, edits); });
}

void ShowSession::EditAttacca(const std::string& songNumber, unsigned char attacca) {
    EditAndTell_([&](CL::Editor& editor) { editor.SetAttacca(songNumber, attacca); });
}

std::vector<std::string> ShowSession::Undo() {
    std::vector<std::string> lines;
    EditAndTell_([&](CL::Editor& editor) { lines = editor.Undo(); });
    return lines;
}

std::vector<std::string> ShowSession::Redo() {
    std::vector<std::string> lines;
    EditAndTell_([&](CL::Editor& editor) { lines = editor.Redo(); });
    return lines;
}

void ShowSession::RollBackTo(const std::string& version) {
    const CL::ChangeLog earlier = CL::ChangeLog::Load(kit::path::Join(GetShowDirectory(), FileOfVersion_(version)));
    EditAndTell_([&](CL::Editor& editor) { editor.RollBackTo(earlier); });
}

// Versions.

std::string ShowSession::FileOfVersion_(const std::string& version) {
    const auto logs = GetLogMap();
    const auto found = logs.find(version);
    if (found == logs.end()) throw std::out_of_range(fmt::format("the show has no version {}", version));
    return found->second;
}

std::string ShowSession::Save(bool newMajor) {
    if (options_.editing != Options::Editing::Kept) throw std::logic_error("the show is open for playing only");
    return FinishSaving_(SaveChangelog(newMajor));
}

std::string ShowSession::SaveCopy() {
    return FinishSaving_(SaveChangelogCopy());
}

std::string ShowSession::FinishSaving_(const std::string& version) {
    // A choice made before would open the log that the edits were made upon.
    if (!settings_.changeLog.empty()) {
        settings_.changeLog = FileOfVersion_(version);
        ChooseChangeLog(GetSettingsFilename(), settings_.changeLog);
    }
    return version;
}

void ShowSession::UseVersion(const std::string& version) {
    OpenSavedLog_(FileOfVersion_(version));
    OpenJournal_();
}

void ShowSession::OpenSavedLog_(const std::string& name) {
    SetChangelogFilename(name);
    if (!GetCurrentSongNumber().empty()) LoadNewChangeLog();
}

}  // namespace stage
