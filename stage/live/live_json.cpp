#include "stage/live/live_json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace stage {

namespace {

using Json = nlohmann::ordered_json;

std::string AsLine(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const char* NameOf(LiveEvent::Kind kind) {
    using enum LiveEvent::Kind;
    switch (kind) {
        case Song:
            return "song";
        case Started:
            return "started";
        case Stopped:
            return "stopped";
        case Put:
            return "put";
        case Jumped:
            return "jump";
        case Held:
            return "hold";
        case Released:
            return "release";
        case Caesura:
            return "caesura";
        case SongEnded:
            return "song-end";
        case Late:
            return "late";
        case Bar:
            return "bar";
        case Beat:
            return "beat";
    }
    return "";
}

const char* NameOf(EngineEvent::Reason reason) {
    if (reason == EngineEvent::Reason::Seek) return "seek";
    return reason == EngineEvent::Reason::Loop ? "loop" : "cut";
}

}  // namespace

const char* NameOf(LiveStatus::Motion motion) {
    using enum LiveStatus::Motion;
    switch (motion) {
        case Stopped:
            return "stopped";
        case Playing:
            return "playing";
        case Paused:
            return "paused";
        case Fading:
            return "fading";
        case Holding:
            return "holding";
        default:
            return "no song";
    }
}

const char* NameOf(CommandRecord::Outcome outcome) {
    if (outcome == CommandRecord::Outcome::Taken) return "taken";
    return outcome == CommandRecord::Outcome::Refused ? "refused" : "failed";
}

std::string LiveJson::Write(const LiveEvent& event) {
    Json line{{"event", NameOf(event.kind)}};
    if (event.song != song_) {
        song_ = event.song;
        positions_.reset();
        if (song_ != nullptr) positions_.emplace(song_->GetTimeline());
    }
    if (event.kind == LiveEvent::Kind::Bar || event.kind == LiveEvent::Kind::Beat) {
        if (!positions_) return "";
        const auto& bars = positions_->GetBars();
        const bool isBar = std::any_of(bars.begin(), bars.end(),
                                       [&](const TL::BarPositions::Bar& bar) { return bar.startTick == event.tick; });
        line["event"] = NameOf(isBar ? LiveEvent::Kind::Bar : LiveEvent::Kind::Beat);
    }
    if (positions_) line["bar"] = positions_->DescribeTick(event.tick);
    if (song_ != nullptr) line["song"] = song_->GetSongNumber();
    if (event.kind == LiveEvent::Kind::Song && song_ != nullptr) line["title"] = song_->GetTitle();
    if (event.kind == LiveEvent::Kind::Jumped) {
        line["reason"] = NameOf(event.reason);
        line["fromTick"] = event.fromTick;
    }
    if (event.kind == LiveEvent::Kind::Late) line["missingFrames"] = event.missingFrames;
    line["tick"] = event.tick;
    line["frame"] = event.frame;
    line["seconds"] = static_cast<double>(event.frame) / framesPerSecond_;
    return AsLine(line);
}

std::string LiveJson::Write(const CommandRecord& record) const {
    Json line{{"event", "press"},
              {"press", AsText(record.command)},
              {"door", GetDoorName(record.command.source.door)},
              {"outcome", NameOf(record.outcome)}};
    if (!record.command.source.name.empty()) line["source"] = record.command.source.name;
    if (!record.sentence.empty()) line["sentence"] = record.sentence;
    line["song"] = record.place.song;
    line["tick"] = record.place.tick;
    line["frame"] = record.place.frame;
    line["seconds"] = static_cast<double>(record.place.frame) / framesPerSecond_;
    return AsLine(line);
}

std::string LiveJson::Write(const notify::GuiNotification& notification) {
    std::string line = WriteValue_(notification);
    using Type = notify::GuiNotificationType;
    if (line.empty() || notification.type == Type::NoNextSong) return line;
    // The lamp is one value with two notifications.
    const Type slot = notification.type == Type::VampOff ? Type::VampOn : notification.type;
    std::string& last = last_[slot];
    if (last == line) return "";
    last = line;
    return line;
}

std::string LiveJson::WriteValue_(const notify::GuiNotification& notification) {
    using Type = notify::GuiNotificationType;
    switch (notification.type) {
        case Type::StatusFlowControl:
            return AsLine({{"event", "status"}, {"status", notification.text}, {"count", notification.number}});
        case Type::VampOn:
        case Type::VampOff:
            return AsLine({{"event", "vamp-lamp"}, {"on", notification.type == Type::VampOn}});
        case Type::PageNum:
            return AsLine({{"event", "page"}, {"page", notification.number}});
        case Type::Key:
            return AsLine({{"event", "key"}, {"key", notification.text}});
        case Type::Meter:
            return AsLine({{"event", "meter"}, {"meter", notification.text}});
        case Type::Marker:
            return AsLine({{"event", "marker"}, {"marker", notification.text}, {"tick", notification.tick}});
        case Type::Tempo:
            return AsLine({{"event", "tempo"}, {"tempo", notification.text}});
        case Type::NoNextSong:
            return AsLine({{"event", "no-next-song"}});
        default:
            return "";
    }
}

std::string LiveJson::WriteMessage(const std::string& event, const std::string& sentence) {
    return AsLine({{"event", event}, {"sentence", sentence}});
}

nlohmann::ordered_json LiveJson::MakeStatus(const LiveStatus& status) {
    Json loops = Json::array();
    for (const LiveStatus::Loop& loop : status.loops)
        loops.push_back({{"kind", loop.kind},
                         {"place", loop.place},
                         {"pass", loop.pass},
                         {"limit", loop.limit},
                         {"left", loop.isLeft},
                         {"start", loop.startTick},
                         {"end", loop.endTick}});
    Json volumes = Json::object();
    for (const auto& [name, factor] : status.volumes)
        volumes[std::string(name)] = factor;
    Json groups = Json::array();
    for (const LiveStatus::Group& group : status.groups)
        groups.push_back({{"name", group.name},
                          {"volume", group.volume},
                          {"mute", group.isMuted},
                          {"solo", group.isSolo},
                          {"peak", group.level.peak},
                          {"rms", group.level.rms}});
    Json targets = Json::array();
    for (const LiveStatus::OscTarget& target : status.oscTargets)
        targets.push_back(
            {{"name", target.name}, {"problem", target.problem}, {"sent", target.sent}, {"lost", target.lost}});
    Json line{
        {"event", "state"},
        {"motion", NameOf(status.motion)},
        {"song", status.song},
        {"title", status.title},
        {"bar", status.bar},
        {"beat", status.beat},
        {"tick", status.tick},
        {"tempo", status.beatsPerMinute},
        {"tempoScale", status.tempoScale},
        {"scale", status.scale},
        {"meter", status.meter},
        {"key", status.key},
        {"transposition", status.transposition},
        {"page", status.page},
        {"marker", status.marker},
        {"nextMarker", status.nextMarker},
        {"vampLamp", status.vampLamp},
        {"status", status.status},
        {"count", status.statusCount},
        {"loops", std::move(loops)},
        {"elapsedSeconds", status.elapsedSeconds},
        {"volumes", std::move(volumes)},
        {"groups", std::move(groups)},
        {"main",
         {{"peak", status.mainLevel.peak}, {"rms", status.mainLevel.rms}, {"limitedFrames", status.limitedFrames}}},
        {"output",
         {{"name", status.output.name},
          {"playing", status.output.isPlaying},
          {"problem", status.output.problem},
          {"framesPerSecond", status.output.format.framesPerSecond},
          {"periodFrames", status.output.format.periodFrames},
          {"latencyFrames", status.output.format.latencyFrames},
          {"overruns", status.output.deviceOverruns},
          {"timesLost", status.output.timesLost}}},
        {"realTime", status.isRealTime},
        {"leadFrames", status.leadFrames},
        {"latePeriods", status.latePeriods},
        {"longestBlockMs", status.longestBlockMs},
        {"slowBlocks", status.slowBlocks},
        {"heldUpBlocks", status.heldUpBlocks},
        {"midiInput", status.midiInput},
        {"timeCode",
         {{"active", status.timeCode.isActive},
          {"frameRate", status.timeCode.frameRate},
          {"output", status.timeCode.output},
          {"onJump", status.timeCode.runsOn ? "runOn" : "locate"},
          {"rolling", status.timeCode.isRolling}}},
        {"pressGuardMs", status.pressGuardMs},
        {"osc",
         {{"address", status.osc.address},
          {"problem", status.osc.problem},
          {"subscribers", status.osc.subscribers},
          {"refused", status.osc.refused}}},
        {"oscTargets", std::move(targets)}};
    if (status.leavesInBeats) line["leavesInBeats"] = *status.leavesInBeats;
    return line;
}

std::string LiveJson::WriteStatus(const LiveStatus& status) {
    return AsLine(MakeStatus(status));
}

}  // namespace stage
