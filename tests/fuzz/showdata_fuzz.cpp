// Any bytes as a show file. An archive's checksums keep out nearly all of them, so bytes that do not begin as an
// archive are put into a sound one: up to the first zero byte they are its show.json, behind it they are the song file
// "1.mid".

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tavo_midi/show_file.h"

namespace {

std::uint32_t Checksum(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char byte : bytes) {
        crc ^= static_cast<std::uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

void Append(std::string& archive, std::uint32_t value, int byteCount) {
    for (int i = 0; i < byteCount; ++i)
        archive.push_back(static_cast<char>(value >> (8 * i) & 0xFFU));
}

/// A ZIP archive (PKWARE APPNOTE 6.3) whose members are stored as they are.
class StoredArchive {
public:
    void Add(std::string_view name, std::string_view bytes) {
        const auto offset = static_cast<std::uint32_t>(archive_.size());
        Append(archive_, 0x04034B50U, 4);
        AppendCommon(archive_, name, bytes);
        archive_.append(name).append(bytes);
        Append(directory_, 0x02014B50U, 4);
        Append(directory_, 20, 2);
        AppendCommon(directory_, name, bytes);
        Append(directory_, 0, 2);  // comment
        Append(directory_, 0, 2);  // disk
        Append(directory_, 0, 2);  // internal attributes
        Append(directory_, 0, 4);  // external attributes
        Append(directory_, offset, 4);
        directory_.append(name);
        ++count_;
    }

    std::string Finish() {
        const auto offset = static_cast<std::uint32_t>(archive_.size());
        archive_.append(directory_);
        Append(archive_, 0x06054B50U, 4);
        Append(archive_, 0, 4);  // disks
        Append(archive_, count_, 2);
        Append(archive_, count_, 2);
        Append(archive_, static_cast<std::uint32_t>(directory_.size()), 4);
        Append(archive_, offset, 4);
        Append(archive_, 0, 2);  // comment
        return archive_;
    }

private:
    static void AppendCommon(std::string& to, std::string_view name, std::string_view bytes) {
        Append(to, 20, 2);    // version needed
        Append(to, 0, 2);     // flags
        Append(to, 0, 2);     // stored
        Append(to, 0, 2);     // time
        Append(to, 0x21, 2);  // date
        Append(to, Checksum(bytes), 4);
        Append(to, static_cast<std::uint32_t>(bytes.size()), 4);
        Append(to, static_cast<std::uint32_t>(bytes.size()), 4);
        Append(to, static_cast<std::uint32_t>(name.size()), 2);
        Append(to, 0, 2);  // extra
    }

    std::string archive_;
    std::string directory_;
    std::uint32_t count_ = 0;
};

std::string AsArchive(std::string_view bytes) {
    if (bytes.starts_with("PK")) return std::string(bytes);
    const std::size_t split = std::min(bytes.find('\0'), bytes.size());
    StoredArchive archive;
    archive.Add("show.json", bytes.substr(0, split));
    archive.Add("1.mid", split < bytes.size() ? bytes.substr(split + 1) : std::string_view());
    return archive.Finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string archive = AsArchive({reinterpret_cast<const char*>(data), size});
    try {
        const tavo_midi::ShowData show = tavo_midi::UnpackShowData(archive, "fuzz.showdata");
        for (const tavo_midi::SongData& song : show.GetSongs()) {
            if (&show.GetSongData(song.GetSongNumber()) != &song) std::abort();
        }
    } catch (const std::runtime_error& error) {
        if (std::string_view(error.what()).find('\n') != std::string_view::npos) std::abort();
    }
    return 0;
}
