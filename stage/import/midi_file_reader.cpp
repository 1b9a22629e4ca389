#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/import/song_file_reader.h"
#include "stage/show/letters.h"
#include "tavo_midi/smf_reader.h"

namespace stage {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Names that programs give to a track of tempos when nobody has named it.
bool IsEmptyTrackName(const std::string& name) {
    constexpr std::array<std::string_view, 9> Words{"control track", "conductor",    "conductor track",
                                                    "tempo",         "tempo track",  "untitled",
                                                    "track",         "master track", "sequence"};
    std::string plain = ToLower(name);
    while (!plain.empty() && (IsDigit(plain.back()) || plain.back() == ' ' || plain.back() == '#'))
        plain.pop_back();
    return plain.empty() || std::find(Words.begin(), Words.end(), plain) != Words.end();
}

class MidiFileReader : public SongFileReader {
public:
    bool ReadsExtension(std::string_view extension) const override { return extension == "mid" || extension == "midi"; }

    std::vector<ImportedSong> Read(const std::string& path, const ReportStep& reportStep) const override {
        reportStep("reading " + path);
        const std::string bytes = kit::ReadFile(path, tavo_midi::MaxShowMemberBytes);
        const tavo_midi::Smf smf = tavo_midi::ReadSmf(bytes, path);
        const std::string titleOfName = ParseSongFileName(path).title;
        std::vector<ImportedSong> songs;
        const std::size_t count = tavo_midi::CountSequences(smf);
        for (std::size_t sequence = 0; sequence < count; ++sequence) {
            ImportedSong song;
            song.packed.smf = bytes;
            song.packed.smfName = kit::path::basename(path);
            song.packed.options.sequence = sequence;
            song.packed.options.title = FindTitle(smf, sequence, titleOfName);
            if (sequence == 0) song.notes = smf.warnings;
            if (!HasTempo(smf, sequence))
                song.tempoAccount = {
                    "the MIDI file gives no tempo; 120 quarters a minute are taken, its format's own "
                    "default",
                    true};
            songs.push_back(std::move(song));
        }
        return songs;
    }

private:
    static bool HasTempo(const tavo_midi::Smf& smf, std::size_t sequence) {
        if (smf.format == 2) return sequence < smf.tracks.size() && !smf.tracks[sequence].tempos.empty();
        return std::any_of(smf.tracks.begin(), smf.tracks.end(),
                           [](const tavo_midi::SmfTrack& track) { return !track.tempos.empty(); });
    }

    static std::string FindTitle(const tavo_midi::Smf& smf, std::size_t sequence, const std::string& titleOfName) {
        if (sequence >= smf.tracks.size()) return titleOfName;
        const tavo_midi::SmfTrack& track = smf.tracks[sequence];
        // In format 1 a first track with music of its own bears the name of an instrument.
        const bool namesSong = smf.format != 1 || track.eventCount == 0;
        if (namesSong && !IsEmptyTrackName(track.name)) return track.name;
        if (smf.format != 2) return titleOfName;
        return fmt::format("{} {}", titleOfName, sequence + 1);
    }
};

}  // namespace

std::unique_ptr<SongFileReader> MakeMidiFileReader() {
    return std::make_unique<MidiFileReader>();
}

SongFileName ParseSongFileName(const std::string& path) {
    const std::string name = kit::path::basename_no_ext(path);
    std::size_t end = static_cast<std::size_t>(std::find_if_not(name.begin(), name.end(), IsDigit) - name.begin());
    SongFileName parsed;
    if (end > 0) {
        const std::size_t firstDigit = std::min(name.find_first_not_of('0'), end - 1);
        // One letter is part of the number where the number ends after it.
        const bool hasLetter = end < name.size() && IsLetter(name[end]) &&
                               (end + 1 == name.size() || !std::isalnum(static_cast<unsigned char>(name[end + 1])));
        if (hasLetter) ++end;
        parsed.number = name.substr(firstDigit, end - firstDigit);
    }
    std::string title = name.substr(end);
    std::replace(title.begin(), title.end(), '_', ' ');
    const std::size_t first = title.find_first_not_of(" -.");
    parsed.title = first == std::string::npos ? name : title.substr(first);
    return parsed;
}

}  // namespace stage
