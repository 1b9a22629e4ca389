#include "stage/engine/instrument_fonts.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <filesystem>
#include <map>
#include <stdexcept>
#include <utility>

#include "kit/words.h"
#include "stage/engine/show_parts.h"

namespace stage {

namespace {

std::string FindSameFile(const std::string& path) {
    std::error_code problem;
    const std::filesystem::path file = std::filesystem::canonical(path, problem);
    return problem ? path : file.string();
}

std::string DescribePrograms(const ProgramsPlayed& programs) {
    std::vector<std::string> words;
    for (const auto& [program, channels] : programs)
        words.push_back(fmt::format("{} {} (channel {})", program.first == DrumKitBank ? "drum kit" : "program",
                                    program.second + 1, fmt::join(channels, ", ")));
    return fmt::format("{}", fmt::join(words, ", "));
}

}  // namespace

InstrumentFonts LoadInstrumentFonts(Synth& synth, const GroupPlan& plan, const std::string& showPath,
                                    const std::string& showFont) {
    InstrumentFonts fonts;
    fonts.contents.push_back(ReadSoundFontContents(showFont));
    fonts.ofGroups.resize(plan.groups.size());
    std::map<std::string, std::uint8_t> numbers{{FindSameFile(showFont), 0}};
    for (std::size_t group = 0; group < plan.groups.size(); ++group) {
        const Settings::Group& settings = plan.groups[group];
        if (settings.soundFont.empty()) continue;
        const std::string path = FindSameFile(ResolveSoundFont(settings.soundFont, showPath));
        const auto loaded = numbers.find(path);
        if (loaded != numbers.end()) {
            fonts.ofGroups[group] = loaded->second;
            continue;
        }
        const auto addProblem = [&](const char* reason) {
            fonts.problems.push_back(fmt::format("the group {} plays with the show's SoundFont: its own, {}, {}",
                                                 kit::Quote(settings.name), kit::Quote(settings.soundFont), reason));
        };
        std::error_code ignored;
        if (!std::filesystem::exists(path, ignored)) {
            addProblem("is not there");
            continue;
        }
        try {
            SoundFontContents contents = ReadSoundFontContents(path);
            fonts.ofGroups[group] = synth.AddSoundFont(path);
            fonts.contents.push_back(std::move(contents));
            numbers.emplace(path, fonts.ofGroups[group]);
        } catch (const std::runtime_error&) {
            addProblem("cannot be read as a SoundFont");
        }
    }
    // Strip 0 is what is in no group.
    std::vector<std::uint8_t> ofStrips{0};
    ofStrips.insert(ofStrips.end(), fonts.ofGroups.begin(), fonts.ofGroups.end());
    synth.SetFontsOfGroups(std::move(ofStrips));
    return fonts;
}

std::vector<std::string> DescribeMissingPrograms(const tavo_midi::SongData& song, const InstrumentFonts& fonts,
                                                 const GroupPlan& plan) {
    const auto strips = plan.stripsOfSongs.find(&song);
    const auto findGroup = [&](std::size_t channel) -> std::size_t {
        return strips != plan.stripsOfSongs.end() && channel < strips->second.size() ? strips->second[channel] : 0;
    };
    std::map<std::size_t, ProgramsPlayed> missing;  // by strip; what the show's does not have under 0
    for (const auto& [program, channels] : FindProgramsPlayed(song)) {
        for (const std::size_t channel : channels) {
            const std::size_t strip = findGroup(channel - 1);
            const std::size_t font = strip > 0 ? fonts.ofGroups[strip - 1] : 0;
            if (font > 0 && fonts.contents[font].Has(program)) continue;
            if (font > 0) missing[strip][program].insert(channel);
            if (!fonts.contents.front().Has(program)) missing[0][program].insert(channel);
        }
    }
    std::vector<std::string> sentences;
    for (const auto& [strip, programs] : missing) {
        const std::string words = DescribePrograms(programs);
        sentences.push_back(
            strip == 0
                ? fmt::format("song {} plays what the SoundFont does not have, and another instrument sounds in its "
                              "place: {}",
                              song.GetSongNumber(), words)
                : fmt::format("song {} plays what the SoundFont of the group {} does not have, and the show's "
                              "SoundFont plays it: {}",
                              song.GetSongNumber(), kit::Quote(plan.groups[strip - 1].name), words));
    }
    return sentences;
}

}  // namespace stage
