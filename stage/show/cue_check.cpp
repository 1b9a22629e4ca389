#include "stage/show/cue_check.h"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

#include "kit/path.h"
#include "kit/words.h"
#include "stage/show/edit_list.h"
#include "stage/show/midi_cue.h"

namespace stage {

namespace {

/// What is sent to a MIDI port must be a MIDI message.
std::string FindMidiProblem(const CL::Osc& message, const Settings& settings, const std::string& place) {
    if (FindOscTarget(settings, message.target())->transport != Settings::Transport::Midi) return "";
    try {
        static_cast<void>(MakeMidiCue(message));
        return "";
    } catch (const std::invalid_argument& problem) {
        return fmt::format("the message at {} is not a MIDI message: {}", place, problem.what());
    }
}

}  // namespace

std::string FindCueProblem(const CL::AnyEdit& edit, const TL::BarPositions& positions, const std::string& showDirectory,
                           const Settings& settings) {
    const std::string place = positions.DescribeTick(CL::EventOf(edit).abs_time());
    const auto findSound = [&](const std::string& sound) -> std::string {
        std::error_code ignored;
        if (std::filesystem::is_regular_file(kit::path::Join(showDirectory, sound), ignored)) return "";
        return fmt::format("the sound {} at {} is not there", kit::Quote(sound), place);
    };
    if (const auto* const sound = std::get_if<CL::Sfx>(&edit)) return findSound(sound->sound());
    if (const auto* const ambience = std::get_if<CL::SfxAmbient>(&edit)) return findSound(ambience->sound());
    const auto* const message = std::get_if<CL::Osc>(&edit);
    if (message == nullptr) return "";
    if (HasOscTarget(settings, message->target())) return FindMidiProblem(*message, settings, place);
    return fmt::format("{} of the message at {} is not in settings.json",
                       message->target().empty() ? "any OSC target" : "the OSC target " + kit::Quote(message->target()),
                       place);
}

std::vector<std::string> FindCueProblems(const CL::SongLog& songLog, const TL::BarPositions& positions,
                                         const std::string& showDirectory, const Settings& settings) {
    std::vector<std::string> problems;
    for (const CL::AnyEdit& edit : CopyListedEdits(songLog)) {
        std::string problem = FindCueProblem(edit, positions, showDirectory, settings);
        if (!problem.empty()) problems.push_back(std::move(problem));
    }
    return problems;
}

std::vector<std::string> FindCueProblems(const CL::LogChange& change, const tavo_midi::ShowData& show,
                                         const std::string& showDirectory, const Settings& settings) {
    std::vector<std::string> problems;
    for (const CL::SongChange& song : change.songs) {
        if (song.added.empty()) continue;
        const TL::BarPositions positions(show.GetSongData(song.songNumber).GetTimeline());
        for (const CL::AnyEdit& edit : song.added) {
            const std::string problem = FindCueProblem(edit, positions, showDirectory, settings);
            if (!problem.empty()) problems.push_back(fmt::format("song {}: {}", song.songNumber, problem));
        }
    }
    return problems;
}

}  // namespace stage
