#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "stage/cli/commands.h"
#include "stage/cli/song_summary.h"
#include "stage/cli/text_table.h"
#include "stage/session/edit_session.h"
#include "stage/session/show_directory.h"
#include "tavo_core/as_string.h"

namespace {

using Json = nlohmann::ordered_json;

struct InfoWords {
    std::string showPath;
    std::string song;
    bool json = false;
};

using Songs = std::vector<std::reference_wrapper<const tavo_midi::SongData>>;

Songs ChooseSongs(const tavo_midi::ShowData& show, const std::string& number) {
    if (!number.empty()) return {show.GetSongData(number)};
    return {show.GetSongs().begin(), show.GetSongs().end()};
}

template <class Sequence, class Make>
Json MakeList(const Sequence& sequence, Make make) {
    Json list = Json::array();
    for (const auto& entry : sequence)
        list.push_back(make(entry));
    return list;
}

/// docs/info-json.md describes the keys; their names and order stay as they are.
Json MakeSong(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song.GetTimeline();
    Json json;
    json["number"] = song.GetSongNumber();
    json["title"] = song.GetTitle();
    json["ticksPerQuarter"] = song.GetTicksPerQuarter();
    json["startTick"] = timeline.GetStartTickIndex();
    json["endTick"] = timeline.GetEndTickIndex();
    json["seconds"] = GetWrittenSeconds(song);
    json["bars"] = MakeList(TL::BarPositions(timeline).GetBars(), [](const auto& bar) {
        return Json{{"label", bar.label}, {"tick", bar.startTick}};
    });
    json["beats"] = MakeList(timeline.GetBarsBeats(), [](const auto& beat) { return Json(beat.abs_time()); });
    json["tempos"] = MakeList(timeline.GetTempos(), [](const auto& tempo) {
        return Json{{"tick", tempo.abs_time()}, {"bpm", tempo.quarters_per_minute()}};
    });
    json["meters"] = MakeList(timeline.GetMeters(), [](const auto& meter) {
        return Json{{"tick", meter.abs_time()}, {"numerator", meter.numerator()}, {"denominator", meter.denominator()}};
    });
    json["keys"] = MakeList(timeline.GetKeys(), [](const auto& key) {
        return Json{{"tick", key.abs_time()}, {"name", as_string(key)}};
    });
    json["pages"] = MakeList(timeline.GetPageNums(), [](const auto& page) {
        return Json{{"number", page.page_number()}, {"tick", page.abs_time()}};
    });
    json["markers"] = MakeList(songLog.GetMarkers(), [](const auto& marker) {
        return Json{{"tick", marker.abs_time()}, {"text", marker.value()}};
    });
    return json;
}

const CL::SongLog& FindSongLog(const CL::ChangeLog& log, const std::string& number) {
    static const CL::SongLog none;
    const auto found = log.GetSongLogs().find(number);
    return found == log.GetSongLogs().end() ? none : found->second;
}

void PrintJson(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const Songs& songs) {
    Json json;
    json["title"] = show.GetTitle();
    json["songs"] = Json::array();
    for (const tavo_midi::SongData& song : songs)
        json["songs"].push_back(MakeSong(song, FindSongLog(log, song.GetSongNumber())));
    std::cout << json.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

/// The places of a list of entries, each with its text: "1 4/4, 17 3/4".
template <class Sequence, class Describe>
void PrintPlaces(const char* title, const Sequence& sequence, const TL::BarPositions& positions, Describe describe) {
    if (sequence.empty()) return;
    TextTable table({{fmt::format("  {}", title)}, {"at"}});
    for (const auto& entry : sequence)
        table.AddRow({"  " + describe(entry), positions.DescribeTick(entry.abs_time())});
    std::cout << '\n' << table.AsText();
}

void PrintSong(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song.GetTimeline();
    const TL::BarPositions positions(timeline);
    const auto asText = [](const auto& entry) { return as_string(entry); };
    PrintPlaces("meter", timeline.GetMeters(), positions, asText);
    PrintPlaces("key", timeline.GetKeys(), positions, asText);
    PrintPlaces("tempo", timeline.GetTempos(), positions, asText);
    PrintPlaces("page", timeline.GetPageNums(), positions, asText);
    std::cout << fmt::format("\n  {} to the next song\n", songLog.GetAttacca() == CL::AttaccaNext ? "attacca"
                                                          : songLog.GetAttacca() == CL::AttaccaSkip
                                                              ? "skipped, passed over on the way"
                                                              : "a stop, the operator goes on");
    const auto edits = stage::ListEdits(songLog);
    if (edits.empty()) return;
    TextTable table({{"  edit"}, {"place"}, {"value"}});
    for (const stage::ListedEdit& listed : edits)
        table.AddRow({"  " + CL::DescribeKind(*listed.edit), CL::DescribePlace(*listed.edit, positions),
                      CL::DescribeValue(*listed.edit)});
    std::cout << '\n' << table.AsText();
}

void PrintOverview(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const Songs& songs) {
    std::cout << fmt::format("{}, version {}\n\n", MakePrintable(show.GetTitle()), log.GetVersion().GetAsString())
              << MakeSongTable(songs);
}

void PrintInfo(const InfoWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const tavo_midi::ShowData show(directory.ShowDataPath());
    const CL::ChangeLog log = CL::ChangeLog::Load(directory.NewestLogPath());
    const Songs songs = ChooseSongs(show, words.song);
    if (words.json) {
        PrintJson(show, log, songs);
        return;
    }
    PrintOverview(show, log, songs);
    if (!words.song.empty()) PrintSong(songs.front(), FindSongLog(log, words.song));
}

}  // namespace

void AddInfoCommand(CLI::App& app, int&) {
    auto words = std::make_shared<InfoWords>();
    CLI::App* info = app.add_subcommand("info", "Shows what a show holds");
    info->add_option("SHOW", words->showPath, "The show directory")->required();
    info->add_option("--song", words->song, "Only this song, with its meters, keys, tempos and edits")->type_name("N");
    info->add_flag("--json", words->json, "Print everything as JSON for other programs");
    info->footer(
        "\ndocs/info-json.md describes the JSON form.\n"
        "\nExamples:\n  stage info myshow\n  stage info myshow --song 3\n  stage info myshow --json");
    info->callback([words] { PrintInfo(*words); });
}
