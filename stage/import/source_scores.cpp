#include "stage/import/source_scores.h"

#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "kit/file.h"
#include "kit/json_object.h"
#include "kit/path.h"
#include "stage/import/musicxml/mxl_archive.h"
#include "stage/import/musicxml/score_file.h"

namespace stage {

namespace {

constexpr std::size_t LargestMeasuresFile = 4U << 20U;
constexpr std::size_t MostMeasures = 200000;

bool IsLetterOrFigure(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string WriteForFileName(const std::string& songNumber) {
    std::string name;
    for (const char c : songNumber)
        name += IsLetterOrFigure(c) ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    return name;
}

std::string MakeMeasuresName(const std::string& songNumber) {
    return WriteForFileName(songNumber) + ".measures.json";
}

}  // namespace

std::string MakeSourceScoreName(const std::string& songNumber, const std::string& fileName) {
    return WriteForFileName(songNumber) + (fileName.ends_with(".mxl") ? ".mxl" : ".musicxml");
}

std::vector<std::string> KeepSourceScore(const std::string& showPath, const std::string& songNumber,
                                         const std::string& scoreFile, const std::vector<std::uint32_t>& measures) {
    const std::string folder = kit::path::Join(showPath, SourceScoreFolder);
    std::error_code error;
    const bool isNew = std::filesystem::create_directory(folder, error);
    if (error)
        throw std::runtime_error(fmt::format("the directory \"{}\" cannot be made: {}", folder, error.message()));
    const std::string bytes = kit::ReadFile(scoreFile, musicxml::MaxScoreFileBytes);
    const std::string scorePath =
        kit::path::Join(folder, MakeSourceScoreName(songNumber, musicxml::IsArchive(bytes) ? ".mxl" : ".musicxml"));
    const std::string measurePath = kit::path::Join(folder, MakeMeasuresName(songNumber));
    kit::WriteNewFileDurably(scorePath, bytes);
    kit::WriteNewFileDurably(measurePath, nlohmann::json{{"measures", measures}}.dump() + "\n");
    std::vector<std::string> made{scorePath, measurePath};
    if (isNew) made.push_back(folder);
    return made;
}

std::vector<std::uint32_t> ReadScoreMeasures(const std::string& showPath, const std::string& songNumber) {
    const std::string path =
        kit::path::Join(kit::path::Join(showPath, SourceScoreFolder), MakeMeasuresName(songNumber));
    std::vector<std::uint32_t> measures;
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) return measures;
    const std::string text = kit::ReadFile(path, LargestMeasuresFile);
    const kit::JsonText json(text, path, {.bytes = LargestMeasuresFile});
    kit::JsonObject object = json.Object();
    for (const kit::JsonValue& measure : object.Get("measures").AsList(MostMeasures))
        measures.push_back(measure.AsUnsigned());
    object.RefuseOtherKeys();
    return measures;
}

std::string FindSourceScore(const std::string& showPath, const std::string& songNumber) {
    for (const char* const extension : {".mxl", ".musicxml"}) {
        std::string path =
            kit::path::Join(kit::path::Join(showPath, SourceScoreFolder), MakeSourceScoreName(songNumber, extension));
        std::error_code ignored;
        if (std::filesystem::is_regular_file(path, ignored)) return path;
    }
    return "";
}

std::string ReadSourceScore(const std::string& showPath, const std::string& songNumber) {
    const std::string path = FindSourceScore(showPath, songNumber);
    if (path.empty()) throw std::runtime_error(fmt::format("song {} has no score", songNumber));
    std::string bytes = kit::ReadFile(path, musicxml::MaxScoreFileBytes);
    return musicxml::IsArchive(bytes) ? musicxml::ReadScoreMember(bytes, path) : bytes;
}

}  // namespace stage
