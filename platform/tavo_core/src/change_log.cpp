#include "tavo_core/change_log.h"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "change_log_limits.h"
#include "change_log_reader.h"
#include "change_log_writer.h"
#include "kit/file.h"
#include "kit/path.h"
#include "kit/utf8.h"

namespace CL {

namespace {

constexpr std::uintmax_t LongestFile = 64U << 20U;
// Leaves room for the version and the extension in the 255 bytes of a file name.
constexpr std::size_t LongestShowPart = 200;
constexpr std::size_t LongestName = 255;
constexpr std::string_view Extension = ".logdata";
constexpr std::string_view CopyMark = "-copy";

/// The show's name with '_' for what cannot stand in a file name on the systems that shows travel between.
std::string AsFileName(const std::string& showName) {
    std::string name = showName.substr(0, kit::CutUtf8(showName, LongestShowPart));
    for (char& character : name) {
        const bool control = static_cast<unsigned char>(character) < 0x20 || character == 0x7f;
        if (control || std::string_view("/\\:*?\"<>|").find(character) != std::string_view::npos) character = '_';
    }
    if (name.empty()) return "show";
    if (name.front() == '.') name.front() = '_';
    return name;
}

/// The last of the names, in the order of a scan, whose version is this one: the one that a scan would take.
std::string FindLastOfVersion(const std::vector<std::string>& names, const cmn::TAVOVersion& version) {
    std::string last;
    for (const std::string& name : names) {
        if (kit::path::extension(name) != Extension) continue;
        cmn::TAVOVersion found;
        try {
            found.SetWithFileName(name);
        } catch (const std::invalid_argument&) {
            continue;
        }
        if (found == version) last = name;
    }
    return last;
}

/// "a" becomes "a-copy002", which becomes "a-copy003": later in the order of names each time.
std::string NextCopy(const std::string& stem) {
    constexpr std::size_t Digits = 3;
    constexpr unsigned int LastCopy = 999;
    const std::size_t mark = stem.rfind(CopyMark);
    if (mark != std::string::npos && stem.size() == mark + CopyMark.size() + Digits) {
        const std::string count = stem.substr(mark + CopyMark.size());
        const bool isNumber = count.find_first_not_of("0123456789") == std::string::npos;
        if (isNumber && std::stoul(count) < LastCopy)
            return fmt::format("{}{}{:03}", stem.substr(0, mark), CopyMark, std::stoul(count) + 1);
    }
    return fmt::format("{}{}002", stem, CopyMark);
}

/// A free name for the version, such that a scan of the directory takes this file and no older one of that version.
std::string ChooseName(const std::string& directory, const std::string& show, const cmn::TAVOVersion& version) {
    const std::string last = FindLastOfVersion(kit::listdir(directory), version);
    const std::string ending = fmt::format("-{}{}", version.GetAsString(), Extension);
    const std::string lastBase = kit::path::basename_no_ext(last);
    const std::size_t dash = lastBase.rfind('-');
    const std::string lastStem = dash == std::string::npos ? "" : lastBase.substr(0, dash);
    for (const std::string& stem : {show, NextCopy(show), NextCopy(lastStem)}) {
        if (stem + ending > last && stem.size() + ending.size() <= LongestName) return stem + ending;
    }
    throw std::runtime_error(fmt::format("no name for version {} comes after \"{}\" in the directory \"{}\"",
                                         version.GetAsString(), last, directory));
}

template <class Songs>
auto& FindSongLog(Songs& songLogs, const std::string& songNumber) {
    const auto found = songLogs.find(songNumber);
    if (found == songLogs.end()) throw std::out_of_range("the change log has no song \"" + songNumber + "\"");
    return found->second;
}

}  // namespace

ChangeLog ChangeLog::Load(const std::string& path) {
    ChangeLog log = Parse(kit::ReadFile(path, LongestFile), path);
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
        if (directory_.empty()) throw std::runtime_error("the change log has no directory to be saved in");
        target = kit::path::Join(directory_, ChooseName(directory_, AsFileName(showName_), version_));
    }
    const std::string text = AsText();
    // Nobody notices a file that cannot be read back until the evening it is needed: better refuse it now.
    if (text.size() > LongestFile)
        throw std::runtime_error(
            fmt::format("{}: the change log has {} bytes, and {} are the most", target, text.size(), LongestFile));
    // The reader says what is wrong, and where.
    if (!tavo_core::LiesWithinFormat(*this)) static_cast<void>(Parse(text, target));
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
