#include "stage/control/script.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <stdexcept>
#include <string_view>

#include "kit/words.h"
#include "stage/control/take.h"

namespace stage {

namespace {

constexpr double LongestWaitSeconds = 24.0 * 3600;
constexpr unsigned int HighestPass = 10000;
constexpr double HighestFrame = 1e12;  // months

class LineReader {
public:
    LineReader(const tavo_midi::ShowData& showData, std::string song) : showData_(showData), song_(std::move(song)) {}

    ScriptLine Read(std::span<const std::string_view> words) {
        ScriptLine line;
        line.text = fmt::format("{}", fmt::join(words, " "));
        if (words.front() == "song") {
            words = words.subspan(1);
            song_ = Take(words, "the song's number");
            static_cast<void>(showData_.GetSongData(song_));
        }
        line.song = song_;
        ReadMoment(words, line);
        line.command = ParseCommand(words, showData_, song_);
        return line;
    }

private:
    static std::string_view Take(std::span<const std::string_view>& words, const char* wanted) {
        if (words.empty()) throw std::invalid_argument(fmt::format("{} is missing", wanted));
        const std::string_view word = words.front();
        words = words.subspan(1);
        return word;
    }

    void ReadMoment(std::span<const std::string_view>& words, ScriptLine& line) {
        const std::string_view word = Take(words, "\"at\" or a waiting time such as +2.5s");
        if (word == "at" && !words.empty() && words.front() == "frame") {
            words = words.subspan(1);
            line.frame = static_cast<std::int64_t>(
                std::llround(ReadNumber(Take(words, "the frame"), 0, HighestFrame, "the frame")));
        } else if (word == "at") {
            std::string place = TakePlace(words);
            if (const std::size_t at = place.rfind('@'); at != std::string::npos) {
                line.pass = static_cast<unsigned int>(
                    std::lround(ReadNumber(std::string_view(place).substr(at + 1), 1, HighestPass, "the pass")));
                place.resize(at);
            }
            line.tick = FindTick(showData_, song_, place);
        } else if (word.starts_with('+') && word.ends_with('s')) {
            line.seconds = ReadNumber(word.substr(1, word.size() - 2), 0, LongestWaitSeconds, "the waiting time");
        } else {
            throw std::invalid_argument(fmt::format(
                "a line begins with \"at PLACE\" or a waiting time such as +2.5s, not with {}", kit::Quote(word)));
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
        const std::vector<std::string_view> words = SplitWords(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (words.empty() || (number == 1 && IsTake(text))) continue;
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
