#include <fmt/format.h>

#include <exception>
#include <memory>
#include <stdexcept>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/import/musicxml/score_file.h"
#include "stage/import/musicxml/score_song.h"
#include "stage/import/musicxml/tempo_guess.h"
#include "stage/import/song_file_reader.h"

namespace stage {

namespace {

using musicxml::BarOrder;

class MusicXmlReader : public SongFileReader {
public:
    explicit MusicXmlReader(const ScoreOptions& options) : options_(options) {}

    bool ReadsExtension(std::string_view extension) const override {
        return extension == "musicxml" || extension == "mxl" || extension == "xml";
    }

    std::vector<ImportedSong> Read(const std::string& path, const ReportStep& reportStep) const override {
        reportStep("reading " + path);
        const auto score = std::make_shared<musicxml::WrittenScore>(
            musicxml::ReadScore(kit::ReadFile(path, musicxml::MaxScoreFileBytes), path));
        static_cast<void>(musicxml::CompleteTempos(*score, {}));
        reportStep("laying out " + path);
        std::vector<ImportedSong> songs;
        songs.push_back(LayOut(*score, path));
        ScoreOptions other = options_;
        other.asWritten = !options_.asWritten;
        songs.back().makeOtherOrder = [score, path, other] { return MusicXmlReader(other).LayOut(*score, path); };
        songs.back().makeWithTempos = [score, path, options = options_](std::vector<TempoSetting>& tempos) {
            musicxml::WrittenScore changed = *score;
            tempos = musicxml::CompleteTempos(changed, tempos);
            return MusicXmlReader(options).LayOut(changed, path);
        };
        return songs;
    }

private:
    [[nodiscard]] ImportedSong LayOut(const musicxml::WrittenScore& score, const std::string& path) const {
        try {
            ImportedSong song =
                MakeScoreSong(score, options_.asWritten ? BarOrder::AsWritten : BarOrder::AsPlayed, options_.breaths);
            std::string& title = song.packed.options.title;
            if (title.empty()) title = ParseSongFileName(path).title;
            song.packed.smfName = kit::path::basename_no_ext(path) + ".mid";
            song.scoreFile = path;
            for (std::vector<std::string>* sentences : {&song.notes, &song.unplayedBars})
                for (std::string& sentence : *sentences)
                    sentence = fmt::format("\"{}\": {}", path, sentence);
            song.tempoAccount = musicxml::DescribeGuessedTempos(score);
            song.notes.insert(song.notes.begin(), score.warnings.begin(), score.warnings.end());
            return song;
        } catch (const std::exception& error) {
            throw std::runtime_error(fmt::format("\"{}\" cannot become a song: {}", path, error.what()));
        }
    }

    ScoreOptions options_;
};

}  // namespace

std::unique_ptr<SongFileReader> MakeMusicXmlReader(const ScoreOptions& options) {
    return std::make_unique<MusicXmlReader>(options);
}

}  // namespace stage
