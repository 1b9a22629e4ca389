#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <utility>

#include "kit/file.h"
#include "stage/cli/commands.h"
#include "stage/cli/song_range.h"
#include "stage/picture/flow_picture.h"
#include "stage/picture/song_picture.h"
#include "stage/show/show_directory.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace {

struct PlotWords {
    std::string showPath;
    std::string songs;
    std::string outPath;
};

/// All songs below each other.
std::string MakeSheet(const tavo_midi::ShowData& show, const CL::ChangeLog& log) {
    stage::flow::Drawing sheet;
    sheet.width = stage::flow::PageWidth;
    for (std::size_t i = 0; i < show.GetSongs().size(); ++i) {
        const stage::flow::Drawing song = stage::DrawSong(show, log, show.GetSongs()[i]);
        sheet.Append(song, sheet.height);
        sheet.height += song.height;
    }
    return stage::flow::AsSvg(sheet, show.GetTitle());
}

void Write(const std::string& picture, const std::string& path) {
    if (path == StandardOutput) {
        std::cout << picture;
        return;
    }
    kit::ReplaceFileDurably(path, picture);
    std::cout << path << '\n';
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
    if (words.songs.empty()) return Write(MakeSheet(show, log), words.outPath);
    const auto [first, last] = ParseSongRange(words.songs, show);
    const bool isOne = first == last;
    if (!isOne && words.outPath == StandardOutput)
        throw std::invalid_argument("several songs are several pictures: name a file, not the standard output");
    bool isInRange = false;
    for (std::size_t i = 0; i < show.GetSongs().size(); ++i) {
        const std::string& number = show.GetSongs()[i].GetSongNumber();
        isInRange = isInRange || number == first;
        if (isInRange)
            Write(stage::MakeSongPicture(show, log, show.GetSongs()[i]),
                  isOne ? words.outPath : MakeNumberedPath(words.outPath, number));
        if (number == last) break;
    }
}

}  // namespace

void AddPlotCommand(CLI::App& app, int&) {
    auto words = std::make_shared<PlotWords>();
    CLI::App* plot = app.add_subcommand("plot", "Draws a song's bars with all its edits as a picture");
    plot->add_option("SHOW", words->showPath, "The show directory")->required();
    plot->add_option("--song", words->songs,
                     "Which song: 3; or a picture each for 3..7. Without it the whole show is one picture")
        ->type_name("N");
    plot->add_option("-o,--output", words->outPath,
                     "The SVG file, replaced where it is there; - prints it. Several songs get the song's number after "
                     "the file's name")
        ->required()
        ->type_name("FILE");
    plot->footer(
        "\nThe picture is made for A4 paper and for light and dark screens; any web browser shows and prints it.\n"
        "\nExamples:\n  stage plot myshow --song 3 -o song3.svg\n  stage plot myshow --song 3..7 -o flow.svg\n"
        "  stage plot myshow -o show.svg");
    plot->callback([words] { Plot(*words); });
}
