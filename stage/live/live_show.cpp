#include "stage/live/live_show.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "kit/path.h"
#include "player_core/gui_update.h"
#include "stage/control/command.h"
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
    return made;
}

}  // namespace

LiveShow::LiveShow(const std::string& showPath, const Options& options) : options_(options) {
    try {
        Open_(showPath);
    } catch (...) {
        Close_();
        throw;
    }
    RecoverEdits_();
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
    session_->SetQuitHandler([this] { isEnding_ = true; });
    handler_ = notify::guiDispatcher.AddHandler([this](const notify::GuiNotification& notification) {
        const std::lock_guard lock(mutex_);
        notifications_.push_back(notification);
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
    keeper_ = std::make_unique<OutputKeeper>(choice, feed_, options_.whenLost, true,
                                             [this](const std::string& sentence) { NoteMessage_(sentence); });
    renderer_ = std::make_unique<LiveRenderer>(*session_, feed_, options_.rendering);
    shown_.isLocked = options_.isLocked;
    shown_.showTitle = session_->GetShow().GetTitle();
    for (const std::string& warning : session_->GetWarnings())
        NoteMessage_(warning);
    tavo_midi::SetMidiPortListener([this](const tavo_midi::MidiPortReport& report) { NoteMessage_(report.sentence); });
}

// A show must open, whatever becomes of them.
void LiveShow::RecoverEdits_() {
    if (session_->GetRecoveredEdits().empty()) return;
    try {
        session_->RecoverEdits();
        NoteMessage_(
            "Edits that were not saved when the last session ended were made again: they still have to be saved.");
    } catch (const std::exception& problem) {
        NoteMessage_(fmt::format("Edits that were not saved when the last session ended cannot be made again: {}.",
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
                NoteMessage_(fmt::format("The edits were saved as version {}.", session_->Save(false)));
        }
    } catch (const std::exception& problem) {
        Fail_(command, problem.what());
    }
}

// A command that has failed already is decided in its turn like every other.
void LiveShow::Fail_(const Command& command, const std::string& sentence) {
    session_->GetDesk().Post(command, {}, [sentence] { throw std::runtime_error(sentence); });
}

void LiveShow::NoteRecord_(const CommandRecord& record) {
    if (take_ != nullptr) take_->NoteRecord(record);
    const std::lock_guard lock(mutex_);
    records_.push_back(record);
}

void LiveShow::NoteMessage_(const std::string& sentence) {
    if (take_ != nullptr) take_->NoteDevice(sentence);
    const std::lock_guard lock(mutex_);
    messages_.push_back(sentence);
}

// Reports.

bool LiveShow::Deliver(LiveListener& listener) {
    LiveEvent event;
    while (renderer_->TakeEvent(event)) {
        if (event.kind == LiveEvent::Kind::Late && std::exchange(lateFrames_, lateFrames_ + event.missingFrames) == 0)
            firstLate_ = event;
        events_.push_back(event);
    }
    ReportLateFrames_();
    std::deque<CommandRecord> records;
    std::deque<notify::GuiNotification> notifications;
    std::deque<std::string> messages;
    {
        const std::lock_guard lock(mutex_);
        records = std::exchange(records_, {});
        notifications = std::exchange(notifications_, {});
        messages = std::exchange(messages_, {});
    }
    if (take_ != nullptr && takeProblem_.empty()) {
        takeProblem_ = take_->GetProblem();
        if (!takeProblem_.empty()) messages.push_back(takeProblem_);
    }
    for (const CommandRecord& record : records)
        listener.OnRecord(record);
    for (const notify::GuiNotification& notification : notifications) {
        FollowNotification_(notification);
        listener.OnNotification(notification);
    }
    // Nothing is heard while no device plays: then what was decided is told at once.
    const bool isHeard = keeper_->GetState().isPlaying;
    const std::int64_t heard = renderer_->FindHeardFrame();
    for (; !events_.empty() && (!isHeard || events_.front().frame <= heard); events_.pop_front())
        listener.OnLiveEvent(events_.front());
    for (const std::string& message : messages)
        listener.OnMessage(message);
    return !isEnding_;
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
    NoteMessage_(fmt::format("{} frames came too late for the device{}.", std::exchange(lateFrames_, 0), place));
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
    LiveStatus status = shown_;
    StagePlayer& player = session_->GetStagePlayer();
    status.song = session_->GetCurrentSongNumber();
    status.masterVolume = player.GetVolume(tavo_audio::Master);
    status.musicVolume = player.GetVolume(tavo_audio::Synth);
    status.output = keeper_->GetState();
    status.isRealTime = renderer_->IsRealTime();
    status.leadFrames = renderer_->GetLeadFrames();
    status.latePeriods = feed_.CountLatePeriods();
    status.longestBlockMs = static_cast<double>(renderer_->TakeLongestBlock()) / 1e6;
    status.midiInput = session_->GetMidiMessageDispatcher().GetPortName();
    status.takeProblem = takeProblem_;
    status.tempoScale = player.GetUserControls().GetTempoScale();
    if (status.song.empty()) return status;
    status.elapsedSeconds = player.GetElapsedTime();
    Track_(status.song);
    FillPlace_(status);
    FillFlow_(status);
    return status;
}

}  // namespace stage
