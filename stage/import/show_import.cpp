#include "stage/import/show_import.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "kit/file.h"
#include "kit/numeric_string_compare.h"
#include "kit/path.h"
#include "stage/import/source_scores.h"
#include "stage/import/tempo_settings.h"
#include "stage/show/settings.h"
#include "stage/show/show_directory.h"
#include "stage/show/show_hold.h"
#include "stage/show/version_notes.h"
#include "tavo_core/edit_rules.h"
#include "tavo_core/edit_text.h"

namespace stage {

namespace {

namespace fs = std::filesystem;

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

void NumberSongs(std::vector<SongOfFile>& pending) {
    std::map<std::string, std::size_t> songsOfFile;
    for (const SongOfFile& song : pending)
        ++songsOfFile[song.file];
    std::set<std::string> numbers;
    for (SongOfFile& song : pending) {
        std::string& number = song.song.packed.options.number;
        if (number.empty()) number = ParseSongFileName(song.file).number;
        if (number.empty()) continue;
        number = NumberOfSequence(number, song.song.packed.options.sequence, songsOfFile[song.file]);
        if (!numbers.insert(number).second)
            throw std::runtime_error(
                fmt::format("the song number {} of \"{}\" is another file's already", number, song.file));
    }
    unsigned long next = FindHighestNumber(numbers);
    for (SongOfFile& song : pending) {
        std::string& number = song.song.packed.options.number;
        if (number.empty()) number = std::to_string(++next);
    }
    std::stable_sort(pending.begin(), pending.end(), [](const SongOfFile& a, const SongOfFile& b) {
        return kit::NumericStringCompare()(a.song.packed.options.number, b.song.packed.options.number);
    });
}

void SetPickups(std::vector<SongOfFile>& pending, const std::map<std::string, double>& pickupBeats) {
    for (const auto& [number, beats] : pickupBeats) {
        const auto song = std::find_if(pending.begin(), pending.end(), [&wanted = number](const SongOfFile& candidate) {
            return candidate.song.packed.options.number == wanted;
        });
        if (song == pending.end())
            throw std::runtime_error(fmt::format("there is no song {} to give a pick-up to", number));
        tavo_midi::SongOptions& options = song->song.packed.options;
        if (options.pickupBeats > 0)
            throw std::runtime_error(fmt::format("song {} has a pick-up from its score already", number));
        options.pickupBeats = beats;
        // The pick-up comes before the bars that the score has labelled.
        for (tavo_midi::BarLabel& label : options.barLabels)
            ++label.bar;
        if (!options.barLabels.empty()) options.barLabels.insert(options.barLabels.begin(), {0, "0"});
    }
}

/// Pages that bear no printed numbers are counted through the show.
void NumberPages(std::vector<SongOfFile>& pending) {
    unsigned int last = 0;
    for (SongOfFile& song : pending) {
        const unsigned int before = song.song.printsPageNumbers ? 0 : last;
        for (TL::PageNum& page : song.song.packed.options.pages) {
            page = TL::PageNum(page.abs_time(), page.page_number() + before);
            last = std::max(last, page.page_number());
        }
    }
}

/// Files of one name in different folders must not meet in the archive.
void NameMembers(std::vector<SongOfFile>& pending) {
    std::map<std::string, std::string> nameOfFile;
    std::set<std::string> taken{"show.json"};
    for (SongOfFile& song : pending) {
        std::string& name = nameOfFile[song.file];
        if (name.empty()) {
            const std::string base = song.song.packed.smfName;
            name = base;
            for (int copy = 2; !taken.insert(name).second; ++copy)
                name = fmt::format("{}-{}", copy, base);
        }
        song.song.packed.smfName = name;
    }
}

tavo_midi::SongData BuildSong(const SongOfFile& pending) {
    const tavo_midi::ShowSong& packed = pending.song.packed;
    return tavo_midi::BuildSong(tavo_midi::ReadSmf(packed.smf, pending.file), packed.options, pending.file);
}

/// The song's first log: what the reader suggests and the score's markers, as far as the rules allow them.
CL::SongLog MakeFirstLog(const SongOfFile& pending, const tavo_midi::SongData& song, std::vector<std::string>& notes) {
    CL::SongLog songLog = pending.song.firstEdits;
    const auto ofReader = std::exchange(songLog.GetMarkers(), {});
    std::vector<CL::Marker> markers(ofReader.begin(), ofReader.end());
    if (markers.empty()) markers = song.GetScoreMarkers();
    const CL::SongLog empty;
    // Programs write a marker into every track, and a rehearsal letter beside a word: a place has one.
    std::map<unsigned int, std::string> textByTick;
    const auto noteLeftOut = [&](const std::string& problem) {
        notes.push_back(fmt::format("song {}: a marker is left out: {}", song.GetSongNumber(), problem));
    };
    for (const CL::Marker& marker : markers) {
        std::string problem = CL::CheckEdit(marker, empty, song.GetTimeline());
        std::string& text = textByTick[marker.abs_time()];
        std::string joined = CL::JoinMarkerTexts(text, marker.value());
        if (problem.empty()) problem = CL::CheckEdit(CL::Marker(marker.abs_time(), joined), empty, song.GetTimeline());
        if (problem.empty())
            text = std::move(joined);
        else
            noteLeftOut(problem);
    }
    for (const auto& [tick, text] : textByTick)
        if (!text.empty()) songLog.GetMarkers().Add(CL::Marker(tick, text));
    return songLog;
}

void AppendTempoAccount(const TempoAccount& account, const std::string& number, std::vector<std::string>& sentences) {
    if (account.text.empty()) return;
    const std::string remedy = account.isUnknown ? fmt::format(": set it with --tempo {}=BPM", number) : "";
    sentences.push_back(fmt::format("song {}: {}{}", number, account.text, remedy));
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
    if (!fs::is_directory(path)) throw std::runtime_error(fmt::format("\"{}\" is not a directory", path));
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
        if (isNewDirectory_) kit::RenameDirectoryDurably(directory_, showPath_);
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

    std::string showPath_;
    std::string directory_;
    bool isNewDirectory_;
    bool isKept_ = false;
    std::vector<std::string> written_;
};

/// A score as it was imported.
struct KeptScore {
    std::string songNumber;
    std::string file;
    std::vector<std::uint32_t> measures;
};

void WriteScores(NewFiles& files, const std::vector<KeptScore>& scores) {
    for (const KeptScore& score : scores)
        for (const std::string& made : KeepSourceScore(files.Directory(), score.songNumber, score.file, score.measures))
            files.Remember(made);
}

void WriteShow(const ImportRequest& request, const std::string& title, const std::vector<tavo_midi::ShowSong>& songs,
               const std::vector<KeptScore>& scores, CL::ChangeLog& log) {
    // A new directory appears whole; in one that is there another import may be at work.
    std::optional<ShowHold> hold;
    if (!IsNewOrEmpty(request.showPath)) hold.emplace(request.showPath, "an import");
    RefuseExistingShow(request.showPath);
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
    WriteScores(files, scores);
    // The log's name is the show's, the version and the extension; the show data share its first part. They come last:
    // without them a directory is not a show.
    const std::string showDataPath = logPath.substr(0, logPath.rfind('-')) + ".showdata";
    tavo_midi::WriteShowData(showDataPath, title, songs, tavo_midi::ExistingShow::Keep);
    files.Remember(showDataPath);
    files.Keep();
    NoteVersion(request.showPath, log.GetVersion(), "imported");
}

}  // namespace

ImportResult ImportShow(const ImportRequest& request) {
    RefuseExistingShow(request.showPath);
    std::vector<SongOfFile> pending =
        ReadSongFiles(request.paths, {request.asWritten, request.breaths}, request.reportProgress);
    NumberSongs(pending);
    auto tempos = request.tempos;
    SetWrittenTempos(pending, tempos);
    SetPickups(pending, request.pickupBeats);
    SetPlayedTempos(pending, tempos);
    NumberPages(pending);
    NameMembers(pending);

    ImportResult result;
    result.title = request.title.empty() ? GetShowName(request.showPath) : request.title;
    CL::ChangeLog log;
    std::vector<tavo_midi::ShowSong> songs;
    std::vector<KeptScore> scores;
    for (SongOfFile& song : pending) {
        result.songs.push_back(BuildSong(song));
        result.notes.insert(result.notes.end(), song.song.notes.begin(), song.song.notes.end());
        result.unplayedBars.insert(result.unplayedBars.end(), song.song.unplayedBars.begin(),
                                   song.song.unplayedBars.end());
        const tavo_midi::SongData& built = result.songs.back();
        AppendTempoAccount(song.song.tempoAccount, built.GetSongNumber(), result.guessedTempos);
        log.GetSongLogs()[built.GetSongNumber()] = MakeFirstLog(song, built, result.notes);
        if (!song.song.scoreFile.empty())
            scores.push_back({built.GetSongNumber(), song.song.scoreFile, std::move(song.song.scoreMeasures)});
        songs.push_back(std::move(song.song.packed));
    }
    WriteShow(request, result.title, songs, scores, log);
    return result;
}

}  // namespace stage
