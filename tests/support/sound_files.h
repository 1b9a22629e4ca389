#pragma once

#include <sndfile.h>

#include <cmath>
#include <fstream>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

/// Sound files for tests, written by the library that reads them.
namespace test_support {

/// Writes interleaved samples; throws where this build of the library cannot write the format.
inline void WriteSound(const std::string& path, int format, int rate, int channels, const std::vector<float>& samples) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    const auto frames = static_cast<sf_count_t>(samples.size()) / channels;
    const sf_count_t written = sf_writef_float(file, samples.data(), frames);
    sf_close(file);
    if (written != frames) throw std::runtime_error(path + " was not written whole");
}

/// The same as a WAV file that holds the samples as they are.
inline void WriteExactSound(const std::string& path, const std::vector<float>& samples, int rate = 48000,
                            int channels = 1) {
    WriteSound(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, channels, samples);
}

/// Samples that are all different: each tells its place.
inline std::vector<float> MakeStaircase(std::size_t frames) {
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i)
        samples[i] = 0.2F + 0.3F * static_cast<float>(i) / static_cast<float>(frames);
    return samples;
}

inline std::vector<float> MakeSine(std::size_t frames, double hertz, int rate, double amplitude = 0.5) {
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i)
        samples[i] =
            static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return samples;
}

/// The same noise each time, from -0.5 to 0.5.
inline std::vector<float> MakeNoise(std::size_t frames) {
    std::vector<float> noise(frames);
    std::uint32_t state = 1;
    for (float& sample : noise) {
        state = state * 1664525 + 1013904223;
        sample = static_cast<float>(state >> 8U) / 16777216.0F - 0.5F;
    }
    return noise;
}

inline std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace test_support
