#include "stage/control/script.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include "tavo_core/bar_positions.h"
#include "tavo_midi/user_controls.h"

namespace stage {

namespace {

enum class Argument : std::uint8_t { None, Place, Song, Tempo, Semitones, Volume, Seconds, OnOff };

struct VerbWord {
    std::string_view word;
    Verb verb;
    Argument argument;
};

constexpr VerbWord VerbWords[] = {
    {"play", Verb::Play, Argument::None},
    {"stop", Verb::Stop, Argument::None},
    {"pause", Verb::Pause, Argument::None},
    {"continue", Verb::Continue, Argument::None},
    {"exit", Verb::Exit, Argument::None},
    {"seek", Verb::Seek, Argument::Place},
    {"next", Verb::Next, Argument::None},
    {"previous", Verb::Previous, Argument::None},
    {"next-marker", Verb::NextMarker, Argument::None},
    {"previous-marker", Verb::PreviousMarker, Argument::None},
    {"next-measure", Verb::NextMeasure, Argument::None},
    {"previous-measure", Verb::PreviousMeasure, Argument::None},
    {"load", Verb::Load, Argument::Song},
    {"tempo", Verb::Tempo, Argument::Tempo},
    {"transpose", Verb::Transpose, Argument::Semitones},
    {"volume", Verb::Volume, Argument::Volume},
    {"fade", Verb::Fade, Argument::Seconds},
    {"cancel-fade", Verb::CancelFade, Argument::None},
    {"attacca", Verb::Attacca, Argument::OnOff},
    {"quit", Verb::Quit, Argument::None},
};

constexpr double LongestWaitSeconds = 24.0 * 3600;
constexpr unsigned int HighestPass = 10000;

/// The words of one line, taken from the front.
class Words {
public:
    explicit Words(std::string_view line) {
        while (!line.empty()) {
            const std::size_t begin = line.find_first_not_of(" \t\r");
            if (begin == std::string_view::npos) break;
            line.remove_prefix(begin);
            const std::size_t end = std::min(line.find_first_of(" \t\r"), line.size());
            if (line.front() == '#') break;
            words_.push_back(line.substr(0, end));
            line.remove_prefix(end);
        }
    }

    [[nodiscard]] bool IsEmpty() const { return next_ == words_.size(); }
    [[nodiscard]] std::string_view Peek() const { return IsEmpty() ? std::string_view() : words_[next_]; }
    std::string Take(const char* wanted) {
        if (IsEmpty()) throw std::invalid_argument(fmt::format("{} is missing", wanted));
        return std::string(words_[next_++]);
    }
    [[nodiscard]] std::string Text() const { return fmt::format("{}", fmt::join(words_, " ")); }

private:
    std::vector<std::string_view> words_;
    std::size_t next_ = 0;
};

double ReadNumber(std::string_view text, double lowest, double highest, const char* what) {
    if (text.starts_with('+')) text.remove_prefix(1);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !(number >= lowest && number <= highest))
        throw std::invalid_argument(fmt::format("{} must be a number from {} to {}", what, lowest, highest));
    return number;
}

double ReadPercent(std::string_view text, double lowest, double highest, const char* what) {
    if (!text.ends_with('%')) throw std::invalid_argument(fmt::format("{} must be a percentage such as 90%", what));
    text.remove_suffix(1);
    return ReadNumber(text, lowest * 100, highest * 100, what) / 100;
}

class LineReader {
public:
    LineReader(const tavo_midi::ShowData& showData, std::string song) : showData_(showData), song_(std::move(song)) {}

    ScriptLine Read(Words& words) {
        ScriptLine line;
        line.text = words.Text();
        if (words.Peek() == "song") {
            words.Take("");
            song_ = words.Take("the song's number");
            CheckSong(song_);
        }
        line.song = song_;
        ReadMoment(words, line);
        ReadAction(words, line);
        if (!words.IsEmpty()) throw std::invalid_argument(fmt::format("\"{}\" is one word too many", words.Peek()));
        return line;
    }

private:
    void ReadMoment(Words& words, ScriptLine& line) {
        const std::string word = words.Take("\"at\" or a waiting time such as +2.5s");
        if (word == "at") {
            std::string place = TakePlace(words);
            if (const std::size_t at = place.rfind('@'); at != std::string::npos) {
                line.pass = static_cast<unsigned int>(
                    std::lround(ReadNumber(std::string_view(place).substr(at + 1), 1, HighestPass, "the pass")));
                place.resize(at);
            }
            line.tick = FindTick(place);
        } else if (word.starts_with('+') && word.ends_with('s')) {
            line.seconds = ReadNumber(std::string_view(word).substr(1, word.size() - 2), 0, LongestWaitSeconds,
                                      "the waiting time");
        } else {
            throw std::invalid_argument(
                fmt::format("a line begins with \"at PLACE\" or a waiting time such as +2.5s, not with \"{}\"", word));
        }
    }

    void ReadAction(Words& words, ScriptLine& line) {
        const std::string word = words.Take("what the operator does");
        const auto* verb = std::begin(VerbWords);
        while (verb != std::end(VerbWords) && verb->word != word)
            ++verb;
        if (verb == std::end(VerbWords)) throw std::invalid_argument(fmt::format("an operator cannot \"{}\"", word));
        line.verb = verb->verb;
        switch (verb->argument) {
            case Argument::None:
                break;
            case Argument::Place:
                line.number = FindTick(TakePlace(words));
                break;
            case Argument::Song:
                line.loadSong = song_ = words.Take("the song's number");
                CheckSong(song_);
                break;
            case Argument::Tempo:
                line.number = ReadPercent(words.Take("the tempo"), UserControls::LowestTempoScale,
                                          UserControls::HighestTempoScale, "the tempo");
                break;
            case Argument::Semitones:
                line.number =
                    std::round(ReadNumber(words.Take("the number of semitones"), UserControls::LowestTransposition,
                                          UserControls::HighestTransposition, "the number of semitones"));
                break;
            case Argument::Volume:
                line.number = ReadPercent(words.Take("the volume"), 0, 1, "the volume");
                break;
            case Argument::Seconds:
                line.number = ReadNumber(words.Take("the fade's length in seconds"), 0, 600, "the fade's length");
                break;
            case Argument::OnOff: {
                const std::string state = words.Take("\"on\" or \"off\"");
                if (state != "on" && state != "off") throw std::invalid_argument("attacca is \"on\" or \"off\"");
                line.number = state == "on" ? 1 : 0;
                break;
            }
        }
    }

    static std::string TakePlace(Words& words) {
        std::string place = words.Take("the place");
        if (place == "tick") place += " " + words.Take("the tick");
        return place;
    }

    void CheckSong(const std::string& number) const { static_cast<void>(showData_.GetSongData(number)); }

    [[nodiscard]] std::uint32_t FindTick(const std::string& place) const {
        try {
            return TL::BarPositions(showData_.GetSongData(song_).GetTimeline()).FindStartTick(place);
        } catch (const std::logic_error& problem) {
            throw std::invalid_argument(fmt::format("in song {}, {}", song_, problem.what()));
        }
    }

    const tavo_midi::ShowData& showData_;
    std::string song_;  // lines without a song mean the one before
};

}  // namespace

std::vector<ScriptLine> ParseShowScript(const std::string& text, const std::string& name,
                                        const tavo_midi::ShowData& showData, const std::string& firstSong) {
    std::vector<ScriptLine> lines;
    LineReader reader(showData, firstSong);
    std::string_view rest = text;
    for (std::size_t number = 1; !rest.empty(); ++number) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        Words words(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (words.IsEmpty()) continue;
        try {
            lines.push_back(reader.Read(words));
            lines.back().lineNumber = number;
        } catch (const std::logic_error& problem) {
            throw std::runtime_error(fmt::format("the script \"{}\", line {}: {}", name, number, problem.what()));
        }
    }
    return lines;
}

}  // namespace stage
