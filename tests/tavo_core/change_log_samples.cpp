#include "change_log_samples.h"

#include <cmath>
#include <limits>

namespace change_log_samples {

namespace {

class Dice {
public:
    explicit Dice(std::mt19937& random) : random_(random) {}

    int Int(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }

    unsigned int Tick() {
        switch (Int(0, 5)) {
            case 0:
                return 0;
            case 1:
                return std::numeric_limits<unsigned int>::max();
            case 2:
                return static_cast<unsigned int>(random_());
            default:
                return static_cast<unsigned int>(Int(0, 20)) * 480;
        }
    }

    /// Any float from `lowest` to `highest`, of any size, with all its bits.
    float Float(float lowest, float highest) {
        for (;;) {
            const float number = std::ldexp(std::uniform_real_distribution<float>(-1, 1)(random_), Int(-140, 7));
            if (number >= lowest && number <= highest && (number != 0 || lowest < 0)) return number;
        }
    }

    std::string Text() {
        static const char* const pieces[] = {"a",  "Verse 2", "\"",   "\\",           "/", "\n", "\t", "\x01",   "é",
                                             "歌", "🎭",       "\x7f", "\xE2\x80\xA8", " ", "%s", "{}", "\\u0041"};
        std::string text;
        for (int i = Int(0, 5); i > 0; --i)
            text += pieces[Int(0, 16)];
        return text;
    }

    CL::OscArgument Argument() {
        switch (Int(0, 3)) {
            case 0:
                return Int(std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
            case 1:
                return static_cast<float>(Int(-3, 3));
            case 2:
                return Float(-1e2F, 1e2F);
            default:
                return Text();
        }
    }

private:
    std::mt19937& random_;
};

void AddEdit(CL::SongLog& song, Dice& dice) {
    const unsigned int start = dice.Tick();
    const unsigned int end = dice.Tick();
    switch (dice.Int(0, 11)) {
        case 0:
            song.GetVamps().Add(CL::Vamp(start, end, dice.Int(0, 9999)));
            break;
        case 1:
            song.GetRepeats().Add(CL::Repeat(start, end, dice.Int(0, 9999)));
            break;
        case 2:
            song.GetCuts().Add(CL::Cut(start, end));
            break;
        case 3:
            song.GetTranspositions().Add(CL::Transposition(start, end, dice.Int(-24, 24)));
            break;
        case 4:
            song.GetTempoScales().Add(CL::TempoScale(start, end, dice.Float(0, 100)));
            break;
        case 5:
            song.GetClicks().Add(CL::Click(start, end, dice.Int(1, 128)));
            break;
        case 6:
            song.GetCaesuras().Add(CL::Caesura(start, dice.Text(), dice.Tick()));
            break;
        case 7:
            song.GetFermatas().Add(CL::Fermata(start, end));
            break;
        case 8:
            song.GetSfxs().Add(CL::Sfx(start, end, dice.Text(), dice.Float(-60, 12)));
            break;
        case 9:
            song.GetSfxAmbients().Add(CL::SfxAmbient(start, end, dice.Text(), dice.Float(-60, 12)));
            break;
        case 10: {
            std::vector<CL::OscArgument> arguments;
            for (int i = dice.Int(0, 4); i > 0; --i)
                arguments.push_back(dice.Argument());
            song.GetOscs().Add(CL::Osc(start, dice.Text(), "/" + dice.Text(), arguments));
            break;
        }
        default:
            song.GetMarkers().Add(CL::Marker(start, dice.Text()));
            break;
    }
}

}  // namespace

CL::ChangeLog MakeOneOfEachKind() {
    CL::ChangeLog log;
    log.SetShowName("The Lantern");
    log.GetVersion() = {1, 3};
    log.GetSongLogs()["10"].SetAttacca(CL::AttaccaSkip);
    CL::SongLog& song = log.GetSongLogs()["2"];
    song.SetAttacca(CL::AttaccaNext);
    song.GetVamps().Add(CL::Vamp(960, 1920));
    song.GetRepeats().Add(CL::Repeat(1920, 3840, 2));
    song.GetCuts().Add(CL::Cut(4800, 5760));
    song.GetTranspositions().Add(CL::Transposition(0, 960, -3));
    song.GetTempoScales().Add(CL::TempoScale(0, 960, 0.9F));
    song.GetClicks().Add(CL::Click(0, 1920, 4));
    song.GetCaesuras().Add(CL::Caesura(7680, "breath", 0));
    song.GetFermatas().Add(CL::Fermata(5760, 6240));
    song.GetSfxs().Add(CL::Sfx(100, 200, "door.wav", -3.5F));
    song.GetSfxAmbients().Add(CL::SfxAmbient(0, 9600, "rain.ogg", 0));
    song.GetOscs().Add(CL::Osc(480, "desk", "/cue/go", {7, 0.1F, 2.0F, std::string("blå \"2\"")}));
    song.GetMarkers().Add(CL::Marker(1920, "Verse"));
    song.GetMarkers().Add(CL::Marker(960, "Intro"));
    return log;
}

CL::ChangeLog MakeRandom(std::mt19937& random) {
    Dice dice(random);
    CL::ChangeLog log;
    log.SetShowName(dice.Text());
    log.GetVersion() = {static_cast<std::uint16_t>(dice.Int(0, 65535)), static_cast<std::uint16_t>(dice.Int(0, 65535))};
    for (int songs = dice.Int(0, 4); songs > 0; --songs) {
        CL::SongLog& song = log.GetSongLogs()[std::to_string(dice.Int(0, 30)) + dice.Text()];
        song.SetAttacca(static_cast<unsigned char>(dice.Int(0, 2)));
        for (int edits = dice.Int(0, 25); edits > 0; --edits)
            AddEdit(song, dice);
    }
    return log;
}

}  // namespace change_log_samples
