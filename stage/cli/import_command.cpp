#include <fmt/format.h>

#include <charconv>
#include <iostream>
#include <memory>

#include "kit/words.h"
#include "stage/cli/commands.h"
#include "stage/cli/progress.h"
#include "stage/cli/song_summary.h"
#include "stage/cli/text_table.h"
#include "stage/import/show_import.h"
#include "stage/words/usage_problem.h"

namespace {

constexpr std::size_t MostNotes = 20;

struct ImportWords {
    stage::ImportRequest request;
    std::vector<std::string> pickups;
    std::vector<std::string> tempos;
    std::string breaths = "lift";
};

/// "5=0.5": song 5 begins with half a beat.
void ReadPickup(const std::string& text, std::map<std::string, double>& pickups) {
    const std::size_t sign = text.rfind('=');
    double beats = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = sign == std::string::npos ? std::from_chars_result{end, std::errc::invalid_argument}
                                                         : std::from_chars(text.data() + sign + 1, end, beats);
    if (error != std::errc() || stop != end || sign == 0 || !(beats > 0))
        throw stage::UsageError(fmt::format("--pickup is written like 5=0.5, not {}", kit::Quote(text)));
    if (!pickups.emplace(text.substr(0, sign), beats).second)
        throw stage::UsageError(fmt::format("--pickup gives song {} twice", text.substr(0, sign)));
}

/// "3=72": song 3 begins with 72 quarter notes a minute. "3:12=96": from its bar 12 on they are 96.
void ReadTempo(const std::string& text, std::map<std::string, std::vector<stage::TempoSetting>>& tempos) {
    constexpr double Slowest = 10;
    constexpr double Fastest = 500;
    const std::size_t sign = text.rfind('=');
    const std::string place = text.substr(0, sign);
    const std::size_t colon = place.find(':');
    const std::string song = place.substr(0, colon);
    const bool namesBar = colon != std::string::npos;
    stage::TempoSetting tempo{namesBar ? place.substr(colon + 1) : "", 0};
    if (sign == std::string::npos || song.empty() || (namesBar && tempo.bar.empty()))
        throw stage::UsageError(fmt::format("--tempo is written like 3=72 or 3:12=96, not {}", kit::Quote(text)));
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + sign + 1, end, tempo.quartersPerMinute);
    if (error != std::errc() || stop != end ||
        !(tempo.quartersPerMinute >= Slowest && tempo.quartersPerMinute <= Fastest))
        throw stage::UsageError(
            fmt::format("the tempo of --tempo is a number of quarter notes a minute from {} to {}, "
                        "not {}",
                        Slowest, Fastest, kit::Quote(text.substr(sign + 1))));
    std::vector<stage::TempoSetting>& ofSong = tempos[song];
    for (const stage::TempoSetting& other : ofSong)
        if (other.bar == tempo.bar) throw stage::UsageError(fmt::format("--tempo gives {} twice", place));
    ofSong.push_back(std::move(tempo));
}

void PrintNotes(const std::vector<std::string>& notes, std::size_t most) {
    for (std::size_t i = 0; i < notes.size() && i < most; ++i)
        std::cerr << "note: " << MakePrintable(notes[i]) << '\n';
    if (notes.size() > most) std::cerr << fmt::format("note: and {} more\n", notes.size() - most);
}

void Import(ImportWords& words) {
    for (const std::string& pickup : words.pickups)
        ReadPickup(pickup, words.request.pickupBeats);
    for (const std::string& tempo : words.tempos)
        ReadTempo(tempo, words.request.tempos);
    if (words.breaths == "stop") words.request.breaths = stage::Breaths::Stop;
    if (words.breaths == "ignore") words.request.breaths = stage::Breaths::Ignore;
    const stage::ImportResult result = [&] {
        Progress progress;
        words.request.reportProgress = [&](std::size_t done, std::size_t total, const std::string& next) {
            progress.Report(done, total, next);
        };
        return stage::ImportShow(words.request);
    }();
    PrintNotes(result.unplayedBars, result.unplayedBars.size());
    PrintNotes(result.guessedTempos, result.guessedTempos.size());
    // What no edit can say is a list to be worked through.
    PrintNotes(result.notes, words.request.asWritten ? result.notes.size() : MostNotes);
    std::cout << fmt::format("{} is now the show \"{}\", version 1.0\n\n", words.request.showPath,
                             MakePrintable(result.title))
              << MakeSongTable({result.songs.begin(), result.songs.end()});
}

}  // namespace

void AddImportCommand(CLI::App& app, int&) {
    auto words = std::make_shared<ImportWords>();
    CLI::App* import = app.add_subcommand("import", "Makes a show from scores and MIDI files");
    import
        ->add_option("PATHS", words->request.paths,
                     "Standard MIDI Files (.mid, .midi) and MusicXML scores (.musicxml, .xml, .mxl), or folders that "
                     "hold them")
        ->required();
    import->add_option("-o,--output", words->request.showPath, "The show directory to be made")
        ->required()
        ->type_name("SHOW");
    import->add_option("--title", words->request.title, "Title of the show; the name of its directory without")
        ->type_name("TEXT");
    import->add_flag("--written", words->request.asWritten,
                     "Keep scores as they are written: every bar once, with edits for repeats, holds and stops");
    import
        ->add_option("--breaths", words->breaths,
                     "What becomes of a score's breath marks: the note before ends a little early, the show stops "
                     "there (with --written), or nothing")
        ->check(CLI::IsMember({"stop", "lift", "ignore"}).description(""))
        ->capture_default_str()
        ->type_name("stop|lift|ignore");
    import
        ->add_option("--pickup", words->pickups,
                     "A song begins with this many beats before its first bar line; may be given again. Needed only "
                     "where the file does not say so by a short first bar")
        ->type_name("SONG=BEATS")
        ->allow_extra_args(false);
    import
        ->add_option("--tempo", words->tempos,
                     "A song begins with this many quarter notes a minute, or has them from a bar on, up to its next "
                     "tempo; may be given again")
        ->type_name("SONG[:BAR]=BPM")
        ->allow_extra_args(false);
    import->footer(
        "\nEvery file is a song. Its number is what the name begins with: 01_Overture.mid is song 1, 12a_Reprise.mid\n"
        "song 12a; files without a number come after the others. Its title is the one that stands in the file, or its\n"
        "name. A MIDI file of format 2 gives a song for each of its sequences.\n"
        "\nA score's repeats, endings and jumps are played out: the show has the bars in the order in which they\n"
        "sound, \"12\" and, the second time, \"12 (2)\", with tempos, pages and markers, and no other edits. With\n"
        "--written every bar stays where it is printed: a repeat becomes a repeat edit, or a vamp where \"vamp\" "
        "stands\n"
        "over it, a fermata a fermata, a caesura a caesura, \"attacca\" at the end the attacca. "
        "Endings\n"
        "and jumps cannot be edits; the import names each of them.\n"
        "\nA MIDI file and a score with the same number, or without numbers the same name, are one song: notes, "
        "tempos,\n"
        "meters and keys are the MIDI file's, everything else is the score's. Their bars must agree.\n"
        "\nA score that begins without a tempo in numbers gets one from its words, \"Andante\", or 120 quarter notes "
        "a\n"
        "minute; the import says which, and the table marks it with ~.\n"
        "\nExamples:\n"
        "  stage import songs/ -o myshow --title \"My Show\"\n"
        "  stage import 01_Overture.mxl 02_Arrival.musicxml -o myshow --written\n"
        "  stage import 01_Overture.mid 02_Arrival.mid -o myshow --pickup 2=1\n"
        "  stage import songs/ -o myshow --tempo 3=72 --tempo 3:24=96");
    import->callback([words] { Import(*words);
});
}
