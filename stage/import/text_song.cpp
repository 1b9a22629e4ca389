#include "stage/import/text_song.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "stage/import/text_song_bar.h"

namespace stage {

namespace {

using text_score::Bar;
using text_score::BarTicks;
using text_score::Fail;
using text_score::ReadFraction;
using text_score::ReadInteger;

constexpr int MostBars = 2000;
constexpr std::size_t MostParts = 40;
constexpr int DrumChannel = 9;
constexpr std::uint8_t VolumeController = 7;
constexpr std::uint8_t PanController = 10;

/// What the lines of the text say, before it is turned into music.
struct Part {
    std::string name;
    int line = 0;
    bool drums = false;
    int program = 1;
    int volume = 100;
    int pan = 64;
    std::vector<Bar> bars;
};

struct ScoreEvent {
    int line = 0;
    int bar = 0;
    std::string kind;
    std::string value;
};

std::pair<std::string_view, std::string_view> SplitWord(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    text.remove_prefix(first);
    const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
    std::string_view rest = text.substr(end);
    const std::size_t next = rest.find_first_not_of(" \t");
    return {text.substr(0, end), next == std::string_view::npos ? std::string_view{} : rest.substr(next)};
}

TL::Key ReadKey(unsigned int tick, const std::string& value, const std::string& place) {
    static const std::map<std::string, int> sharpsOfMajor{{"Cb", -7}, {"Gb", -6}, {"Db", -5}, {"Ab", -4}, {"Eb", -3},
                                                          {"Bb", -2}, {"F", -1},  {"C", 0},   {"G", 1},   {"D", 2},
                                                          {"A", 3},   {"E", 4},   {"B", 5},   {"F#", 6},  {"C#", 7}};
    static const std::map<std::string, int> sharpsOfMinor{{"Ab", -7}, {"Eb", -6}, {"Bb", -5}, {"F", -4}, {"C", -3},
                                                          {"G", -2},  {"D", -1},  {"A", 0},   {"E", 1},  {"B", 2},
                                                          {"F#", 3},  {"C#", 4},  {"G#", 5},  {"D#", 6}, {"A#", 7}};
    const auto [tonic, mode] = SplitWord(value);
    if (mode != "major" && mode != "minor") Fail(place, "a key is written like \"D major\" or \"F# minor\"");
    const auto& names = mode == "major" ? sharpsOfMajor : sharpsOfMinor;
    const auto found = names.find(std::string(tonic));
    if (found == names.end()) Fail(place, fmt::format("there is no key signature of {}", value));
    return {tick, found->second, mode == "minor"};
}

TL::Meter ReadMeter(unsigned int tick, std::string_view value, const std::string& place) {
    const auto [numerator, denominator] = ReadFraction(value, place);
    // A click is a beat of the meter, in MIDI clocks of 24 a quarter note.
    const int clocks = std::max(96 / denominator, 1);
    return {tick, static_cast<std::uint8_t>(numerator), static_cast<std::uint8_t>(denominator),
            static_cast<std::uint8_t>(clocks)};
}

TL::Tempo ReadTempo(unsigned int tick, const std::string& value, const std::string& place) {
    double quartersPerMinute = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), quartersPerMinute);
    const bool isNumber = error == std::errc() && end == value.data() + value.size();
    if (!isNumber || !(quartersPerMinute >= 10 && quartersPerMinute <= 500))
        Fail(place, "a tempo is a number of quarter notes a minute from 10 to 500");
    return {tick, static_cast<std::uint32_t>(std::lround(60e6 / quartersPerMinute))};
}

/// Reads the lines one by one.
class Lines {
public:
    explicit Lines(std::string name) : name_(std::move(name)) {}

    void Read(const std::string& text) {
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            ++number_;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (!SplitWord(line).first.starts_with('#')) ReadLine(line);
        }
        if (score.number.empty()) Fail(name_, "the line \"number N\" is missing");
        if (score.title.empty()) Fail(name_, "the line \"title TEXT\" is missing");
        if (parts.empty()) Fail(name_, "there is no part");
    }

    std::string PlaceOf(int line) const { return fmt::format("{}, line {}", name_, line); }

    TextSong score;
    std::vector<Part> parts;
    std::vector<ScoreEvent> events;
    std::optional<BarTicks> pickup;

private:
    void ReadLine(const std::string& line) {
        const auto [word, rest] = SplitWord(line);
        const std::string place = PlaceOf(number_);
        if (word.empty()) return;
        if (word == "number") {
            score.number = rest;
        } else if (word == "title") {
            score.title = rest;
        } else if (word == "pickup") {
            const auto [numerator, denominator] = ReadFraction(rest, place);
            pickup = BarTicks{numerator, denominator};
        } else if (word == "at") {
            const auto [bar, event] = SplitWord(rest);
            const auto [kind, value] = SplitWord(event);
            events.push_back({number_, ReadInteger(bar, 0, MostBars, place), std::string(kind), std::string(value)});
        } else if (word == "part") {
            ReadPart(rest, place);
        } else if (word.starts_with('|')) {
            if (parts.empty()) Fail(place, "music comes after the line of its part");
            text_score::AppendBars(line, number_, place, parts.back().bars);
            if (parts.back().bars.size() > MostBars) Fail(place, fmt::format("a part has at most {} bars", MostBars));
        } else {
            Fail(place, fmt::format("the word \"{}\" is not known", word.substr(0, 40)));
        }
    }

    void ReadPart(std::string_view text, const std::string& place) {
        if (parts.size() == MostParts) Fail(place, fmt::format("a number has at most {} parts", MostParts));
        Part part;
        part.line = number_;
        auto [name, rest] = SplitWord(text);
        part.name = name;
        while (!rest.empty()) {
            const auto [option, afterOption] = SplitWord(rest);
            const auto [value, afterValue] = SplitWord(afterOption);
            rest = afterValue;
            if (option == "drums") {
                part.drums = true;
                rest = afterOption;
            } else if (option == "program") {
                part.program = ReadInteger(value, 1, 128, place);
            } else if (option == "volume") {
                part.volume = ReadInteger(value, 0, 127, place);
            } else if (option == "pan") {
                part.pan = ReadInteger(value, 0, 127, place);
            } else {
                Fail(place, fmt::format("a part has no \"{}\"", option.substr(0, 40)));
            }
        }
        if (part.name.empty()) Fail(place, "a part needs a name");
        parts.push_back(std::move(part));
    }

    std::string name_;
    int number_ = 0;
};

/// Turns the lines into tracks.
class Composer {
public:
    explicit Composer(Lines& lines) : lines_(lines) {}

    tavo_midi::Smf Compose() {
        smf_.format = 1;
        smf_.ticksPerQuarter = text_score::TicksPerQuarter;
        PlaceBars();
        AddConductor();
        int channel = 0;
        for (const Part& part : lines_.parts) {
            if (channel == DrumChannel) ++channel;
            AddPart(part, part.drums ? DrumChannel : channel % 16, part.drums ? 0 : channel / 16);
            if (!part.drums) ++channel;
        }
        return std::move(smf_);
    }

private:
    [[nodiscard]] int FirstBar() const { return lines_.pickup ? 0 : 1; }
    [[nodiscard]] std::size_t BarCount() const { return lines_.parts.front().bars.size(); }

    /// Finds every bar's first tick from the meters; a pick-up has a meter event of its own.
    void PlaceBars() {
        std::map<int, TL::Meter> meters;
        for (const ScoreEvent& event : lines_.events) {
            const std::string place = lines_.PlaceOf(event.line);
            const int lastBar = FirstBar() + static_cast<int>(BarCount()) - 1;
            if (event.bar < FirstBar() || event.bar > lastBar)
                Fail(place, fmt::format("there is no bar {}, the bars are {} to {}", event.bar, FirstBar(), lastBar));
            if (event.kind == "meter") meters[event.bar] = ReadMeter(0, event.value, place);
        }
        TL::Meter meter;
        unsigned int tick = 0;
        for (std::size_t i = 0; i < BarCount(); ++i) {
            const int bar = FirstBar() + static_cast<int>(i);
            if (const auto change = meters.find(bar); change != meters.end()) meter = change->second;
            BarTicks length{static_cast<int>(meter.numerator()), static_cast<int>(meter.denominator())};
            if (bar == 0) length = *lines_.pickup;
            AddMeter(tick, bar, length, meters.contains(bar) || bar == FirstBar() || bar == FirstBar() + 1, meter);
            barTicks_.push_back(tick);
            tick += length.Ticks();
        }
        barTicks_.push_back(tick);
    }

    void AddMeter(unsigned int tick, int bar, const BarTicks& length, bool mayChange, const TL::Meter& meter) {
        if (!mayChange) return;
        const TL::Meter entry(tick, static_cast<std::uint8_t>(length.numerator),
                              static_cast<std::uint8_t>(length.denominator), meter.clocks_per_click());
        const bool isSame = !conductor_.meters.empty() && bar != FirstBar() &&
                            conductor_.meters.back().numerator() == entry.numerator() &&
                            conductor_.meters.back().denominator() == entry.denominator();
        if (!isSame) conductor_.meters.push_back(entry);
    }

    void AddConductor() {
        conductor_.name = lines_.score.title;
        conductor_.endTick = barTicks_.back();
        for (const ScoreEvent& event : lines_.events) {
            const std::string place = lines_.PlaceOf(event.line);
            const unsigned int tick = barTicks_[static_cast<std::size_t>(event.bar - FirstBar())];
            if (event.kind == "key") {
                conductor_.keys.push_back(ReadKey(tick, event.value, place));
            } else if (event.kind == "tempo") {
                conductor_.tempos.push_back(ReadTempo(tick, event.value, place));
            } else if (event.kind == "marker") {
                if (event.value.empty()) Fail(place, "a marker needs a text");
                conductor_.markers.emplace_back(tick, event.value);
            } else if (event.kind != "meter") {
                Fail(place, "a bar has meter, key, tempo or marker");
            }
        }
        smf_.tracks.push_back(conductor_);
    }

    void AddPart(const Part& part, int channel, int port) {
        if (part.bars.size() != BarCount())
            Fail(lines_.PlaceOf(part.line), fmt::format("the part {} has {} bars, but {} has {}", part.name,
                                                        part.bars.size(), lines_.parts.front().name, BarCount()));
        tavo_midi::SmfTrack track;
        track.name = part.name;
        track.endTick = barTicks_.back();
        track.firstEvent = smf_.events.size();
        text_score::Player player(static_cast<std::uint8_t>(channel), static_cast<std::uint8_t>(port), part.drums);
        if (!part.drums) player.AddProgram(part.program - 1);
        player.AddController(VolumeController, part.volume);
        player.AddController(PanController, part.pan);
        for (std::size_t i = 0; i < part.bars.size(); ++i)
            player.PlayBar(part.bars[i], barTicks_[i], barTicks_[i + 1], lines_.PlaceOf(part.bars[i].line));
        const std::vector<tavo_midi::MidiEvent> events = player.Finish();
        smf_.events.insert(smf_.events.end(), events.begin(), events.end());
        track.eventCount = events.size();
        smf_.tracks.push_back(std::move(track));
    }

    Lines& lines_;
    tavo_midi::Smf smf_;
    tavo_midi::SmfTrack conductor_;
    std::vector<unsigned int> barTicks_;
};

}  // namespace

TextSong ParseTextSong(const std::string& text, const std::string& name) {
    Lines lines(name);
    lines.Read(text);
    lines.score.smf = Composer(lines).Compose();
    return std::move(lines.score);
}

}  // namespace stage
