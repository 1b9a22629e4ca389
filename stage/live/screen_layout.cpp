#include "stage/live/screen_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "kit/utf8.h"
#include "stage/live/screen_digits.h"
#include "stage/live/screen_panels.h"

namespace stage {

namespace {

constexpr int SmallestRows = 20;
constexpr int SmallestColumns = 60;
constexpr int FactColumns = 34;
constexpr int FactNameColumns = 8;

using enum ScreenStyle;

std::string DescribeTime(double seconds) {
    const auto whole = static_cast<long>(std::max(0.0, seconds));
    return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

/// With one digit after the point where it has one.
std::string DescribeTempo(double beatsPerMinute) {
    return fmt::format("{:.5g}", std::round(beatsPerMinute * 10) / 10);
}

std::string DescribeTempoWithScale(const LiveStatus& status) {
    if (status.song.empty()) return "";
    std::string text = fmt::format("{} at {}", DescribeTempo(status.beatsPerMinute), status.scale);
    const std::string own = fmt::format("{:.6g}%", status.tempoScale * 100);
    if (own != status.scale) text += fmt::format(" (yours {})", own);
    return text;
}

std::string DescribeKey(const LiveStatus& status) {
    if (status.transposition == 0) return status.key;
    return fmt::format("{}, {:+} semitone{}", status.key, status.transposition,
                       std::abs(status.transposition) == 1 ? "" : "s");
}

void PutTitles(ScreenPicture& picture, const LiveStatus& status) {
    const int columns = picture.GetSize().columns;
    picture.FillRow(0, Title);
    const std::string right = fmt::format("{}{}   {} ", status.isLocked ? "LOCKED   " : "",
                                          DescribeMotion(status.motion), DescribeTime(status.elapsedSeconds));
    picture.Put(0, 1, status.showTitle, Title, std::max(0, columns - static_cast<int>(right.size()) - 2));
    picture.PutRight(0, columns, right, Title);
    if (status.song.empty()) {
        picture.Put(1, 1, "No song is loaded.", Warning);
    } else {
        picture.Put(1, 1, fmt::format("{}  {}", status.song, status.title), Strong, columns - 2);
    }
}

struct Place {
    BigText digits;
    int barColumn = 1;
    int beatColumn = 0;
    int endColumn = 0;
};

/// The largest digits that leave room for what stands beside them.
Place FitPlace(const LiveStatus& status, const ScreenSize& size) {
    int scale = 1;
    if (size.columns >= 120 && size.rows >= 34) scale = 2;
    if (size.columns >= 170 && size.rows >= 48) scale = 3;
    Place place;
    place.digits.scale = scale;
    const auto fit = [&] {
        // The beat stays where it is from bar 9 to bar 10.
        const int bar = std::max(place.digits.CountColumns(status.bar), place.digits.CountColumns("000"));
        place.beatColumn = place.barColumn + bar + 4 * scale;
        place.endColumn =
            place.beatColumn + std::max(place.digits.CountColumns(status.beat), place.digits.CountColumns("0"));
    };
    fit();
    if (place.endColumn + 2 > size.columns - FactColumns) {
        place.digits.isNarrow = true;
        fit();
    }
    return place;
}

/// What is counted down: the beats before a seam, or the display's own countdown.
void PutCountdown(ScreenPicture& picture, const LiveStatus& status, int row, const Place& place, int end) {
    std::string name;
    std::string count;
    if (status.leavesInBeats) {
        name = "LEAVES IN";
        count = std::to_string(*status.leavesInBeats);
    } else if (!status.status.empty()) {
        name = DescribeStatusName(status.status);
        count = std::to_string(status.statusCount);
    } else {
        return;
    }
    const int column = place.endColumn + 6 * place.digits.scale;
    const int width = std::max(place.digits.CountColumns(count), static_cast<int>(name.size()));
    if (column + width + 2 > end) return;
    picture.Put(row, column, name, Warning);
    place.digits.Put(picture, row + 1, column, count, Warning);
}

/// Returns how many rows it takes.
int PutPlace(ScreenPicture& picture, const LiveStatus& status, int row) {
    const ScreenSize& size = picture.GetSize();
    const Place place = FitPlace(status, size);
    picture.Put(row, place.beatColumn, "BEAT", Faint);
    const std::string bar = status.bar.empty() ? "-" : status.bar;
    const int barEnd = place.beatColumn - 4 * place.digits.scale;
    picture.PutRight(row, barEnd, "BAR", Faint);
    place.digits.Put(picture, row + 1, barEnd - place.digits.CountColumns(bar), bar, Strong);
    place.digits.Put(picture, row + 1, place.beatColumn, status.beat, Strong);

    const int facts = std::max(place.endColumn + 3, size.columns - (size.columns >= 120 ? 48 : FactColumns));
    PutCountdown(picture, status, row, place, facts);
    const int step = place.digits.GetRows() >= 10 ? 2 : 1;
    int at = row;
    const auto put = [&](std::string_view name, const std::string& value, ScreenStyle style) {
        picture.Put(at, facts, name, Faint);
        picture.Put(at, facts + FactNameColumns, value.empty() ? "-" : value, style);
        at += step;
    };
    put("Tempo", DescribeTempoWithScale(status), Strong);
    put("Meter", status.meter, Plain);
    put("Key", DescribeKey(status), status.transposition == 0 ? Plain : Strong);
    put("Page", status.page, Plain);
    put("Marker", status.marker, Plain);
    put("next", status.nextMarker, Plain);
    return place.digits.GetRows() + 1;
}

/// The lamp, the status and what is armed: the row that a press changes.
void PutFlow(ScreenPicture& picture, const LiveStatus& status, int row) {
    const bool isUtf8 = picture.GetSize().isUtf8;
    if (status.vampLamp) {
        picture.Put(row, 1, isUtf8 ? " ● LAMP ON " : " (*) LAMP ON ", Lamp);
    } else {
        picture.Put(row, 1, isUtf8 ? " ○ lamp off " : " ( ) lamp off ", Faint);
    }
    int column = 17;
    if (!status.status.empty())
        column += picture.Put(row, column, fmt::format("{} {}", DescribeStatusName(status.status), status.statusCount),
                              Strong) +
                  3;
    if (status.leavesInBeats) {
        const unsigned int beats = *status.leavesInBeats;
        column +=
            picture.Put(row, column, fmt::format("leaves in {} beat{}", beats, beats == 1 ? "" : "s"), Warning) + 3;
    }
    if (status.motion == LiveStatus::Motion::Holding)
        picture.Put(row, column, "HOLDING: Space goes on", Warning);
    else if (status.motion == LiveStatus::Motion::Fading)
        picture.Put(row, column, "FADING: C cancels", Warning);
}

std::string DescribeLoop(const LiveStatus::Loop& loop) {
    std::string text = fmt::format("{} {}: pass {}", loop.kind, loop.place, loop.pass);
    if (loop.limit > 0) text += fmt::format(" of {}", loop.limit);
    if (loop.isLeft) text += ", leaves at its end";
    return text;
}

void PutLoops(ScreenPicture& picture, const LiveStatus& status, int row, int rows) {
    const std::size_t most = static_cast<std::size_t>(std::max(rows, 0));
    for (std::size_t i = 0; i < std::min(most, status.loops.size()); ++i) {
        const int at = row + static_cast<int>(i);
        if (i + 1 == most && status.loops.size() > most) {
            picture.Put(at, 1, fmt::format("and {} more loops", status.loops.size() - i), Plain);
        } else {
            picture.Put(at, 1, DescribeLoop(status.loops[i]), status.loops[i].isLeft ? Warning : Plain);
        }
    }
}

/// Without big digits: what matters most comes first, and the rest is cut.
void PutSmall(ScreenPicture& picture, const LiveStatus& status, const ScreenState& state) {
    PutTitles(picture, status);
    picture.Put(
        2, 1,
        fmt::format("Bar {}  beat {}   {}  {}", status.bar, status.beat, DescribeTempoWithScale(status), status.meter),
        Strong);
    PutNotice(picture, state, 3);
    PutFlow(picture, status, 4);
    PutLoops(picture, status, 5, 2);
    const int keys = picture.GetSize().rows - 1;
    if (keys > 6) PutPresses(picture, state, 7, std::min(2, keys - 7), 1);
    if (keys > 9) PutSound(picture, status, 9, keys - 9);
    PutOpen(picture, state, 5, keys);
    if (keys > 3) PutKeyLine(picture, state, keys);
}

}  // namespace

std::string DescribeStatusName(const std::string& status) {
    std::string words;
    for (const char letter : status) {
        const auto sign = static_cast<unsigned char>(letter);
        if (std::isupper(sign) != 0 && !words.empty()) {
            words += ' ';
            words += static_cast<char>(std::tolower(sign));
        } else {
            words += letter;
        }
    }
    return words;
}

std::string DescribeMotion(LiveStatus::Motion motion) {
    using enum LiveStatus::Motion;
    switch (motion) {
        case Stopped:
            return "STOPPED";
        case Playing:
            return "PLAYING";
        case Paused:
            return "PAUSED";
        case Fading:
            return "FADING";
        case Holding:
            return "HOLDING";
        default:
            return "NO SONG";
    }
}

ScreenPicture LayOutScreen(const LiveStatus& status, const ScreenState& state, const ScreenSize& size) {
    ScreenPicture picture(size);
    if (size.rows < SmallestRows || size.columns < SmallestColumns) {
        PutSmall(picture, status, state);
        return picture;
    }
    PutTitles(picture, status);
    const int roomy = size.rows >= 34 ? 1 : 0;
    int row = 2 + roomy;
    row += PutPlace(picture, status, row);
    PutNotice(picture, state, row++);
    row += roomy;
    PutFlow(picture, status, row++);
    const int open = row;
    row += roomy;
    const int loops = size.rows >= 34 ? 6 : std::clamp(size.rows - 21, 1, 3);
    PutLoops(picture, status, row, loops);
    row += loops + roomy;
    const int keys = size.rows - 1;
    picture.PutRule(row++, "Sound");
    row += PutSound(picture, status, row, keys - row) + roomy;
    PutHappenings(picture, status, state, row, keys - row);
    PutOpen(picture, state, open, keys);
    PutKeyLine(picture, state, keys);
    return picture;
}

}  // namespace stage
