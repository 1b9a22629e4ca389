#include "stage/import/import_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

#include "kit/file.h"
#include "kit/numeric_string_compare.h"
#include "kit/path.h"
#include "stage/show/letters.h"

namespace stage {

namespace {

namespace fs = std::filesystem;

class Files {
public:
    explicit Files(const ScoreOptions& options)
        : options_(options), midi_(MakeMidiFileReader()), score_(MakeMusicXmlReader(options)) {}

    std::vector<SongOfFile> Read(const std::vector<std::string>& paths, const ReportImport& report) {
        const std::vector<std::string> files = List(paths);
        for (std::size_t i = 0; i < files.size(); ++i) {
            const auto reportStep = [&](const std::string& step) {
                if (report) report(i, files.size(), step);
            };
            for (ImportedSong& song : FindReader(files[i])->Read(files[i], reportStep))
                songs_.push_back({files[i], std::move(song)});
        }
        if (songs_.empty()) throw std::runtime_error("the files hold no songs");
        const bool hasScore = std::any_of(files.begin(), files.end(),
                                          [this](const std::string& file) { return FindReader(file) == score_.get(); });
        if (options_.asWritten && !hasScore)
            songs_.front().song.notes.insert(songs_.front().song.notes.begin(),
                                             "--written has no effect: none of the files is a MusicXML score");
        JoinPairs();
        return std::move(songs_);
    }

private:
    [[nodiscard]] const SongFileReader* FindReader(const std::string& path) const {
        std::string extension = ToLower(kit::path::extension(path));
        if (!extension.empty()) extension.erase(0, 1);
        if (midi_->ReadsExtension(extension)) return midi_.get();
        return score_->ReadsExtension(extension) ? score_.get() : nullptr;
    }

    [[nodiscard]] std::vector<std::string> List(const std::vector<std::string>& paths) const {
        std::vector<std::string> files;
        for (const std::string& path : paths) {
            std::error_code ignored;
            if (fs::is_directory(path, ignored)) {
                const std::vector<std::string> inFolder = ListFolder(path);
                files.insert(files.end(), inFolder.begin(), inFolder.end());
            } else if (FindReader(path) != nullptr) {
                files.push_back(path);
            } else {
                throw std::runtime_error(fmt::format(
                    "the file \"{}\" is not a score: its name ends in none of .mid, .midi, .musicxml, .xml and .mxl",
                    path));
            }
        }
        if (files.empty()) throw std::runtime_error("there is nothing to import");
        return files;
    }

    [[nodiscard]] std::vector<std::string> ListFolder(const std::string& folder) const {
        std::vector<std::string> names = kit::listdir(folder);
        std::error_code ignored;
        std::erase_if(names, [&](const std::string& name) {
            return FindReader(name) == nullptr || fs::is_directory(fs::path(folder) / name, ignored);
        });
        if (names.empty())
            throw std::runtime_error(
                fmt::format("the folder \"{}\" holds no .mid, .midi, .musicxml, .xml or .mxl file", folder));
        std::sort(names.begin(), names.end(), kit::NumericStringCompare());
        for (std::string& name : names)
            name = kit::path::Join(folder, name);
        return names;
    }

    /// What a MIDI file and its score have in common.
    static std::string NameSong(const std::string& file) {
        const std::string number = ParseSongFileName(file).number;
        return number.empty() ? "=" + kit::path::basename_no_ext(file) : number;
    }

    void JoinPairs() {
        std::map<std::string, std::size_t> scores;
        for (std::size_t i = 0; i < songs_.size(); ++i)
            if (FindReader(songs_[i].file) == score_.get()) scores.emplace(NameSong(songs_[i].file), i);
        std::vector<bool> isJoined(songs_.size(), false);
        for (SongOfFile& song : songs_) {
            if (FindReader(song.file) != midi_.get()) continue;
            const auto score = scores.find(NameSong(song.file));
            if (score == scores.end()) continue;
            SongOfFile& beside = songs_[score->second];
            const auto isOfSameFile = [&song](const SongOfFile& other) { return other.file == song.file; };
            if (std::count_if(songs_.begin(), songs_.end(), isOfSameFile) > 1)
                throw std::runtime_error(fmt::format("\"{}\" holds several songs, so that \"{}\" cannot be its score",
                                                     song.file, beside.file));
            isJoined[score->second] = true;
            scores.erase(score);
            song.song = JoinMidiAndScore(song, std::move(beside));
        }
        std::vector<SongOfFile> kept;
        for (std::size_t i = 0; i < songs_.size(); ++i)
            if (!isJoined[i]) kept.push_back(std::move(songs_[i]));
        songs_ = std::move(kept);
    }

    const ScoreOptions options_;
    const std::unique_ptr<SongFileReader> midi_;
    const std::unique_ptr<SongFileReader> score_;
    std::vector<SongOfFile> songs_;
};

}  // namespace

std::vector<SongOfFile> ReadSongFiles(const std::vector<std::string>& paths, const ScoreOptions& options,
                                      const ReportImport& report) {
    return Files(options).Read(paths, report);
}

}  // namespace stage
