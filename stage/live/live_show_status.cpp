// What a screen shows of a moment: the place that is heard, and what is in force there.

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "player_core/gui_update.h"
#include "stage/live/live_show.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_core/event_codes.h"

namespace stage {

namespace {

/// What sets how loud something is, whatever is played.
constexpr std::string_view LevelVerbs[] = {"volume", "count-in", "mute", "unmute", "solo", "unsolo"};

const char* DescribeType(unsigned char type) {
    if (type == codes::Vamp) return "vamp";
    return type == codes::Repeat ? "repeat" : "fermata";
}

LiveStatus::Motion FindMotion(ShowSession& session, Engine& engine) {
    if (engine.IsHolding() && engine.IsRolling()) return LiveStatus::Motion::Holding;
    if (session.GetIsFaded()) return LiveStatus::Motion::Fading;
    if (session.GetIsPlaying()) return LiveStatus::Motion::Playing;
    return session.GetIsPaused() ? LiveStatus::Motion::Paused : LiveStatus::Motion::Stopped;
}

}  // namespace

void LiveShow::Track_(const std::string& song) {
    std::shared_ptr<const CL::ChangeLog> log = ActiveChangeLogShared().Share();
    if (log == trackedLog_ && song == trackedSong_) return;
    const tavo_midi::SongData& data = session_->GetShow().GetSongData(song);
    if (tracker_ == nullptr) tracker_ = std::make_unique<HowToPlay>(session_->GetStagePlayer().GetUserControls());
    tracker_->SetData(log->GetSongLog(song), data.GetTimeline(), data.GetTicksPerQuarter());
    positions_.emplace(data.GetTimeline());
    const TL::Timeline& timeline = data.GetTimeline();
    const auto beats = CreateBeatTicks(timeline.GetBarsBeats(), log->GetSongLog(song).GetClicks(), timeline.GetMeters(),
                                       timeline.GetEndTickIndex(), data.GetTicksPerQuarter());
    beatTicks_.assign(beats.begin(), beats.end());
    trackedLog_ = std::move(log);
    trackedSong_ = song;
}

void LiveShow::FillLevels_(LiveStatus& status) {
    StagePlayer& player = session_->GetStagePlayer();
    status.mainLevel = player.GetEngine().GetMainMeter().Read();
    status.limitedFrames = renderer_->CountLimitedFrames();
    const OutputGroups* const groups = player.GetGroups();
    const GroupMixer* const mixer = player.GetEngine().GetGroups();
    if (groups == nullptr || mixer == nullptr) return;
    for (std::size_t i = 0; i < groups->Count(); ++i)
        status.groups.push_back({groups->GetName(i), groups->GetVolume(i), groups->IsMuted(i), groups->IsSolo(i),
                                 mixer->GetMeter(i + 1).Read()});
}

void LiveShow::FillSetUp_(LiveStatus& status) {
    using JumpRule = MidiTimeCodeController::JumpRule;
    const MidiTimeCodeController& controller = session_->GetMidiTimeCodeController();
    LiveStatus::TimeCode& timeCode = status.timeCode;
    timeCode.isActive = controller.GetIsActive();
    timeCode.frameRate = tavo_midi::ConvertFrameRateToString(controller.GetFrameRate());
    timeCode.output = controller.GetOutputPortName();
    timeCode.runsOn = controller.GetJumpRule() == JumpRule::RunOn;
    const bool isMoving = status.motion == LiveStatus::Motion::Playing || status.motion == LiveStatus::Motion::Fading;
    timeCode.isRolling = timeCode.isActive && !timeCode.output.empty() && isMoving;
    status.pressGuardMs = static_cast<int>(session_->GetDesk().GetPressGuard().count());
}

void LiveShow::FillPlace_(LiveStatus& status) {
    const tavo_midi::SongData& song = session_->GetShow().GetSongData(status.song);
    status.title = song.GetTitle();
    status.motion = FindMotion(*session_, session_->GetStagePlayer().GetEngine());
    const bool isMoving = status.motion != LiveStatus::Motion::Stopped && status.motion != LiveStatus::Motion::Paused;
    status.tick = isMoving ? renderer_->FindHeardTick() : FindStandingTick_();
    tracker_->Seek(status.tick);
    const std::string place = tracker_->GetBarString();
    const std::size_t colon = place.rfind(':');
    status.bar = place.substr(0, colon);
    status.beat = colon == std::string::npos ? "" : place.substr(colon + 1);
    status.meter = tracker_->GetMeterString();
    if (const int page = tracker_->GetPageNumberValue(); page > 0) status.page = fmt::format("{}", page);
    status.marker = tracker_->GetMarkerString();
    for (const CL::Marker& marker : trackedLog_->GetSongLog(status.song).GetMarkers()) {
        if (marker.abs_time() <= status.tick) continue;
        status.nextMarker = marker.value();
        break;
    }
}

void LiveShow::NoteStanding_(const LiveEvent& event) {
    using enum LiveEvent::Kind;
    if (event.kind == Song || event.kind == Stopped || event.kind == Put || event.kind == Caesura)
        standing_ = Standing{event.tick, GetGuiUpdate().GetTickIndex()};
}

// The display feed shows a seek at once, before the device has taken a frame; but it stays where playback was stopped,
// while "stop" has put the playhead at the song's beginning.
std::uint32_t LiveShow::FindStandingTick_() const {
    const unsigned int shown = GetGuiUpdate().GetTickIndex();
    return standing_ && standing_->shownTick == shown ? standing_->tick : shown;
}

void LiveShow::FillFlow_(LiveStatus& status) {
    StageShowControl& flow = session_->GetStagePlayer().GetStageShowControl();
    status.key = tracker_->GetKeyString();
    status.transposition = tracker_->GetTranspositionValue();
    status.scale = tracker_->GetTempoScaleString();
    status.beatsPerMinute = tracker_->GetTempoDouble();
    const double ticksPerQuarter = session_->GetShow().GetSongData(status.song).GetTicksPerQuarter();
    if (const unsigned int quarter = tracker_->GetMicrosecondsPerQuarter(); quarter > 0)
        status.ticksPerSecond = ticksPerQuarter * 1e6 / quarter * tracker_->GetTempoScale();
    for (const FlowState::Loop& loop : flow.Snapshot().loops) {
        // What has been played out is dropped at the next arrival.
        if (loop.end <= status.tick) continue;
        status.loops.push_back({DescribeType(loop.type), positions_->DescribeRange(loop.start, loop.end), loop.pass,
                                loop.limit, loop.canceled, static_cast<std::uint32_t>(loop.start),
                                static_cast<std::uint32_t>(loop.end)});
        if (loop.canceled && !status.leavesInBeats) status.leavesInBeats = CountBeats_(status.tick, loop.end);
    }
}

/// Beats, as the performers count them, that begin before `end`; the one that goes on is one of them.
unsigned int LiveShow::CountBeats_(std::uint32_t tick, std::uint32_t end) const {
    unsigned int beats = 0;
    for (const unsigned int beat : beatTicks_)
        if (beat > tick && beat < end) ++beats;
    return beats + 1;
}

void LiveShow::Resume(const Take& take) {
    if (!take.lastState) throw std::runtime_error("the take does not say where the show stood");
    const FlowState state = *take.lastState;
    static_cast<void>(session_->GetShow().GetSongData(state.song));
    const CommandSource source{Door::Replay, "resume"};
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    for (const TakeLine& line : take.lines) {
        if (line.kind != TakeLine::Kind::Command) continue;
        const std::string verb = line.text.substr(0, line.text.find(' '));
        if (std::ranges::find(LevelVerbs, verb) != std::end(LevelVerbs)) Press(Read(line.text, source));
    }
    Press({Verb::Load, {state.song}, source, 0, now});
    Press({Verb::Restore, {ToText(state)}, source, 0, now});
}

}  // namespace stage
