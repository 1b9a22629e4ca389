#include "stage/session/show_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>

#include "kit/clock.h"
#include "kit/file.h"
#include "kit/path.h"
#include "player_core/gui_update.h"
#include "stage/engine/show_parts.h"
#include "stage/session/session_edits.h"
#include "stage/show/cue_check.h"
#include "stage/show/log_versions.h"
#include "stage/show/show_directory.h"
#include "stage/show/show_journals.h"
#include "stage/show/version_notes.h"
#include "stage/words/edit_grammar.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/log_change_text.h"

namespace stage {

namespace {

// The log that the settings choose; empty for the newest. A directory that is not a show is for the façade to refuse.
std::string FindChosenLog(const std::string& showPath, const Settings& settings) {
    const bool isNewest = settings.changeLog.empty() && settings.nextVersion.empty();
    return isNewest ? "" : ScanShowDirectory(showPath).LogNameInUse(settings);
}

SoundLibrary::Options MakeSoundOptions(const std::string& showPath, const Settings& settings,
                                       std::uint32_t framesPerSecond) {
    SoundLibrary::Options options;
    options.directory = showPath;
    options.framesPerSecond = framesPerSecond;
    for (const Settings::SoundTrim& sound : settings.sounds)
        options.trims.emplace(sound.name, sound.decibels);
    return options;
}

bool IsShow(const std::string& path) {
    std::vector<std::string> problems;
    const ShowDirectory directory = ScanAnyDirectory(path, problems);
    return !directory.showDataName.empty() && !directory.logNames.empty();
}

std::string DescribeUnkept(const std::exception& problem) {
    return fmt::format("edits cannot be kept: {}", problem.what());
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
    : ShowSession(showPath, settingsPath, options, Find_(showPath, options)) {}

// The hold comes first: from reading the settings and the log to saving nobody else saves.
ShowSession::Found ShowSession::Find_(const std::string& showPath, const Options& options) {
    Found found;
    if (options.editing == Options::Editing::Kept && !options.holdsShow) {
        found.editingProblem = "the show is open for playing only";
    } else if (options.editing == Options::Editing::Kept && IsShow(showPath)) {
        try {
            found.hold = std::make_unique<ShowHold>(showPath, "a session", options.holdWait);
        } catch (const ShowHeldError& problem) {
            found.isHeldElsewhere = true;
            found.editingProblem = fmt::format("the show is open for playing only: {}", problem.what());
        } catch (const std::runtime_error& problem) {
            found.editingProblem = fmt::format("the show is open for playing only: {}", problem.what());
        }
    }
    found.settings = ReadSettings(kit::path::Join(showPath, "settings.json"));
    return found;
}

ShowSession::ShowSession(const std::string& showPath, const std::string& settingsPath, const Options& options,
                         Found found)
    : Interface(showPath, settingsPath, options.hasRunningFeed,
                options.changeLog.empty() ? FindChosenLog(showPath, found.settings) : options.changeLog),
      options_(options),
      settings_(std::move(found.settings)),
      desk_(*this, CommandDesk::Options{std::chrono::milliseconds(settings_.pressGuardMs)}) {
    hold_ = std::move(found.hold);
    editingProblem_ = std::move(found.editingProblem);
    isHeldElsewhere_ = found.isHeldElsewhere;
    Initialize();
    groupPlan_ = MakeGroupPlan(settings_, GetShowData());
    const std::string soundFont =
        options_.soundFont.empty() ? ChooseSoundFont(settings_, showPath) : options_.soundFont;
    synth_ = std::make_unique<Synth>(soundFont, options_.framesPerSecond, CountChannels(GetShowData()),
                                     groupPlan_.groups.empty() ? Synth::Mix::One : Synth::Mix::Groups);
    instrumentFonts_ = LoadInstrumentFonts(*synth_, groupPlan_, showPath, soundFont);
    sounds_ = std::make_unique<SoundLibrary>(MakeSoundOptions(showPath, settings_, options_.framesPerSecond));
    player_ = std::make_unique<StagePlayer>(showPath, GetShowData(), *synth_, options_.framesPerSecond,
                                            options_.advanceFrames,
                                            StagePlayer::Sounds{sounds_.get(), options_.waitsForSounds});
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
    player_->SetGroups(groupPlan_);
    midiOut_ = std::make_unique<MidiOut>(groupPlan_);
    if (!midiOut_->GetPorts().empty()) player_->GetEngine().SetMidiOut(*midiOut_);
    player_->SetVolume(settings_.volumes.master, tavo_audio::Master);
    player_->SetVolume(settings_.volumes.synth, tavo_audio::Synth);
    player_->SetVolume(settings_.volumes.click, tavo_audio::Click);
    player_->SetVolume(settings_.volumes.effects, tavo_audio::Effects);
    player_->SetVolume(settings_.volumes.ambience, tavo_audio::Ambience);
    player_->GetEngine().SetCountIn(static_cast<unsigned int>(settings_.countIn));
    player_->GetEngine().SetClickInMain(settings_.clickInMain);
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
    if (groupPlan_.groups.size() != settings_.groups.size())
        warnings.push_back(
            fmt::format("the output groups are left out: the show's songs use {} MIDI channels, and groups are "
                        "there for at most {}",
                        CountChannels(GetShow()), MaxGroupedChannels));
    warnings.insert(warnings.end(), instrumentFonts_.problems.begin(), instrumentFonts_.problems.end());
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
    return {tavo_audio::Synth, tavo_audio::Master, tavo_audio::Click, tavo_audio::Effects, tavo_audio::Ambience};
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

// A show opens whatever becomes of its journals.
void ShowSession::OpenJournal_() {
    unsaved_ = {};
    isJournalKept_ = false;
    leftEdits_.clear();
    if (options_.editing != Options::Editing::Kept) return;
    const std::string own = kit::path::basename(GetChangelogFilename());
    for (const ShowJournal& journal : FindJournals(ScanShowDirectory(GetShowDirectory()))) {
        const bool isOffered =
            journal.logName == own && !isHeldElsewhere_ && journal.fitsLog && !journal.changes.empty();
        if (!isOffered && !journal.isKept) leftEdits_.push_back(DescribeJournal(journal));
    }
    // The journal of another session that runs was not left by anybody.
    if (isHeldElsewhere_) return;
    if (hold_ != nullptr) editingProblem_.clear();
    try {
        unsaved_ = ReadUnsavedEdits(GetChangelogFilename(), GetShowData());
        if (hold_ != nullptr && unsaved_.changes.empty()) KeepJournal_();
    } catch (const std::runtime_error& problem) {
        // The next edit tries again.
        if (editingProblem_.empty()) editingProblem_ = DescribeUnkept(problem);
    }
}

void ShowSession::KeepJournal_() {
    try {
        GetChangeLogEditor()->KeepJournal(GetChangelogFilename());
    } catch (const std::runtime_error& problem) {
        isJournalKept_ = false;
        editingProblem_ = DescribeUnkept(problem);
        throw std::runtime_error(editingProblem_);
    }
    isJournalKept_ = true;
    editingProblem_.clear();
}

void ShowSession::RecoverEdits() {
    if (unsaved_.changes.empty()) return;
    std::vector<CL::LogChange> changes = std::exchange(unsaved_.changes, {});
    try {
        EditAndTell_([&changes](CL::Editor& editor) { editor.ApplyRecovered(changes); }, false);
    } catch (...) {
        unsaved_.changes = std::move(changes);
        throw;
    }
    unsaved_.lines.clear();
    if (hold_ != nullptr) KeepJournal_();
}

void ShowSession::DiscardRecoveredEdits() {
    if (unsaved_.changes.empty()) return;
    RequireHold_();
    CL::EditJournal(GetChangelogFilename()).Discard();
    unsaved_.changes.clear();
    unsaved_.lines.clear();
    KeepJournal_();
}

// Editing.

// A journal that could not be kept may be kept by now: a disk has room again.
void ShowSession::RequireJournal_() {
    RequireHold_();
    if (!isJournalKept_) KeepJournal_();
}

void ShowSession::RequireHold_() {
    if (hold_ == nullptr) throw std::runtime_error(editingProblem_);
    hold_->RequireStillHeld();
}

template <class MakeEdit>
void ShowSession::EditAndTell_(MakeEdit&& edit, bool needsJournal) {
    if (!IsEditable_()) throw std::logic_error("the show is open for playing only, its edits stay as they are");
    if (!unsaved_.changes.empty())
        throw std::logic_error("the edits that were left in the journal are undecided: recover or discard them first");
    if (needsJournal && options_.editing == Options::Editing::Kept) RequireJournal_();
    const std::shared_ptr<const CL::ChangeLog> before = ActiveChangeLogShared().Share();
    edit(*GetChangeLogEditor());
    CL::LogChange change;
    {
        const ActiveChangeLogShared after;
        change = CL::Compare(*before, *after);
    }
    cueProblems_ = FindCueProblems(change, GetShow(), GetShowDirectory(), settings_);
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
    if (!text.starts_with('{') && !text.starts_with(ShownMark)) {
        SessionEdits edits(*this);
        return DoEditLine(change, edits);
    }
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

void ShowSession::ChangeEdit(const std::string& songNumber, const CL::AnyEdit& from, const CL::AnyEdit& to) {
    EditAndTell_([&](CL::Editor& editor) { editor.Change(songNumber, from, to); });
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
    const ShowDirectory directory = ScanShowDirectory(GetShowDirectory());
    const CL::ChangeLog earlier = CL::ChangeLog::Load(directory.PathOf(FindLogName(directory, version)));
    EditAndTell_([&](CL::Editor& editor) { editor.RollBackTo(earlier); });
}

// Versions.

std::string ShowSession::Save(bool newMajor) {
    const ShowDirectory directory = ScanShowDirectory(GetShowDirectory());
    return SaveAs_(newMajor ? NextMajorVersion(directory, 0) : NextMinorVersion(directory, GetVersion_()));
}

std::string ShowSession::SaveCopy() {
    return SaveAs_(NextMajorVersion(ScanShowDirectory(GetShowDirectory()), GetVersion_().minor_number));
}

cmn::TAVOVersion ShowSession::GetVersion_() {
    return ActiveChangeLogShared()->GetVersion();
}

// The façade counts on from the version before, whoever has saved that one.
std::string ShowSession::SaveAs_(const cmn::TAVOVersion& version) {
    if (options_.editing != Options::Editing::Kept) throw std::logic_error("the show is open for playing only");
    RequireHold_();
    const VersionInUse inUse(ScanShowDirectory(GetShowDirectory()), version);
    const std::string before = GetLogVersion();
    cmn::TAVOVersion last = version;
    const bool isMajor = version.minor_number == 0;
    --(isMajor ? last.major_number : last.minor_number);
    SetLogVersion(last.GetAsString());
    try {
        SaveChangelog(isMajor);
    } catch (const kit::UnconfirmedError& problem) {
        throw std::runtime_error(
            fmt::format("version {} is saved and opens from now on, but may not outlast a power "
                        "failure: {}",
                        version.GetAsString(), problem.what()));
    } catch (...) {
        SetLogVersion(before);
        throw;
    }
    inUse.NoteSaved(kit::path::basename(GetChangelogFilename()));
    NoteVersion(GetShowDirectory(), version, "");
    // The journal of the version before has ended; where it had not been kept, that of this one is.
    if (!isJournalKept_ && unsaved_.changes.empty()) OpenJournal_();
    return version.GetAsString();
}

// What cannot be read is refused while this version is still open.
void ShowSession::UseVersion(const std::string& version) {
    const ShowDirectory directory = ScanShowDirectory(GetShowDirectory());
    const std::string name = FindLogName(directory, version);
    static_cast<void>(CL::ChangeLog::Load(directory.PathOf(name)));
    isJournalKept_ = false;
    try {
        SetChangelogFilename(name);
    } catch (const std::exception& problem) {
        // Which version the player has now is not certain: no journal would fit.
        hold_.reset();
        editingProblem_ = fmt::format("the show has to be opened again before it can be edited: {}", problem.what());
        throw;
    }
    OpenJournal_();
    if (!GetCurrentSongNumber().empty()) LoadNewChangeLog();
}

}  // namespace stage
