// importer SCORES SHOW: imports the scores, and prints what an editing session finds in the new show.

#include <stage/import/show_import.h>
#include <stage/session/edited_show.h>

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        stage::ImportRequest request;
        request.paths = {argv[1]};
        request.showPath = argv[2];
        static_cast<void>(stage::ImportShow(request));
        stage::EditedShow show(argv[2]);
        for (const tavo_midi::SongData& song : show.GetMusic().GetSongs())
            std::printf("%s %s\n", song.GetSongNumber().c_str(), song.GetTitle().c_str());
    } catch (const std::exception& problem) {
        std::printf("%s\n", problem.what());
        return 1;
    }
    return 0;
}
