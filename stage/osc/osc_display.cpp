#include "stage/osc/osc_display.h"

#include <algorithm>
#include <utility>

#include "kit/utf8.h"
#include "stage/live/live_json.h"

namespace stage {

namespace {

/// An edit may be as long as a packet.
constexpr std::size_t LongestPress = 1000;

OscValue AsWhole(std::uint64_t number) {
    return static_cast<std::int64_t>(number);
}

}  // namespace

std::vector<OscMessage> MakeDisplayValues(const LiveStatus& status) {
    std::vector<OscMessage> values;
    const auto add = [&](const char* name, std::vector<OscValue> arguments) {
        values.push_back({std::string("/tavo/display/") + name, std::move(arguments)});
    };
    add("show", {status.showTitle});
    add("song", {status.song, status.title});
    add("motion", {std::string(NameOf(status.motion))});
    add("place", {status.bar, status.beat, AsWhole(status.tick)});
    // Whole seconds: whoever wants more counts the place.
    add("elapsed", {AsWhole(static_cast<std::uint64_t>(std::max(status.elapsedSeconds, 0.0)))});
    add("tempo", {status.beatsPerMinute, status.tempoScale, status.scale});
    add("meter", {status.meter});
    add("key", {status.key});
    add("transposition", {static_cast<std::int64_t>(status.transposition)});
    add("page", {status.page});
    add("marker", {status.marker, status.nextMarker});
    std::vector<OscValue> loops;
    for (const LiveStatus::Loop& loop : status.loops)
        loops.insert(loops.end(), {loop.kind, loop.place, std::int64_t{loop.pass}, std::int64_t{loop.limit},
                                   std::int64_t{loop.isLeft ? 1 : 0}});
    add("loops", std::move(loops));
    add("leaves", {status.leavesInBeats ? static_cast<std::int64_t>(*status.leavesInBeats) : std::int64_t{-1}});
    std::vector<OscValue> volumes;
    for (const LiveStatus::Volume& volume : status.volumes) {
        volumes.emplace_back(std::string(volume.name));
        volumes.emplace_back(volume.factor);
    }
    add("volumes", std::move(volumes));
    add("output", {status.output.name, std::int64_t{status.output.isPlaying ? 1 : 0}, status.output.problem});
    for (const LiveStatus::OscTarget& target : status.oscTargets)
        add(("target/" + target.name).c_str(), {target.problem, AsWhole(target.sent), AsWhole(target.lost)});
    return values;
}

OscMessage MakeDisplayEvent(const notify::GuiNotification& notification) {
    using Type = notify::GuiNotificationType;
    switch (notification.type) {
        case Type::StatusFlowControl:
            return {"/tavo/display/status", {notification.text, std::int64_t{notification.number}}};
        case Type::VampOn:
        case Type::VampOff:
            return {"/tavo/display/vamp", {std::int64_t{notification.type == Type::VampOn ? 1 : 0}}};
        case Type::NoNextSong:
            return {"/tavo/display/no-next-song", {}};
        default:
            return {};
    }
}

OscMessage MakePressEvent(const CommandRecord& record) {
    std::string press = AsText(record.command);
    press.resize(kit::CutUtf8(press, LongestPress));
    return {"/tavo/press",
            {std::move(press), std::string(GetDoorName(record.command.source.door)), record.command.source.name,
             std::string(NameOf(record.outcome)), record.sentence}};
}

std::vector<OscMessage> OscDisplay::TakeChanges(const LiveStatus& status, bool all) {
    std::vector<OscMessage> changes;
    for (OscMessage& value : MakeDisplayValues(status)) {
        std::vector<OscValue>& last = last_[value.address];
        if (!all && last == value.arguments) continue;
        last = value.arguments;
        changes.push_back(std::move(value));
    }
    return changes;
}

}  // namespace stage
