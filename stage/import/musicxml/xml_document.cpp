#include "stage/import/musicxml/xml_document.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace stage::musicxml {

namespace {

/// What the library keeps of an element or a text, and of an attribute.
constexpr std::size_t NodeBytes = 64;
constexpr std::size_t AttributeBytes = 40;

/// At most what the tree of this text takes, in whatever encoding: the zero bytes between the ASCII characters of
/// UTF-16 are passed over, and a byte of another character that looks like a bracket only makes it more.
std::size_t EstimateTree(std::string_view text) {
    std::size_t bytes = 0;
    bool isText = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char character = text[at];
        if (character == '<') {
            const std::size_t following = text.find_first_not_of('\0', at + 1);
            const char next = following == std::string_view::npos ? '\0' : text[following];
            if (next != '/' && next != '?') bytes += NodeBytes;
            if (isText) bytes += NodeBytes;
            isText = false;
        } else if (character == '>') {
            isText = false;
        } else if (static_cast<std::uint8_t>(character) > ' ') {
            isText = true;
            if (character == '=') bytes += AttributeBytes;
        }
    }
    return bytes;
}

std::size_t CountUtf8Bytes(std::uint32_t unit) {
    const bool isHalfOfAPair = unit >= 0xD800 && unit < 0xE000;
    return unit < 0x80 ? 1 : unit < 0x800 || isHalfOfAPair ? 2 : unit < 0x10000 ? 3 : 4;
}

/// The line of the byte at `offset` once the text is UTF-8, as the library counts.
std::size_t FindLine(std::string_view text, pugi::xml_encoding encoding, std::size_t offset) {
    const bool isUtf16 = encoding == pugi::encoding_utf16_le || encoding == pugi::encoding_utf16_be;
    const bool isUtf32 = encoding == pugi::encoding_utf32_le || encoding == pugi::encoding_utf32_be;
    const bool isBigEndian = encoding == pugi::encoding_utf16_be || encoding == pugi::encoding_utf32_be;
    const std::size_t width = isUtf32 ? 4 : isUtf16 ? 2 : 1;
    std::size_t line = 1;
    std::size_t passed = 0;
    for (std::size_t at = 0; at + width <= text.size() && passed < offset; at += width) {
        std::uint32_t unit = 0;
        for (std::size_t i = 0; i < width; ++i)
            unit = unit << 8U | static_cast<std::uint8_t>(text[isBigEndian ? at + i : at + width - 1 - i]);
        passed += encoding == pugi::encoding_utf8 ? 1 : CountUtf8Bytes(unit);
        if (unit == '\n') ++line;
    }
    return line;
}

}  // namespace

std::unique_ptr<pugi::xml_document> ParseXml(std::string_view bytes, const std::string& place) {
    if (EstimateTree(bytes) > MaxTreeBytes)
        throw std::runtime_error(
            fmt::format("{} holds more elements than {} MB of memory take", place, MaxTreeBytes >> 20U));
    auto tree = std::make_unique<pugi::xml_document>();
    const pugi::xml_parse_result result = tree->load_buffer(bytes.data(), bytes.size());
    if (result) return tree;
    const auto offset = static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0));
    throw std::runtime_error(
        fmt::format("{} is not XML: line {} cannot be read", place, FindLine(bytes, result.encoding, offset)));
}

}  // namespace stage::musicxml
