#include "journal_text.h"

#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "change_log_writer.h"
#include "kit/file.h"
#include "kit/path.h"
#include "tavo_core/log_change_text.h"

namespace tavo_core::journal {

namespace {

constexpr std::string_view FormatName = "logdata journal";
constexpr unsigned int FormatVersion = 1;
constexpr std::uintmax_t LongestLog = 64U << 20U;

constexpr std::string_view CheckBegin = "{\"check\":\"";
constexpr std::string_view CheckEnd = "\",";
constexpr std::size_t CheckDigits = 16;
constexpr std::string_view StateKey = "\"state\":\"";
constexpr std::string_view StateEndMark = "\",";

std::string AsHex(std::uint64_t hash) {
    return fmt::format("{:016x}", hash);
}

/// `members` are those of a JSON object after its first one, with the closing brace.
std::string MakeLine(const std::string& members, std::uint64_t& chain) {
    chain = Hash(members, chain);
    return fmt::format("{}{}{}{}\n", CheckBegin, AsHex(chain), CheckEnd, members);
}

/// The members of a line whose checksum is right; none for any other.
std::optional<std::string> TakeMembers(std::string_view line, std::uint64_t& chain) {
    const std::size_t before = CheckBegin.size() + CheckDigits + CheckEnd.size();
    if (line.size() < before || !line.starts_with(CheckBegin)) return std::nullopt;
    if (line.substr(before - CheckEnd.size(), CheckEnd.size()) != CheckEnd) return std::nullopt;
    const std::string_view members = line.substr(before);
    const std::uint64_t hash = Hash(members, chain);
    if (line.substr(CheckBegin.size(), CheckDigits) != AsHex(hash)) return std::nullopt;
    chain = hash;
    return std::string(members);
}

CL::LogChange ReadChange(std::string_view members, std::string& stateAfter, const std::string& place) {
    const std::size_t stateEnd = members.find(StateEndMark);
    if (stateEnd == std::string_view::npos) throw std::runtime_error(place + ": the line is not a change");
    stateAfter = members.substr(StateKey.size(), stateEnd - StateKey.size());
    return CL::ReadLogChange("{" + std::string(members.substr(stateEnd + StateEndMark.size())), place);
}

Origin ReadOrigin(const nlohmann::json& object, const std::string& name, std::vector<std::string>& newerLogs) {
    Origin origin;
    try {
        if (object.at("format") != FormatName) throw std::runtime_error(name + " is not a journal of a change log");
        if (object.at("formatVersion") != FormatVersion)
            throw std::runtime_error(fmt::format("{}: the format version is not {}", name, FormatVersion));
        origin.logName = object.at("log").get<std::string>();
        if (!object.at("bytes").is_null()) origin.bytes = object.at("bytes").get<std::uintmax_t>();
        origin.hash = object.at("hash").get<std::string>();
        if (object.contains("newer")) newerLogs = object["newer"].get<std::vector<std::string>>();
    } catch (const nlohmann::json::exception&) {
        throw std::runtime_error(name + " is not a journal of a change log");
    }
    return origin;
}

void ReadMembers(const std::string& members, Text& text, const std::string& name, const std::string& place) {
    if (text.origin && members.starts_with(StateKey)) {
        text.changes.push_back(ReadChange(members, text.stateAfter, place));
        text.savedIn.clear();
        return;
    }
    const nlohmann::json object = nlohmann::json::parse("{" + members, nullptr, false);
    if (!text.origin) {
        if (!object.is_object()) throw std::runtime_error(name + " is not a journal of a change log");
        text.origin = ReadOrigin(object, name, text.newerLogs);
    } else if (object.is_object() && object.contains("savedIn") && object["savedIn"].is_string()) {
        text.savedIn = object["savedIn"].get<std::string>();
    } else {
        throw std::runtime_error(place + ": the line is neither a change nor a note of saving");
    }
}

}  // namespace

std::uint64_t Hash(std::string_view bytes, std::uint64_t before) {
    for (const char byte : bytes)
        before = (before ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
    return before;
}

std::string HashOfEdits(const CL::ChangeLog& log) {
    std::uint64_t hash = Hash("");
    for (const auto& [number, songLog] : log.GetSongLogs()) {
        bool isEmpty = songLog.GetAttacca() == CL::AttaccaNormal;
        songLog.ForEachSequence([&isEmpty](const auto& sequence) { isEmpty = isEmpty && sequence.empty(); });
        if (!isEmpty) hash = Hash(WriteSong(number, songLog), hash);
    }
    return AsHex(hash);
}

Origin FindOrigin(const std::string& logPath) {
    Origin origin{kit::path::basename(logPath), std::nullopt, ""};
    if (!std::filesystem::exists(logPath)) return origin;
    const std::string bytes = kit::ReadFile(logPath, LongestLog);
    origin.bytes = bytes.size();
    origin.hash = AsHex(Hash(bytes));
    return origin;
}

std::string WriteOrigin(const Origin& origin, const std::vector<std::string>& newerLogs, std::uint64_t& chain) {
    const auto write = [](const nlohmann::json& value) {
        return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    };
    std::string members = fmt::format("\"format\":\"{}\",\"formatVersion\":{},\"log\":{},\"bytes\":{},\"hash\":\"{}\"",
                                      FormatName, FormatVersion, write(origin.logName),
                                      origin.bytes ? std::to_string(*origin.bytes) : "null", origin.hash);
    if (!newerLogs.empty()) members += ",\"newer\":" + write(newerLogs);
    return MakeLine(members + '}', chain);
}

std::string WriteChange(const CL::LogChange& change, const std::string& stateAfter, std::uint64_t& chain) {
    // The members of the change's object follow those of the line's.
    const std::string text = CL::WriteLogChange(change);
    return MakeLine(fmt::format("{}{}{}{}", StateKey, stateAfter, StateEndMark, std::string_view(text).substr(1)),
                    chain);
}

std::string WriteSavedIn(const std::string& logName, std::uint64_t& chain) {
    const nlohmann::json name = logName;
    return MakeLine(
        fmt::format("\"savedIn\":{}}}", name.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)), chain);
}

Text Read(const std::string& text, const std::string& name) {
    Text read;
    std::size_t lineNumber = 0;
    for (std::size_t from = 0; from < text.size();) {
        ++lineNumber;
        const std::size_t end = std::min(text.find('\n', from), text.size());
        const bool isLast = end + 1 >= text.size();
        const std::optional<std::string> members =
            end == text.size() ? std::nullopt
                               : TakeMembers(std::string_view(text).substr(from, end - from), read.chain);
        if (!members) {
            if (lineNumber == 1 && !isLast) throw std::runtime_error(name + " is not a journal of a change log");
            read.problems.push_back(
                isLast ? fmt::format("{}: the last line is not whole, its change was never finished", name)
                       : fmt::format("{}, line {}: the line is damaged, the changes from there on are lost", name,
                                     lineNumber));
            break;
        }
        ReadMembers(*members, read, name, fmt::format("{}, line {}", name, lineNumber));
        from = end + 1;
        read.goodBytes = from;
    }
    return read;
}

}  // namespace tavo_core::journal
