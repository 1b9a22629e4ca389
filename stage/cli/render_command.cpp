#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <tuple>

#include "kit/file.h"
#include "kit/words.h"
#include "stage/cli/commands.h"
#include "stage/cli/progress.h"
#include "stage/cli/song_range.h"
#include "stage/cli/text_table.h"
#include "stage/control/take.h"
#include "stage/engine/show_parts.h"
#include "stage/offline/audio_file.h"
#include "stage/offline/offline_show.h"
#include "stage/offline/story.h"
#include "stage/show/cue_check.h"
#include "stage/show/show_directory.h"
#include "stage/words/usage_problem.h"
#include "tavo_core/active_change_log.h"

namespace {

constexpr std::uint32_t FramesPerSecond = 48000;
constexpr std::uintmax_t MaxScriptBytes = 512U << 20U;
constexpr const char* NoFile = "none";
/// After the main output and the click's.
constexpr std::ptrdiff_t FirstGroupOutput = 2;
constexpr const char* ExactTrace = "exact";
constexpr const char* StoryTrace = "story";

struct RenderWords {
    std::string showPath;
    std::string songs;
    std::string from;
    std::string to;
    std::string scriptPath;
    std::string outPath = NoFile;
    std::string clickPath;
    std::vector<std::string> groupFiles;  // NAME=FILE
    std::string tracePath;
    bool mixesClick = false;
    bool clicksEverywhere = false;
    std::string soundFontPath;
    std::string traceStyle = ExactTrace;
    bool traceBeats = false;
    int mostPasses = stage::OfflineOptions::DefaultMostPasses;
    double mostOvertimeMinutes = stage::OfflineOptions::DefaultMostOvertimeSeconds / 60;
};

/// Writes the lines of a trace as they come.
class TraceFile {
public:
    explicit TraceFile(const std::string& path) : path_(path) {
        if (path == StandardOutput) return;
        file_.open(path, std::ios::binary | std::ios::trunc);
        if (!file_) throw std::runtime_error(fmt::format("the trace file \"{}\" cannot be created", path));
    }
    void Write(const std::string& line) { Stream() << line; }
    void Finish() {
        if (!Stream().flush()) throw std::runtime_error(fmt::format("the trace \"{}\" cannot be written", path_));
    }

private:
    std::ostream& Stream() { return path_ == StandardOutput ? std::cout : file_; }

    const std::string path_;
    std::ofstream file_;
};

std::string DescribeLevel(const stage::OfflineResult& result) {
    if (result.peak <= 0) return "silent";
    const std::string level = fmt::format("peak {:.1f} dBFS", 20 * std::log10(result.peak));
    return result.limitedFrames > 0 ? level + ", limited to full scale" : level;
}

void PrintSummary(const stage::OfflineResult& result, const RenderWords& words, std::uint32_t framesPerSecond) {
    // A trace on the standard output stays a trace.
    std::ostream& out = words.tracePath == StandardOutput ? std::cerr : std::cout;
    for (const std::string& remark : result.remarks)
        std::cerr << "stage: " << remark << '\n';
    const double seconds = static_cast<double>(result.frames) / framesPerSecond;
    const auto minutes = static_cast<int>(seconds / 60);
    out << fmt::format("rendered {}:{:06.3f}, {} {}, {}", minutes, seconds - 60 * minutes,
                       result.songs.size() == 1 ? "song" : "songs", fmt::join(result.songs, " "),
                       DescribeLevel(result));
    if (words.outPath != NoFile) out << ", to " << words.outPath;
    if (!words.clickPath.empty()) out << ", the click to " << words.clickPath;
    out << '\n';
}

/// The script as it is read, and of a take how it was made.
struct Script {
    std::string text;
    std::optional<stage::TakeSettings> take;
};

Script ReadScript(const RenderWords& words) {
    Script script;
    if (words.scriptPath.empty()) return script;
    script.text = kit::ReadFile(words.scriptPath, MaxScriptBytes);
    if (!stage::IsTake(script.text)) return script;
    try {
        script.take = stage::ReadTakeSettings(std::string_view(script.text).substr(0, script.text.find('\n')));
    } catch (const std::invalid_argument& problem) {
        throw std::runtime_error(fmt::format("the script \"{}\", line 1: {}", words.scriptPath, problem.what()));
    }
    return script;
}

/// The tick of a place that `option` names.
std::uint32_t FindPlace(const tavo_midi::ShowData& show, const std::string& song, const std::string& place,
                        const char* option) {
    try {
        return stage::FindTick(show, song, place);
    } catch (const std::exception& problem) {
        throw std::invalid_argument(fmt::format("{}: {}", option, problem.what()));
    }
}

stage::OfflineOptions MakeOptions(const RenderWords& words, const Script& script, const tavo_midi::ShowData& show) {
    stage::OfflineOptions options;
    options.take = script.take;
    if (!script.take) std::tie(options.firstSong, options.lastSong) = ParseSongRange(words.songs, show);
    if (!words.from.empty()) options.fromTick = FindPlace(show, options.firstSong, words.from, "--from");
    if (!words.to.empty()) options.toTick = FindPlace(show, options.lastSong, words.to, "--to");
    if (options.fromTick && options.toTick && options.firstSong == options.lastSong &&
        *options.fromTick >= *options.toTick)
        throw std::invalid_argument(
            fmt::format("--to {} does not come after --from {}", kit::Quote(words.to), kit::Quote(words.from)));
    options.tracesBeats = words.traceBeats;
    options.mixesClick = words.mixesClick;
    options.clicksEverywhere = words.clicksEverywhere;
    options.mostPasses = words.mostPasses;
    options.mostOvertimeSeconds = words.mostOvertimeMinutes * 60;
    if (!words.scriptPath.empty()) {
        const std::string first = script.take ? show.GetSongNumbers().front() : options.firstSong;
        options.script = stage::ParseShowScript(script.text, words.scriptPath, show, first);
    } else {
        std::cerr << "No script: an automatic operator leaves a vamp in its second pass, and holds and caesuras after "
                     "two seconds.\n";
    }
    return options;
}

/// Once each.
void NoteOnce(const std::string& note, std::set<std::string>& noted) {
    if (noted.insert(note).second) std::cerr << "note: " << MakePrintable(note) << '\n';
}

/// Cues of the songs that are rendered which nobody would notice.
void TellOfUnheardCues(stage::ShowSession& session, const RenderWords& words, std::set<std::string>& noted) {
    const tavo_midi::ShowData& show = session.GetShow();
    const std::shared_ptr<const CL::ChangeLog> log = ActiveChangeLogShared().Share();
    const auto [first, last] = words.songs.empty()
                                   ? std::pair(show.GetSongNumbers().front(), show.GetSongNumbers().back())
                                   : ParseSongRange(words.songs, show);
    bool isInRange = false;
    for (const tavo_midi::SongData& song : show.GetSongs()) {
        const std::string& number = song.GetSongNumber();
        isInRange = isInRange || number == first;
        const auto songLog = log->GetSongLogs().find(number);
        if (isInRange && songLog != log->GetSongLogs().end()) {
            for (const std::string& problem :
                 stage::FindCueProblems(songLog->second, TL::BarPositions(song.GetTimeline()),
                                        session.GetShowDirectory(), session.GetSettings()))
                NoteOnce(fmt::format("song {}: {}", number, problem), noted);
        }
        if (number == last) break;
    }
}

/// What sounds on another instrument than was written.
void TellOfMissingPrograms(stage::ShowSession& session, const std::vector<std::string>& songs) {
    for (const std::string& number : songs)
        for (const std::string& missing : stage::DescribeMissingPrograms(
                 session.GetShow().GetSongData(number), session.GetInstrumentFonts(), session.GetGroupPlan()))
            std::cerr << "note: " << MakePrintable(missing) << '\n';
}

void RequireFileNames(const RenderWords& words) {
    if (words.outPath != NoFile && !stage::AudioFile::HasKnownExtension(words.outPath))
        throw std::invalid_argument(
            fmt::format("the sound file \"{}\" must be named .wav or .flac, or be \"none\"", words.outPath));
    if (!words.clickPath.empty() && !stage::AudioFile::HasKnownExtension(words.clickPath))
        throw std::invalid_argument(
            fmt::format("the click's sound file \"{}\" must be named .wav or .flac", words.clickPath));
    if (!words.clickPath.empty() && words.clickPath == words.outPath)
        throw std::invalid_argument("the click needs a file of its own: --click mixes it into the sound");
}

/// The files of output groups, by the order of those with a pair of their own.
std::map<std::size_t, std::unique_ptr<stage::AudioFile>> OpenGroupFiles(const RenderWords& words,
                                                                        const stage::GroupPlan& plan,
                                                                        std::uint32_t framesPerSecond) {
    std::map<std::size_t, std::unique_ptr<stage::AudioFile>> files;
    const std::vector<std::string> outputs = stage::ListSoundOutputs(plan);
    for (const std::string& text : words.groupFiles) {
        const std::size_t split = text.find('=');
        if (split == std::string::npos || !stage::AudioFile::HasKnownExtension(text.substr(split + 1)))
            throw std::invalid_argument(
                fmt::format("--group-out takes NAME=FILE, a file named .wav or .flac, not \"{}\"", text));
        const std::string name = text.substr(0, split);
        const auto found = std::find(outputs.begin() + FirstGroupOutput, outputs.end(), name);
        if (found == outputs.end())
            throw std::invalid_argument(
                fmt::format("the settings have no output group \"{}\" with a pair of its own", name));
        files[static_cast<std::size_t>(found - outputs.begin() - FirstGroupOutput)] =
            std::make_unique<stage::AudioFile>(text.substr(split + 1), framesPerSecond);
    }
    return files;
}

/// A click that is never heard is no surprise to be found out by listening.
void NoteMissingClick(const RenderWords& words, const stage::OfflineResult& result) {
    if (words.clicksEverywhere || (!words.mixesClick && words.clickPath.empty())) return;
    const ActiveChangeLogShared log;
    const bool isEdited = std::any_of(result.songs.begin(), result.songs.end(), [&log](const std::string& song) {
        return !log->GetSongLog(song).GetClicks().empty();
    });
    if (!isEdited)
        std::cerr << "note: no click is edited in what was rendered, so none sounds: add one with stage edit, or use "
                     "--click-everywhere\n";
}

void Render(const RenderWords& words) {
    RequireFileNames(words);
    // Says in its own words what is missing in a directory that is not a show.
    static_cast<void>(stage::ScanShowDirectory(words.showPath));
    const Script script = ReadScript(words);
    if (words.songs.empty() && !script.take) throw stage::UsageError("--song N is missing");
    if (script.take && !(words.from.empty() && words.to.empty()))
        throw stage::UsageError("a take says itself where it begins and ends: leave --from and --to out");
    if (words.tracePath.empty() && words.traceStyle != ExactTrace)
        throw stage::UsageError("--trace-style says how a trace is written, and --trace FILE is missing");
    const std::uint32_t framesPerSecond = script.take ? script.take->framesPerSecond : FramesPerSecond;
    stage::ShowSession::Options sessionOptions =
        script.take ? stage::MakeTakeSessionOptions(*script.take) : stage::MakeOfflineSessionOptions(framesPerSecond);
    sessionOptions.soundFont = words.soundFontPath;
    // The edits of a script sound and are forgotten with the render.
    if (!words.scriptPath.empty()) sessionOptions.editing = stage::ShowSession::Options::Editing::InMemory;
    // A render hears no MIDI input: whatever is learned on this machine stays out of it.
    stage::ShowSession session(words.showPath, words.showPath, sessionOptions);
    for (const std::string& warning : session.GetWarnings())
        std::cerr << "note: " << MakePrintable(warning) << '\n';
    std::set<std::string> noted;
    TellOfUnheardCues(session, words, noted);
    stage::OfflineOptions options = MakeOptions(words, script, session.GetShow());

    std::unique_ptr<stage::AudioFile> sound;
    if (words.outPath != NoFile) sound = std::make_unique<stage::AudioFile>(words.outPath, framesPerSecond);
    std::unique_ptr<stage::AudioFile> click;
    if (!words.clickPath.empty()) click = std::make_unique<stage::AudioFile>(words.clickPath, framesPerSecond);
    if (click)
        options.clickSink = [&](const float* left, const float* right, std::uint32_t n) {
            click->Write(left, right, n);
        };
    const auto groups = OpenGroupFiles(words, session.GetGroupPlan(), framesPerSecond);
    if (!groups.empty())
        options.groupSink = [&](std::size_t output, const float* left, const float* right, std::uint32_t n) {
            if (const auto file = groups.find(output); file != groups.end()) file->second->Write(left, right, n);
        };
    std::unique_ptr<TraceFile> trace;
    if (!words.tracePath.empty()) trace = std::make_unique<TraceFile>(words.tracePath);

    stage::OfflineShow::SoundSink soundSink;
    Progress progress;
    std::uint64_t frames = 0;
    soundSink = [&](const float* left, const float* right, std::uint32_t n) {
        if (sound) sound->Write(left, right, n);
        frames += n;
        const std::uint64_t seconds = frames / framesPerSecond;
        progress.Tell([&] { return fmt::format("rendered {}:{:02}", seconds / 60, seconds % 60); });
    };
    stage::Trace::Sink traceSink;
    if (trace) traceSink = [&](const std::string& line) { trace->Write(line); };
    std::optional<stage::Story> story;
    if (trace && words.traceStyle == StoryTrace) {
        story.emplace(traceSink, framesPerSecond);
        traceSink = [&](const std::string& line) { story->Hear(line); };
    }
    stage::OfflineShow offline(session, options, soundSink, traceSink);
    const stage::OfflineResult result = offline.Run();
    if (sound) sound->Finish();
    if (click) click->Finish();
    for (const auto& [output, file] : groups)
        file->Finish();
    if (trace) trace->Finish();
    progress.Clear();
    for (const std::string& problem : result.soundProblems)
        NoteOnce(problem, noted);
    PrintSummary(result, words, framesPerSecond);
    NoteMissingClick(words, result);
    TellOfMissingPrograms(session, result.songs);
}

}  // namespace

void AddRenderCommand(CLI::App& app, int& /*exitCode*/) {
    auto words = std::make_shared<RenderWords>();
    CLI::App* command = app.add_subcommand("render", "Plays songs with their edits into a sound file");
    command->add_option("SHOW", words->showPath, "The show directory")->required();
    command
        ->add_option("--song", words->songs,
                     "Which songs: 3, or 3..7; attaccas are followed anyway. A take says it itself")
        ->type_name("N");
    command->add_option("--from", words->from, "Begin at this place of the first song; it is chased as after a seek")
        ->type_name("PLACE");
    command
        ->add_option("--to", words->to,
                     "End when playback first arrives at this place of the last song; what sounds rings out")
        ->type_name("PLACE");
    command
        ->add_option("--script", words->scriptPath,
                     "What the operator does, or a take; without it an automatic one plays")
        ->type_name("FILE");
    command->add_option("--out", words->outPath, "A .wav or .flac file, 24 bit, 48 kHz, or none")
        ->type_name("FILE")
        ->default_str(NoFile);
    command->add_flag("--click", words->mixesClick, "Mix the click into the sound");
    command->add_option("--click-out", words->clickPath, "Write the click to a .wav or .flac file of its own")
        ->type_name("FILE");
    command->add_flag("--click-everywhere", words->clicksEverywhere,
                      "The click sounds on every beat, not only where one is edited");
    command
        ->add_option("--group-out", words->groupFiles,
                     "Write an output group with a pair of its own to a .wav or .flac file; may be given for several")
        ->type_name("NAME=FILE")
        ->allow_extra_args(false);
    command->add_option("--trace", words->tracePath, "Write what happens as lines of text to this file; - prints it")
        ->type_name("FILE");
    command
        ->add_option("--trace-style", words->traceStyle,
                     "exact: every event with frame and tick; story: minute, bar and what happened in words")
        ->type_name("STYLE")
        ->check(CLI::IsMember({ExactTrace, StoryTrace}).description(""))
        ->default_str(ExactTrace);
    command->add_flag("--trace-beats", words->traceBeats, "Trace every beat, not only bars");
    command->add_option("--soundfont", words->soundFontPath, "The SoundFont to play with")->type_name("FILE");
    command
        ->add_option("--max-passes", words->mostPasses,
                     "A vamp that nobody leaves any more ends the render after so many passes, up to 1000000")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000).description(""))
        ->capture_default_str();
    command
        ->add_option("--max-overtime", words->mostOvertimeMinutes,
                     "So do this many minutes of a song beyond its written length")
        ->type_name("MINUTES")
        ->check(CLI::Range(0.0, 100'000.0).description(""))
        ->capture_default_str();
    command->footer(
        "A script has one press a line: when, and what.\n"
        "  at 17:3 exit          when playback arrives at bar 17, beat 3\n"
        "  at 5@2 seek 12        when it arrives at bar 5 for the second time\n"
        "  +2.5s continue        two and a half seconds after the line before\n"
        "  at frame 96000 exit   two seconds into a render at 48 kHz\n"
        "  song 4 at 1 go        from here on places are those of song 4\n"
        "What an operator can do:\n" +
        stage::MakeVerbHelp() +
        "docs/trace.md lists the events of a trace.\n\n"
        "Examples:\n"
        "  stage render myshow --song 3 --out song3.wav\n"
        "  stage render myshow --song 3..5 --script evening.txt --out none --trace -\n"
        "  stage render myshow --song 3 --out house.wav --click-out click.wav\n"
        "  stage render myshow --song 3 --from 17 --to 33 --out bridge.wav\n"
        "  stage render myshow --song 3 --trace - --trace-style story");
    command->callback([words] { Render(*words); });
}
