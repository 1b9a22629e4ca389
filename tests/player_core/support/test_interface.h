#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "player_core/interface.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/editor.h"
#include "tavo_midi/show_file.h"
#include "tavo_midi/smf_writer.h"
#include "tests/player_core/support/test_player.h"
#include "tests/player_core/support/test_show.h"
#include "tests/support/temporary_directory.h"

namespace test_support {

/// A song in 4/4 at 480 ticks as it is packed into a show.
inline tavo_midi::ShowSong MakeShowSong(const std::string& number, unsigned int bars,
                                        std::vector<TL::PageNum> pages = {}) {
    tavo_midi::Smf smf;
    smf.ticksPerQuarter = TicksPerQuarter;
    tavo_midi::SmfTrack track;
    track.tempos.emplace_back(0, 500000);
    track.meters.emplace_back(0, 4, 4);
    smf.events.push_back({0, 0x90, 60, 80, 0});
    smf.events.push_back({bars * TicksPerBar - 10, 0x80, 60, 64, 0});
    track.eventCount = smf.events.size();
    track.endTick = bars * TicksPerBar;
    smf.tracks.push_back(track);
    tavo_midi::ShowSong song;
    song.options.number = number;
    song.options.title = "Song " + number;
    song.options.pages = std::move(pages);
    song.smfName = number + ".mid";
    song.smf = tavo_midi::WriteSmf(smf);
    return song;
}

/// A show directory and a settings directory.
class ShowFiles {
public:
    /// An empty show directory.
    ShowFiles() = default;

    void WriteMusic(const std::string& name, const std::vector<tavo_midi::ShowSong>& songs) const {
        tavo_midi::WriteShowData(show_ / name, "Evening", songs, tavo_midi::ExistingShow::Replace);
    }
    /// Songs "1" and "2" of sixteen bars, and a log without edits in version 1.3.
    void WriteWholeShow() const {
        WriteMusic("evening.showdata", {MakeShowSong("1", 16), MakeShowSong("2", 16)});
        WriteLog("evening-1.3.logdata", {1, 3});
    }
    /// A log for songs "1" and "2".
    void WriteLog(const std::string& name, cmn::TAVOVersion version,
                  const std::function<void(CL::ChangeLog&)>& edit = {}) const {
        CL::ChangeLog log;
        log.SetShowName("evening");
        log.GetVersion() = version;
        log.GetSongLogs()["1"];
        log.GetSongLogs()["2"];
        if (edit) edit(log);
        (void)log.Save(show_ / name);
    }
    void WriteText(const std::string& name, const std::string& text) const { std::ofstream(show_ / name) << text; }

    [[nodiscard]] const std::string& Show() const { return show_.Path(); }
    [[nodiscard]] const std::string& Settings() const { return settings_.Path(); }
    [[nodiscard]] std::string PathOf(const std::string& name) const { return show_ / name; }

private:
    TemporaryDirectory show_;
    TemporaryDirectory settings_;
};

/// A player that also writes down what else a façade may ask of it.
class FacadePlayer : public TestPlayer {
public:
    using TestPlayer::TestPlayer;

    double GetElapsedTime() override { return 12.5; }
    bool StopIfPlaying() override {
        const bool stops = TestPlayer::StopIfPlaying();
        if (stops) SetPlayerState(PlayerState::Stopped);
        return stops;
    }
    void Fade(std::function<void()> onDone, float seconds) override {
        calls.Add("Fade " + std::to_string(static_cast<int>(seconds * 1000)));
        onDone();
    }
    bool SetVolume(double volume, tavo_audio::VolumeType type) override {
        calls.Add("SetVolume " + std::to_string(static_cast<int>(volume * 100)) + " of " + std::to_string(type));
        return volume <= 1;
    }
    double GetVolume(tavo_audio::VolumeType type) override { return static_cast<int>(type) * 0.25; }
    void SetAttaccaState(const std::string& songNumber, unsigned char attacca) override {
        calls.Add("SetAttaccaState " + songNumber + " " + std::to_string(attacca));
        TestPlayer::SetAttaccaState(songNumber, attacca);
    }
    void SetTempoScale(double scale) override {
        calls.Add("SetTempoScale " + std::to_string(static_cast<int>(scale * 100)));
    }
    void SetTransposition(int semitones) override { calls.Add("SetTransposition " + std::to_string(semitones)); }
    void SeekToNextMeasure() override { calls.Add("SeekToNextMeasure"); }
    void SeekToPreviousMeasure() override { calls.Add("SeekToPreviousMeasure"); }
    void FlowControlExit() override { calls.Add("FlowControlExit"); }
    void Continue() override { calls.Add("Continue"); }
    void PrepareForExit() override { Tell_("PrepareForExit"); }
    void Shutdown() override { Tell_("Shutdown"); }
    void HaltOutput() override { Tell_("HaltOutput"); }

    /// Called at what halts and ends the player, with its name.
    std::function<void(const std::string&)> onEnding;

private:
    void Tell_(const std::string& call) {
        calls.Add(call);
        if (onEnding) onEnding(call);
    }
};

/// A façade whose player does nothing but write down what it is asked to do.
class TestInterface : public Interface {
public:
    /// Changes the music that was read.
    using ChangeMusic = std::function<void(tavo_midi::ShowData&)>;

    /// Not initialised.
    TestInterface(const std::string& showDirectory, const std::string& settingsDirectory, bool flag = false)
        : Interface(showDirectory, settingsDirectory, flag) {}
    /// Whole, with a player and a display feed.
    explicit TestInterface(const ShowFiles& files, ChangeMusic change = {})
        : Interface(files.Show(), files.Settings(), false), changeMusic(std::move(change)) {
        Initialize();
        player = std::make_unique<FacadePlayer>(GetShowData());
        auto madeFeed = std::make_unique<TestFeed>(*player, position);
        feed = madeFeed.get();
        SetGuiUpdate(std::move(madeFeed));
    }
    ~TestInterface() override {
        if (feed != nullptr) SetGuiUpdate(nullptr);
        SetActiveChangeLog(nullptr);
    }

    Player* GetPlayer() override {
        ++timesPlayerAsked;
        return player.get();
    }
    std::vector<tavo_audio::VolumeType> GetVolumeTypes() const override { return {tavo_audio::Master}; }
    void LoadShowData() override {
        Interface::LoadShowData();
        if (changeMusic) changeMusic(GetShowData());
    }

    using Interface::GetFlag;
    using Interface::GetHasConductBeat;
    using Interface::GetMidiCommands;
    using Interface::GetMidiMessageDispatcher;
    using Interface::GetMidiTimeCodeController;
    using Interface::GetShowData;
    using Interface::Initialize;
    using Interface::LoadChangeLogEditor;
    using Interface::LoadPageNumbers;
    using Interface::SetVersionTarget;

    ChangeMusic changeMusic;
    ReportedPosition position;
    std::unique_ptr<FacadePlayer> player;
    TestFeed* feed = nullptr;
    unsigned int timesPlayerAsked = 0;
};

/// A façade over the show of ShowFiles::WriteWholeShow, with song "1" loaded.
class TheFacade : public ::testing::Test {
protected:
    void SetUp() override {
        files_.WriteWholeShow();
        Open();
    }
    /// Opens the show anew.
    void Open(TestInterface::ChangeMusic changeMusic = {}) {
        facade_.reset();
        facade_ = std::make_unique<TestInterface>(files_, std::move(changeMusic));
        facade_->player->LoadSong("1");
        facade_->player->calls.Take();
    }
    /// The same with song "1" replaced by this music, in the resolution of test_show.h.
    void OpenWith(const TL::Timeline& timeline) {
        Open([timeline](tavo_midi::ShowData& show) {
            show = tavo_midi::ShowData();
            show.AddSong({"1", timeline, TicksPerQuarter});
            show.AddSong(MakeSong("2", 16));
        });
    }
    /// The active edits of a song, which nobody else reads meanwhile.
    [[nodiscard]] static CL::SongLog& Edits(const std::string& song = "1") {
        return ActiveChangeLogExclusive()->GetSongLog(song);
    }
    std::string CallsOf(const std::function<void()>& operation) {
        return test_support::CallsOf(*facade_->player, *facade_->feed, operation);
    }
    void PutPlayheadAt(unsigned int tickIndex) {
        facade_->player->GetShowControl().Seek(tickIndex);
        facade_->position.tickIndex = tickIndex;
        facade_->feed->RunOnePass_();
        facade_->player->calls.Take();
    }

    ShowFiles files_;
    std::unique_ptr<TestInterface> facade_;
};

}  // namespace test_support
