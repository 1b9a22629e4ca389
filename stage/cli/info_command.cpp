#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "stage/cli/commands.h"
#include "stage/cli/edit_table.h"
#include "stage/cli/song_summary.h"
#include "stage/cli/text_table.h"
#include "stage/show/edit_list.h"
#include "stage/show/log_versions.h"
#include "stage/show/show_directory.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/as_string.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_core/edit_text.h"
#include "tavo_core/editor.h"
#include "tavo_midi/show_data.h"

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

const CL::SongLog& FindSongLog(const CL::ChangeLog& log, const std::string& number) {
    static const CL::SongLog none;
    const auto found = log.GetSongLogs().find(number);
    return found == log.GetSongLogs().end() ? none : found->second;
}

template <class Sequence, class Make>
Json MakeList(const Sequence& sequence, Make make) {
    Json list = Json::array();
    for (const auto& entry : sequence)
        list.push_back(make(entry));
    return list;
}

TL::TimelineSequence<TL::BarsBeats> FindClickedBeats(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song.GetTimeline();
    return ApplyClicks(timeline.GetBarsBeats(), songLog.GetClicks(), timeline.GetMeters(), song.GetTicksPerQuarter());
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
    json["attacca"] = stage::DescribeAttacca(songLog.GetAttacca());
    json["edits"] = MakeEditJson(songLog, TL::BarPositions(timeline));
    json["clickedBeats"] = MakeList(FindClickedBeats(song, songLog), [](const auto& beat) {
        return Json{{"tick", beat.abs_time()}, {"bar", beat.bar_number()}, {"beat", beat.beat()}};
    });
    return json;
}

/// What of the edits is not played as it is written.
struct Deviations {
    struct Scale {
        std::string song;
        const CL::TempoScale* edit;
    };
    std::vector<Scale> scales;
    std::map<std::string, std::vector<CL::ModifiedClick>, kit::NumericStringCompare> clicks;
};

float PlayedScale(const CL::TempoScale& edit) {
    return std::clamp(edit.float_value(), CL::TempoScale::LowestPlayable, CL::TempoScale::HighestPlayable);
}

/// `log` outlives the result.
Deviations FindDeviations(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const Songs& songs) {
    Deviations deviations;
    SetActiveChangeLog(std::make_shared<CL::ChangeLog>(log));
    const auto modifiedClicks = CL::Editor(show).GetModifiedClickEdits();
    for (const tavo_midi::SongData& song : songs) {
        const std::string& number = song.GetSongNumber();
        for (const CL::TempoScale& edit : FindSongLog(log, number).GetTempoScales()) {
            if (!edit.ValueWithinRange()) deviations.scales.push_back({number, &edit});
        }
        const auto clicks = modifiedClicks.find(number);
        if (clicks != modifiedClicks.end()) deviations.clicks.insert(*clicks);
    }
    return deviations;
}

Json MakeVersionJson(const stage::LogVersion& entry) {
    return {{"version", entry.version.GetAsString()},
            {"file", entry.name},
            {"edits", entry.editCount},
            {"inUse", entry.isInUse},
            {"unsavedChanges", entry.unsavedChanges}};
}

void PrintJson(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const Songs& songs,
               const std::vector<stage::LogVersion>& versions) {
    Json json;
    json["title"] = show.GetTitle();
    json["songs"] = Json::array();
    for (const tavo_midi::SongData& song : songs)
        json["songs"].push_back(MakeSong(song, FindSongLog(log, song.GetSongNumber())));
    json["version"] = log.GetVersion().GetAsString();
    json["versions"] = MakeList(versions, MakeVersionJson);
    const Deviations deviations = FindDeviations(show, log, songs);
    json["tempoScaleWarnings"] = MakeList(deviations.scales, [](const Deviations::Scale& scale) {
        return Json{{"song", scale.song},
                    {"start", scale.edit->start()},
                    {"end", scale.edit->end()},
                    {"percent", 100.0 * static_cast<double>(scale.edit->float_value())},
                    {"playedPercent", 100.0 * static_cast<double>(PlayedScale(*scale.edit))}};
    });
    json["modifiedClicks"] = Json::array();
    for (const auto& [song, clicks] : deviations.clicks) {
        for (const CL::ModifiedClick& modified : clicks)
            json["modifiedClicks"].push_back({{"song", song},
                                              {"start", modified.click.start()},
                                              {"end", modified.click.end()},
                                              {"value", modified.click.int_value()},
                                              {"reason", modified.reason}});
    }
    std::cout << json.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void PrintVersions(const std::vector<stage::LogVersion>& versions) {
    TextTable table({{"version"}, {"edits", TextTable::Align::Right}, {"file"}, {""}});
    for (const stage::LogVersion& entry : versions)
        table.AddRow({entry.version.GetAsString(),
                      entry.problem.empty() ? fmt::format("{}", entry.editCount) : "not readable", entry.name,
                      entry.isInUse ? "in use" : ""});
    std::cout << '\n' << table.AsText();
}

void PrintDeviations(const tavo_midi::ShowData& show, const Deviations& deviations) {
    for (const Deviations::Scale& scale : deviations.scales) {
        const TL::BarPositions positions(show.GetTimelineOf(scale.song));
        std::cout << fmt::format("song {}: {} is out of range and plays at {:g}%\n", scale.song,
                                 CL::DescribeEdit(*scale.edit, positions),
                                 100.0 * static_cast<double>(PlayedScale(*scale.edit)));
    }
    for (const auto& [song, clicks] : deviations.clicks) {
        const TL::BarPositions positions(show.GetTimelineOf(song));
        for (const CL::ModifiedClick& modified : clicks)
            std::cout << MakePrintable(fmt::format("song {}: {}: {}", song, CL::DescribeEdit(modified.click, positions),
                                                   modified.reason))
                      << '\n';
    }
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
    if (!songLog.GetClicks().empty())
        std::cout << fmt::format("  {} beats with its clicks, {} as written\n", FindClickedBeats(song, songLog).size(),
                                 timeline.GetBarsBeats().size());
    const std::string edits = MakeEditTable(songLog, positions);
    if (!edits.empty()) std::cout << '\n' << edits;
}

void PrintOverview(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const Songs& songs) {
    std::cout << fmt::format("{}, version {}\n\n", MakePrintable(show.GetTitle()), log.GetVersion().GetAsString())
              << MakeSongTable(songs);
}

void PrintInfo(const InfoWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const tavo_midi::ShowData show(directory.ShowDataPath());
    const CL::ChangeLog log = CL::ChangeLog::Load(directory.LogPathInUse());
    const Songs songs = ChooseSongs(show, words.song);
    const std::vector<stage::LogVersion> versions = stage::ListVersions(directory);
    if (words.json) {
        PrintJson(show, log, songs, versions);
        return;
    }
    PrintOverview(show, log, songs);
    if (words.song.empty()) {
        PrintVersions(versions);
    } else {
        PrintSong(songs.front(), FindSongLog(log, words.song));
    }
    PrintDeviations(show, FindDeviations(show, log, songs));
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
