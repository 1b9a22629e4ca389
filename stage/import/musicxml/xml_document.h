#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace stage::musicxml {

/// An XML text (XML 1.0) and its tree, which refers into it. Document types are skipped and entities they declare stay
/// as they are written, so that nothing is fetched and nothing grows.
struct XmlDocument {
    std::string text;
    pugi::xml_document tree;
};

/// Memory that a tree may take.
inline constexpr std::size_t MaxTreeBytes = std::size_t{128} << 20U;

/// The text as UTF-8: from UTF-16 of either order, from Latin-1 where the declaration says so, without a byte order
/// mark.
[[nodiscard]] std::string DecodeXml(std::string_view bytes);

/// Throws std::runtime_error with one sentence that begins with `place` if the text is not XML, with the line, or if
/// its tree would take more than MaxTreeBytes.
[[nodiscard]] std::unique_ptr<XmlDocument> ParseXml(std::string_view bytes, const std::string& place);

}  // namespace stage::musicxml
