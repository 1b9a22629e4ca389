#include "show_json.h"

#include <fmt/format.h>

#include <cstdint>
#include <utility>

#include "json_reader.h"

namespace tavo_midi {

namespace {

constexpr std::uint64_t kFormatVersion = 1;

Json ToJson(const ShowJsonSong& song) {
    const SongOptions& options = song.options;
    Json json;
    json["number"] = options.number;
    json["title"] = options.title;
    json["smf"] = song.smfName;
    if (options.sequence != 0) json["sequence"] = options.sequence;
    json["startTick"] = options.startTick;
    if (options.endTick) json["endTick"] = *options.endTick;
    if (options.pickupBeats != 0) json["pickupBeats"] = options.pickupBeats;
    json["barLabels"] = Json::array();
    for (const BarLabel& label : options.barLabels)
        json["barLabels"].push_back({{"bar", label.bar}, {"label", label.label}});
    json["pages"] = Json::array();
    for (const TL::PageNum& page : options.pages)
        json["pages"].push_back({{"number", page.page_number()}, {"tick", page.abs_time()}});
    json["effects"] = Json::array();
    return json;
}

void ReadBarLabels(const JsonReader& reader, SongOptions& options) {
    reader.ForEach("barLabels", [&](const JsonReader& entry) {
        BarLabel label{static_cast<std::size_t>(entry.Number("bar")), entry.Text("label")};
        if (!options.barLabels.empty() && label.bar <= options.barLabels.back().bar)
            entry.Fail("\"bar\" is not after the bar before it");
        options.barLabels.push_back(std::move(label));
    });
}

void ReadPages(const JsonReader& reader, SongOptions& options) {
    reader.ForEach("pages", [&](const JsonReader& entry) {
        const std::uint32_t tick = entry.Tick("tick");
        if (!options.pages.empty() && tick < options.pages.back().abs_time())
            entry.Fail("\"tick\" is before that of the page before it");
        options.pages.emplace_back(tick, static_cast<unsigned int>(entry.Number("number", 1000000)));
    });
}

ShowJsonSong ReadSong(const JsonReader& reader) {
    ShowJsonSong song;
    SongOptions& options = song.options;
    options.number = reader.Text("number");
    if (options.number.empty()) reader.Fail("\"number\" is empty");
    options.title = reader.Text("title");
    song.smfName = reader.Text("smf");
    if (song.smfName.empty() || song.smfName == ShowJsonName) reader.Fail("\"smf\" names no Standard MIDI File");
    if (reader.Has("sequence")) options.sequence = static_cast<std::size_t>(reader.Number("sequence", 65535));
    options.startTick = reader.Tick("startTick");
    if (reader.Has("endTick")) options.endTick = reader.Tick("endTick");
    if (reader.Has("pickupBeats")) options.pickupBeats = reader.Decimal("pickupBeats");
    ReadBarLabels(reader, options);
    ReadPages(reader, options);
    reader.ForEach("effects", [](const JsonReader&) {});
    return song;
}

}  // namespace

std::string WriteShowJson(const ShowJson& show) {
    Json json;
    json["title"] = show.title;
    json["formatVersion"] = kFormatVersion;
    json["songs"] = Json::array();
    for (const ShowJsonSong& song : show.songs)
        json["songs"].push_back(ToJson(song));
    return json.dump(1) + "\n";
}

ShowJson ReadShowJson(const std::string& text, const std::string& place) {
    const Json json = ParseJson(text, place);
    const JsonReader reader(json, place);
    const std::uint64_t version = reader.Number("formatVersion");
    if (version != kFormatVersion)
        reader.Fail(fmt::format("the format version is {}, but only {} can be read", version, kFormatVersion));
    ShowJson show;
    show.title = reader.Text("title");
    if (!reader.Has("songs")) reader.Fail("\"songs\" is missing");
    reader.ForEach("songs", [&](const JsonReader& song) { show.songs.push_back(ReadSong(song)); });
    return show;
}

}  // namespace tavo_midi
