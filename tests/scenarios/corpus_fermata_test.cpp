// The fermatas of real music: what is heard while each is held for eight seconds. One in TAVO_FERMATA_STEP of them, 8
// where it is not set; with 1 all are heard. TAVO_FERMATA_TABLE=1 prints their levels.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numeric>

#include "stage/import/show_import.h"
#include "tests/support/corpus.h"
#include "tests/support/show_builder.h"

using test_support::TemporaryDirectory;
using test_support::TestShow;

namespace {

constexpr std::uint32_t HeldRate = 48000;
constexpr std::uint32_t PieceFrames = HeldRate / 100;
constexpr std::uint8_t DrawbarOrgan = 16;

std::size_t ReadStep() {
    const char* text = std::getenv("TAVO_FERMATA_STEP");
    return text == nullptr ? 8 : std::max<std::size_t>(1, std::strtoul(text, nullptr, 10));
}

/// A song of the corpus and its fermatas.
struct HeldSong {
    tavo_midi::SongData song;
    std::vector<CL::Fermata> fermatas;
};

struct Under {
    std::size_t notes = 0;             ///< that sound under the fermata, as the file has it
    std::size_t soundingAtItsEnd = 0;  ///< of them those that the file lets sound up to its end
    std::size_t soundingBeyond = 0;    ///< of those the ones that sound on after it
    std::uint32_t earliest = 0xFFFFFFFF;
};

Under FindNotesUnder(const tavo_midi::SongData& song, const CL::Fermata& fermata) {
    Under under;
    std::map<std::pair<int, int>, std::vector<std::uint32_t>> begins;
    const auto take = [&](std::uint32_t begin, std::uint32_t end) {
        if (begin >= fermata.end() || end <= fermata.start()) return;
        ++under.notes;
        under.soundingAtItsEnd += end >= fermata.end() ? 1U : 0U;
        under.soundingBeyond += end > fermata.end() ? 1U : 0U;
        under.earliest = std::min(under.earliest, begin);
    };
    for (const tavo_midi::MidiEvent& event : song.GetEvents()) {
        const int kind = event.status & 0xF0;
        if (kind != 0x90 && kind != 0x80) continue;
        auto& open = begins[{event.status & 0x0F, event.data1}];
        if (kind == 0x90 && event.data2 > 0) {
            open.push_back(event.tick);
        } else if (!open.empty()) {
            take(open.front(), event.tick);
            open.erase(open.begin());
        }
    }
    return under;
}

/// The songs with the fermatas that their scores have.
std::vector<HeldSong> ImportWithFermatas(const std::vector<std::string>& paths) {
    const TemporaryDirectory directory;
    stage::ImportRequest request;
    request.paths = paths;
    request.showPath = directory / "show";
    request.asWritten = true;
    std::vector<HeldSong> songs;
    const stage::ImportResult result = stage::ImportShow(request);
    const CL::ChangeLog log = CL::ChangeLog::Load(directory / "show/show-1.0.logdata");
    for (const tavo_midi::SongData& song : result.songs) {
        const auto& fermatas = log.GetSongLog(song.GetSongNumber()).GetFermatas();
        songs.push_back({song, {fermatas.begin(), fermatas.end()}});
    }
    return songs;
}

std::vector<std::string> ListScores(const std::string& work) {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(test_support::CorpusPath() / work))
        if (entry.path().extension() == ".mxl") paths.push_back(entry.path());
    return paths;
}

/// MIDI files without scores: the last chord of each song is held, up to the beat after it.
std::vector<HeldSong> HoldLastChords(const std::string& work) {
    std::vector<HeldSong> songs = ImportWithFermatas({test_support::CorpusPath() / work});
    for (HeldSong& song : songs) {
        std::uint32_t begin = 0;
        std::uint32_t last = 0;
        for (const tavo_midi::MidiEvent& event : song.song.GetEvents()) {
            const bool isStrike = (event.status & 0xF0) == 0x90 && event.data2 > 0;
            if (isStrike) begin = event.tick;
            if ((event.status & 0xF0) == 0x80 || (event.status & 0xF0) == 0x90) last = event.tick;
        }
        const std::uint32_t beat = song.song.GetTicksPerQuarter();
        const std::uint32_t end = std::min(song.song.GetTimeline().GetEndTickIndex(), (last + beat - 1) / beat * beat);
        song.fermatas = {CL::Fermata(begin, end)};
    }
    return songs;
}

/// The same notes, equally loud, on an instrument that keeps its level.
tavo_midi::SongData PlayOnOrgan(tavo_midi::SongData song) {
    std::vector<tavo_midi::MidiEvent> events;
    for (int channel = 0; channel < 16; ++channel)
        events.push_back({0, static_cast<std::uint8_t>(0xC0 | channel), DrawbarOrgan, 0, 0});
    for (tavo_midi::MidiEvent event : song.GetEvents()) {
        const int kind = event.status & 0xF0;
        if (kind == 0x90 && event.data2 > 0) event.data2 = 90;
        if (kind == 0x90 || kind == 0x80) events.push_back(event);
    }
    song.SetEvents(std::move(events));
    return song;
}

double InDecibels(const std::vector<float>& sound, double fromSecond, double toSecond) {
    const auto first = static_cast<std::ptrdiff_t>(fromSecond * HeldRate);
    const auto last = static_cast<std::ptrdiff_t>(toSecond * HeldRate);
    const double sum = std::accumulate(sound.begin() + first, sound.begin() + last, 0.0,
                                       [](double total, float x) { return total + static_cast<double>(x) * x; });
    return 10 * std::log10(sum / static_cast<double>(last - first) + 1e-12);
}

/// One song that is open, with somebody who holds its fermatas.
class Holder {
public:
    explicit Holder(const HeldSong& held) {
        show_.Song(held.song);
        for (const CL::Fermata& fermata : held.fermatas)
            show_.GetLog().GetSongLog(held.song.GetSongNumber()).GetFermatas().Add(fermata);
        show_.WriteTo(directory_);
        session_.emplace(directory_.Path(), directory_.Path(), show_.sessionOptions);
        session_->GetSynth().SetObserver([this](const stage::SynthMessage& message) { messages_.push_back(message); });
    }

    /// Plays from the tick until a fermata holds, and eight seconds and a half of the hold, which are returned.
    std::vector<float> Hold(std::uint32_t fromTick) {
        const std::string number = session_->GetShow().GetSongNumbers().front();
        session_->LoadSong(number);
        session_->Seek(fromTick);
        session_->Play();
        std::vector<float> sound;
        for (int pieces = 0; !session_->GetStagePlayer().GetEngine().IsHolding() && pieces < 6000; ++pieces)
            Render_(sound);
        EXPECT_TRUE(session_->GetStagePlayer().GetEngine().IsHolding());
        messages_.clear();
        sound.clear();
        while (sound.size() < HeldRate * 17 / 2)
            Render_(sound);
        return sound;
    }
    /// What was struck and let go since the hold began.
    [[nodiscard]] bool HeardNothingBegin() const { return messages_.empty(); }
    [[nodiscard]] std::size_t CountHeld() { return session_->GetSynth().CountSoundingNotes(); }
    /// The notes that the release ends, all at one frame.
    [[nodiscard]] std::size_t CountEndsAtRelease() {
        session_->FlowControlExit();
        std::vector<float> sound;
        Render_(sound);
        return static_cast<std::size_t>(std::count_if(messages_.begin(), messages_.end(), [this](const auto& message) {
            return message.status == 0x80 && message.frame == messages_.front().frame;
        }));
    }
    [[nodiscard]] std::size_t CountAfterStop() {
        session_->Stop();
        std::vector<float> sound;
        Render_(sound);
        return CountHeld();
    }

private:
    void Render_(std::vector<float>& sound) {
        session_->GetStagePlayer().GetEngine().Render(left_.data(), right_.data(), PieceFrames);
        session_->GetSteppedFeed().MakePass();
        sound.insert(sound.end(), left_.begin(), left_.end());
    }

    TestShow show_;
    TemporaryDirectory directory_;
    std::optional<stage::ShowSession> session_;
    std::vector<stage::SynthMessage> messages_;
    std::vector<float> left_ = std::vector<float>(PieceFrames);
    std::vector<float> right_ = std::vector<float>(PieceFrames);
};

void HoldEach(const std::string& name, const std::vector<HeldSong>& songs) {
    const bool printsTable = std::getenv("TAVO_FERMATA_TABLE") != nullptr;
    std::size_t number = 0;
    for (const HeldSong& held : songs) {
        for (const bool onOrgan : {false, true}) {
            std::optional<Holder> holder;
            std::size_t place = number;
            for (const CL::Fermata& fermata : held.fermatas) {
                if (place++ % ReadStep() != 0) continue;
                const Under under = FindNotesUnder(held.song, fermata);
                if (!holder) holder.emplace(onOrgan ? HeldSong{PlayOnOrgan(held.song), held.fermatas} : held);
                const std::string what = name + ", song " + held.song.GetSongNumber() + ", tick " +
                                         std::to_string(fermata.end()) + (onOrgan ? ", on the organ" : "");
                const std::uint32_t beat = held.song.GetTicksPerQuarter();
                const std::uint32_t from = std::min<std::uint32_t>(under.earliest, fermata.start());
                const std::vector<float> sound = holder->Hold(from > beat ? from - beat : 0);
                const double first = InDecibels(sound, 0.1, 0.4);
                const std::vector<double> levels{InDecibels(sound, 1, 1.3), InDecibels(sound, 3, 3.3),
                                                 InDecibels(sound, 8, 8.3)};
                EXPECT_TRUE(holder->HeardNothingBegin()) << what;
                const std::size_t heldNotes = holder->CountHeld();
                if (printsTable)
                    std::printf("%s\t%zu under, %zu as written, %zu held\t%.1f\t%.1f\t%.1f\t%.1f dB\n", what.c_str(),
                                under.notes, under.soundingAtItsEnd, heldNotes, first, levels[0], levels[1], levels[2]);
                EXPECT_EQ(under.notes > 0, heldNotes > 0) << what;
                EXPECT_GE(heldNotes, under.soundingAtItsEnd) << what;
                if (under.notes > 0 && onOrgan) {
                    EXPECT_GT(first, -45) << what;
                    for (const double level : levels)
                        EXPECT_NEAR(first, level, 1) << what;
                }
                EXPECT_GE(holder->CountEndsAtRelease() + under.soundingBeyond, heldNotes) << what;
                EXPECT_EQ(0U, holder->CountAfterStop()) << what;
            }
        }
        number += held.fermatas.size();
    }
}

TEST(CorpusFermatas, OfSongsWithMidiFilesBesideTheirScores_SoundWhileTheyAreHeld) {
    SKIP_WITHOUT_CORPUS();
    HoldEach("melodies", ImportWithFermatas({test_support::CorpusPath() / "show_holmes_melodies"}));
}

TEST(CorpusFermatas, OfScoresAlone_SoundWhileTheyAreHeld) {
    SKIP_WITHOUT_CORPUS();
    HoldEach("melodies, scores", ImportWithFermatas(ListScores("show_holmes_melodies")));
    HoldEach("muellerin, scores", ImportWithFermatas(ListScores("show_schubert_muellerin")));
}

TEST(CorpusFermatas, OfMidiFilesAlone_SoundWhileTheyAreHeld) {
    SKIP_WITHOUT_CORPUS();
    HoldEach("abel", HoldLastChords("show_harrer_abel"));
}

}  // namespace
