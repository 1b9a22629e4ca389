#include "tavo_midi/show_file.h"

#include <fmt/format.h>

#include <map>
#include <stdexcept>
#include <utility>

#include "kit/file.h"
#include "kit/utf8.h"
#include "kit/zip_archive.h"
#include "show_json.h"
#include "tavo_midi/smf_reader.h"

namespace tavo_midi {

namespace {

void CheckText(const std::string& text, const char* what) {
    if (!kit::IsUtf8(text)) throw std::runtime_error(fmt::format("the {} of a song or show is not UTF-8", what));
}

/// Reads the songs of one archive into a show, each file once as long as the songs that share it follow one another.
class SongReader {
public:
    SongReader(const kit::ZipReader& archive, const std::string& name, ShowData& show)
        : archive_(archive), name_(name), show_(show) {}

    /// `isLastUse` says that the next song has another file.
    void Read(const ShowJsonSong& entry, bool isLastUse) {
        const std::string place = fmt::format("{}/{}", name_, entry.smfName);
        if (entry.smfName != member_) ReadFile(entry.smfName, place);
        songBytes_ += memberBytes_;
        if (songBytes_ > MaxShowSongBytes)
            throw std::runtime_error(
                fmt::format("\"{}\" has songs of more than {} bytes together", name_, MaxShowSongBytes));
        SongData song =
            isLastUse ? BuildSong(std::move(smf_), entry.options, place) : BuildSong(smf_, entry.options, place);
        if (isLastUse) member_.clear();
        beats_ += song.GetTimeline().GetBarsBeats().size();
        if (beats_ > MaxShowBeats)
            throw std::runtime_error(fmt::format("\"{}\" has more than {} beats", name_, MaxShowBeats));
        song.SetSmfName(entry.smfName);
        show_.AddSong(std::move(song));
    }

private:
    void ReadFile(const std::string& member, const std::string& place) {
        const std::string bytes = archive_.Read(member, MaxShowMemberBytes);
        smf_ = ReadSmf(bytes, place);
        member_ = member;
        memberBytes_ = bytes.size();
        for (const std::string& warning : smf_.warnings)
            show_.AddWarning(warning);
    }

    const kit::ZipReader& archive_;
    const std::string& name_;
    ShowData& show_;
    std::string member_;
    std::size_t memberBytes_ = 0;
    std::size_t songBytes_ = 0;
    std::size_t beats_ = 0;
    Smf smf_;
};

}  // namespace

ShowData UnpackShowData(std::string_view bytes, const std::string& name) {
    const kit::ZipReader archive(bytes, name, MaxShowMembers);
    const std::string place = fmt::format("\"{}\", member \"{}\"", name, ShowJsonName);
    const ShowJson json = ReadShowJson(archive.Read(ShowJsonName, MaxShowJsonBytes), place);
    ShowData show;
    show.SetTitle(json.title);
    for (const std::string& warning : json.warnings)
        show.AddWarning(warning);
    SongReader songs(archive, name, show);
    for (std::size_t index = 0; index < json.songs.size(); ++index) {
        const bool isLast = index + 1 == json.songs.size();
        const bool isLastUse = isLast || json.songs[index + 1].smfName != json.songs[index].smfName;
        try {
            songs.Read(json.songs[index], isLastUse);
        } catch (const std::invalid_argument& error) {
            throw std::runtime_error(fmt::format("{}: {}", place, error.what()));
        }
    }
    return show;
}

std::string PackShowData(const std::string& title, const std::vector<ShowSong>& songs) {
    CheckText(title, "title");
    ShowJson json{title, {}, {}};
    std::map<std::string, const std::string*> files;
    for (const ShowSong& song : songs) {
        CheckText(song.options.number, "number");
        CheckText(song.options.title, "title");
        CheckText(song.smfName, "file name");
        for (const BarLabel& label : song.options.barLabels)
            CheckText(label.label, "bar label");
        const auto [file, isNew] = files.emplace(song.smfName, &song.smf);
        if (!isNew && *file->second != song.smf)
            throw std::runtime_error(fmt::format("two different files are both named \"{}\"", song.smfName));
        json.songs.push_back({song.options, song.smfName});
    }
    const std::string text = WriteShowJson(json);
    kit::ZipWriter archive;
    archive.Add(ShowJsonName, text);
    for (const auto& [member, bytes] : files)
        archive.Add(member, *bytes);
    std::string bytes = archive.Finish();
    if (bytes.size() > MaxShowFileBytes)
        throw std::runtime_error(fmt::format("the show is larger than the {} bytes allowed", MaxShowFileBytes));
    static_cast<void>(UnpackShowData(bytes, title));
    return bytes;
}

void WriteShowData(const std::string& path, const std::string& title, const std::vector<ShowSong>& songs,
                   ExistingShow existing) {
    const std::string bytes = PackShowData(title, songs);
    if (existing == ExistingShow::Replace)
        kit::ReplaceFileDurably(path, bytes);
    else
        kit::WriteNewFileDurably(path, bytes);
}

ShowData::ShowData(const std::string& path) : ShowData(UnpackShowData(kit::ReadFile(path, MaxShowFileBytes), path)) {}

}  // namespace tavo_midi
