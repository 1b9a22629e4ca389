#include "stage/session/show_import.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <utility>

#include "kit/file.h"
#include "kit/numeric_string_compare.h"
#include "kit/path.h"
#include "stage/session/settings.h"
#include "stage/session/show_directory.h"
#include "tavo_core/edit_rules.h"

namespace stage {

namespace {

namespace fs = std::filesystem;

/// A song on its way into the show.
struct PendingSong {
    std::string file;
    ScoreSong score;
};

std::string GetLowerExtension(const std::string& path) {
    std::string extension = kit::path::extension(path);
    if (!extension.empty()) extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

const ScoreReader* FindReader(const std::vector<std::unique_ptr<ScoreReader>>& readers, const std::string& path) {
    const std::string extension = GetLowerExtension(path);
    for (const auto& reader : readers) {
        if (reader->ReadsExtension(extension)) return reader.get();
    }
    return nullptr;
}

/// The files that are meant, in the order in which people number them.
std::vector<std::string> ListScoreFiles(const std::vector<std::string>& paths,
                                        const std::vector<std::unique_ptr<ScoreReader>>& readers) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        std::error_code ignored;
        if (!fs::is_directory(path, ignored)) {
            if (FindReader(readers, path) == nullptr)
                throw std::runtime_error(
                    fmt::format("the file \"{}\" is no score: its name ends in neither .mid nor .midi", path));
            files.push_back(path);
            continue;
        }
        std::vector<std::string> names = kit::listdir(path);
        std::erase_if(names, [&](const std::string& name) {
            return FindReader(readers, name) == nullptr || fs::is_directory(fs::path(path) / name, ignored);
        });
        if (names.empty()) throw std::runtime_error(fmt::format("the folder \"{}\" holds no .mid or .midi file", path));
        std::sort(names.begin(), names.end(), kit::NumericStringCompare());
        for (const std::string& name : names)
            files.push_back(kit::path::Join(path, name));
    }
    if (files.empty()) throw std::runtime_error("there is nothing to import");
    return files;
}

std::vector<PendingSong> ReadScores(const ImportRequest& request) {
    std::vector<std::unique_ptr<ScoreReader>> readers;
    readers.push_back(MakeMidiScoreReader());
    const std::vector<std::string> files = ListScoreFiles(request.paths, readers);
    std::vector<PendingSong> pending;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (request.reportProgress) request.reportProgress(i, files.size(), files[i]);
        for (ScoreSong& score : FindReader(readers, files[i])->Read(files[i]))
            pending.push_back({files[i], std::move(score)});
    }
    if (pending.empty()) throw std::runtime_error("the files hold no songs");
    return pending;
}

/// "3" is "3a", "3b" ... where a file holds several songs.
std::string NumberOfSequence(const std::string& number, std::size_t sequence, std::size_t count) {
    if (count == 1) return number;
    if (count <= 26) return number + static_cast<char>('a' + sequence);
    return fmt::format("{}-{}", number, sequence + 1);
}

unsigned long FindHighestNumber(const std::set<std::string>& numbers) {
    unsigned long highest = 0;
    for (const std::string& number : numbers) {
        unsigned long value = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
        if (error == std::errc() && value < 1000000000UL) highest = std::max(highest, value);
    }
    return highest;
}

void NumberSongs(std::vector<PendingSong>& pending) {
    std::map<std::string, std::size_t> songsOfFile;
    for (const PendingSong& song : pending)
        ++songsOfFile[song.file];
    std::set<std::string> numbers;
    for (PendingSong& song : pending) {
        std::string& number = song.score.packed.options.number;
        if (number.empty()) number = ParseScoreFileName(song.file).number;
        if (number.empty()) continue;
        number = NumberOfSequence(number, song.score.packed.options.sequence, songsOfFile[song.file]);
        if (!numbers.insert(number).second)
            throw std::runtime_error(
                fmt::format("the song number {} of \"{}\" is another file's already", number, song.file));
    }
    unsigned long next = FindHighestNumber(numbers);
    for (PendingSong& song : pending) {
        std::string& number = song.score.packed.options.number;
        if (number.empty()) number = std::to_string(++next);
    }
    std::stable_sort(pending.begin(), pending.end(), [](const PendingSong& a, const PendingSong& b) {
        return kit::NumericStringCompare()(a.score.packed.options.number, b.score.packed.options.number);
    });
}

void SetPickups(std::vector<PendingSong>& pending, const std::map<std::string, double>& pickupBeats) {
    for (const auto& [number, beats] : pickupBeats) {
        const auto song =
            std::find_if(pending.begin(), pending.end(), [&wanted = number](const PendingSong& candidate) {
                return candidate.score.packed.options.number == wanted;
            });
        if (song == pending.end())
            throw std::runtime_error(fmt::format("there is no song {} to give a pick-up to", number));
        song->score.packed.options.pickupBeats = beats;
    }
}

/// Files of one name in different folders must not meet in the archive.
void NameMembers(std::vector<PendingSong>& pending) {
    std::map<std::string, std::string> nameOfFile;
    std::set<std::string> taken{"show.json"};
    for (PendingSong& song : pending) {
        std::string& name = nameOfFile[song.file];
        if (name.empty()) {
            const std::string base = kit::path::basename(song.file);
            name = base;
            for (int copy = 2; !taken.insert(name).second; ++copy)
                name = fmt::format("{}-{}", copy, base);
        }
        song.score.packed.smfName = name;
    }
}

tavo_midi::SongData BuildSong(const PendingSong& pending) {
    const tavo_midi::ShowSong& packed = pending.score.packed;
    return tavo_midi::BuildSong(tavo_midi::ReadSmf(packed.smf, pending.file), packed.options, pending.file);
}

/// The song's first log: what the reader suggests and the score's markers, as far as the rules allow them.
CL::SongLog MakeFirstLog(const PendingSong& pending, const tavo_midi::SongData& song, std::vector<std::string>& notes) {
    CL::SongLog songLog = pending.score.firstEdits;
    const CL::SongLog empty;
    std::set<std::pair<unsigned int, std::string>> seen;
    for (const CL::Marker& marker : song.GetScoreMarkers()) {
        // Programs write a marker into every track: one of them is enough.
        if (!seen.emplace(marker.abs_time(), marker.value()).second) continue;
        const std::string problem = CL::CheckEdit(marker, empty, song.GetTimeline());
        if (problem.empty()) {
            songLog.GetMarkers().Add(marker);
        } else {
            notes.push_back(fmt::format("song {}: a marker is left out: {}", song.GetSongNumber(), problem));
        }
    }
    return songLog;
}

/// Name of the show directory, which its files bear too.
std::string GetShowName(const std::string& showPath) {
    const fs::path path = fs::absolute(showPath).lexically_normal();
    const std::string name = (path.has_filename() ? path : path.parent_path()).filename().string();
    return name.empty() || name == "." || name == ".." ? "show" : name;
}

bool IsNewOrEmpty(const std::string& path) {
    return !fs::exists(path) || (fs::is_directory(path) && fs::is_empty(path));
}

void RefuseExistingShow(const std::string& path) {
    if (!fs::exists(path)) return;
    if (!fs::is_directory(path)) throw std::runtime_error(fmt::format("\"{}\" is no directory", path));
    std::vector<std::string> problems;
    const ShowDirectory directory = ScanAnyDirectory(path, problems);
    if (!directory.showDataName.empty() || !directory.logNames.empty() || !problems.empty())
        throw std::runtime_error(fmt::format("the directory \"{}\" holds a show already and is not overwritten", path));
}

/// The files that an import makes; they are removed at the end of the scope unless it went well.
class NewFiles {
public:
    explicit NewFiles(const std::string& showPath) : showPath_(showPath), isNewDirectory_(IsNewOrEmpty(showPath)) {
        directory_ = showPath;
        while (!directory_.empty() && directory_.back() == '/')
            directory_.pop_back();
        if (isNewDirectory_) MakeTemporaryDirectory();
    }
    ~NewFiles() {
        if (isKept_) return;
        std::error_code ignored;
        if (isNewDirectory_) fs::remove_all(directory_, ignored);
        for (const std::string& file : written_)
            fs::remove(file, ignored);
    }
    NewFiles(const NewFiles&) = delete;
    NewFiles& operator=(const NewFiles&) = delete;

    [[nodiscard]] const std::string& Directory() const { return directory_; }
    void Remember(const std::string& file) {
        if (!isNewDirectory_) written_.push_back(file);
    }
    /// Gives a new directory its name, all files at once.
    void Keep() {
        if (isNewDirectory_) {
            std::error_code error;
            fs::rename(directory_, showPath_, error);
            if (error)
                throw std::runtime_error(
                    fmt::format("the directory \"{}\" cannot be made: {}", showPath_, error.message()));
            SyncParent();
        }
        isKept_ = true;
    }

private:
    void MakeTemporaryDirectory() {
        directory_ += fmt::format(".import-{}", ::getpid());
        std::error_code error;
        fs::remove_all(directory_, error);
        if (!fs::create_directory(directory_, error))
            throw std::runtime_error(
                fmt::format("the directory \"{}\" cannot be made: {}", showPath_, error.message()));
    }
    void SyncParent() const {
        const std::string parent = fs::absolute(directory_).parent_path().string();
        const int descriptor = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor < 0) return;
        ::fsync(descriptor);
        ::close(descriptor);
    }

    std::string showPath_;
    std::string directory_;
    bool isNewDirectory_;
    bool isKept_ = false;
    std::vector<std::string> written_;
};

void WriteShow(const ImportRequest& request, const std::string& title, const std::vector<tavo_midi::ShowSong>& songs,
               CL::ChangeLog& log) {
    NewFiles files(request.showPath);
    log.SetShowName(GetShowName(request.showPath));
    log.SetDirectory(files.Directory());
    const std::string logPath = log.Save("");
    files.Remember(logPath);

    const std::string settingsPath = kit::path::Join(files.Directory(), "settings.json");
    if (!fs::exists(settingsPath)) {
        kit::WriteNewFileDurably(settingsPath, AsText(Settings{}));
        files.Remember(settingsPath);
    }
    // The log's name is the show's, the version and the extension; the show data share its first part. They come last:
    // without them a directory is no show.
    const std::string showDataPath = logPath.substr(0, logPath.rfind('-')) + ".showdata";
    tavo_midi::WriteShowData(showDataPath, title, songs, tavo_midi::ExistingShow::Keep);
    files.Remember(showDataPath);
    files.Keep();
}

}  // namespace

ImportResult ImportShow(const ImportRequest& request) {
    RefuseExistingShow(request.showPath);
    std::vector<PendingSong> pending = ReadScores(request);
    NumberSongs(pending);
    SetPickups(pending, request.pickupBeats);
    NameMembers(pending);

    ImportResult result;
    result.title = request.title.empty() ? GetShowName(request.showPath) : request.title;
    CL::ChangeLog log;
    std::vector<tavo_midi::ShowSong> songs;
    for (PendingSong& song : pending) {
        result.songs.push_back(BuildSong(song));
        result.notes.insert(result.notes.end(), song.score.notes.begin(), song.score.notes.end());
        const tavo_midi::SongData& built = result.songs.back();
        log.GetSongLogs()[built.GetSongNumber()] = MakeFirstLog(song, built, result.notes);
        songs.push_back(std::move(song.score.packed));
    }
    WriteShow(request, result.title, songs, log);
    return result;
}

}  // namespace stage
