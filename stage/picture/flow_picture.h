#pragma once

#include <string>
#include <vector>

#include "tavo_core/song_log.h"
#include "tavo_midi/song_data.h"

/// One song's flow as a picture: its bars in rows, and everything that the production does to them. The layout is pure:
/// the same song gives the same picture. Plain values.
namespace stage::flow {

/// What is drawn; all references outlive the call.
struct Subject {
    const tavo_midi::SongData& song;
    const CL::SongLog& edits;
    std::string showTitle;
    /// "1.4": the version of the change log.
    std::string version;
    /// "3:12": how long the song lasts as written.
    std::string length;
    /// "8 The Ferry": the song that an attacca leads to; empty after the last.
    std::string nextSong;
};

/// What a mark stands for. It decides the colour, on paper and on a dark screen.
enum class Ink {
    Text,
    Faint,
    Bar,
    Beat,
    Meter,
    Key,
    Page,
    Marker,
    Vamp,
    Repeat,
    Cut,
    Fermata,
    Caesura,
    Tempo,
    Scale,
    Transposition,
    Click,
    Sound,
    Ambience,
    Cue,
    Follow,
};

struct Point {
    double x = 0;
    double y = 0;
};

/// One line of text. `width` is an estimate for wide letter forms: text never takes more than that.
struct Text {
    Point start;  ///< where the baseline begins
    double size = 0;
    double width = 0;
    Ink ink = Ink::Text;
    bool isBold = false;
    std::string text;
};

enum class Fill { None, Tint, Solid, Hatch };

struct Box {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
    Ink ink = Ink::Bar;
    Fill fill = Fill::None;
    bool hasOutline = true;
    double radius = 0;
};

/// A line through its points.
struct Curve {
    std::vector<Point> points;
    Ink ink = Ink::Bar;
    double width = 1;
    bool isDashed = false;
};

/// A loop, or the part of it that lies in one row: from its end over the bars back to its start. A part that does not
/// hold the start or the end stays open on that side.
struct Arc {
    double left = 0;
    double right = 0;
    double top = 0;
    double bottom = 0;
    bool hasStart = true;
    bool hasEnd = true;
    Ink ink = Ink::Vamp;
};

/// A sign of the score, `size` high, its centre at `centre`.
struct Sign {
    enum class Kind { Fermata, Caesura, Note, DottedNote, HalfNote, ShortNote, Cue };
    Kind kind = Kind::Fermata;
    Point centre;
    double size = 0;
    Ink ink = Ink::Fermata;
};

/// Marks in units of a thousandth of the page's width, y downward. Later kinds lie over earlier ones.
struct Drawing {
    double width = 0;
    double height = 0;
    std::vector<Box> boxes;
    std::vector<Curve> curves;
    std::vector<Arc> arcs;
    std::vector<Sign> signs;
    std::vector<Text> texts;

    /// Adds the other's marks, moved down by `down`.
    void Append(const Drawing& other, double down);
};

/// A page is as wide and as high as A4 in portrait; a page that holds a row higher than that is as high as the row
/// needs, and the last one ends with what is on it. A row never lies on two pages.
inline constexpr double PageWidth = 1000;
inline constexpr double PageHeight = 1414;

/// Lays the picture out. A song without bars is drawn as one bar; an edit outside the song stands at its edge.
[[nodiscard]] Drawing Draw(const Subject& subject);

/// The drawing as an SVG 1.1 file, UTF-8, for paper and for light and dark screens (CSS prefers-color-scheme).
[[nodiscard]] std::string AsSvg(const Drawing& drawing, const std::string& title);

}  // namespace stage::flow
