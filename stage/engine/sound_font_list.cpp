#include "stage/engine/sound_font_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>

#include "stage/engine/channel_state.h"
#include "stage/engine/data_directories.h"
#include "stage/engine/sound_font.h"

namespace stage {

namespace {

constexpr std::size_t PresetBytes = 38;
constexpr std::size_t MostPresets = 10'000;
constexpr std::size_t LongestTitle = 256;

/// The file's chunks (RIFF), read in order.
class ChunkReader {
public:
    explicit ChunkReader(const std::string& path) : path_(path), file_(path, std::ios::binary) {}

    [[noreturn]] void Fail() const {
        throw std::runtime_error(fmt::format("the file \"{}\" cannot be read as a SoundFont", path_));
    }
    /// False at the end.
    bool ReadHead(std::string& name, std::uint32_t& bytes) {
        std::array<char, 8> head{};
        if (!file_.read(head.data(), head.size())) return false;
        name.assign(head.data(), 4);
        bytes = 0;
        for (std::size_t i = 8; i > 4; --i)
            bytes = bytes << 8U | static_cast<unsigned char>(head.at(i - 1));
        return true;
    }
    std::string ReadBytes(std::size_t bytes) {
        std::string text(bytes, '\0');
        if (!file_.read(text.data(), static_cast<std::streamsize>(bytes))) Fail();
        return text;
    }
    void Skip(std::uint32_t bytes) {
        // Chunks begin at even places.
        file_.seekg(std::streamoff{bytes} + bytes % 2, std::ios::cur);
    }

private:
    const std::string path_;
    std::ifstream file_;
};

int ReadWord(const std::string& bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]) | static_cast<unsigned char>(bytes[at + 1]) << 8;
}

// The last one only marks the end.
void ReadPresets(const std::string& bytes, SoundFontContents& contents) {
    for (std::size_t at = 0; at + 2 * PresetBytes <= bytes.size(); at += PresetBytes)
        contents.programs.emplace(ReadWord(bytes, at + 22), ReadWord(bytes, at + 20));
}

std::vector<std::filesystem::path> ListSoundDirectories() {
    std::vector<std::filesystem::path> roots;
    const auto value = [](const char* name) {
        const char* const text = std::getenv(name);
        return std::string(text != nullptr ? text : "");
    };
    if (const std::string home = value("XDG_DATA_HOME"); !home.empty()) {
        roots.emplace_back(home);
    } else if (!value("HOME").empty()) {
        roots.push_back(std::filesystem::path(value("HOME")) / ".local/share");
    }
    for (const std::string& directory : ListDataDirectories())
        roots.emplace_back(directory);
    std::vector<std::filesystem::path> directories;
    for (const std::filesystem::path& root : roots)
        for (const char* const folder : {"sounds/sf2", "sounds/sf3", "soundfonts"})
            directories.push_back(root / folder);
    return directories;
}

bool IsSoundFontName(const std::filesystem::path& path) {
    const std::string extension = path.extension().string();
    return extension == ".sf2" || extension == ".SF2" || extension == ".sf3" || extension == ".SF3";
}

/// The same file under all its names: distributions have links for the default one.
std::string FindFile(const std::string& path) {
    std::error_code problem;
    const std::filesystem::path file = std::filesystem::canonical(path, problem);
    return problem ? path : file.string();
}

}  // namespace

SoundFontContents ReadSoundFontContents(const std::string& path) {
    ChunkReader reader(path);
    SoundFontContents contents;
    std::string name;
    std::uint32_t bytes = 0;
    if (!reader.ReadHead(name, bytes) || name != "RIFF" || reader.ReadBytes(4) != "sfbk") reader.Fail();
    std::error_code problem;
    // One that was cut short: the synthesizer's library would write of it to the terminal.
    if (std::filesystem::file_size(path, problem) < std::uintmax_t{bytes} + 8) reader.Fail();
    bool hasPresets = false;
    while (!hasPresets && reader.ReadHead(name, bytes)) {
        if (name == "LIST") {
            // What is in the lists follows; the samples are passed over as a whole.
            if (bytes < 4) reader.Fail();
            if (reader.ReadBytes(4) == "sdta") reader.Skip(bytes - 4);
        } else if (name == "INAM" && bytes <= LongestTitle) {
            contents.title = reader.ReadBytes(bytes);
            contents.title.resize(std::min(contents.title.find('\0'), contents.title.size()));
            if (bytes % 2 == 1) static_cast<void>(reader.ReadBytes(1));
        } else if (name == "phdr") {
            if (bytes > MostPresets * PresetBytes) reader.Fail();
            ReadPresets(reader.ReadBytes(bytes), contents);
            hasPresets = true;
        } else {
            reader.Skip(bytes);
        }
    }
    if (!hasPresets) reader.Fail();
    return contents;
}

std::vector<InstalledSoundFont> ListSoundFonts() {
    std::string standard;
    try {
        standard = FindFile(FindDefaultSoundFont());
    } catch (const std::runtime_error&) {
        // Without one there is none that is marked.
    }
    std::map<std::string, InstalledSoundFont> fonts;
    for (const std::filesystem::path& directory : ListSoundDirectories()) {
        std::error_code problem;
        for (const auto& entry : std::filesystem::directory_iterator(directory, problem)) {
            std::error_code ignored;
            if (!IsSoundFontName(entry.path()) || !entry.is_regular_file(ignored)) continue;
            const std::string path = FindFile(entry.path().string());
            try {
                SoundFontContents contents = ReadSoundFontContents(path);
                fonts[path] = {path, std::move(contents.title), std::filesystem::file_size(path, ignored),
                               contents.programs.size(), path == standard};
            } catch (const std::runtime_error&) {
                // It is of no use to a show.
            }
        }
    }
    std::vector<InstalledSoundFont> list;
    for (auto& [path, font] : fonts)
        list.push_back(std::move(font));
    return list;
}

ProgramsPlayed FindProgramsPlayed(const tavo_midi::SongData& song) {
    ProgramsPlayed played;
    std::vector<ChannelState> states;
    for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
        if (event.status >= 0xF0) continue;
        const std::size_t channel = ChannelOf(event);
        if (states.size() <= channel) states.resize(channel + 1);
        ApplyMessage(states[channel], event);
        if ((event.status & 0xF0U) != 0x90 || event.data2 == 0) continue;
        const std::uint32_t program = states[channel].program;
        const int bank = channel % 16 == 9 ? DrumKitBank : static_cast<int>(program >> 14 & 0x7FU);
        played[{bank, static_cast<int>(program & 0x7FU)}].insert(channel + 1);
    }
    return played;
}

}  // namespace stage
