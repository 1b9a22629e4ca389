// Sound files into memory, through libsndfile.

#include <fmt/format.h>
#include <mpg123.h>
#include <sndfile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "stage/sounds/sound_clip.h"

namespace stage {

namespace {

constexpr sf_count_t ReadAtATime = 16384;
constexpr int LowestRate = 8000;
constexpr int HighestRate = 192000;
constexpr std::int64_t MpegHeaderBytes = 4;
/// Far below what anybody hears, far above where processors change their ways: a sound is the same on all threads.
constexpr float Inaudible = 1e-15F;

struct CloseSound {
    void operator()(SNDFILE* sound) const { sf_close(sound); }
};
using OpenSound = std::unique_ptr<SNDFILE, CloseSound>;

struct CloseFrames {
    void operator()(mpg123_handle* frames) const { mpg123_delete(frames); }
};
using OpenFrames = std::unique_ptr<mpg123_handle, CloseFrames>;

[[noreturn]] void Refuse(const std::string& reason) {
    throw std::runtime_error("cannot be played: " + reason);
}

OpenSound Open(const std::string& path, SF_INFO& info) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) throw std::runtime_error("is not there");
    // Opening a pipe would wait for whoever writes into it.
    if (!std::filesystem::is_regular_file(status)) Refuse("it is not a file");
    if (std::filesystem::file_size(path, error) == 0 && !error) Refuse("the file is empty");
    if (!std::ifstream(path, std::ios::binary)) Refuse("the file cannot be opened");
    OpenSound sound(sf_open(path.c_str(), SFM_READ, &info));
    if (sound == nullptr) Refuse("it is not a WAV, FLAC, Ogg, Opus or MP3 file, or is damaged");
    if (info.channels < 1 || info.channels > 2)
        Refuse(fmt::format("it has {} channels: make it mono or stereo", info.channels));
    if (info.samplerate < LowestRate || info.samplerate > HighestRate)
        Refuse(fmt::format("it has {} frames a second: make it {} to {}", info.samplerate, LowestRate, HighestRate));
    return sound;
}

void Append(SoundClip& clip, const std::vector<float>& interleaved, std::size_t frames, int channels) {
    const auto keep = [](float value) {
        if (!std::isfinite(value)) Refuse("the file holds values that are not numbers");
        return std::fabs(value) < Inaudible ? 0.0F : value;
    };
    for (std::size_t i = 0; i < frames; ++i) {
        if (channels == 1) {
            clip.left.push_back(keep(interleaved[i]));
            continue;
        }
        clip.left.push_back(keep(interleaved[2 * i]));
        clip.right.push_back(keep(interleaved[2 * i + 1]));
    }
}

std::uint32_t ReadLittleEndian(const char* bytes) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8U | static_cast<unsigned char>(bytes[i]);
    return value;
}

/// Whether a WAV file says that it is longer than it is: the library reads such files as if they were whole. A program
/// that wrote without knowing the length says the greatest number.
bool IsCutShort(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<char, 12> head{};
    if (!file.read(head.data(), head.size())) return false;
    const std::string_view kind(head.data(), 4);
    const std::uint32_t told = ReadLittleEndian(head.data() + 4);
    if (kind != "RIFF" || told > 0xFFFFFF00U) return false;
    std::error_code ignored;
    const std::uintmax_t size = std::filesystem::file_size(path, ignored);
    return !ignored && told > size - 8;
}

/// Whether an MP3 file ends within a frame. One that does not say how long it is, as most do, is known to be cut short
/// by that alone: one that ends between two frames sounds as if it were whole.
bool EndsWithinFrame(const std::string& path) {
    const OpenFrames frames(mpg123_new(nullptr, nullptr));
    if (frames == nullptr || mpg123_param(frames.get(), MPG123_ADD_FLAGS, MPG123_QUIET, 0) != MPG123_OK ||
        mpg123_open(frames.get(), path.c_str()) != MPG123_OK)
        return false;
    int result = MPG123_OK;
    std::int64_t end = 0;
    unsigned long header = 0;
    while ((result = mpg123_framebyframe_next(frames.get())) == MPG123_OK || result == MPG123_NEW_FORMAT) {
        unsigned char* body = nullptr;
        std::size_t size = 0;
        if (mpg123_framedata(frames.get(), &header, &body, &size) != MPG123_OK) return false;
        end = mpg123_framepos(frames.get()) + MpegHeaderBytes + static_cast<std::int64_t>(size);
    }
    if (result != MPG123_DONE || end == 0) return false;
    // What lies behind the last whole frame is a tag, or the beginning of another frame of the same kind.
    std::ifstream file(path, std::ios::binary);
    std::array<char, 2> rest{};
    file.seekg(end).read(rest.data(), rest.size());
    const auto isAsInHeader = [&](std::size_t byte, unsigned shift) {
        return static_cast<unsigned char>(rest[byte]) == (header >> shift & 0xFFU);
    };
    return file.gcount() > 0 && isAsInHeader(0, 24) && (file.gcount() == 1 || isAsInHeader(1, 16));
}

}  // namespace

SoundFile ReadSoundFile(const std::string& path, std::uint32_t framesPerSecond, SoundUse use) {
    SF_INFO info{};
    const OpenSound sound = Open(path, info);
    const auto longest = static_cast<sf_count_t>(LongestSoundSeconds * info.samplerate);
    const auto refuseLength = [] { Refuse(fmt::format("it is longer than {:.0f} minutes", LongestSoundSeconds / 60)); };
    if (info.frames > longest && info.frames != SF_COUNT_MAX) refuseLength();
    // What floating-point files hold beyond full scale stays as it is.
    SoundClip clip;
    std::vector<float> interleaved(static_cast<std::size_t>(ReadAtATime * info.channels));
    if (info.frames > 0 && info.frames <= longest) {
        clip.left.reserve(static_cast<std::size_t>(info.frames));
        if (info.channels == 2) clip.right.reserve(static_cast<std::size_t>(info.frames));
    }
    sf_count_t read = 0;
    for (sf_count_t got = 0; (got = sf_readf_float(sound.get(), interleaved.data(), ReadAtATime)) > 0; read += got) {
        if (read + got > longest) refuseLength();
        Append(clip, interleaved, static_cast<std::size_t>(got), info.channels);
    }
    if (read == 0) Refuse("there is no sound in it");
    const bool isUnknown = info.frames <= 0 || info.frames == SF_COUNT_MAX;
    const int kind = info.format & SF_FORMAT_TYPEMASK;
    // The library finds the length of an Ogg stream on the page that ends it.
    const bool hasNoEnd =
        (kind == SF_FORMAT_OGG && isUnknown) || (kind == SF_FORMAT_MPEG && EndsWithinFrame(path)) || IsCutShort(path);
    const bool isShort = hasNoEnd || (!isUnknown && read < info.frames) || sf_error(sound.get()) != 0;
    SoundFile file;
    const auto rate = static_cast<std::uint32_t>(info.samplerate);
    if (isShort)
        file.remark = fmt::format("is cut short or damaged: its first {:.1f} seconds are played",
                                  static_cast<double>(read) / info.samplerate);
    file.clip = rate == framesPerSecond ? std::move(clip) : ConvertRate(clip, rate, framesPerSecond, use);
    file.clip.left.shrink_to_fit();
    file.clip.right.shrink_to_fit();
    return file;
}

}  // namespace stage
