#include "stage/import/musicxml/xml_document.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace stage::musicxml {

namespace {

constexpr std::uint32_t Replacement = 0xFFFD;
/// What the library keeps of an element or a text, and of an attribute.
constexpr std::size_t NodeBytes = 64;
constexpr std::size_t AttributeBytes = 40;

void AppendUtf8(std::string& text, std::uint32_t code) {
    const auto append = [&](std::uint32_t byte) { text += static_cast<char>(static_cast<std::uint8_t>(byte)); };
    if (code < 0x80) {
        append(code);
    } else if (code < 0x800) {
        append(0xC0U | code >> 6U);
        append(0x80U | (code & 0x3FU));
    } else if (code < 0x10000) {
        append(0xE0U | code >> 12U);
        append(0x80U | (code >> 6U & 0x3FU));
        append(0x80U | (code & 0x3FU));
    } else {
        append(0xF0U | code >> 18U);
        append(0x80U | (code >> 12U & 0x3FU));
        append(0x80U | (code >> 6U & 0x3FU));
        append(0x80U | (code & 0x3FU));
    }
}

std::string FromUtf16(std::string_view bytes, bool isBigEndian) {
    const auto unit = [&](std::size_t index) -> std::uint32_t {
        const std::uint32_t first = static_cast<std::uint8_t>(bytes[2 * index]);
        const std::uint32_t second = static_cast<std::uint8_t>(bytes[2 * index + 1]);
        return isBigEndian ? first << 8U | second : second << 8U | first;
    };
    const std::size_t units = bytes.size() / 2;
    std::string text;
    text.reserve(units);
    for (std::size_t index = 0; index < units; ++index) {
        const std::uint32_t code = unit(index);
        const bool isHigh = code >= 0xD800 && code < 0xDC00;
        if (isHigh && index + 1 < units && unit(index + 1) >= 0xDC00 && unit(index + 1) < 0xE000)
            AppendUtf8(text, 0x10000 + ((code - 0xD800) << 10U) + (unit(++index) - 0xDC00));
        else
            AppendUtf8(text, code >= 0xD800 && code < 0xE000 ? Replacement : code);
    }
    return text;
}

bool DeclaresLatin1(std::string_view bytes) {
    if (!bytes.starts_with("<?xml")) return false;
    std::string declaration(bytes.substr(0, std::min(bytes.find('>'), std::size_t{200})));
    std::transform(declaration.begin(), declaration.end(), declaration.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return declaration.find("iso-8859-1\"") != std::string::npos ||
           declaration.find("iso-8859-1'") != std::string::npos || declaration.find("latin1") != std::string::npos;
}

/// At most what the tree of this text takes.
std::size_t EstimateTree(std::string_view text) {
    std::size_t bytes = 0;
    bool isText = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char character = text[at];
        if (character == '<') {
            const char next = at + 1 < text.size() ? text[at + 1] : '\0';
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

}  // namespace

std::string DecodeXml(std::string_view bytes) {
    using namespace std::string_view_literals;
    if (bytes.starts_with("\xEF\xBB\xBF"sv)) return std::string(bytes.substr(3));
    if (bytes.starts_with("\xFE\xFF"sv)) return FromUtf16(bytes.substr(2), true);
    if (bytes.starts_with("\xFF\xFE"sv)) return FromUtf16(bytes.substr(2), false);
    if (bytes.starts_with("\0<"sv)) return FromUtf16(bytes, true);
    if (bytes.starts_with("<\0"sv)) return FromUtf16(bytes, false);
    if (!DeclaresLatin1(bytes)) return std::string(bytes);
    std::string text;
    text.reserve(bytes.size());
    for (const char character : bytes)
        AppendUtf8(text, static_cast<std::uint8_t>(character));
    return text;
}

std::unique_ptr<XmlDocument> ParseXml(std::string_view bytes, const std::string& place) {
    auto document = std::make_unique<XmlDocument>();
    document->text = DecodeXml(bytes);
    std::string& text = document->text;
    if (EstimateTree(text) > MaxTreeBytes)
        throw std::runtime_error(
            fmt::format("{} holds more elements than {} MB of memory take", place, MaxTreeBytes >> 20U));
    const pugi::xml_parse_result result =
        document->tree.load_buffer_inplace(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (result) return document;
    // Reading changes the text in place, so that its lines are counted in another copy.
    const std::string original = DecodeXml(bytes);
    const auto end = original.begin() + std::clamp<std::ptrdiff_t>(result.offset, 0, std::ssize(original));
    throw std::runtime_error(
        fmt::format("{} is not XML: line {} cannot be read", place, 1 + std::count(original.begin(), end, '\n')));
}

}  // namespace stage::musicxml
