#include "tavo_core/change_log.h"

#include <filesystem>
#include <stdexcept>

#include "change_log_reader.h"
#include "change_log_writer.h"
#include "kit/file.h"
#include "kit/path.h"
#include "utf8.h"

namespace CL {

namespace {

constexpr std::uintmax_t longestFile = 64U << 20U;
// Leaves room for the version and the extension in the 255 bytes of a file name.
constexpr std::size_t longestShowPart = 200;

/// The show's name with '_' for what cannot stand in a file name on the systems that shows travel between.
std::string AsFileName(const std::string& showName) {
    std::string name = showName.substr(0, tavo_core::CutUtf8(showName, longestShowPart));
    for (char& character : name) {
        const bool control = static_cast<unsigned char>(character) < 0x20 || character == 0x7f;
        if (control || std::string_view("/\\:*?\"<>|").find(character) != std::string_view::npos) character = '_';
    }
    if (name.empty()) return "show";
    if (name.front() == '.') name.front() = '_';
    return name;
}

template <class Songs>
auto& FindSongLog(Songs& songLogs, const std::string& songNumber) {
    const auto found = songLogs.find(songNumber);
    if (found == songLogs.end()) throw std::out_of_range("The change log has no song \"" + songNumber + "\".");
    return found->second;
}

}  // namespace

ChangeLog ChangeLog::Load(const std::string& path) {
    ChangeLog log = Parse(kit::ReadFile(path, longestFile), path);
    const std::string parent = std::filesystem::path(path).parent_path().string();
    log.directory_ = parent.empty() ? "." : parent;
    return log;
}

ChangeLog ChangeLog::Parse(const std::string& text, const std::string& name) {
    return tavo_core::ReadChangeLog(text, name);
}

std::string ChangeLog::AsText() const {
    return tavo_core::WriteChangeLog(*this);
}

std::string ChangeLog::Save(const std::string& path) {
    std::string target = path;
    if (target.empty()) {
        if (directory_.empty()) throw std::runtime_error("The change log has no directory to be saved in.");
        target = kit::path::Join(directory_, AsFileName(showName_) + '-' + version_.GetAsString() + ".logdata");
    }
    const std::string text = AsText();
    // Nobody notices a file that cannot be read back until the evening it is needed: better refuse it now.
    static_cast<void>(Parse(text, target));
    kit::WriteNewFileDurably(target, text);
    return target;
}

const SongLog& ChangeLog::GetSongLog(const std::string& songNumber) const {
    return FindSongLog(songLogs_, songNumber);
}

SongLog& ChangeLog::GetSongLog(const std::string& songNumber) {
    return FindSongLog(songLogs_, songNumber);
}

}  // namespace CL
