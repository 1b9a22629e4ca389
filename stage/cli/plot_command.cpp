#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <utility>

#include "kit/file.h"
#include "stage/cli/commands.h"
#include "stage/cli/song_range.h"
#include "stage/cli/song_summary.h"
#include "stage/picture/flow_picture.h"
#include "stage/show/show_directory.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace {

struct PlotWords {
    std::string showPath;
    std::string songs;
    std::string outPath;
};

std::string MakePicture(const tavo_midi::ShowData& show, const CL::ChangeLog& log, std::size_t index) {
    static const CL::SongLog none;
    const tavo_midi::SongData& song = show.GetSongs()[index];
    const auto edits = log.GetSongLogs().find(song.GetSongNumber());
    std::string nextSong;
    if (index + 1 < show.GetSongs().size()) {
        const tavo_midi::SongData& next = show.GetSongs()[index + 1];
        nextSong = next.GetSongNumber() + (next.GetTitle().empty() ? "" : " " + next.GetTitle());
    }
    const stage::flow::Subject subject{song,
                                       edits == log.GetSongLogs().end() ? none : edits->second,
                                       show.GetTitle(),
                                       log.GetVersion().GetAsString(),
                                       DescribeLength(GetWrittenSeconds(song)),
                                       nextSong};
    return stage::flow::AsSvg(stage::flow::Draw(subject),
                              fmt::format("{}: {} {}", show.GetTitle(), song.GetSongNumber(), song.GetTitle()));
}

/// "flow.svg" of song 3 among several is "flow-3.svg".
std::string MakeNumberedPath(const std::string& path, const std::string& number) {
    std::filesystem::path numbered(path);
    numbered.replace_filename(numbered.stem().string() + '-' + number + numbered.extension().string());
    return numbered.string();
}

void Plot(const PlotWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const tavo_midi::ShowData show(directory.ShowDataPath());
    const CL::ChangeLog log = CL::ChangeLog::Load(directory.LogPathInUse());
    const auto [first, last] = ParseSongRange(words.songs, show);
    const bool isOne = first == last;
    if (!isOne && words.outPath == StandardOutput)
        throw std::invalid_argument("several songs are several pictures: name a file, not the standard output");
    bool isInRange = false;
    for (std::size_t i = 0; i < show.GetSongs().size(); ++i) {
        const std::string& number = show.GetSongs()[i].GetSongNumber();
        isInRange = isInRange || number == first;
        if (isInRange && words.outPath == StandardOutput) {
            std::cout << MakePicture(show, log, i);
        } else if (isInRange) {
            const std::string path = isOne ? words.outPath : MakeNumberedPath(words.outPath, number);
            kit::ReplaceFileDurably(path, MakePicture(show, log, i));
            std::cout << path << '\n';
        }
        if (number == last) break;
    }
}

}  // namespace

void AddPlotCommand(CLI::App& app, int&) {
    auto words = std::make_shared<PlotWords>();
    CLI::App* plot = app.add_subcommand("plot", "Draws a song's bars with all its edits as a picture");
    plot->add_option("SHOW", words->showPath, "The show directory")->required();
    plot->add_option("--song", words->songs, "Which song: 3; or a picture each for 3..7")->required()->type_name("N");
    plot->add_option("-o,--output", words->outPath,
                     "The SVG file, replaced where it is there; - prints it. Several songs get the song's number after "
                     "the file's name")
        ->required()
        ->type_name("FILE");
    plot->footer(
        "\nThe picture is made for A4 paper and for light and dark screens; any web browser shows and prints it.\n"
        "\nExamples:\n  stage plot myshow --song 3 -o song3.svg\n  stage plot myshow --song 3..7 -o flow.svg");
    plot->callback([words] { Plot(*words); });
}
