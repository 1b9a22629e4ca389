#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace stage::musicxml {

/// Memory that a tree may take.
inline constexpr std::size_t MaxTreeBytes = std::size_t{128} << 20U;

/// Reads an XML text (XML 1.0) in UTF-8, UTF-16, UTF-32 or Latin-1, as its byte order mark or its declaration says.
/// Document types are skipped and entities they declare stay as they are written, so that nothing is fetched and
/// nothing grows. Throws std::runtime_error with one sentence that begins with `place` if the text is not XML, with the
/// line, or if its tree would take more than MaxTreeBytes.
[[nodiscard]] std::unique_ptr<pugi::xml_document> ParseXml(std::string_view bytes, const std::string& place);

}  // namespace stage::musicxml
