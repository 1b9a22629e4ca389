#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace stage {

/// Writes stereo sound to a file as it comes: 24-bit WAV (RIFF, or RF64 beyond 4 GB) or FLAC, by the name's extension.
/// Until it is finished its name ends in ".unfinished", so that nobody takes what a kill left for the whole. Every
/// operation throws std::runtime_error with one sentence that names the file; a file that was not finished is removed.
/// Not thread-safe; blocks on the disk.
class AudioFile {
public:
    /// Creates the file; one of that name is replaced when it is finished.
    AudioFile(const std::string& path, std::uint32_t framesPerSecond);
    ~AudioFile();
    AudioFile(const AudioFile&) = delete;
    AudioFile& operator=(const AudioFile&) = delete;

    /// Values beyond -1 to 1 are clipped.
    void Write(const float* left, const float* right, std::uint32_t frames);
    /// Completes the file; nothing may be written afterwards.
    void Finish();

    /// Whether a file of this name can be written.
    [[nodiscard]] static bool HasKnownExtension(const std::string& path);

private:
    struct File;

    [[nodiscard]] std::string UnfinishedPath_() const { return path_ + ".unfinished"; }
    [[noreturn]] void Fail_(const std::string& problem);

    const std::string path_;
    std::unique_ptr<File> file_;
    std::vector<float> interleaved_;
};

}  // namespace stage
