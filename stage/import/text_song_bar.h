#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tavo_midi/song_data.h"

/// The notes of one bar of a text score; only text_score.cpp uses it.
namespace stage::text_score {

inline constexpr std::uint16_t TicksPerQuarter = 480;

[[noreturn]] void Fail(const std::string& place, const std::string& problem);
[[nodiscard]] int ReadInteger(std::string_view text, int lowest, int highest, const std::string& place);
/// "6/8": numerator 1 to 64, denominator a power of two from 1 to 64.
[[nodiscard]] std::pair<int, int> ReadFraction(std::string_view text, const std::string& place);

/// A length as a fraction of a whole note.
struct BarTicks {
    int numerator = 4;
    int denominator = 4;
    [[nodiscard]] unsigned int Ticks() const {
        return static_cast<unsigned int>(4 * TicksPerQuarter * numerator / denominator);
    }
};

struct Bar {
    int line = 0;
    std::vector<std::string> words;
};

/// Splits a line of music at its bar lines; "%" repeats the bar before, "%4" four times.
void AppendBars(const std::string& line, int number, const std::string& place, std::vector<Bar>& bars);

/// Turns words into the events of one channel. Length and loudness carry over from note to note.
class Player {
public:
    Player(std::uint8_t channel, std::uint8_t port, bool drums) : channel_(channel), port_(port), drums_(drums) {}

    void AddProgram(int program);
    void AddController(std::uint8_t controller, int value);
    /// The words must fill the bar from `startTick` to `endTick` exactly.
    void PlayBar(const Bar& bar, unsigned int startTick, unsigned int endTick, const std::string& place);
    /// The events in ascending order, note-offs first.
    [[nodiscard]] std::vector<tavo_midi::MidiEvent> Finish();

private:
    struct Note {
        std::vector<int> pitches;
        bool tied = false;
        bool staccato = false;
        bool accented = false;
    };

    void PlayWord(std::string word, unsigned int& tick, const std::string& place);
    [[nodiscard]] Note ReadNote(std::string& word, const std::string& place) const;
    [[nodiscard]] unsigned int ReadLength(std::string_view text, const std::string& place) const;
    [[nodiscard]] int ReadPitch(std::string_view text, const std::string& place) const;
    void AddNote(const Note& note, unsigned int startTick, unsigned int endTick);
    void Add(unsigned int tick, int kind, int data1, int data2);

    std::uint8_t channel_;
    std::uint8_t port_;
    bool drums_;
    int velocity_ = 80;
    unsigned int lengthTicks_ = TicksPerQuarter;
    unsigned int endTick_ = 0;
    /// First tick and velocity of the notes that a tie holds on.
    std::map<int, std::pair<unsigned int, int>> held_;
    std::vector<tavo_midi::MidiEvent> events_;
};

}  // namespace stage::text_score
