// Follows a show on paper: walks through its songs in the order in which they are played and prints what a musician
// must know, bar by bar, with the production's edits. It makes no sound and takes no time.
//
//   minimal_host myshow/myshow.showdata myshow/myshow-1.0.logdata

#include <exception>
#include <iostream>
#include <string>

#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"
#include "tavo_midi/how_to_play.h"
#include "tavo_midi/show_data.h"

namespace {

/// A line for each bar in which something changes.
void PrintSong(const tavo_midi::SongData& song, const CL::SongLog& edits) {
    std::cout << "song " << song.GetSongNumber() << ", " << song.GetTitle() << '\n';
    tavo_midi::UserControls controls;
    tavo_midi::HowToPlay tracker(controls);
    tracker.SetData(edits, song.GetTimeline(), song.GetTicksPerQuarter());
    for (const TL::BarsBeats& beat : song.GetTimeline().GetBarsBeats()) {
        if (beat.beat() != 1) continue;
        tracker.Advance(beat.abs_time());
        std::string news;
        if (tracker.UpdateMarker()) news += "  " + tracker.GetMarkerString();
        if (tracker.UpdateMeter()) news += "  " + tracker.GetMeterString();
        if (tracker.UpdateKey()) news += "  " + tracker.GetKeyString();
        if (tracker.UpdateTempo()) news += "  tempo " + tracker.GetTempoString();
        if (!news.empty()) std::cout << "  bar " << beat.bar_number() << ':' << news << '\n';
    }
}

void PrintShow(const std::string& showDataPath, const std::string& changeLogPath) {
    const tavo_midi::ShowData show(showDataPath);
    CreateChangeLog(changeLogPath);
    const ActiveChangeLogShared log;
    // No number sorts before every number; songs that are set to skip are passed over.
    std::string number;
    try {
        for (;;) {
            number = tavo_ext::get_song_after(*log, number);
            PrintSong(show.GetSongData(number), log->GetSongLog(number));
        }
    } catch (const tavo_ext::EndOfShow&) {
        std::cout << "end of the show\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: minimal_host SHOWDATA LOGDATA\n";
        return 2;
    }
    try {
        PrintShow(argv[1], argv[2]);
    } catch (const std::exception& problem) {
        std::cerr << "minimal_host: " << problem.what() << '\n';
        return 1;
    }
    return 0;
}
