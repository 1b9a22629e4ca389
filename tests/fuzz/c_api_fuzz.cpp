// Any calls of the C library with any arguments: each gives a result and, where it fails, one sentence.

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "tavo/tavo.h"
#include "tests/support/show_builder.h"
#include "tests/support/temporary_directory.h"

namespace {

/// Takes the input apart; where it is over, everything is 0.
class Input {
public:
    Input(const std::uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}
    [[nodiscard]] bool IsOver() const { return place_ >= size_; }
    std::uint8_t Byte() { return IsOver() ? std::uint8_t{0} : bytes_[place_++]; }
    std::uint32_t Number() {
        // Mostly one that may mean something.
        const std::uint8_t kind = Byte();
        if (kind < 200) return kind % 16;
        std::uint32_t number = 0;
        for (int i = 0; i < 4; ++i)
            number = number << 8U | Byte();
        return number;
    }

private:
    const std::uint8_t* bytes_;
    std::size_t size_;
    std::size_t place_ = 0;
};

constexpr std::array Lines{"load 1",
                           "load 2",
                           "play",
                           "stop",
                           "go",
                           "exit",
                           "continue",
                           "pause",
                           "panic",
                           "seek 3",
                           "seek end",
                           "seek tick 961",
                           "next",
                           "previous",
                           "tempo 50%",
                           "tempo 200%",
                           "transpose -24",
                           "volume 0%",
                           "fade 0",
                           "cancel-fade",
                           "attacca on",
                           "count-in 4",
                           "undo",
                           "redo",
                           "save",
                           "quit",
                           "next-marker",
                           "next-measure",
                           "edit add vamp 2 3",
                           "edit add cut 1 4",
                           "edit remove 1",
                           "restore {}",
                           "mute all",
                           "locate 3s",
                           "",
                           "edit add caesura 4",
                           "dance \xff\xfe"};
constexpr std::array Places{"1", "3:2", "end", "start", "tick 5", "99", ":", "", "\xc3\x28", "t4294967295"};

struct World {
    World() {
        test_support::TestShow show;
        show.Song("1", 4).Edits("vamp 2 2\nfermata 3 3\ncaesura 4\nmarker 2 Verse").Song("2", 2).Edits("repeat 1 2 2");
        show.WriteTo(directory);
        path = directory.Path();
    }
    test_support::TemporaryDirectory directory;
    std::string path;
};

tavo_player* OpenPlayer(const std::string& path) {
    tavo_player* player = nullptr;
    tavo_player_options options{};
    options.size = sizeof options;
    options.frames_per_second = 8000;
    if (tavo_player_open(path.c_str(), &options, &player) != TAVO_OK) std::abort();
    return player;
}

void Check(tavo_result result) {
    if (std::strcmp(tavo_result_name(result), "unknown") == 0 || result == TAVO_INTERNAL) std::abort();
    if (result == TAVO_OK || result == TAVO_END) return;
    if (tavo_last_error()[0] == '\0' || std::strchr(tavo_last_error(), '\n') != nullptr) std::abort();
}

void TakeText(tavo_result result, char*& text) {
    Check(result);
    if (result == TAVO_OK && text == nullptr) std::abort();
    tavo_free(text);
}

/// One call of a show's functions.
void CallShow(Input& input, tavo_show* show) {
    char* text = nullptr;
    std::uint32_t number = 0;
    double seconds = 0;
    const std::uint32_t a = input.Number();
    const std::uint32_t b = input.Number();
    const char* const line = Lines[input.Byte() % Lines.size()];
    const char* const place = input.Byte() % 8 == 7 ? nullptr : Places[input.Byte() % Places.size()];
    switch (input.Byte() % 14) {
        case 0: {
            tavo_song song{};
            return Check(tavo_show_song(show, a, &song));
        }
        case 1: {
            tavo_bar bar{};
            return Check(tavo_show_bar(show, a, b, &bar));
        }
        case 2:
            return Check(tavo_show_find_place(show, a, place, &number));
        case 3:
            return TakeText(tavo_show_describe_tick(show, a, b, &text), text);
        case 4:
            return Check(tavo_show_seconds(show, a, b, &seconds));
        case 5:
            return Check(tavo_show_list_edits(show, a, &number));
        case 6: {
            tavo_edit edit{};
            return Check(tavo_show_edit_at(show, a, &edit));
        }
        case 7:
            return Check(tavo_show_do_edit(show, line + (std::strncmp(line, "edit ", 5) == 0 ? 5 : 0)));
        case 8:
            return Check(a % 2 == 0 ? tavo_show_undo(show, nullptr) : tavo_show_redo(show, nullptr));
        case 9:
            return Check(tavo_show_save(show, a, place, nullptr));
        case 10: {
            tavo_version_info version{};
            Check(tavo_show_list_versions(show, &number));
            return Check(tavo_show_version_at(show, a, &version));
        }
        case 11:
            return TakeText(tavo_show_compare(show, place, a == 0 ? nullptr : "1.0", &text), text);
        case 12:
            return Check(tavo_show_roll_back(show, a == 0 ? "1.0" : place));
        default:
            return Check(tavo_show_find_song(show, place, &number));
    }
}

void Render(Input& input, tavo_player* player) {
    constexpr std::uint32_t MostFrames = 4096;
    static std::array<float, MostFrames> left;
    static std::array<float, MostFrames> right;
    const std::uint32_t frames = input.Number() % (MostFrames + 1);
    static std::array<float, MostFrames> click;
    // By one pair or two, now and then by more than there are.
    const std::uint32_t count = input.Byte() % 8;
    const std::array<tavo_pair, 8> pairs{{{left.data(), right.data()}, {click.data(), click.data()}}};
    const tavo_result result = count == 0 ? tavo_player_render(player, left.data(), right.data(), frames)
                                          : tavo_player_render_pairs(player, pairs.data(), count, frames);
    Check(result);
    for (std::uint32_t i = 0; result == TAVO_OK && i < frames; ++i)
        if (!(std::fabs(left[i]) <= 1.0001F && std::fabs(right[i]) <= 1.0001F)) std::abort();
}

/// One call of a player's functions; `state` is what was taken before.
void CallPlayer(Input& input, tavo_player* player, std::string& state) {
    char* text = nullptr;
    const std::uint8_t which = input.Byte() % 12;
    const char* const line = input.Byte() % 32 == 31 ? nullptr : Lines[input.Byte() % Lines.size()];
    if (which < 4) return Check(tavo_player_command(player, line));
    if (which < 8) return Render(input, player);
    switch (which) {
        case 8: {
            tavo_event event{};
            return Check(tavo_player_next_event(player, &event));
        }
        case 9: {
            tavo_status status{};
            return Check(tavo_player_status(player, &status));
        }
        case 10: {
            const tavo_result result = tavo_player_take_state(player, &text);
            if (result == TAVO_OK) state = text;
            return TakeText(result, text);
        }
        default: {
            // As it was, or with one character changed.
            std::string changed = state;
            const std::uint32_t place = input.Number();
            if (place < changed.size()) changed[place] = static_cast<char>(input.Byte() | 1U);
            return Check(tavo_player_put_state(player, changed.c_str()));
        }
    }
}

}  // namespace

// One player for all inputs, which takes long to open; each input finds it stopped in the first song, and its edits as
// saved.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World world;
    static tavo_player* player = OpenPlayer(world.path);
    tavo_show* played = nullptr;
    tavo_show* show = nullptr;
    Check(tavo_player_show(player, &played));
    Check(tavo_show_open(world.path.c_str(), nullptr, &show));
    std::string state = "{}";
    Input input(data, size);
    for (int calls = 0; calls < 64 && !input.IsOver(); ++calls) {
        const std::uint8_t which = input.Byte();
        // Now and then with a handle that is none.
        const std::uintptr_t wrong = which % 32 == 31 ? input.Number() : 0;
        if (which % 4 == 0) {
            CallShow(input, wrong != 0 ? reinterpret_cast<tavo_show*>(wrong) : show);
        } else if (which % 4 == 1) {
            CallShow(input, wrong != 0 ? reinterpret_cast<tavo_show*>(wrong) : played);
        } else {
            CallPlayer(input, wrong != 0 ? reinterpret_cast<tavo_player*>(wrong) : player, state);
        }
    }
    Check(tavo_show_close(show));
    if (tavo_show_close(show) != TAVO_BAD_HANDLE) std::abort();
    if (tavo_player_command(player, "stop") == TAVO_BAD_HANDLE) std::abort();
    Check(tavo_player_command(player, "load 1"));
    Check(tavo_player_command(player, "tempo 100%"));
    while (tavo_show_undo(played, nullptr) == TAVO_OK) {
    }
    tavo_event event{};
    while (tavo_player_next_event(player, &event) == TAVO_OK) {
    }
    return 0;
}
