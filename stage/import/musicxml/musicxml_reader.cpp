#include <fmt/format.h>

#include <exception>
#include <stdexcept>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/import/musicxml/score_file.h"
#include "stage/import/musicxml/score_song.h"
#include "stage/import/song_file_reader.h"

namespace stage {

namespace {

using musicxml::BarOrder;

class MusicXmlReader : public SongFileReader {
public:
    explicit MusicXmlReader(BarOrder barOrder) : barOrder_(barOrder) {}

    bool ReadsExtension(std::string_view extension) const override {
        return extension == "musicxml" || extension == "mxl" || extension == "xml";
    }

    std::vector<ImportedSong> Read(const std::string& path, const ReportStep& reportStep) const override {
        reportStep("reading " + path);
        const musicxml::WrittenScore score =
            musicxml::ReadScore(kit::ReadFile(path, musicxml::MaxScoreFileBytes), path);
        reportStep("laying out " + path);
        std::vector<ImportedSong> songs;
        songs.push_back(LayOut(score, path));
        return songs;
    }

private:
    [[nodiscard]] ImportedSong LayOut(const musicxml::WrittenScore& score, const std::string& path) const {
        try {
            ImportedSong song = MakeScoreSong(score, barOrder_);
            std::string& title = song.packed.options.title;
            if (title.empty()) title = ParseSongFileName(path).title;
            song.packed.smfName = kit::path::basename_no_ext(path) + ".mid";
            for (std::string& note : song.notes)
                note = fmt::format("\"{}\": {}", path, note);
            song.notes.insert(song.notes.begin(), score.warnings.begin(), score.warnings.end());
            return song;
        } catch (const std::exception& error) {
            throw std::runtime_error(fmt::format("\"{}\" cannot become a song: {}", path, error.what()));
        }
    }

    BarOrder barOrder_;
};

}  // namespace

std::unique_ptr<SongFileReader> MakeMusicXmlReader(bool asWritten) {
    return std::make_unique<MusicXmlReader>(asWritten ? BarOrder::AsWritten : BarOrder::AsPlayed);
}

}  // namespace stage
