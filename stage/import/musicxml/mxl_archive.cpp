#include "stage/import/musicxml/mxl_archive.h"

#include <fmt/format.h>

#include <stdexcept>

#include "kit/zip_archive.h"
#include "stage/import/musicxml/score_file.h"
#include "stage/import/musicxml/xml_document.h"

namespace stage::musicxml {

namespace {

constexpr const char* ContainerName = "META-INF/container.xml";
constexpr std::size_t MaxContainerBytes = std::size_t{1} << 20U;
/// Pictures and parts may stand beside the score.
constexpr std::size_t MaxMembers = 10000;
constexpr std::string_view ScoreType = "application/vnd.recordare.musicxml+xml";

/// The first root file is the score, whatever others are; other types, such as a PDF, may stand before it.
std::string FindScoreName(const pugi::xml_node& container) {
    for (const pugi::xml_node& file : container.child("rootfiles").children("rootfile")) {
        const std::string_view type = file.attribute("media-type").value();
        if (type.empty() || type == ScoreType) return file.attribute("full-path").value();
    }
    return {};
}

}  // namespace

bool IsArchive(std::string_view bytes) {
    return bytes.starts_with("PK");
}

std::string ReadScoreMember(std::string_view archive, const std::string& name) {
    const kit::ZipReader reader(archive, name, MaxMembers);
    const std::string place = fmt::format("\"{}\", member \"{}\"", name, ContainerName);
    const auto container = ParseXml(reader.Read(ContainerName, MaxContainerBytes), place);
    const std::string scoreName = FindScoreName(container->child("container"));
    if (scoreName.empty()) throw std::runtime_error(place + " names no score");
    return reader.Read(scoreName, MaxScoreFileBytes);
}

}  // namespace stage::musicxml
