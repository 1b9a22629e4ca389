#include "stage/live/screen_panels.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "kit/utf8.h"

namespace stage {

namespace {

using enum ScreenStyle;

constexpr std::pair<const char*, const char*> KeyRows[] = {
    {"Space", "go on: start, or leave the vamp, fermata, caesura"},
    {"Enter", "play"},
    {"P", "pause"},
    {"Esc", "stop; again within 2 s: panic, silence at once"},
    {"F C", "fade out in 3 s and stop; cancel the fade"},
    {"Left Right", "previous, next marker"},
    {"Up Down", "previous, next song; stopped: choose from a list"},
    {"0-9 G", "go to a bar: type 12 or 12:3, then Enter"},
    {"+ -", "tempo up, down by 1 %"},
    {"[ ]  { }", "master volume down, up by 5 %; the music's"},
    {"U R S", "undo, redo the last edit; save the edits"},
    {"Q", "quit; asks while playing or locked"},
};

std::string DescribeLatency(const OutputFormat& format) {
    if (format.framesPerSecond == 0) return "?";
    return fmt::format("{:.1f} ms", 1000.0 * format.latencyFrames / format.framesPerSecond);
}

/// Master and music always, the others where they are turned down.
std::string DescribeVolumes(const LiveStatus& status) {
    std::string text;
    for (std::size_t i = 0; i < status.volumes.size(); ++i) {
        const auto& [name, factor] = status.volumes[i];
        if (i < 2 || factor < 1) text += fmt::format("{}{} {:.0f}%", text.empty() ? "" : "   ", name, factor * 100);
    }
    return text;
}

struct Line {
    std::string text;
    ScreenStyle style;
};

std::string DescribeLevel(const SoundLevel& level) {
    return level.peak < 1e-4F ? "silent" : fmt::format("{:.0f} dB", 20 * std::log10(level.peak));
}

/// The peaks of the main output and of the groups, with what is switched.
std::vector<Line> DescribeLevels(const LiveStatus& status) {
    std::vector<Line> line{{"Level   ", Faint}, {"main " + DescribeLevel(status.mainLevel), Plain}};
    if (status.mainLevel.peak > 1) line.push_back({" limited", Warning});
    for (const LiveStatus::Group& group : status.groups) {
        std::string text = fmt::format("   {} {:.0f}% ", group.name, group.volume * 100);
        if (!group.isMuted) text += DescribeLevel(group.level);
        line.push_back({text, Plain});
        if (group.isMuted) line.push_back({"muted", Warning});
        if (group.isSolo) line.push_back({" solo", Warning});
    }
    return line;
}

std::string Plural(std::uint64_t count, const char* one, const char* several) {
    return fmt::format("{} {}", count, count == 1 ? one : several);
}

void PutMessages(ScreenPicture& picture, const LiveStatus& status, int row, int rows, int column) {
    std::vector<std::string> lines;
    for (auto message = status.messages.rbegin(); message != status.messages.rend(); ++message) {
        for (const std::string& part : WrapColumns(*message, picture.GetSize().columns - column - 1))
            lines.push_back(part);
    }
    for (int i = 0; i < std::min(rows, static_cast<int>(lines.size())); ++i)
        picture.Put(row + i, column, lines[static_cast<std::size_t>(i)], i == 0 ? Plain : Faint);
}

void PutSongs(ScreenPicture& picture, const ScreenState& state, int row, int end) {
    picture.PutRule(row++, "Songs");
    const int rows = std::max(end - row, 1);
    const int chosen = static_cast<int>(state.chosen);
    const int all = static_cast<int>(state.songs.size());
    const int first = std::clamp(chosen - rows / 2, 0, std::max(all - rows, 0));
    for (int i = first; i < std::min(all, first + rows); ++i) {
        const ScreenSong& song = state.songs[static_cast<std::size_t>(i)];
        picture.Put(row + i - first, 1, fmt::format("{} {:>4}  {} ", i == chosen ? ">" : " ", song.number, song.title),
                    i == chosen ? Lamp : Plain, picture.GetSize().columns - 2);
    }
}

void PutKeys(ScreenPicture& picture, int row, int end) {
    picture.PutRule(row++, "Keys");
    for (const auto& [key, meaning] : KeyRows) {
        if (row >= end) return;
        picture.Put(row, 1, key, Strong);
        picture.Put(row++, 13, meaning, Plain);
    }
}

}  // namespace

void PutNotice(ScreenPicture& picture, const ScreenState& state, int row) {
    const int width = picture.GetSize().columns - 2;
    switch (state.mode) {
        case ScreenState::Mode::Place:
            picture.Put(row, 1, fmt::format(" Go to bar: {}_ ", state.entry), Lamp, width);
            return;
        case ScreenState::Mode::AskQuit:
        case ScreenState::Mode::AskResume:
            picture.Put(row, 1, fmt::format(" {} ", state.question), Lamp, width);
            return;
        default:
            picture.Put(row, 1, state.notice, state.isRefusal ? Alarm : Warning, width);
    }
}

int PutSound(ScreenPicture& picture, const LiveStatus& status, int row, int rows) {
    const OutputKeeper::State& output = status.output;
    std::vector<std::vector<Line>> lines;
    lines.push_back({{"Output  ", Faint}, {output.name.empty() ? "none" : output.name, Plain}});
    if (output.isPlaying) {
        lines.back().push_back({" plays", Good});
    } else {
        lines.back().push_back({" LOST: " + output.problem, Alarm});
    }
    if (output.isPlaying)
        lines.back().push_back(
            {fmt::format("   {} Hz   {} frames   latency {}   lead {}", output.format.framesPerSecond,
                         output.format.periodFrames, DescribeLatency(output.format), status.leadFrames),
             Plain});
    lines.push_back(
        {{"        ", Faint},
         {Plural(status.latePeriods, "late block", "late blocks"), status.latePeriods > 0 ? Warning : Plain},
         {"   " + Plural(output.deviceOverruns, "overrun", "overruns"), Plain},
         {fmt::format("   lost {}", Plural(output.timesLost, "time", "times")), Plain},
         {status.isRealTime ? "   real-time" : "   not real-time", Plain}});
    lines.push_back({{"Volume  ", Faint},
                     {DescribeVolumes(status), Plain},
                     {"     MIDI in  ", Faint},
                     {status.midiInput.empty() ? "none" : status.midiInput, Plain}});
    if (!status.groups.empty()) lines.push_back(DescribeLevels(status));
    if (!status.takeProblem.empty()) lines.push_back({{"Take    ", Faint}, {status.takeProblem, Alarm}});
    const int taken = std::min(rows, static_cast<int>(lines.size()));
    for (int i = 0; i < taken; ++i) {
        int column = 1;
        for (const Line& part : lines[static_cast<std::size_t>(i)])
            column += picture.Put(row + i, column, part.text, part.style);
    }
    return std::max(taken, 0);
}

int PutPresses(ScreenPicture& picture, const ScreenState& state, int row, int rows, int column, int end) {
    const int width = (end < 0 ? picture.GetSize().columns : end) - column - 1;
    int taken = 0;
    for (const ScreenPress& press : state.presses) {
        for (const std::string& line : WrapColumns(press.text, width)) {
            if (taken >= rows) return taken;
            const ScreenStyle told = taken == 0 ? Plain : Faint;
            picture.Put(row + taken++, column, line, press.isTaken ? told : Alarm, width);
        }
    }
    return taken;
}

void PutHappenings(ScreenPicture& picture, const LiveStatus& status, const ScreenState& state, int row, int rows) {
    if (rows < 2) return;
    const int columns = picture.GetSize().columns;
    picture.PutRule(row, "Pressed");
    if (columns >= 140) {
        const int middle = columns / 2;
        picture.PutRule(row, "Messages", middle);
        PutPresses(picture, state, row + 1, rows - 1, 1, middle);
        PutMessages(picture, status, row + 1, rows - 1, middle + 1);
        return;
    }
    const int messages = rows >= 12 ? rows / 3 : 1;
    const int presses = rows - 1 - messages;
    PutPresses(picture, state, row + 1, presses, 1);
    PutMessages(picture, status, row + 1 + presses, messages, 1);
}

void PutOpen(ScreenPicture& picture, const ScreenState& state, int row, int end) {
    const bool hasSongs = state.mode == ScreenState::Mode::Songs;
    if (!hasSongs && state.mode != ScreenState::Mode::Keys) return;
    for (int i = row; i < end; ++i)
        picture.ClearRow(i);
    if (hasSongs) return PutSongs(picture, state, row, end);
    // All of them have to be seen, if only just.
    const int needed = static_cast<int>(std::size(KeyRows)) + 1;
    while (row > 2 && end - row < needed)
        picture.ClearRow(--row);
    PutKeys(picture, row, end);
}

void PutKeyLine(ScreenPicture& picture, const ScreenState& state, int row) {
    using Mode = ScreenState::Mode;
    const char* keys = "Space go on  Enter play  P pause  Esc stop  F fade  G bar  ? all keys  Q quit";
    if (state.mode == Mode::Place) keys = "Enter goes there   Esc leaves   Space still goes on";
    if (state.mode == Mode::Songs) keys = "Up Down choose   Enter loads   Esc leaves";
    if (state.mode == Mode::Keys) keys = "? or Esc leaves   the keys work meanwhile";
    if (state.mode == Mode::AskQuit || state.mode == Mode::AskResume) keys = "Y yes   N no";
    picture.Put(row, 1, keys, Faint);
}

}  // namespace stage
