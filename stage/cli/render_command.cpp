#include <fmt/format.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "kit/file.h"
#include "stage/cli/commands.h"
#include "stage/cli/song_range.h"
#include "stage/cli/text_table.h"
#include "stage/control/take.h"
#include "stage/offline/audio_file.h"
#include "stage/offline/offline_show.h"
#include "stage/show/show_directory.h"

namespace {

constexpr std::uint32_t FramesPerSecond = 48000;
constexpr std::uintmax_t MaxScriptBytes = 512U << 20U;
constexpr const char* NoFile = "none";

struct RenderWords {
    std::string showPath;
    std::string songs;
    std::string scriptPath;
    std::string outPath = NoFile;
    std::string tracePath;
    std::string soundFontPath;
    bool traceBeats = false;
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

std::string DescribeLevel(float peak) {
    if (peak <= 0) return "silent";
    const std::string level = fmt::format("peak {:.1f} dBFS", 20 * std::log10(peak));
    return peak > 1 ? level + ", clipped" : level;
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
                       DescribeLevel(result.peak));
    if (words.outPath != NoFile) out << ", to " << words.outPath;
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

stage::OfflineOptions MakeOptions(const RenderWords& words, const Script& script, const tavo_midi::ShowData& show) {
    stage::OfflineOptions options;
    options.take = script.take;
    if (!script.take) std::tie(options.firstSong, options.lastSong) = ParseSongRange(words.songs, show);
    options.tracesBeats = words.traceBeats;
    if (!words.scriptPath.empty()) {
        const std::string first = script.take ? show.GetSongNumbers().front() : options.firstSong;
        options.script = stage::ParseShowScript(script.text, words.scriptPath, show, first);
    } else {
        std::cerr << "No script: an automatic operator leaves a vamp in its second pass, and holds and caesuras after "
                     "two seconds.\n";
    }
    return options;
}

void Render(const RenderWords& words) {
    if (words.outPath != NoFile && !stage::AudioFile::HasKnownExtension(words.outPath))
        throw std::invalid_argument(
            fmt::format("the sound file \"{}\" must be named .wav or .flac, or be \"none\"", words.outPath));
    // Says in its own words what is missing in a directory that is not a show.
    static_cast<void>(stage::ScanShowDirectory(words.showPath));
    const Script script = ReadScript(words);
    if (words.songs.empty() && !script.take) throw CLI::RequiredError("--song");
    const std::uint32_t framesPerSecond = script.take ? script.take->framesPerSecond : FramesPerSecond;
    stage::ShowSession::Options sessionOptions =
        script.take ? stage::MakeTakeSessionOptions(*script.take) : stage::MakeOfflineSessionOptions(framesPerSecond);
    sessionOptions.soundFont = words.soundFontPath;
    // A render hears no MIDI input: whatever is learned on this machine stays out of it.
    stage::ShowSession session(words.showPath, words.showPath, sessionOptions);
    for (const std::string& warning : session.GetWarnings())
        std::cerr << "note: " << MakePrintable(warning) << '\n';
    const stage::OfflineOptions options = MakeOptions(words, script, session.GetShow());

    std::unique_ptr<stage::AudioFile> sound;
    if (words.outPath != NoFile) sound = std::make_unique<stage::AudioFile>(words.outPath, framesPerSecond);
    std::unique_ptr<TraceFile> trace;
    if (!words.tracePath.empty()) trace = std::make_unique<TraceFile>(words.tracePath);

    stage::OfflineShow::SoundSink soundSink;
    if (sound)
        soundSink = [&](const float* left, const float* right, std::uint32_t n) { sound->Write(left, right, n); };
    stage::Trace::Sink traceSink;
    if (trace) traceSink = [&](const std::string& line) { trace->Write(line); };
    stage::OfflineShow offline(session, options, soundSink, traceSink);
    const stage::OfflineResult result = offline.Run();
    if (sound) sound->Finish();
    if (trace) trace->Finish();
    PrintSummary(result, words, framesPerSecond);
}

}  // namespace

void AddRenderCommand(CLI::App& app, int& /*exitCode*/) {
    auto words = std::make_shared<RenderWords>();
    CLI::App* command = app.add_subcommand("render", "Play songs with their edits into a sound file");
    command->add_option("show", words->showPath, "The show's directory")->required();
    command->add_option("--song", words->songs,
                        "Which songs: 3, or 3..7; attaccas are followed anyway. A take says it itself");
    command->add_option("--script", words->scriptPath,
                        "What the operator does, or a take; without it an automatic one plays");
    command->add_option("--out", words->outPath, "A .wav or .flac file, 24 bit, 48 kHz, or none")->default_str(NoFile);
    command->add_option("--trace", words->tracePath, "Write what happens as lines of text to this file; - prints it");
    command->add_flag("--trace-beats", words->traceBeats, "Trace every beat, not only bars");
    command->add_option("--soundfont", words->soundFontPath, "The SoundFont to play with");
    command->footer(
        "A script has one press a line: when, and what.\n"
        "  at 17:3 exit          when playback arrives at bar 17, beat 3\n"
        "  at 5@2 seek 12        when it arrives at bar 5 for the second time\n"
        "  +2.5s continue        two and a half seconds after the line before\n"
        "  at frame 96000 exit   two seconds into a render at 48 kHz\n"
        "  song 4 at 1 tempo 90% from here on places are those of song 4\n"
        "What an operator can do:\n" +
        stage::MakeVerbHelp() +
        "docs/trace.md lists the events of a trace.\n\n"
        "Examples:\n"
        "  stage render myshow --song 3 --out song3.wav\n"
        "  stage render myshow --song 3..5 --script evening.txt --out none --trace -");
    command->callback([words] { Render(*words); });
}
