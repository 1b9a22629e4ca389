#include "stage/offline/audio_file.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "kit/path.h"

namespace stage {

struct AudioFile::File {
    explicit File(SNDFILE* opened) : sound(opened) {}
    ~File() { Close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int Close() { return sound == nullptr ? SF_ERR_NO_ERROR : sf_close(std::exchange(sound, nullptr)); }

    SNDFILE* sound;
};

bool AudioFile::HasKnownExtension(const std::string& path) {
    const std::string extension = kit::path::extension(kit::path::basename(path));
    return extension == ".wav" || extension == ".flac";
}

AudioFile::AudioFile(const std::string& path, std::uint32_t framesPerSecond) : path_(path) {
    if (!HasKnownExtension(path))
        throw std::runtime_error(fmt::format("the sound file \"{}\" must be named .wav or .flac", path));
    const bool isFlac = kit::path::extension(kit::path::basename(path)) == ".flac";
    SF_INFO info{};
    info.samplerate = static_cast<int>(framesPerSecond);
    info.channels = 2;
    info.format = (isFlac ? SF_FORMAT_FLAC : SF_FORMAT_RF64) | SF_FORMAT_PCM_24;
    SNDFILE* sound = sf_open(UnfinishedPath_().c_str(), SFM_WRITE, &info);
    if (sound == nullptr) {
        // The library's text of a system's error begins with its own word for it.
        const std::string reason = sf_error(nullptr) == SF_ERR_SYSTEM && errno != 0
                                       ? std::system_category().message(errno)
                                       : std::string(sf_strerror(nullptr));
        throw std::runtime_error(fmt::format("the sound file \"{}\" cannot be created: {}", path, reason));
    }
    file_ = std::make_unique<File>(sound);
    sf_command(sound, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    // What stays below 4 GB becomes an ordinary WAV file when it is finished.
    if (!isFlac) sf_command(sound, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
}

AudioFile::~AudioFile() {
    if (file_ == nullptr) return;
    file_.reset();
    std::error_code ignored;
    std::filesystem::remove(UnfinishedPath_(), ignored);
}

void AudioFile::Fail_(const std::string& problem) {
    file_.reset();
    std::error_code ignored;
    std::filesystem::remove(UnfinishedPath_(), ignored);
    throw std::runtime_error(fmt::format("the sound file \"{}\" cannot be written: {}", path_, problem));
}

void AudioFile::Write(const float* left, const float* right, std::uint32_t frames) {
    interleaved_.resize(std::size_t{frames} * 2);
    for (std::size_t i = 0; i < frames; ++i) {
        interleaved_[2 * i] = left[i];
        interleaved_[2 * i + 1] = right[i];
    }
    const sf_count_t written = sf_writef_float(file_->sound, interleaved_.data(), frames);
    if (written != static_cast<sf_count_t>(frames)) Fail_(sf_strerror(file_->sound));
}

void AudioFile::Finish() {
    const int error = file_->Close();
    if (error != SF_ERR_NO_ERROR) Fail_(sf_error_number(error));
    file_.reset();
    std::error_code failed;
    std::filesystem::rename(UnfinishedPath_(), path_, failed);
    if (failed) Fail_(failed.message());
}

}  // namespace stage
