#include <fmt/format.h>

#include <exception>
#include <stdexcept>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/musicxml/score_file.h"
#include "stage/musicxml/score_song.h"
#include "stage/session/score_reader.h"

namespace stage {

namespace {

using musicxml::BarOrder;

class MusicXmlScoreReader : public ScoreReader {
public:
    explicit MusicXmlScoreReader(BarOrder barOrder) : barOrder_(barOrder) {}

    bool ReadsExtension(std::string_view extension) const override {
        return extension == "musicxml" || extension == "mxl" || extension == "xml";
    }

    std::vector<ScoreSong> Read(const std::string& path, const ReportStep& reportStep) const override {
        reportStep("reading " + path);
        const musicxml::WrittenScore score =
            musicxml::ReadScore(kit::ReadFile(path, musicxml::MaxScoreFileBytes), path);
        reportStep("laying out " + path);
        std::vector<ScoreSong> songs;
        songs.push_back(LayOut(score, path));
        return songs;
    }

private:
    [[nodiscard]] ScoreSong LayOut(const musicxml::WrittenScore& score, const std::string& path) const {
        try {
            ScoreSong song = MakeScoreSong(score, barOrder_);
            std::string& title = song.packed.options.title;
            if (title.empty()) title = ParseScoreFileName(path).title;
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

std::unique_ptr<ScoreReader> MakeMusicXmlScoreReader(bool asWritten) {
    return std::make_unique<MusicXmlScoreReader>(asWritten ? BarOrder::AsWritten : BarOrder::AsPlayed);
}

}  // namespace stage
