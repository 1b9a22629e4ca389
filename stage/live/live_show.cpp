#include "stage/live/live_show.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "kit/path.h"
#include "kit/words.h"
#include "player_core/gui_update.h"
#include "stage/control/command.h"
#include "stage/engine/show_parts.h"
#include "stage/live/real_time.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/gui_dispatcher.h"
#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_ports.h"

namespace stage {

namespace {

ShowSession::Options MakeSessionOptions(const LiveShow::Options& options, std::uint32_t framesPerSecond) {
    ShowSession::Options made;
    made.framesPerSecond = framesPerSecond;
    made.advanceFrames = options.rendering.blockFrames;
    made.soundFont = options.soundFont;
    made.holdsShow = !options.isLocked;
    return made;
}

/// What leaves beside the main pair, in the order in which the engine renders it.
std::vector<OutputChoice::Pair> ListFurtherPairs(const Settings& settings, const GroupPlan& plan) {
    std::vector<OutputChoice::Pair> pairs;
    for (const std::string& name : ListSoundOutputs(plan)) {
        if (name == MainOutput) continue;
        const auto output = std::find_if(settings.outputs.begin(), settings.outputs.end(),
                                         [&name](const Settings::Output& each) { return each.name == name; });
        pairs.push_back({name, output == settings.outputs.end() ? "" : output->device});
    }
    return pairs;
}

/// Whether somebody may wait for it: what the display shows besides comes many times a second.
bool IsUrgent(notify::GuiNotificationType type) {
    using Type = notify::GuiNotificationType;
    return type == Type::StatusFlowControl || type == Type::VampOn || type == Type::VampOff || type == Type::Caesura ||
           type == Type::PlaybackStarted || type == Type::PlaybackStopped || type == Type::NoNextSong;
}

}  // namespace

LiveShow::LiveShow(const std::string& showPath, const Options& options) : options_(options) {
    try {
        Open_(showPath);
    } catch (...) {
        Close_();
        throw;
    }
    for (const std::string& sentence : session_->GetLeftEdits())
        NoteMessage(kit::AsSentence(sentence));
    RecoverEdits_();
    if (!options_.isLocked && !session_->GetEditingProblem().empty())
        NoteMessage(kit::AsSentence(session_->GetEditingProblem()));
}

LiveShow::~LiveShow() {
    Close_();
}

void LiveShow::Open_(const std::string& showPath) {
    isRealTime_ = BecomeRealTime(RealTimePriority::Host);
    // The session keeps the rate that it was opened with, whatever becomes of the device.
    OutputChoice choice = options_.output;
    const OutputFormat format = ProbeOutput(choice);
    session_ = std::make_unique<ShowSession>(showPath,
                                             options_.settingsDirectory.empty() ? showPath : options_.settingsDirectory,
                                             MakeSessionOptions(options_, format.framesPerSecond));
    choice.framesPerSecond = format.framesPerSecond;
    choice.furtherPairs = ListFurtherPairs(session_->GetSettings(), session_->GetGroupPlan());
    choice.midiPorts = session_->GetMidiOut().GetPorts();
    feed_ = std::make_unique<OutputFeed>(1 + choice.furtherPairs.size());
    session_->SetQuitHandler([this] { isEnding_ = true; });
    using Notification = notify::GuiNotification;
    handler_ =
        notify::guiDispatcher.AddHandler([this, last = Notification()](const Notification& notification) mutable {
            NoteNotification_(notification);
            // Flow control sets the same status many times a second.
            if (!IsUrgent(notification.type) || notification == last) return;
            last = notification;
            wakeUp_.Ring();
        });
    if (!options_.takePath.empty()) {
        const TakeSettings settings{format.framesPerSecond, options_.rendering.blockFrames,
                                    options_.rendering.blockFrames,
                                    kit::path::basename(session_->GetChangelogFilename())};
        take_ = std::make_unique<TakeRecorder>(
            *session_, std::make_unique<TakeWriter>(options_.takePath, settings, session_->GetShow()));
        takePath_ = options_.takePath;
    }
    session_->GetDesk().SetRecordListener([this](const CommandRecord& record) { NoteRecord_(record); });
    keeper_ = std::make_unique<OutputKeeper>(choice, *feed_, options_.whenLost, true,
                                             [this](const std::string& sentence) { NoteMessage(sentence); });
    renderer_ = std::make_unique<LiveRenderer>(*session_, *feed_, options_.rendering, options_.onCue);
    if (!choice.midiPorts.empty() && keeper_->GetState().name != "JACK")
        NoteMessage("The groups' music leaves as MIDI on JACK only.");
    shown_.isLocked = options_.isLocked;
    shown_.showTitle = session_->GetShow().GetTitle();
    for (const std::string& warning : session_->GetWarnings())
        NoteMessage(kit::AsSentence(warning));
    tavo_midi::SetMidiPortListener([this](const tavo_midi::MidiPortReport& report) { NoteMessage(report.sentence); });
}

// A show must open, whatever becomes of them.
void LiveShow::RecoverEdits_() {
    if (session_->GetRecoveredEdits().empty()) return;
    try {
        session_->RecoverEdits();
        NoteMessage(options_.isLocked
                        ? "Edits that were not saved when the last session ended were made again for this performance."
                        : "Edits that were not saved when the last session ended were made again: they still have to "
                          "be saved.");
    } catch (const std::exception& problem) {
        NoteMessage(fmt::format("Edits that were not saved when the last session ended cannot be made again: {}.",
                                problem.what()));
    }
}

void LiveShow::Close_() {
    tavo_midi::SetMidiPortListener({});
    // Nobody renders from here on, and what was pressed last is in the take.
    renderer_.reset();
    keeper_.reset();
    if (session_ != nullptr) {
        session_->GetDesk().SetRecordListener({});
        session_->SetQuitHandler({});
    }
    take_.reset();
    if (handler_ != 0) notify::guiDispatcher.RemoveHandler(handler_);
    if (isRealTime_) BecomeOrdinary();
}

// Doors.

Command LiveShow::Read(const std::string& line, const CommandSource& source) {
    std::string song = session_->GetCurrentSongNumber();
    Command command = ParseCommand(SplitWords(line), session_->GetShow(), song);
    command.source = source;
    command.moment = std::chrono::steady_clock::now().time_since_epoch();
    return command;
}

void LiveShow::Press(Command command) {
    if (GetVerbRow(command.verb).edits) return PressEdit_(command);
    try {
        // What takes long about loading a song is done here, not between two blocks.
        if (command.verb == Verb::Load) session_->GetStagePlayer().PrepareSong(command.GetSong());
    } catch (const std::exception&) {
        // The desk says what is wrong with it.
    }
    session_->GetDesk().Post(std::move(command));
}

void LiveShow::PressEdit_(const Command& command) {
    if (options_.isLocked) return Fail_(command, "the show is locked: edits are refused until it is opened unlocked");
    try {
        switch (command.verb) {
            case Verb::Edit:
                session_->EditAsText(command.GetText());
                break;
            case Verb::Undo:
                session_->Undo();
                break;
            case Verb::Redo:
                session_->Redo();
                break;
            default:
                NoteMessage(fmt::format("The edits were saved as version {}.", session_->Save(false)));
                return NoteMade_(command);
        }
        NoteMade_(command);
        for (const std::string& problem : session_->GetCueProblems())
            NoteMessage(kit::AsSentence(problem));
    } catch (const std::exception& problem) {
        Fail_(command, problem.what());
    }
}

// An edit that nobody waits for is told as what became of it; a saving only so.
void LiveShow::NoteMade_(const Command& command) {
    if (command.tag == 0 && command.verb != Verb::Save) return;
    CommandRecord record;
    record.command = command;
    record.place.song = session_->GetCurrentSongNumber();
    record.place.tick = session_->GetStagePlayer().GetEngine().GetPosition();
    record.place.frame = session_->GetStagePlayer().GetEngine().GetFrame();
    const std::lock_guard lock(mutex_);
    news_.records.push_back(std::move(record));
}

// A command that has failed already is decided in its turn like every other.
void LiveShow::Fail_(const Command& command, const std::string& sentence) {
    session_->GetDesk().Post(command, {}, [sentence] { throw std::runtime_error(sentence); });
}

// What happened has happened: only that it is told is in question.
void LiveShow::NoteRecord_(const CommandRecord& record) {
    try {
        if (take_ != nullptr) take_->NoteRecord(record);
        const std::lock_guard lock(mutex_);
        news_.records.push_back(record);
    } catch (const std::bad_alloc&) {
        isMemoryShort_ = true;
    }
    wakeUp_.Ring();
}

void LiveShow::NoteNotification_(const notify::GuiNotification& notification) {
    try {
        const std::lock_guard lock(mutex_);
        news_.notifications.push_back(notification);
    } catch (const std::bad_alloc&) {
        isMemoryShort_ = true;
    }
}

void LiveShow::NoteMessage(const std::string& sentence) {
    if (take_ != nullptr) take_->NoteDevice(sentence);
    {
        const std::lock_guard lock(mutex_);
        news_.messages.push_back(sentence);
    }
    wakeUp_.Ring();
}

void LiveShow::NoteTrouble_(const std::exception& problem) noexcept {
    try {
        if (dynamic_cast<const std::bad_alloc*>(&problem) == nullptr) {
            trouble_ = problem.what();
            return;
        }
    } catch (const std::bad_alloc&) {
        // Then that is the trouble.
    }
    isMemoryShort_ = true;
}

// A sentence a second at most, and none that cannot be said yet is forgotten.
void LiveShow::SayTrouble_() {
    const auto now = std::chrono::steady_clock::now();
    if ((trouble_.empty() && !isMemoryShort_) || now < nextTrouble_) return;
    try {
        if (!trouble_.empty()) NoteMessage(fmt::format("Not all could be shown: {}. The show goes on.", trouble_));
        trouble_.clear();
        if (isMemoryShort_) NoteMessage("The memory is too short to show all that happens; the show goes on.");
        isMemoryShort_ = false;
        nextTrouble_ = now + std::chrono::seconds(1);
    } catch (const std::bad_alloc&) {
        isMemoryShort_ = true;
    }
}

// Reports.

bool LiveShow::Deliver(LiveListener& listener) {
    wakeUp_.Clear();
    Attempt([this] { TakeNews_(); });
    Attempt([&] { TellNews_(listener); });
    SayTrouble_();
    return !isEnding_;
}

void LiveShow::TakeNews_() {
    for (;;) {
        // Its place comes first: what was taken is not lost for want of one.
        events_.emplace_back();
        if (!renderer_->TakeEvent(events_.back())) break;
        Attempt([this] { FollowEvent_(events_.back()); });
    }
    events_.pop_back();
    ReportLateFrames_();
    for (std::string& problem : session_->GetStagePlayer().TakeSoundProblems())
        NoteMessage(kit::AsSentence(std::move(problem)));
    if (take_ == nullptr || !takeProblem_.empty()) return;
    const std::string problem = take_->GetProblem();
    if (problem.empty()) return;
    const std::lock_guard lock(mutex_);
    news_.messages.push_back(problem);
    takeProblem_ = problem;
}

void LiveShow::FollowEvent_(const LiveEvent& event) {
    if (event.kind == LiveEvent::Kind::Late && std::exchange(lateFrames_, lateFrames_ + event.missingFrames) == 0)
        firstLate_ = event;
    if (event.kind == LiveEvent::Kind::Song && event.song != nullptr) ReportMissingPrograms_(*event.song);
}

void LiveShow::TellNews_(LiveListener& listener) {
    hearing_ = listeners_;
    hearing_.push_back(&listener);
    const auto tell = [this](auto method, const auto&... what) {
        for (LiveListener* each : hearing_)
            Attempt([&] { (each->*method)(what...); });
    };
    // Nothing is heard while no device plays: then what was decided is told at once.
    const bool isHeard = keeper_->GetState().isPlaying;
    {
        const std::lock_guard lock(mutex_);
        std::swap(told_, news_);
    }
    // From here on nothing is thrown, so that all of it is told.
    for (const CommandRecord& record : told_.records)
        tell(&LiveListener::OnRecord, record);
    for (const notify::GuiNotification& notification : told_.notifications) {
        Attempt([&] { FollowNotification_(notification); });
        tell(&LiveListener::OnNotification, notification);
    }
    const std::int64_t heard = renderer_->FindHeardFrame();
    for (; !events_.empty() && (!isHeard || events_.front().frame <= heard); events_.pop_front()) {
        Attempt([this] { NoteStanding_(events_.front()); });
        tell(&LiveListener::OnLiveEvent, events_.front());
    }
    for (const std::string& message : told_.messages)
        tell(&LiveListener::OnMessage, message);
    told_.records.clear();
    told_.notifications.clear();
    told_.messages.clear();
    tell(&LiveListener::OnDelivered);
}

// Once for each song.
void LiveShow::ReportMissingPrograms_(const tavo_midi::SongData& song) {
    if (!checkedSongs_.insert(song.GetSongNumber()).second) return;
    for (std::string& missing : DescribeMissingPrograms(song, session_->GetInstrumentFonts(), session_->GetGroupPlan()))
        NoteMessage(kit::AsSentence(std::move(missing)));
}

// A sentence a second at most: on a machine that is too busy there would be hundreds.
void LiveShow::ReportLateFrames_() {
    const auto now = std::chrono::steady_clock::now();
    if (lateFrames_ == 0 || now < nextLateReport_) return;
    nextLateReport_ = now + std::chrono::seconds(1);
    std::string place;
    if (firstLate_.song != nullptr)
        place = fmt::format(", first at {} of song {}",
                            TL::BarPositions(firstLate_.song->GetTimeline()).DescribeTick(firstLate_.tick),
                            firstLate_.song->GetSongNumber());
    NoteMessage(fmt::format("{} frames came too late for the device{}.", std::exchange(lateFrames_, 0), place));
}

void LiveShow::FollowNotification_(const notify::GuiNotification& notification) {
    using Type = notify::GuiNotificationType;
    switch (notification.type) {
        case Type::StatusFlowControl:
            shown_.status = notification.text;
            shown_.statusCount = notification.number;
            break;
        case Type::VampOn:
        case Type::VampOff:
            shown_.vampLamp = notification.type == Type::VampOn;
            break;
        default:
            break;
    }
}

LiveStatus LiveShow::GetStatus() {
    LiveStatus status = PeekStatus();
    longestBlockMs_ = 0;
    return status;
}

LiveStatus LiveShow::PeekStatus() {
    LiveStatus status = shown_;
    StagePlayer& player = session_->GetStagePlayer();
    status.song = session_->GetCurrentSongNumber();
    for (const VolumeRow& row : GetVolumeRows())
        status.volumes.push_back({row.name, player.GetVolume(row.type)});
    FillLevels_(status);
    status.output = keeper_->GetState();
    status.isRealTime = renderer_->IsRealTime();
    status.leadFrames = renderer_->GetLeadFrames();
    status.latePeriods = feed_->CountLatePeriods();
    status.slowBlocks = renderer_->CountSlowBlocks();
    status.heldUpBlocks = renderer_->CountHeldUpBlocks();
    longestBlockMs_ = std::max(longestBlockMs_, static_cast<double>(renderer_->TakeLongestBlock()) / 1e6);
    status.longestBlockMs = longestBlockMs_;
    status.midiInput = session_->GetMidiMessageDispatcher().GetPortName();
    status.takeProblem = takeProblem_;
    status.tempoScale = player.GetUserControls().GetTempoScale();
    for (LiveListener* const listener : listeners_)
        listener->AddToStatus(status);
    if (status.song.empty()) {
        FillSetUp_(status);
        return status;
    }
    status.elapsedSeconds = player.GetElapsedTime();
    Track_(status.song);
    FillPlace_(status);
    FillFlow_(status);
    FillSetUp_(status);
    if (const unsigned int beats = player.GetEngine().GetBeatsToCountIn(); beats > 0) {
        status.status = "CountIn";
        status.statusCount = static_cast<int>(beats);
    }
    return status;
}

}  // namespace stage
