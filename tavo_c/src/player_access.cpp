#include "player_access.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "guard.h"
#include "player_core/flow_state.h"
#include "stage/control/script.h"
#include "stage/engine/show_parts.h"
#include "tavo_core/active_change_log.h"

namespace tavo_c {

namespace {

constexpr std::uint32_t LongestPieceFrames = 4096;

std::atomic<bool> hasSession{false};

std::int32_t AsJump(stage::EngineEvent::Reason reason) {
    using enum stage::EngineEvent::Reason;
    if (reason == Seek) return TAVO_JUMP_SEEK;
    return reason == Loop ? TAVO_JUMP_LOOP : TAVO_JUMP_CUT;
}

std::string DescribeCue(const stage::Cue& cue) {
    if (const auto* message = std::get_if<CL::Osc>(&cue.edit)) {
        const std::string target = message->target().empty() ? "" : " to " + message->target();
        return "osc " + message->value() + target;
    }
    if (const auto* ambience = std::get_if<CL::SfxAmbient>(&cue.edit)) return "ambience " + ambience->sound();
    return "effect " + std::get<CL::Sfx>(cue.edit).sound();
}

/// 0 for what is not reported.
std::uint32_t KindOf(const stage::EngineEvent& event) {
    using enum stage::EngineEvent::Kind;
    switch (event.kind) {
        case SongPutIn:
            return TAVO_EVENT_SONG;
        case Started:
            return TAVO_EVENT_STARTED;
        case Stopped:
            return TAVO_EVENT_STOPPED;
        case Put:
            return TAVO_EVENT_PUT;
        case Jumped:
            return TAVO_EVENT_JUMP;
        case Held:
            return TAVO_EVENT_HOLD;
        case Released:
            return TAVO_EVENT_RELEASE;
        case StoppedAtCaesura:
            return TAVO_EVENT_CAESURA;
        case SongEnded:
            return TAVO_EVENT_SONG_END;
        case CountIn:
            return TAVO_EVENT_COUNT_IN;
        case Cue:
            return TAVO_EVENT_CUE;
        case FadeDone:
            return TAVO_EVENT_FADED;
        default:
            return 0;
    }
}

/// 0 for what an event of playback says with its frame.
std::uint32_t KindOf(notify::GuiNotificationType type) {
    using enum notify::GuiNotificationType;
    switch (type) {
        case StatusFlowControl:
            return TAVO_EVENT_STATUS;
        case VampOn:
        case VampOff:
            return TAVO_EVENT_VAMP_LAMP;
        case BarBeat:
            return TAVO_EVENT_BAR;
        case Meter:
            return TAVO_EVENT_METER;
        case StatusClickResolution:
            return TAVO_EVENT_CLICK;
        case Key:
            return TAVO_EVENT_KEY;
        case Tempo:
            return TAVO_EVENT_TEMPO;
        case TempoScale:
            return TAVO_EVENT_TEMPO_SCALE;
        case StatusTargetTempo:
            return TAVO_EVENT_TARGET_TEMPO;
        case Transposition:
            return TAVO_EVENT_TRANSPOSITION;
        case PageNum:
            return TAVO_EVENT_PAGE;
        case Marker:
            return TAVO_EVENT_MARKER;
        case SongTitle:
            return TAVO_EVENT_TITLE;
        case NoNextSong:
            return TAVO_EVENT_NO_NEXT_SONG;
        default:
            return 0;
    }
}

}  // namespace

OnlySession::OnlySession() {
    if (hasSession.exchange(true)) throw Problem(TAVO_BUSY, "this process has a player already: close that one first");
}

OnlySession::~OnlySession() {
    hasSession = false;
}

HandleTable<PlayerAccess>& GetPlayers() {
    // Never destroyed: calls of other threads may come until the process ends.
    static auto& players = *new HandleTable<PlayerAccess>;
    return players;
}

PlayerAccess::PlayerAccess(const std::string& path, const Options& options)
    : session_(path, path, options.session),
      engine_(session_.GetStagePlayer().GetEngine()),
      feed_(session_.GetSteppedFeed()),
      pairNames_(stage::ListSoundOutputs(session_.GetGroupPlan())),
      waitsForDisplay_(options.waitsForDisplay),
      framesPerSecond_(options.session.framesPerSecond),
      passFrames_(std::int64_t{feed_.GetInterval()} * framesPerSecond_ / 1000),
      limiter_(framesPerSecond_),
      delay_(pairNames_.size() - 1) {
    pairs_.reserve(pairNames_.size());
    engine_.SetClickEverywhere(options.clicksEverywhere);
    engine_.SetClickInMain(options.mixesClick || session_.GetSettings().clickInMain);
    session_.SetQuitHandler([this] {
        events_.Push({TAVO_EVENT_QUIT, engine_.GetPosition(), engine_.GetFrame(), 0, 0, song_, {}});
    });
    engine_.Subscribe(*this);
    // What was sent for a player before is not for this one.
    notify::guiDispatcher.Drain();
    handler_ = notify::guiDispatcher.AddHandler([this](const notify::GuiNotification& sent) { Hear_(sent); });
}

PlayerAccess::~PlayerAccess() {
    notify::guiDispatcher.RemoveHandler(handler_);
    session_.SetQuitHandler({});
    engine_.Unsubscribe(*this);
    session_.GetStagePlayer().HaltOutput();
    engine_.FinishRendering();
}

// Rendering.

bool PlayerAccess::Render(std::span<const tavo_pair> pairs, std::uint32_t frames) {
    if (isRendering_.exchange(true)) return false;
    try {
        RenderPieces_(pairs, frames);
    } catch (...) {
        isRendering_ = false;
        throw;
    }
    isRendering_ = false;
    return true;
}

void PlayerAccess::RenderPieces_(std::span<const tavo_pair> pairs, std::uint32_t frames) {
    for (std::uint32_t done = 0; done < frames;) {
        const std::uint32_t piece = PieceFrames_(frames - done);
        PointTo_(pairs, done);
        engine_.RenderLater(pairs_, piece);
        done += piece;
        MakePasses_(true);
    }
    engine_.FinishRendering();
    PointTo_(pairs, 0);
    limiter_.Process(pairs_.front().left, pairs_.front().right, frames);
    delay_.Process(std::span(pairs_).subspan(1), frames);
}

void PlayerAccess::PointTo_(std::span<const tavo_pair> pairs, std::uint32_t frame) {
    pairs_.clear();
    for (const tavo_pair& pair : pairs)
        pairs_.push_back({pair.left + frame, pair.right + frame});
}

// Up to the next pass of the display feed.
std::uint32_t PlayerAccess::PieceFrames_(std::uint32_t wanted) {
    wanted = std::min(wanted, LongestPieceFrames);
    if (!feed_.IsRunning()) return wanted;
    const std::lock_guard lock(passMutex_);
    const std::int64_t untilPass = std::max<std::int64_t>(nextPassFrame_ - engine_.GetFrame(), 1);
    return static_cast<std::uint32_t>(std::min<std::int64_t>(wanted, untilPass));
}

void PlayerAccess::MakePasses_(bool isBetweenBlocks) {
    {
        const std::lock_guard lock(passMutex_);
        if (isBetweenBlocks && feed_.IsRunning() && engine_.GetFrame() >= nextPassFrame_) {
            feed_.MakePass();
            nextPassFrame_ = (engine_.GetFrame() / passFrames_ + 1) * passFrames_;
        }
        if (feed_.UseCurrentPosition() || !engine_.IsRolling()) feed_.MakePass();
    }
    if (waitsForDisplay_) notify::guiDispatcher.Drain();
    CollectDisplay();
}

void PlayerAccess::OnEngineEvent(const stage::EngineEvent& event) {
    using Kind = stage::EngineEvent::Kind;
    if (event.kind == Kind::BlockBegins) return;
    if (event.kind == Kind::Arrived) {
        const auto& stops = event.plan->GetStops();
        if (!std::binary_search(stops.begin(), stops.end(), event.tick)) return;
        const auto& beats = event.plan->GetSong().GetTimeline().GetBarsBeats();
        const auto beat = std::lower_bound(beats.begin(), beats.end(), event.tick,
                                           [](const auto& each, std::uint32_t tick) { return each.abs_time() < tick; });
        if (beat == beats.end() || beat->abs_time() != event.tick) return;
        return events_.Push({TAVO_EVENT_BEAT, event.tick, event.frame, 0, beat->beat() == 1 ? 1 : 0, song_, {}});
    }
    if (event.kind == Kind::SongPutIn) song_ = FindSong_(event.plan->GetSong().GetSongNumber());
    EventQueue::Event report{KindOf(event), event.tick, event.frame, event.fromTick, 0, song_, {}};
    if (event.kind == Kind::SongPutIn) report.text = event.plan->GetSong().GetTitle();
    if (event.kind == Kind::Jumped) report.number = AsJump(event.reason);
    if (event.kind == Kind::CountIn) report.number = static_cast<std::int32_t>(event.beats);
    if (event.kind == Kind::Cue) report.text = DescribeCue(*event.cue);
    if (report.kind != 0) events_.Push(std::move(report));
    // The display learns of the stop that followed at the frame where it happened.
    if (event.kind == Kind::FadeDone) MakePasses_(false);
}

std::uint32_t PlayerAccess::FindSong_(const std::string& number) const {
    const auto& songs = const_cast<stage::ShowSession&>(session_).GetShow().GetSongs();
    const auto found =
        std::find_if(songs.begin(), songs.end(), [&](const auto& song) { return song.GetSongNumber() == number; });
    return found == songs.end() ? TAVO_NO_SONG : static_cast<std::uint32_t>(found - songs.begin());
}

// The display.

void PlayerAccess::Hear_(const notify::GuiNotification& notification) {
    if (KindOf(notification.type) == 0) return;
    const std::lock_guard lock(displayMutex_);
    heard_.push_back(notification);
}

void PlayerAccess::CollectDisplay() {
    const std::lock_guard lock(displayMutex_);
    for (const notify::GuiNotification& notification : heard_)
        Report_(notification);
    heard_.clear();
}

// What a display already shows is not reported again.
void PlayerAccess::Report_(const notify::GuiNotification& notification) {
    using Type = notify::GuiNotificationType;
    const bool isLamp = notification.type == Type::VampOn || notification.type == Type::VampOff;
    if (notification.type != Type::NoNextSong) {
        const auto [shown, isFirst] = shown_.try_emplace(isLamp ? Type::VampOn : notification.type, notification);
        if (!isFirst && shown->second == notification) return;
        shown->second = notification;
    }
    EventQueue::Event event{
        KindOf(notification.type), engine_.GetPosition(), engine_.GetFrame(), 0, notification.number, song_,
        notification.text};
    if (isLamp) {
        event.number = notification.type == Type::VampOn ? 1 : 0;
        isLampOn_ = event.number == 1;
    }
    if (notification.type == Type::Marker) event.tick = notification.tick;
    events_.Push(std::move(event));
}

// Commands and states.

stage::CommandRecord PlayerAccess::Do(const std::string& line, stage::Door door) {
    std::string song = session_.GetCurrentSongNumber();
    if (song.empty()) song = session_.GetShow().GetSongNumbers().front();
    stage::Command command = stage::ParseCommand(stage::SplitWords(line), session_.GetShow(), song);
    command.source = {door, ""};
    return Do(std::move(command));
}

stage::CommandRecord PlayerAccess::Do(stage::Command command) {
    command.moment = std::chrono::nanoseconds(engine_.GetFrame() * 1'000'000'000 / framesPerSecond_);
    stage::CommandRecord record = session_.GetDesk().Execute(std::move(command));
    song_ = FindSong_(session_.GetCurrentSongNumber());
    session_.GetStagePlayer().EnsureGuiIsCurrent();
    MakePasses_(false);
    return record;
}

std::string PlayerAccess::TakeState() {
    if (session_.GetCurrentSongNumber().empty()) throw std::runtime_error("no song is loaded");
    return ToText(session_.GetStagePlayer().GetShowControl().Snapshot());
}

void PlayerAccess::PutState(const std::string& state) {
    const FlowState flow = FlowStateFromText(state);
    const auto perform = [this](stage::Verb verb, const std::string& argument) {
        const stage::CommandRecord record = Do({verb, {argument}, {stage::Door::Script, ""}, 0, {}});
        if (!record.IsTaken()) throw std::runtime_error(record.sentence);
    };
    if (flow.song != session_.GetCurrentSongNumber()) perform(stage::Verb::Load, flow.song);
    perform(stage::Verb::Restore, state);
}

tavo_status PlayerAccess::GetStatus() {
    tavo_status status{};
    status.song = song_;
    status.tick = engine_.GetPosition();
    status.frame = engine_.GetFrame();
    status.beats_to_count_in = engine_.GetBeatsToCountIn();
    const UserControls& controls = session_.GetStagePlayer().GetUserControls();
    status.transposition = controls.GetTransposition();
    status.tempo_scale = controls.GetTempoScale();
    status.is_vamp_lamp_on = isLampOn_ ? 1 : 0;
    status.limited_frames = limiter_.CountLimitedFrames();
    if (song_ == TAVO_NO_SONG)
        status.motion = TAVO_MOTION_NO_SONG;
    else if (engine_.IsCountingIn())
        status.motion = TAVO_MOTION_COUNTING_IN;
    else if (engine_.IsHolding() && engine_.IsRolling())
        status.motion = TAVO_MOTION_HOLDING;
    else if (session_.GetIsFaded())
        status.motion = TAVO_MOTION_FADING;
    else if (session_.GetIsPlaying())
        status.motion = TAVO_MOTION_PLAYING;
    else
        status.motion = session_.GetIsPaused() ? TAVO_MOTION_PAUSED : TAVO_MOTION_STOPPED;
    return status;
}

}  // namespace tavo_c
