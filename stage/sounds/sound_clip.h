#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace stage {

/// How a sound is played: the end of one that goes round is followed by its beginning.
enum class SoundUse : std::uint8_t { Once, Round };

/// A sound in memory at the output's rate. A plain value.
struct SoundClip {
    std::vector<float> left;
    std::vector<float> right;  ///< empty for a mono sound

    [[nodiscard]] std::size_t CountFrames() const { return left.size(); }
    [[nodiscard]] std::size_t CountBytes() const { return (left.size() + right.size()) * sizeof(float); }
};

/// A sound file as it was read.
struct SoundFile {
    SoundClip clip;
    /// What is wrong with it though it can be played: "is cut short: ..."; empty for nothing. Goes after its name.
    std::string remark;
};

/// Longest sound that is played.
inline constexpr double LongestSoundSeconds = 30 * 60;

/// Reads a WAV, FLAC, Ogg Vorbis, Opus or MP3 file, mono or stereo, whole. Throws std::runtime_error with words that
/// go after its name: "is not there", "cannot be played: ...". Takes up to some seconds a minute of sound; does not
/// depend on who calls it.
[[nodiscard]] SoundFile ReadSoundFile(const std::string& path, std::uint32_t framesPerSecond, SoundUse use);

/// The clip at another rate, in the best quality. One that goes round is converted as such: its length becomes a whole
/// number of frames, and nothing is heard of where it begins. Throws std::runtime_error where the rates are too far
/// apart.
[[nodiscard]] SoundClip ConvertRate(const SoundClip& clip, std::uint32_t fromRate, std::uint32_t toRate, SoundUse use);

}  // namespace stage
