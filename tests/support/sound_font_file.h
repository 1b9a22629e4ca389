#pragma once

#include <cmath>
#include <cstddef>
#include <fstream>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

/// SoundFont files for tests (SoundFont 2.01, chapters 4 to 7).
namespace test_support {

inline std::string FontWord(int value) {
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
}

inline std::string FontChunk(const std::string& name, const std::string& bytes) {
    const auto size = static_cast<int>(bytes.size());
    return name + FontWord(size) + FontWord(size >> 16) + bytes + (bytes.size() % 2 == 1 ? std::string(1, '\0') : "");
}

inline std::string FontName(const std::string& name) {
    return name + std::string(20 - name.size(), '\0');
}

/// A record of the list of presets; `zone` is the first of its zones.
inline std::string FontPreset(int bank, int program, int zone = 0) {
    return FontName("preset") + FontWord(program) + FontWord(bank) + FontWord(zone) + std::string(12, '\0');
}

/// A SoundFont whose programs, banks and numbers from 0, all sound as one steady sine of 1000 hertz on key 60.
inline std::string MakeSineFont(const std::string& title, const std::vector<std::pair<int, int>>& programs) {
    constexpr int Frames = 480;  // ten periods, which go round
    constexpr int Rate = 48000;
    std::string samples;
    for (int i = 0; i < Frames + 46; ++i)
        samples +=
            FontWord(i < Frames ? static_cast<int>(std::lround(12'000 * std::sin(2 * std::numbers::pi * i / 48))) : 0);
    std::string presets;
    std::string zones;
    std::string generators;
    const auto count = static_cast<int>(programs.size());
    for (int i = 0; i < count; ++i) {
        const auto [bank, program] = programs[static_cast<std::size_t>(i)];
        presets += FontPreset(bank, program, i);
        zones += FontWord(i) + FontWord(0);
        generators += FontWord(41) + FontWord(0);  // the instrument
    }
    presets += FontPreset(0, 0, count);
    zones += FontWord(count) + FontWord(0);
    generators += std::string(4, '\0');
    const auto place = [](int frame) { return FontWord(frame) + FontWord(frame >> 16); };
    const std::string sample = FontName("sine") + place(0) + place(Frames) + place(0) + place(Frames) + place(Rate) +
                               std::string("\x3C\0", 2) + FontWord(0) + FontWord(1);
    const std::string lists =
        FontChunk("phdr", presets) + FontChunk("pbag", zones) + FontChunk("pmod", std::string(10, '\0')) +
        FontChunk("pgen", generators) +
        FontChunk("inst", FontName("sine") + FontWord(0) + FontName("EOI") + FontWord(1)) +
        FontChunk("ibag", FontWord(0) + FontWord(0) + FontWord(2) + FontWord(0)) +
        FontChunk("imod", std::string(10, '\0')) +
        // It goes round, and it is the only sample.
        FontChunk("igen", FontWord(54) + FontWord(1) + FontWord(53) + FontWord(0) + std::string(4, '\0')) +
        FontChunk("shdr", sample + FontName("EOS") + std::string(26, '\0'));
    const std::string about = FontChunk("ifil", FontWord(2) + FontWord(1)) +
                              FontChunk("isng", std::string("EMU8000\0", 8)) +
                              FontChunk("INAM", title + std::string(2 - title.size() % 2, '\0'));
    return FontChunk("RIFF", "sfbk" + FontChunk("LIST", "INFO" + about) +
                                 FontChunk("LIST", "sdta" + FontChunk("smpl", samples)) +
                                 FontChunk("LIST", "pdta" + lists));
}

inline void WriteSineFont(const std::string& path, const std::vector<std::pair<int, int>>& programs) {
    std::ofstream(path, std::ios::binary) << MakeSineFont("Sine", programs);
}

}  // namespace test_support
