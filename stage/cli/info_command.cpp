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
#include "stage/show/json_list.h"
#include "stage/show/log_versions.h"
#include "stage/show/show_directory.h"
#include "stage/show/show_journals.h"
#include "stage/show/song_json.h"
#include "stage/show/song_length.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/as_string.h"
#include "tavo_core/edit_text.h"
#include "tavo_core/editor.h"
#include "tavo_midi/show_data.h"

namespace {

using Json = nlohmann::ordered_json;

struct InfoWords {
    std::string showPath;
    std::string song;
    bool json = false;
    bool isSheet = false;
};

using Songs = std::vector<std::reference_wrapper<const tavo_midi::SongData>>;

Songs ChooseSongs(const tavo_midi::ShowData& show, const std::string& number) {
    if (!number.empty()) return {show.GetSongData(number)};
    return {show.GetSongs().begin(), show.GetSongs().end()};
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
        for (const CL::TempoScale& edit : stage::FindSongLog(log, number).GetTempoScales()) {
            if (!edit.ValueWithinRange()) deviations.scales.push_back({number, &edit});
        }
        const auto clicks = modifiedClicks.find(number);
        if (clicks != modifiedClicks.end()) deviations.clicks.insert(*clicks);
    }
    return deviations;
}

void PrintJson(const tavo_midi::ShowData& show, const CL::ChangeLog& log, const Songs& songs,
               const std::vector<stage::LogVersion>& versions) {
    Json json;
    json["title"] = show.GetTitle();
    json["songs"] = Json::array();
    for (const tavo_midi::SongData& song : songs)
        json["songs"].push_back(stage::MakeSongJson(song, stage::FindSongLog(log, song.GetSongNumber())));
    json["version"] = log.GetVersion().GetAsString();
    json["versions"] = stage::MakeJsonList(versions, stage::MakeVersionJson);
    const Deviations deviations = FindDeviations(show, log, songs);
    json["tempoScaleWarnings"] = stage::MakeJsonList(deviations.scales, [](const Deviations::Scale& scale) {
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
    PrintPlaces("tempo", timeline.GetTempos(), positions, [&song](const TL::Tempo& tempo) {
        return (song.IsGuessedTempo(tempo.abs_time()) ? "~" : "") + as_string(tempo);
    });
    PrintPlaces("page", timeline.GetPageNums(), positions, asText);
    std::cout << fmt::format("\n  {} to the next song\n", songLog.GetAttacca() == CL::AttaccaNext ? "attacca"
                                                          : songLog.GetAttacca() == CL::AttaccaSkip
                                                              ? "skipped, passed over on the way"
                                                              : "a stop, the operator goes on");
    if (!songLog.GetClicks().empty())
        std::cout << fmt::format("  {} beats with its clicks, {} as written\n", stage::CountClickedBeats(song, songLog),
                                 timeline.GetBarsBeats().size());
    const std::string edits = MakeEditTable(songLog, positions);
    if (!edits.empty()) std::cout << '\n' << edits;
}

/// Where a song's part of a sheet begins: "3  Lamplighters' Waltz (0:30)".
std::string MakeHeading(const tavo_midi::SongData& song) {
    return fmt::format("{}  {} ({})", song.GetSongNumber(), song.GetTitle(),
                       stage::DescribeLength(stage::GetWrittenSeconds(song)));
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
        for (const std::string& sentence : stage::DescribeJournals(directory))
            std::cout << "note: " << MakePrintable(sentence) << '\n';
    }
    if (words.isSheet) {
        for (const tavo_midi::SongData& song : songs) {
            std::cout << fmt::format("\n{}\n", MakePrintable(MakeHeading(song)));
            PrintSong(song, stage::FindSongLog(log, song.GetSongNumber()));
        }
    } else if (!words.song.empty()) {
        PrintSong(songs.front(), stage::FindSongLog(log, words.song));
    }
    PrintDeviations(show, FindDeviations(show, log, songs));
}

}  // namespace

void AddInfoCommand(CLI::App& app, int&) {
    auto words = std::make_shared<InfoWords>();
    CLI::App* info = app.add_subcommand("info", "Shows what a show holds");
    info->add_option("SHOW", words->showPath, "The show directory")->required();
    info->add_option("--song", words->song, "Only this song, with its meters, keys, tempos and edits")->type_name("N");
    info->add_flag("--sheet", words->isSheet, "Print the whole show on one sheet: every song as --song shows it");
    info->add_flag("--json", words->json, "Print everything as JSON for other programs");
    info->footer(
        "\ndocs/info-json.md describes the JSON form.\n"
        "\nExamples:\n  stage info myshow\n  stage info myshow --song 3\n  stage info myshow --sheet\n"
        "  stage info myshow --json");
    info->callback([words] { PrintInfo(*words); });
}
