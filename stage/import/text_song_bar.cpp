#include "stage/import/text_song_bar.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "tavo_midi/midi_status.h"

namespace stage::text_score {

namespace {

namespace status_byte = tavo_midi::status_byte;

constexpr int AccentVelocity = 16;

const std::map<std::string_view, int, std::less<>> VelocityOfWord{{"pp", 38}, {"p", 52}, {"mp", 66},
                                                                  {"mf", 80}, {"f", 96}, {"ff", 112}};

/// General MIDI percussion keys.
const std::map<std::string_view, int, std::less<>> KeyOfDrum{
    {"bd", 36}, {"ss", 37}, {"sd", 38}, {"hc", 39}, {"lt", 45}, {"hh", 42}, {"ph", 44}, {"oh", 46}, {"mt", 47},
    {"cc", 49}, {"ht", 50}, {"rd", 51}, {"tb", 54}, {"cb", 56}, {"wb", 76}, {"tr", 81}, {"sh", 82}};

}  // namespace

void Fail(const std::string& place, const std::string& problem) {
    throw std::runtime_error(fmt::format("{}: {}", place, problem));
}

int ReadInteger(std::string_view text, int lowest, int highest, const std::string& place) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || number < lowest || number > highest)
        Fail(place, fmt::format("\"{}\" is not a whole number from {} to {}", text.substr(0, 40), lowest, highest));
    return number;
}

std::pair<int, int> ReadFraction(std::string_view text, const std::string& place) {
    constexpr int Highest = 64;
    const std::size_t slash = std::min(text.find('/'), text.size());
    const int numerator = ReadInteger(text.substr(0, slash), 1, Highest, place);
    const int denominator = ReadInteger(text.substr(std::min(slash + 1, text.size())), 1, Highest, place);
    if (!std::has_single_bit(static_cast<unsigned int>(denominator)))
        Fail(place, fmt::format("{} is not a note value: 1, 2, 4 ... {}", denominator, Highest));
    return {numerator, denominator};
}

void AppendBars(const std::string& line, int number, const std::string& place, std::vector<Bar>& bars) {
    constexpr int MostRepetitions = 200;
    std::istringstream stream(line);
    Bar bar{number, {}};
    bool isOpen = false;
    for (std::string word; stream >> word;) {
        if (word != "|") {
            bar.words.push_back(word);
            continue;
        }
        if (isOpen && bar.words.empty()) Fail(place, "there is nothing between two bar lines");
        if (isOpen && bar.words.size() == 1 && bar.words.front().starts_with('%')) {
            if (bars.empty()) Fail(place, "there is no bar to repeat");
            const std::string count = bar.words.front().substr(1);
            const int times = count.empty() ? 1 : ReadInteger(count, 1, MostRepetitions, place);
            bars.insert(bars.end(), static_cast<std::size_t>(times), Bar(bars.back()));
        } else if (isOpen) {
            bars.push_back(bar);
        }
        isOpen = true;
        bar.words.clear();
    }
    if (!bar.words.empty()) Fail(place, "the line of music does not end with a bar line");
}

void Player::AddProgram(int program) {
    Add(0, status_byte::ProgramChange, program, 0);
}

void Player::AddController(std::uint8_t controller, int value) {
    Add(0, status_byte::ControlChange, controller, value);
}

void Player::PlayBar(const Bar& bar, unsigned int startTick, unsigned int endTick, const std::string& place) {
    unsigned int tick = startTick;
    for (const std::string& word : bar.words)
        PlayWord(word, tick, place);
    if (tick != endTick)
        Fail(place, fmt::format("the bar \"{}\" lasts {} ticks instead of {}", fmt::join(bar.words, " "),
                                tick - startTick, endTick - startTick));
    endTick_ = endTick;
}

void Player::PlayWord(std::string word, unsigned int& tick, const std::string& place) {
    if (const auto loudness = VelocityOfWord.find(word); loudness != VelocityOfWord.end()) {
        velocity_ = loudness->second;
        return;
    }
    if (const std::size_t slash = word.find('/'); slash != std::string::npos) {
        const std::size_t end = std::min(word.find_first_not_of("0123456789.", slash + 1), word.size());
        lengthTicks_ = ReadLength(std::string_view(word).substr(slash + 1, end - slash - 1), place);
        word.erase(slash, end - slash);
    }
    const Note note = ReadNote(word, place);
    AddNote(note, tick, tick + lengthTicks_);
    tick += lengthTicks_;
}

Player::Note Player::ReadNote(std::string& word, const std::string& place) const {
    Note note;
    for (; !word.empty(); word.pop_back()) {
        if (word.back() == '~') {
            note.tied = true;
        } else if (word.back() == '\'') {
            note.staccato = true;
        } else if (word.back() == '>') {
            note.accented = true;
        } else {
            break;
        }
    }
    if (word == "r") return note;
    std::istringstream pitches(word);
    for (std::string pitch; std::getline(pitches, pitch, '+');)
        note.pitches.push_back(ReadPitch(pitch, place));
    if (note.pitches.empty()) Fail(place, "a length stands without a note");
    return note;
}

unsigned int Player::ReadLength(std::string_view text, const std::string& place) const {
    constexpr int ShortestNote = 96;
    const std::size_t dots = text.size() - std::min(text.find('.'), text.size());
    const int divisor = ReadInteger(text.substr(0, text.size() - dots), 1, ShortestNote, place);
    const unsigned int whole = 4U * TicksPerQuarter;
    if (whole % static_cast<unsigned int>(divisor) != 0 || dots > 2)
        Fail(place, fmt::format("/{} is not a length", text));
    unsigned int ticks = whole / static_cast<unsigned int>(divisor);
    unsigned int dot = ticks / 2;
    for (std::size_t i = 0; i < dots; ++i, dot /= 2)
        ticks += dot;
    return ticks;
}

int Player::ReadPitch(std::string_view text, const std::string& place) const {
    if (drums_) {
        const auto found = KeyOfDrum.find(text);
        if (found == KeyOfDrum.end()) Fail(place, fmt::format("there is no drum \"{}\"", text.substr(0, 40)));
        return found->second;
    }
    constexpr std::string_view Letters = "c d ef g a b";
    const std::size_t step = text.empty() || text.front() == ' ' ? std::string_view::npos : Letters.find(text.front());
    if (step == std::string_view::npos) Fail(place, fmt::format("\"{}\" is not a note", text.substr(0, 40)));
    int pitch = static_cast<int>(step);
    std::size_t at = 1;
    for (; at < text.size() && (text[at] == '#' || text[at] == 'b'); ++at)
        pitch += text[at] == '#' ? 1 : -1;
    pitch += 12 * (ReadInteger(text.substr(at), 0, 9, place) + 1);
    if (pitch < 0 || pitch > 127) Fail(place, fmt::format("the note {} lies outside the MIDI keys", text));
    return pitch;
}

void Player::AddNote(const Note& note, unsigned int startTick, unsigned int endTick) {
    const int velocity = std::min(velocity_ + (note.accented ? AccentVelocity : 0), 127);
    auto held = std::exchange(held_, {});
    for (const int pitch : note.pitches) {
        std::pair<unsigned int, int> begun{startTick, velocity};
        if (const auto tied = held.find(pitch); tied != held.end()) {
            begun = tied->second;
            held.erase(tied);
        }
        if (note.tied) {
            held_[pitch] = begun;
            continue;
        }
        const unsigned int length = endTick - startTick;
        // A breath at the end of each note, so that repeated notes speak.
        const unsigned int sounding = note.staccato ? length / 2 : length - std::min(length / 8, 30U);
        Add(begun.first, status_byte::NoteOn, pitch, begun.second);
        Add(startTick + std::max(sounding, 1U), status_byte::NoteOff, pitch, 64);
    }
    for (const auto& [pitch, begun] : held) {
        Add(begun.first, status_byte::NoteOn, pitch, begun.second);
        Add(startTick, status_byte::NoteOff, pitch, 64);
    }
}

std::vector<tavo_midi::MidiEvent> Player::Finish() {
    for (const auto& [pitch, begun] : std::exchange(held_, {})) {
        Add(begun.first, status_byte::NoteOn, pitch, begun.second);
        Add(endTick_, status_byte::NoteOff, pitch, 64);
    }
    const auto order = [](const tavo_midi::MidiEvent& event) {
        const int kind = event.status & 0xF0;
        return std::pair(event.tick, kind == status_byte::NoteOff ? 0 : kind == status_byte::NoteOn ? 2 : 1);
    };
    std::stable_sort(events_.begin(), events_.end(), [&](const auto& a, const auto& b) { return order(a) < order(b); });
    return std::move(events_);
}

void Player::Add(unsigned int tick, int kind, int data1, int data2) {
    events_.push_back({tick, static_cast<std::uint8_t>(kind | channel_), static_cast<std::uint8_t>(data1),
                       static_cast<std::uint8_t>(data2), port_});
}

}  // namespace stage::text_score
