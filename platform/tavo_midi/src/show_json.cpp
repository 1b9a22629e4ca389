#include "show_json.h"

#include <fmt/format.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

#include "kit/json_object.h"
#include "tavo_midi/show_file.h"

namespace tavo_midi {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t FormatVersion = 1;

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
    for (const SongTempo& tempo : options.tempos) {
        Json entry{{"tick", tempo.tick}, {"microsecondsPerQuarter", tempo.microsecondsPerQuarter}};
        if (tempo.isGuessed) entry["guessed"] = true;
        json["tempos"].push_back(std::move(entry));
    }
    json["effects"] = Json::array();
    return json;
}

void ReadBarLabels(const kit::JsonValue& list, SongOptions& options, std::vector<std::string>& warnings) {
    for (const kit::JsonValue& value : list.AsList()) {
        kit::JsonObject entry(value);
        const kit::JsonValue bar = entry.Get("bar");
        BarLabel label{bar.AsUnsigned(), entry.Get("label").AsText()};
        if (!options.barLabels.empty() && label.bar <= options.barLabels.back().bar)
            bar.FailAs(fmt::format("must be above {}, that of the label before it", options.barLabels.back().bar));
        entry.WarnOfOtherKeys(warnings);
        options.barLabels.push_back(std::move(label));
    }
}

void ReadPages(const kit::JsonValue& list, SongOptions& options, std::vector<std::string>& warnings) {
    constexpr std::uint32_t HighestPage = 1000000;
    for (const kit::JsonValue& value : list.AsList()) {
        kit::JsonObject entry(value);
        const kit::JsonValue tick = entry.Get("tick");
        if (!options.pages.empty() && tick.AsUnsigned() < options.pages.back().abs_time())
            tick.FailAs(
                fmt::format("must be at least {}, that of the page before it", options.pages.back().abs_time()));
        options.pages.emplace_back(tick.AsUnsigned(), entry.Get("number").AsUnsigned(HighestPage));
        entry.WarnOfOtherKeys(warnings);
    }
}

void ReadTempos(const kit::JsonValue& list, SongOptions& options, std::vector<std::string>& warnings) {
    constexpr std::uint32_t SlowestTempo = 16777215;
    for (const kit::JsonValue& value : list.AsList()) {
        kit::JsonObject entry(value);
        const kit::JsonValue tick = entry.Get("tick");
        const kit::JsonValue length = entry.Get("microsecondsPerQuarter");
        SongTempo tempo{tick.AsUnsigned(), length.AsUnsigned(SlowestTempo), false};
        if (!options.tempos.empty() && tempo.tick <= options.tempos.back().tick)
            tick.FailAs(fmt::format("must be above {}, that of the tempo before it", options.tempos.back().tick));
        if (tempo.microsecondsPerQuarter == 0) length.FailAs("must be at least 1");
        entry.Read("guessed", [&](const kit::JsonValue& guessed) { tempo.isGuessed = guessed.AsFlag(); });
        entry.WarnOfOtherKeys(warnings);
        options.tempos.push_back(tempo);
    }
}

ShowJsonSong ReadSong(kit::JsonObject reader, std::vector<std::string>& warnings) {
    ShowJsonSong song;
    SongOptions& options = song.options;
    options.number = reader.Get("number").AsFilledText();
    options.title = reader.Get("title").AsText();
    const kit::JsonValue smf = reader.Get("smf");
    song.smfName = smf.AsFilledText();
    if (song.smfName == ShowJsonName) smf.FailAs("must be the name of a Standard MIDI File");
    reader.Read("sequence", [&](const kit::JsonValue& value) { options.sequence = value.AsUnsigned(65535); });
    options.startTick = reader.Get("startTick").AsUnsigned();
    reader.Read("endTick", [&](const kit::JsonValue& value) { options.endTick = value.AsUnsigned(); });
    reader.Read("pickupBeats", [&](const kit::JsonValue& value) { options.pickupBeats = value.AsNumber(); });
    reader.Read("barLabels", [&](const kit::JsonValue& value) { ReadBarLabels(value, options, warnings); });
    reader.Read("pages", [&](const kit::JsonValue& value) { ReadPages(value, options, warnings); });
    reader.Read("tempos", [&](const kit::JsonValue& value) { ReadTempos(value, options, warnings); });
    // No effect has a form yet.
    reader.Read("effects", [](const kit::JsonValue& value) {
        for (const kit::JsonValue& effect : value.AsList())
            static_cast<void>(effect.AsObject());
    });
    reader.WarnOfOtherKeys(warnings);
    return song;
}

}  // namespace

std::string WriteShowJson(const ShowJson& show) {
    Json json;
    json["title"] = show.title;
    json["formatVersion"] = FormatVersion;
    json["songs"] = Json::array();
    for (const ShowJsonSong& song : show.songs)
        json["songs"].push_back(ToJson(song));
    return json.dump(1) + "\n";
}

ShowJson ReadShowJson(const std::string& text, const std::string& place) {
    const kit::JsonText json(text, place, {.bytes = MaxShowJsonBytes});
    kit::JsonObject reader = json.Object();
    const kit::JsonValue version = reader.Get("formatVersion");
    if (version.AsUnsigned() != FormatVersion)
        version.Fail(fmt::format("is {}, but only {} can be read", version.AsUnsigned(), FormatVersion));
    ShowJson show;
    show.title = reader.Get("title").AsText();
    for (const kit::JsonValue& song : reader.Get("songs").AsList())
        show.songs.push_back(ReadSong(song.AsObject(), show.warnings));
    reader.WarnOfOtherKeys(show.warnings);
    return show;
}

}  // namespace tavo_midi
