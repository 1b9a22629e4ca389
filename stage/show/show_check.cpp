#include "stage/show/show_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <type_traits>

#include "kit/path.h"
#include "stage/show/settings.h"
#include "stage/show/show_directory.h"
#include "tavo_core/change_log.h"
#include "tavo_core/edit_rules.h"
#include "tavo_core/edit_text.h"
#include "tavo_midi/show_data.h"

namespace stage {

namespace {

/// Reads one file with `read`; a failure becomes a problem.
template <class Read>
auto TryRead(std::vector<std::string>& problems, Read read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const std::exception& problem) {
        problems.emplace_back(problem.what());
        return std::nullopt;
    }
}

class Checker {
public:
    explicit Checker(const std::string& path) : directory_(ScanAnyDirectory(path, problems_)) {}

    std::vector<std::string> Check() {
        CheckNames();
        if (!directory_.showDataName.empty())
            showData_ = TryRead(problems_, [&] { return tavo_midi::ShowData(directory_.ShowDataPath()); });
        settings_ = TryRead(problems_, [&] { return ReadSettings(directory_.SettingsPath()); });
        CheckSettings();
        for (const auto& [version, name] : directory_.logNames)
            CheckLog(version, name);
        return std::move(problems_);
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

    void CheckSettings() {
        if (!settings_) return;
        if (!directory_.logNames.empty())
            static_cast<void>(TryRead(problems_, [&] { return directory_.LogNameInUse(*settings_); }));
        if (settings_->soundFont.empty()) return;
        const std::filesystem::path font = std::filesystem::path(directory_.path) / settings_->soundFont;
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(font, ignored))
            Report("settings.json", fmt::format("the SoundFont \"{}\" is not there", settings_->soundFont));
    }

    void CheckLog(const cmn::TAVOVersion& version, const std::string& name) {
        const auto log = TryRead(problems_, [&] { return CL::ChangeLog::Load(directory_.PathOf(name)); });
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
        const std::string place = fmt::format("song {}: ", number);
        for (const std::string& problem : CL::CheckSongLog(songLog, song->GetTimeline()))
            Report(name, place + problem);
        const TL::BarPositions positions(song->GetTimeline());
        CheckSounds(name, place, songLog.GetSfxs(), positions);
        CheckSounds(name, place, songLog.GetSfxAmbients(), positions);
        CheckTargets(name, place, songLog, positions);
    }

    template <class Sequence>
    void CheckSounds(const std::string& name, const std::string& place, const Sequence& sounds,
                     const TL::BarPositions& positions) {
        for (const auto& sound : sounds) {
            std::error_code ignored;
            if (!std::filesystem::is_regular_file(directory_.PathOf(sound.sound()), ignored))
                Report(name, fmt::format("{}the sound \"{}\" at {} is not there", place, sound.sound(),
                                         positions.DescribeTick(sound.start())));
        }
    }

    void CheckTargets(const std::string& name, const std::string& place, const CL::SongLog& songLog,
                      const TL::BarPositions& positions) {
        if (!settings_) return;
        for (const CL::Osc& message : songLog.GetOscs()) {
            if (HasOscTarget(*settings_, message.target())) continue;
            const std::string target =
                message.target().empty() ? "any OSC target" : "the OSC target \"" + message.target() + "\"";
            Report(name, fmt::format("{}{} of the message at {} is not in settings.json", place, target,
                                     positions.DescribeTick(message.abs_time())));
        }
    }

    std::vector<std::string> problems_;
    ShowDirectory directory_;
    std::optional<tavo_midi::ShowData> showData_;
    std::optional<Settings> settings_;
};

}  // namespace

std::vector<std::string> CheckShow(const std::string& path) {
    return Checker(path).Check();
}

}  // namespace stage
