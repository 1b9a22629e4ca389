#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kit/errors.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/directories.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::MakeShowSong;
using test_support::ShowFiles;
using test_support::TestInterface;
using test_support::TheFacade;

/// The sentence of the exception that opening the show throws; empty if it opens.
template <class Exception>
std::string RefusalOf(const ShowFiles& files) {
    try {
        const TestInterface facade(files.Show(), files.Settings());
    } catch (const Exception& error) {
        return error.what();
    }
    return "";
}

TEST(InterfaceErrors, AreOneFamily) {
    static_assert(std::is_base_of_v<std::runtime_error, InterfaceError>);
    static_assert(std::is_base_of_v<InterfaceError, NoShowData>);
    static_assert(std::is_base_of_v<InterfaceError, NoChangeLog>);
    static_assert(std::is_base_of_v<InterfaceError, NoBarStr>);
    EXPECT_STREQ("no bar", NoBarStr("no bar").what());
}

// Finding the files.

TEST(InterfaceScan, VersionsCompareAsNumbers_NotAsText) {
    ShowFiles files;
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4)});
    files.WriteLog("evening-1.2.logdata", {1, 2});
    files.WriteLog("evening-1.10.logdata", {1, 10});
    TestInterface facade(files.Show(), files.Settings());
    EXPECT_EQ(files.PathOf("evening-1.10.logdata"), facade.GetChangelogFilename());
    EXPECT_EQ("1.10", facade.GetLogVersion());
    const auto logs = facade.GetLogMap();
    EXPECT_EQ((std::vector<std::pair<const std::string, std::string>>{{"1.2", "evening-1.2.logdata"},
                                                                      {"1.10", "evening-1.10.logdata"}}),
              (std::vector<std::pair<const std::string, std::string>>(logs.begin(), logs.end())));
}

TEST(InterfaceScan, VersionStandsBehindTheLastDash_OrIsTheWholeName) {
    ShowFiles files;
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4)});
    files.WriteLog("a-b-2.0.logdata", {2, 0});
    files.WriteLog("1.9.logdata", {1, 9});
    TestInterface facade(files.Show(), files.Settings());
    EXPECT_EQ("a-b-2.0.logdata", facade.GetLogMap().at("2.0"));
    EXPECT_EQ("1.9.logdata", facade.GetLogMap().at("1.9"));
    EXPECT_EQ(files.PathOf("a-b-2.0.logdata"), facade.GetChangelogFilename());
}

TEST(InterfaceScan, ExtensionsAreComparedWholeAndWithCase) {
    ShowFiles files;
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4)});
    files.WriteLog("evening-1.0.logdata", {1, 0});
    files.WriteText("evening-9.9.LOGDATA", "");
    files.WriteText("evening-9.8.logdata.bak", "");
    files.WriteText("other.SHOWDATA", "");
    files.WriteText("other.showdata.bak", "");
    files.WriteText("other.Score", "");
    TestInterface facade(files.Show(), files.Settings());
    EXPECT_EQ(1U, facade.GetLogMap().size());
    EXPECT_EQ("evening.showdata", facade.GetShowDataFilename());
    EXPECT_EQ("", facade.GetScoreFilename());
}

TEST(InterfaceScan, OfSeveralFilesOfAKind_TheOneListedLastCounts) {
    ShowFiles files;
    files.WriteMusic("b.showdata", {MakeShowSong("1", 4)});
    files.WriteMusic("a.showdata", {MakeShowSong("1", 4)});
    files.WriteText("b.score", "");
    files.WriteText("a.score", "");
    files.WriteLog("b-1.0.logdata", {1, 0});
    files.WriteLog("a-1.0.logdata", {1, 0});
    TestInterface facade(files.Show(), files.Settings());
    EXPECT_EQ("b.showdata", facade.GetShowDataFilename());
    EXPECT_EQ("b.score", facade.GetScoreFilename());
    EXPECT_EQ("b-1.0.logdata", facade.GetLogMap().at("1.0"));
}

TEST(InterfaceScan, DirectoryWithoutAShow_IsRefusedForItsShowDataFirst) {
    ShowFiles files;
    EXPECT_EQ("Cannot locate showdata file", RefusalOf<NoShowData>(files));
    files.WriteLog("evening-1.0.logdata", {1, 0});
    EXPECT_EQ("Cannot locate showdata file", RefusalOf<NoShowData>(files));
}

TEST(InterfaceScan, DirectoryWithoutALog_IsRefused) {
    ShowFiles files;
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4)});
    EXPECT_EQ("Cannot locate change log file.", RefusalOf<NoChangeLog>(files));
}

TEST(InterfaceScan, WhatTheLibrariesThrow_PassesUnchanged) {
    ShowFiles files;
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4)});
    files.WriteText("evening-final.logdata", "");
    EXPECT_NE("", RefusalOf<std::invalid_argument>(files)) << "no version";
    std::filesystem::remove(files.PathOf("evening-final.logdata"));
    files.WriteText("evening-1.0.logdata", "no log");
    EXPECT_NE("", RefusalOf<std::runtime_error>(files)) << "no log";
    EXPECT_THROW(TestInterface("/no/such/directory", files.Settings()), std::runtime_error);
}

// What construction leaves behind.

TEST_F(TheFacade, Construction_SetsTheProcessUp) {
    EXPECT_EQ("Parent", kit::threadNames.GetNameOfCurrentThread());
    EXPECT_EQ(files_.Show(), Directories::GetShowDirectory());
    EXPECT_EQ(files_.Show(), facade_->GetShowDirectory());
    EXPECT_EQ(files_.Settings(), Directories::GetSettingsDirectory());
    EXPECT_EQ(files_.Settings() + "/tavo.threaderr", kit::GetThreadExceptionLogPath());
}

TEST_F(TheFacade, SettingsFile_LiesInTheShowDirectoryNotInTheSettingsDirectory) {
    EXPECT_EQ(files_.PathOf("settings.json"), facade_->GetSettingsFilename());
    EXPECT_NE(files_.Settings(), files_.Show());
}

TEST(InterfaceConstruction, BeforeInitialize_NothingIsLoaded) {
    ShowFiles files;
    files.WriteWholeShow();
    TestInterface facade(files.Show(), files.Settings(), true);
    EXPECT_TRUE(facade.GetFlag());
    EXPECT_EQ(nullptr, facade.GetChangeLogEditor());
    EXPECT_EQ(0U, facade.GetInvertedLoopEventCount());
    EXPECT_EQ("", facade.GetInvertedLoopEventDescription());
    EXPECT_EQ("1.3", facade.GetLogVersion()) << "but the log is";
    EXPECT_FALSE(TestInterface(files.Show(), files.Settings(), false).GetFlag());
}

TEST_F(TheFacade, Score_IsADerivedClassesMatter) {
    try {
        (void)facade_->GetScoreTar();
        FAIL() << "a score";
    } catch (const kit::NotImplementedError& error) {
        EXPECT_STREQ("The base class Interface does not load the score file.", error.what());
    }
}

/// Writes down in which order it loads, and what is there at that time.
class LoadingInterface : public TestInterface {
public:
    using TestInterface::TestInterface;
    void LoadShowData() override {
        order += "show data; ";
        TestInterface::LoadShowData();
    }
    void LoadChangeLogEditor() override {
        order += GetInvertedLoopEventCount() > 0 ? "repairs; " : "";
        order += "editor";
        TestInterface::LoadChangeLogEditor();
        EXPECT_THROW((void)LookupPage(1), std::out_of_range) << "pages come last";
    }

    std::string order;
};

TEST(InterfaceConstruction, Initialize_LoadsMusicRepairsEditorAndPagesInTurn) {
    ShowFiles files;
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4, {{0, 1}}), MakeShowSong("2", 4)});
    files.WriteLog("evening-1.0.logdata", {1, 0},
                   [](CL::ChangeLog& log) { log.GetSongLog("1").GetCuts().Add(CL::Cut(3840, 1920)); });
    LoadingInterface facade(files.Show(), files.Settings());
    facade.Initialize();
    EXPECT_EQ("show data; repairs; editor", facade.order);
    EXPECT_EQ(1U, facade.GetInvertedLoopEventCount());
    EXPECT_NE("", facade.GetInvertedLoopEventDescription());
    EXPECT_EQ(1920U, ActiveChangeLogShared()->GetSongLog("1").GetCuts()[0].start());
    EXPECT_EQ(0U, facade.LookupPage(1).second);
    EXPECT_NE(nullptr, facade.GetChangeLogEditor());
}

TEST_F(TheFacade, Reloading_PutsNewObjectsInPlace) {
    const CL::Editor* const before = facade_->GetChangeLogEditor();
    facade_->LoadChangeLogEditor();
    EXPECT_NE(before, facade_->GetChangeLogEditor());
    EXPECT_EQ("2", facade_->GetBarString(1920));
}

// Pages.

TEST(InterfacePages, PageOfTwoSongs_BelongsToTheOneVisitedLast) {
    ShowFiles files;
    files.WriteWholeShow();
    files.WriteMusic("evening.showdata",
                     {MakeShowSong("2", 4, {{0, 7}, {1920, 8}}), MakeShowSong("1", 4, {{0, 3}, {3840, 7}, {5760, 3}})});
    TestInterface facade(files);
    EXPECT_EQ((std::pair<std::string, unsigned int>("1", 3840)), facade.LookupPage(7)) << "in show order";
    EXPECT_EQ((std::pair<std::string, unsigned int>("2", 1920)), facade.LookupPage(8));
    EXPECT_EQ((std::pair<std::string, unsigned int>("1", 5760)), facade.LookupPage(3)) << "within one song, too";
}

TEST(InterfacePages, LoadingAgain_AddsToThePagesKnown) {
    ShowFiles files;
    files.WriteWholeShow();
    files.WriteMusic("evening.showdata", {MakeShowSong("1", 4, {{0, 1}, {1920, 2}})});
    TestInterface facade(files);
    facade.GetShowData().GetSongData("1").GetTimeline().GetPageNums() = {{480, 2}, {960, 9}};
    facade.LoadPageNumbers();
    EXPECT_EQ(0U, facade.LookupPage(1).second);
    EXPECT_EQ(480U, facade.LookupPage(2).second);
    EXPECT_EQ(960U, facade.LookupPage(9).second);
}

// MIDI commands.

TEST_F(TheFacade, EachMidiCommand_IsOneOperation) {
    const std::pair<std::string, const char*> rows[] = {
        {notify::names::midiCommandPlay, "Play"},
        {notify::names::midiCommandPause, "Pause false"},
        {notify::names::midiCommandStop, "Stop; PlaybackStopped; feed updates"},
        {notify::names::midiCommandNextSong, "NextSong"},
        {notify::names::midiCommandPreviousSong, "PrevSong"},
        {notify::names::midiCommandNextMarker, "SeekRight"},
        {notify::names::midiCommandPreviousMarker, "SeekLeft"},
        {notify::names::midiCommandContinue, "Continue"},
    };
    for (const auto& [name, calls] : rows) {
        EXPECT_EQ(calls, CallsOf([&command = name] { notify::callbackDispatcher.Notify(command, nullptr); })) << name;
    }
}

TEST_F(TheFacade, TwoFacades_EachHearTheCommands_UntilTheyEnd) {
    test_support::FacadePlayer otherPlayer(facade_->GetShowData());
    {
        struct Padding {
            virtual ~Padding() = default;
            int padding = 0;
        };
        // Its Interface lies somewhere inside it.
        struct Other : Padding, TestInterface {
            using TestInterface::TestInterface;
            Player* GetPlayer() override { return borrowed; }
            Player* borrowed = nullptr;
        };
        Other other(files_.Show(), files_.Settings());
        other.borrowed = &otherPlayer;
        notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
        EXPECT_EQ((std::vector<std::string>{"Play"}), otherPlayer.calls.Take());
        EXPECT_EQ((std::vector<std::string>{"Play"}), facade_->player->calls.Take());
    }
    notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
    EXPECT_TRUE(otherPlayer.calls.Take().empty());
    EXPECT_EQ((std::vector<std::string>{"Play"}), facade_->player->calls.Take());
}

}  // namespace
