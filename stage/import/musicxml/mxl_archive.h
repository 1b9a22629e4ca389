#pragma once

#include <string>
#include <string_view>

namespace stage::musicxml {

/// Whether the bytes begin as a ZIP archive does, as a compressed score is one.
[[nodiscard]] bool IsArchive(std::string_view bytes);

/// The score in a compressed MusicXML file (MusicXML 4.0, "Compressed .mxl files"): the member that
/// META-INF/container.xml names first. Throws std::runtime_error with one sentence that names the file and the member.
[[nodiscard]] std::string ReadScoreMember(std::string_view archive, const std::string& name);

}  // namespace stage::musicxml
