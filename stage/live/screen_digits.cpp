#include "stage/live/screen_digits.h"

#include <algorithm>
#include <array>
#include <string>

#include "kit/utf8.h"

namespace stage {

namespace {

constexpr int GlyphRows = 5;
constexpr int GlyphColumns = 3;

struct Glyph {
    char32_t character;
    std::array<const char*, GlyphRows> rows;
};

constexpr Glyph Glyphs[] = {
    {U'0', {"###", "# #", "# #", "# #", "###"}}, {U'1', {" # ", "## ", " # ", " # ", "###"}},
    {U'2', {"###", "  #", "###", "#  ", "###"}}, {U'3', {"###", "  #", " ##", "  #", "###"}},
    {U'4', {"# #", "# #", "###", "  #", "  #"}}, {U'5', {"###", "#  ", "###", "  #", "###"}},
    {U'6', {"###", "#  ", "###", "# #", "###"}}, {U'7', {"###", "  #", "  #", "  #", "  #"}},
    {U'8', {"###", "# #", "###", "# #", "###"}}, {U'9', {"###", "# #", "###", "  #", "###"}},
    {U'a', {"   ", " ##", "# #", "# #", " ##"}}, {U'b', {"#  ", "#  ", "## ", "# #", "## "}},
    {U'c', {"   ", "###", "#  ", "#  ", "###"}}, {U'd', {"  #", "  #", " ##", "# #", " ##"}},
    {U'-', {"   ", "   ", "###", "   ", "   "}},
};

const Glyph* FindGlyph(std::uint32_t character) {
    const auto* const found = std::find_if(std::begin(Glyphs), std::end(Glyphs),
                                           [&](const Glyph& glyph) { return glyph.character == character; });
    return found == std::end(Glyphs) ? nullptr : found;
}

}  // namespace

int BigText::GetRows() const {
    return GlyphRows * scale;
}

int BigText::CountColumns(std::string_view text) const {
    const int pixel = isNarrow ? scale : 2 * scale;
    int signs = 0;
    for (; !text.empty(); ++signs)
        text.remove_prefix(kit::ReadCharacter(text).bytes);
    return signs == 0 ? 0 : signs * (GlyphColumns + 1) * pixel - pixel;
}

void BigText::Put(ScreenPicture& picture, int row, int column, std::string_view text, ScreenStyle style) const {
    const int pixel = isNarrow ? scale : 2 * scale;
    const std::string block = picture.GetSize().isUtf8 ? "█" : "#";
    while (!text.empty()) {
        const kit::Character character = kit::ReadCharacter(text);
        const Glyph* glyph = character.isWellFormed ? FindGlyph(character.value) : nullptr;
        if (glyph == nullptr) picture.Put(row + GetRows() - 1, column + pixel, text.substr(0, character.bytes), style);
        for (int y = 0; glyph != nullptr && y < GetRows(); ++y) {
            const std::string_view dots = glyph->rows[static_cast<std::size_t>(y / scale)];
            for (int x = 0; x < GlyphColumns; ++x) {
                if (dots[static_cast<std::size_t>(x)] == ' ') continue;
                std::string blocks;
                for (int i = 0; i < pixel; ++i)
                    blocks += block;
                picture.Put(row + y, column + x * pixel, blocks, style);
            }
        }
        column += (GlyphColumns + 1) * pixel;
        text.remove_prefix(character.bytes);
    }
}

}  // namespace stage
