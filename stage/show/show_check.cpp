#include "stage/show/show_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <type_traits>

#include "kit/path.h"
#include "kit/try_read.h"
#include "stage/show/cue_check.h"
#include "stage/show/edit_conflicts.h"
#include "stage/show/settings.h"
#include "stage/show/show_directory.h"
#include "stage/show/show_journals.h"
#include "tavo_core/change_log.h"
#include "tavo_core/edit_rules.h"
#include "tavo_core/edit_text.h"
#include "tavo_midi/midi_settings_check.h"
#include "tavo_midi/show_data.h"

namespace stage {

namespace {

class Checker {
public:
    explicit Checker(const std::string& path) : directory_(ScanAnyDirectory(path, problems_)) {}

    ShowProblems Check() {
        CheckNames();
        if (!directory_.showDataName.empty())
            showData_ = kit::TryRead(problems_, [&] { return tavo_midi::ShowData(directory_.ShowDataPath()); });
        settings_ = kit::TryRead(problems_, [&] { return ReadSettings(directory_.SettingsPath()); });
        CheckSettings();
        for (std::string& sentence : tavo_midi::FindMidiSettingsProblems(directory_.path))
            problems_.push_back(std::move(sentence));
        const std::string inUse = FindLogInUse();
        for (const auto& [version, name] : directory_.logNames) {
            if (name == inUse) {
                CheckLog(version, name);
                continue;
            }
            // What is reported about the others goes into a list of its own.
            problems_.swap(otherVersions_);
            CheckLog(version, name);
            problems_.swap(otherVersions_);
        }
        for (std::string& sentence : DescribeJournals(directory_))
            problems_.push_back(std::move(sentence));
        return {std::move(problems_), std::move(otherVersions_)};
    }

private:
    void Report(const std::string& file, const std::string& problem) {
        problems_.push_back(fmt::format("{}: {}", file, problem));
    }

    void CheckNames() {
        if (directory_.showDataName.empty()) problems_.emplace_back("Cannot locate showdata file");
        if (directory_.logNames.empty()) problems_.emplace_back("Cannot locate change log file.");
        for (const std::string& name : kit::listdir(directory_.path)) {
            const std::string extension = kit::path::extension(name);
            if (extension == ".showdata" && name != directory_.showDataName)
                Report(name, fmt::format("is passed over, because {} comes later", directory_.showDataName));
            if (extension == ".score" && name != directory_.scoreName)
                Report(name, fmt::format("is passed over, because {} comes later", directory_.scoreName));
            if (extension == ".logdata") CheckLogName(name);
        }
    }

    void CheckLogName(const std::string& name) {
        const auto holdsName = [&](const auto& entry) { return entry.second == name; };
        if (std::any_of(directory_.logNames.begin(), directory_.logNames.end(), holdsName)) return;
        cmn::TAVOVersion version;
        try {
            version.SetWithFileName(name);
        } catch (const std::invalid_argument&) {
            return;  // The scan has reported it.
        }
        Report(name, fmt::format("is passed over, because {} has the same version", directory_.logNames.at(version)));
    }

    /// The newest one where the settings choose one that is not there, which is a problem by itself.
    [[nodiscard]] std::string FindLogInUse() const {
        if (directory_.logNames.empty()) return "";
        try {
            if (settings_) return directory_.LogNameInUse(*settings_);
        } catch (const std::exception&) {
            return directory_.logNames.rbegin()->second;
        }
        return directory_.logNames.rbegin()->second;
    }

    void CheckSettings() {
        if (!settings_) return;
        if (!directory_.logNames.empty())
            static_cast<void>(kit::TryRead(problems_, [&] { return directory_.LogNameInUse(*settings_); }));
        CheckSoundFont(settings_->soundFont, "");
        for (const Settings::Group& group : settings_->groups)
            CheckSoundFont(group.soundFont, fmt::format(" of the group \"{}\"", group.name));
    }

    void CheckSoundFont(const std::string& name, const std::string& whose) {
        std::error_code ignored;
        if (!name.empty() && !std::filesystem::is_regular_file(std::filesystem::path(directory_.path) / name, ignored))
            Report("settings.json", fmt::format("the SoundFont \"{}\"{} is not there", name, whose));
    }

    void CheckLog(const cmn::TAVOVersion& version, const std::string& name) {
        const auto log = kit::TryRead(problems_, [&] { return CL::ChangeLog::Load(directory_.PathOf(name)); });
        if (!log) return;
        if (log->GetVersion() != version)
            Report(name, fmt::format("the version inside is {}, not {}", log->GetVersion().GetAsString(),
                                     version.GetAsString()));
        if (!showData_) return;
        for (const tavo_midi::SongData& song : showData_->GetSongs()) {
            if (!log->GetSongLogs().contains(song.GetSongNumber()))
                Report(name, fmt::format("song {} of the show data is missing", song.GetSongNumber()));
        }
        for (const auto& [number, songLog] : log->GetSongLogs())
            CheckSong(name, number, songLog);
    }

    void CheckSong(const std::string& name, const std::string& number, const CL::SongLog& songLog) {
        const auto& songs = showData_->GetSongs();
        const auto song = std::find_if(songs.begin(), songs.end(), [&](const tavo_midi::SongData& candidate) {
            return candidate.GetSongNumber() == number;
        });
        if (song == songs.end()) {
            Report(name, fmt::format("song {} is not in the show data", number));
            return;
        }
        const Settings* const settings = settings_ ? &*settings_ : nullptr;
        for (const std::string& problem : FindSongProblems(*showData_, *song, songLog, directory_.path, settings))
            Report(name, fmt::format("song {}: {}", number, problem));
    }

    std::vector<std::string> problems_;
    std::vector<std::string> otherVersions_;
    ShowDirectory directory_;
    std::optional<tavo_midi::ShowData> showData_;
    std::optional<Settings> settings_;
};

}  // namespace

std::vector<std::string> FindSongProblems(const tavo_midi::ShowData& show, const tavo_midi::SongData& song,
                                          const CL::SongLog& songLog, const std::string& showPath,
                                          const Settings* settings) {
    std::vector<std::string> problems = CL::CheckSongLog(songLog, song.GetTimeline());
    for (std::string& conflict : FindConflicts(songLog, song))
        problems.push_back(std::move(conflict));
    if (songLog.GetAttacca() == CL::AttaccaNext && song.GetSongNumber() == show.GetSongs().back().GetSongNumber())
        problems.emplace_back("attacca, but no song follows");
    const TL::BarPositions positions(song.GetTimeline());
    const auto check = [&](const auto& cues) {
        for (const auto& cue : cues) {
            std::string problem =
                FindCueProblem(cue, positions, showPath, settings == nullptr ? Settings() : *settings);
            if (!problem.empty()) problems.push_back(std::move(problem));
        }
    };
    check(songLog.GetSfxs());
    check(songLog.GetSfxAmbients());
    if (settings != nullptr) check(songLog.GetOscs());
    return problems;
}

ShowProblems CheckShow(const std::string& path) {
    return Checker(path).Check();
}

}  // namespace stage
