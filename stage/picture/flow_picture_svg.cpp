#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "kit/utf8.h"
#include "stage/picture/flow_picture.h"

namespace stage::flow {

namespace {

constexpr double PageWidthMm = 210;

struct InkColours {
    Ink ink;
    const char* name;
    const char* onLight;
    const char* onDark;
};

// Each stands out from its ground by a contrast of 4.5 or more.
constexpr std::array<InkColours, 21> Colours{{
    {Ink::Text, "text", "#1b1d21", "#eceef1"},         {Ink::Faint, "faint", "#666c73", "#9aa1a9"},
    {Ink::Bar, "bar", "#3a3f45", "#c3c8ce"},           {Ink::Beat, "beat", "#6f767d", "#8b929a"},
    {Ink::Meter, "meter", "#1b1d21", "#eceef1"},       {Ink::Key, "key", "#5b3f8c", "#c3a9ee"},
    {Ink::Page, "page", "#666c73", "#9aa1a9"},         {Ink::Marker, "marker", "#1b1d21", "#eceef1"},
    {Ink::Vamp, "vamp", "#1558b0", "#82b6ff"},         {Ink::Repeat, "repeat", "#0d7050", "#67d3a8"},
    {Ink::Cut, "cut", "#b3261e", "#ff8f86"},           {Ink::Fermata, "fermata", "#8f4d00", "#f2b25c"},
    {Ink::Caesura, "caesura", "#a3195b", "#ff8fc0"},   {Ink::Tempo, "tempo", "#3a3f45", "#c3c8ce"},
    {Ink::Scale, "scale", "#7a5200", "#e6c15a"},       {Ink::Transposition, "transposition", "#6a3fb0", "#c5a5ff"},
    {Ink::Click, "click", "#3f6118", "#b2d67a"},       {Ink::Sound, "sound", "#00687a", "#6cd0e0"},
    {Ink::Ambience, "ambience", "#2a628a", "#8cc8ee"}, {Ink::Cue, "cue", "#8d2f8d", "#f09cf0"},
    {Ink::Follow, "follow", "#1b1d21", "#eceef1"},
}};

std::string_view NameOf(Ink ink) {
    return std::find_if(Colours.begin(), Colours.end(), [ink](const InkColours& row) { return row.ink == ink; })->name;
}

/// Text for XML 1.0: characters that it does not allow become U+FFFD.
std::string Escape(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        const kit::Character character = kit::ReadCharacter(text);
        const std::uint32_t value = character.value;
        const bool isControl = value < 0x20 && value != '\t';
        const bool isNoCharacter =
            (value >= 0xD800 && value <= 0xDFFF) || value == 0xFFFE || value == 0xFFFF || value > 0x10FFFF;
        if (!character.isWellFormed || isControl || isNoCharacter) {
            escaped += "\uFFFD";
        } else if (value == '&') {
            escaped += "&amp;";
        } else if (value == '<') {
            escaped += "&lt;";
        } else if (value == '>') {
            escaped += "&gt;";
        } else {
            escaped += text.substr(0, character.bytes);
        }
        text.remove_prefix(character.bytes);
    }
    return escaped;
}

class Writer {
public:
    std::string Write(const Drawing& drawing, const std::string& title) {
        Line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
        Line(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"{:g}mm\" height=\"{:.2f}mm\" "
            "viewBox=\"0 0 {:g} {:.1f}\">",
            PageWidthMm, drawing.height * PageWidthMm / drawing.width, drawing.width, drawing.height);
        Line("<title>{}</title>", Escape(title));
        WriteStyle();
        Line("<rect class=\"paper\" x=\"0\" y=\"0\" width=\"{:g}\" height=\"{:.1f}\"/>", drawing.width, drawing.height);
        for (const Box& box : drawing.boxes)
            WriteBox(box);
        for (const Curve& curve : drawing.curves)
            WriteCurve(curve);
        for (const Arc& arc : drawing.arcs)
            WriteArc(arc);
        for (const Sign& sign : drawing.signs)
            WriteSign(sign);
        for (const Text& text : drawing.texts)
            WriteText(text);
        Line("</svg>");
        return std::move(svg_);
    }

private:
    template <class... Values>
    void Line(fmt::format_string<Values...> format, Values&&... values) {
        fmt::format_to(std::back_inserter(svg_), format, std::forward<Values>(values)...);
        svg_ += '\n';
    }

    void WriteColours(const char* paper, const char* InkColours::*colour) {
        Line(".paper{{fill:{0}}}text{{stroke:{0}}}", paper);
        for (const InkColours& row : Colours)
            Line(".{0}{{fill:{1}}}.{0}-line{{stroke:{1}}}", row.name, row.*colour);
    }

    void WriteStyle() {
        Line("<style>");
        Line("@page{{size:A4 portrait;margin:0}}");
        // The ground's colour around letters keeps them readable where a line passes behind.
        Line(
            "text{{font-family:\"Helvetica Neue\",Helvetica,Arial,\"Liberation Sans\",\"DejaVu Sans\",sans-serif;"
            "paint-order:stroke;stroke-width:3px;stroke-linejoin:round;white-space:pre}}");
        Line(".bold{{font-weight:bold}}.line{{fill:none;stroke-linejoin:round}}.tint{{fill-opacity:.17}}");
        WriteColours("#ffffff", &InkColours::onLight);
        Line("@media screen and (prefers-color-scheme:dark){{");
        WriteColours("#15171a", &InkColours::onDark);
        Line(".tint{{fill-opacity:.28}}");
        Line("}}");
        Line("</style>");
        Line(
            "<defs><pattern id=\"hatch\" width=\"7\" height=\"7\" patternUnits=\"userSpaceOnUse\" "
            "patternTransform=\"rotate(45)\"><path class=\"line cut-line\" stroke-width=\"2.6\" d=\"M0 0V7\"/>"
            "</pattern></defs>");
    }

    void WriteBox(const Box& box) {
        const std::string_view name = NameOf(box.ink);
        const std::string place = fmt::format("x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"{:.2f}\"{}",
                                              box.left, box.top, std::max(box.width, 0.0), box.height,
                                              box.radius > 0 ? fmt::format(" rx=\"{:g}\"", box.radius) : "");
        if (box.fill == Fill::Tint) Line("<rect class=\"{} tint\" {}/>", name, place);
        if (box.fill == Fill::Hatch) Line("<rect fill=\"url(#hatch)\" {}/>", place);
        if (box.hasOutline) Line("<rect class=\"line {}-line\" stroke-width=\"1\" {}/>", name, place);
    }

    void WriteCurve(const Curve& curve) {
        std::string points;
        for (const Point& point : curve.points)
            points += fmt::format("{}{:.2f},{:.2f}", points.empty() ? "" : " ", point.x, point.y);
        Line("<polyline class=\"line {}-line\" stroke-width=\"{:g}\"{} points=\"{}\"/>", NameOf(curve.ink), curve.width,
             curve.isDashed ? " stroke-dasharray=\"4 3\"" : "", points);
    }

    void WriteArc(const Arc& arc) {
        const std::string_view name = NameOf(arc.ink);
        const double radius = std::min({12.0, (arc.right - arc.left) / 2, arc.bottom - arc.top});
        std::string path;
        if (arc.hasStart) {
            path = fmt::format("M{:.2f} {:.2f}V{:.2f}q0 {:.2f} {:.2f} {:.2f}", arc.left, arc.bottom, arc.top + radius,
                               -radius, radius, -radius);
        } else {
            path = fmt::format("M{:.2f} {:.2f}", arc.left, arc.top);
        }
        if (arc.hasEnd) {
            path += fmt::format("H{:.2f}q{:.2f} 0 {:.2f} {:.2f}V{:.2f}", arc.right - radius, radius, radius, radius,
                                arc.bottom);
        } else {
            path += fmt::format("H{:.2f}", arc.right);
        }
        Line("<path class=\"line {}-line\" stroke-width=\"1.8\" d=\"{}\"/>", name, path);
        if (arc.hasStart) Line("<path class=\"{}\" d=\"M{:.2f} {:.2f}l-4 -7h8z\"/>", name, arc.left, arc.bottom + 2);
    }

    void WriteSign(const Sign& sign) {
        const std::string_view name = NameOf(sign.ink);
        const double x = sign.centre.x;
        const double y = sign.centre.y;
        const double half = sign.size / 2;
        switch (sign.kind) {
            case Sign::Kind::Fermata:
                Line(
                    "<path class=\"line {0}-line\" stroke-width=\"1.8\" d=\"M{1:.2f} {2:.2f}a{3:.2f} {3:.2f} 0 0 1 "
                    "{4:.2f} 0\"/><circle class=\"{0}\" cx=\"{5:.2f}\" cy=\"{6:.2f}\" r=\"1.7\"/>",
                    name, x - half, y + half * 0.6, half, sign.size, x, y + half * 0.35);
                return;
            case Sign::Kind::Caesura:
                for (const double shift : {-3.0, 2.0})
                    Line("<path class=\"line {}-line\" stroke-width=\"2\" d=\"M{:.2f} {:.2f}L{:.2f} {:.2f}\"/>", name,
                         x + shift - 2, y + half, x + shift + 3, y - half);
                return;
            case Sign::Kind::Cue:
                Line("<path class=\"{}\" d=\"M{:.2f} {:.2f}L{:.2f} {:.2f}L{:.2f} {:.2f}z\"/>", name, x - half, y - half,
                     x + half * 0.7, y, x - half, y + half);
                return;
            default:
                WriteNote(sign);
                return;
        }
    }

    void WriteNote(const Sign& sign) {
        const std::string_view name = NameOf(sign.ink);
        const double x = sign.centre.x - 1;
        const double bottom = sign.centre.y + sign.size / 2 - 2;
        const double top = sign.centre.y - sign.size / 2;
        const bool isHollow = sign.kind == Sign::Kind::HalfNote;
        Line("<ellipse class=\"{}\" stroke-width=\"1.2\" cx=\"{:.2f}\" cy=\"{:.2f}\" rx=\"3\" ry=\"2.3\"/>",
             isHollow ? fmt::format("line {}-line", name) : std::string(name), x, bottom);
        Line("<path class=\"line {}-line\" stroke-width=\"1.2\" d=\"M{:.2f} {:.2f}V{:.2f}{}\"/>", name, x + 2.6, bottom,
             top, sign.kind == Sign::Kind::ShortNote ? "q1 3 3.5 4" : "");
        if (sign.kind == Sign::Kind::DottedNote)
            Line("<circle class=\"{}\" cx=\"{:.2f}\" cy=\"{:.2f}\" r=\"1.2\"/>", name, x + 5.5, bottom);
    }

    void WriteText(const Text& text) {
        Line("<text class=\"{}{}\" font-size=\"{:g}\" x=\"{:.2f}\" y=\"{:.2f}\">{}</text>", NameOf(text.ink),
             text.isBold ? " bold" : "", text.size, text.start.x, text.start.y, Escape(text.text));
    }

    std::string svg_;
};

}  // namespace

std::string AsSvg(const Drawing& drawing, const std::string& title) {
    return Writer().Write(drawing, title);
}

}  // namespace stage::flow
