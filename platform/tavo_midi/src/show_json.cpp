#include "show_json.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace tavo_midi {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint64_t kFormatVersion = 1;
constexpr std::uint64_t kLastTick = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kMostListed = 100000;
constexpr std::size_t kLongestText = 10000;

/// An object of the text, with the place where it stands for sentences.
class Reader {
public:
    Reader(const Json& json, std::string place) : json_(json), place_(std::move(place)) {
        if (!json_.is_object()) throw std::runtime_error(place_ + " is not an object");
    }

    [[noreturn]] void Fail(const std::string& what) const { throw std::runtime_error(place_ + ": " + what); }

    [[nodiscard]] bool Has(const char* key) const { return json_.contains(key); }
    [[nodiscard]] std::string Text(const char* key) const {
        const Json& value = Get(key);
        if (!value.is_string()) Fail(fmt::format("\"{}\" is not a text", key));
        auto text = value.get<std::string>();
        if (text.size() > kLongestText) Fail(fmt::format("\"{}\" is longer than {} bytes", key, kLongestText));
        return text;
    }
    [[nodiscard]] std::uint64_t Number(const char* key, std::uint64_t highest = kLastTick) const {
        const Json& value = Get(key);
        if (!value.is_number_unsigned() || value.get<std::uint64_t>() > highest)
            Fail(fmt::format("\"{}\" is not a whole number from 0 to {}", key, highest));
        return value.get<std::uint64_t>();
    }
    [[nodiscard]] std::uint32_t Tick(const char* key) const { return static_cast<std::uint32_t>(Number(key)); }
    [[nodiscard]] double Decimal(const char* key) const {
        const Json& value = Get(key);
        if (!value.is_number()) Fail(fmt::format("\"{}\" is not a number", key));
        return value.get<double>();
    }
    /// Calls `visit` with a reader of each element; an absent list is empty.
    template <class Visitor>
    void ForEach(const char* key, Visitor visit) const {
        if (!Has(key)) return;
        const Json& list = Get(key);
        if (!list.is_array()) Fail(fmt::format("\"{}\" is not a list", key));
        if (list.size() > kMostListed) Fail(fmt::format("\"{}\" has more than {} elements", key, kMostListed));
        for (std::size_t index = 0; index < list.size(); ++index)
            visit(Reader(list[index], fmt::format("{}, {}[{}]", place_, key, index)));
    }

private:
    [[nodiscard]] const Json& Get(const char* key) const {
        const auto found = json_.find(key);
        if (found == json_.end()) Fail(fmt::format("\"{}\" is missing", key));
        return *found;
    }

    const Json& json_;
    std::string place_;
};

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

void ReadBarLabels(const Reader& reader, SongOptions& options) {
    reader.ForEach("barLabels", [&](const Reader& entry) {
        BarLabel label{static_cast<std::size_t>(entry.Number("bar")), entry.Text("label")};
        if (!options.barLabels.empty() && label.bar <= options.barLabels.back().bar)
            entry.Fail("\"bar\" is not after the bar before it");
        options.barLabels.push_back(std::move(label));
    });
}

void ReadPages(const Reader& reader, SongOptions& options) {
    reader.ForEach("pages", [&](const Reader& entry) {
        const std::uint32_t tick = entry.Tick("tick");
        if (!options.pages.empty() && tick < options.pages.back().abs_time())
            entry.Fail("\"tick\" is before that of the page before it");
        options.pages.emplace_back(tick, static_cast<unsigned int>(entry.Number("number", 1000000)));
    });
}

ShowJsonSong ReadSong(const Reader& reader) {
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
    reader.ForEach("effects", [](const Reader&) {});
    return song;
}

Json Parse(const std::string& text, const std::string& place) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw std::runtime_error(fmt::format("{} is not JSON: it cannot be understood at byte {}", place, error.byte));
    } catch (const Json::out_of_range&) {
        throw std::runtime_error(fmt::format("{} holds a number that is too large", place));
    }
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
    const Json json = Parse(text, place);
    const Reader reader(json, place);
    const std::uint64_t version = reader.Number("formatVersion");
    if (version != kFormatVersion)
        reader.Fail(fmt::format("the format version is {}, but only {} can be read", version, kFormatVersion));
    ShowJson show;
    show.title = reader.Text("title");
    if (!reader.Has("songs")) reader.Fail("\"songs\" is missing");
    reader.ForEach("songs", [&](const Reader& song) { show.songs.push_back(ReadSong(song)); });
    return show;
}

}  // namespace tavo_midi
