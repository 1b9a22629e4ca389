#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::TheFacade;

// Saving.

TEST_F(TheFacade, Saving_RaisesTheVersion) {
    const struct {
        const char* from;
        std::string (*save)(Interface&);
        const char* to;
    } rows[] = {
        {"1.3", [](Interface& facade) { return facade.SaveChangelog(false); }, "1.4"},
        {"1.3", [](Interface& facade) { return facade.SaveChangelog(true); }, "2.0"},
        {"3.2", [](Interface& facade) { return facade.SaveChangelog(true); }, "4.0"},
        {"7.65535", [](Interface& facade) { return facade.SaveChangelog(false); }, "7.0"},
        {"65535.9", [](Interface& facade) { return facade.SaveChangelog(true); }, "0.0"},
    };
    for (const auto& row : rows) {
        facade_->SetLogVersion(row.from);
        EXPECT_EQ(row.to, row.save(*facade_)) << row.from;
        EXPECT_EQ(row.to, facade_->GetLogVersion());
        const std::string path = files_.PathOf("evening-" + std::string(row.to) + ".logdata");
        EXPECT_EQ(path, facade_->GetChangelogFilename());
        EXPECT_EQ(std::filesystem::path(path).filename(), facade_->GetLogMap().at(row.to));
        EXPECT_EQ(row.to, CL::ChangeLog::Load(path).GetVersion().GetAsString());
    }
}

TEST_F(TheFacade, SavingACopy_RaisesTheMajorNumberOnlyAndKeepsTheMinorOne) {
    EXPECT_EQ("2.3", facade_->SaveChangelogCopy());
    facade_->SetLogVersion("3.2");
    EXPECT_EQ("4.2", facade_->SaveChangelogCopy());
    EXPECT_EQ("evening-4.2.logdata", facade_->GetLogMap().at("4.2"));
}

TEST_F(TheFacade, WhatWasSaved_IsTheNewestLogOfTheNextStart) {
    facade_->SetAttacca("2", 1);
    EXPECT_EQ("1.4", facade_->SaveChangelog(false));
    Open();
    EXPECT_EQ("1.4", facade_->GetLogVersion());
    EXPECT_EQ(1, facade_->GetAttacca("2"));
}

TEST_F(TheFacade, SaveThatFails_LeavesTheVersionRaised_AndNameMapAndLocksAsTheyWere) {
    const std::string away = files_.Settings() + "/away";
    std::filesystem::rename(files_.Show(), away);
    EXPECT_THROW((void)facade_->SaveChangelog(false), std::runtime_error);
    EXPECT_EQ("1.4", facade_->GetLogVersion());
    EXPECT_EQ(files_.PathOf("evening-1.3.logdata"), facade_->GetChangelogFilename());
    EXPECT_EQ(1U, facade_->GetLogMap().size());
    std::filesystem::rename(away, files_.Show());
    EXPECT_EQ("1.5", facade_->SaveChangelog(false));
}

TEST_F(TheFacade, SaveUnderANameThatIsTaken_ChoosesAnother_WhichTheNextStartFinds) {
    files_.WriteText("evening-1.4.logdata", "somebody else's");
    EXPECT_EQ("1.4", facade_->SaveChangelog(false));
    const std::string name = facade_->GetLogMap().at("1.4");
    EXPECT_NE("evening-1.4.logdata", name);
    EXPECT_EQ(files_.PathOf(name), facade_->GetChangelogFilename());
    std::filesystem::remove(files_.PathOf("evening-1.4.logdata"));
    Open();
    EXPECT_EQ(name, facade_->GetLogMap().at("1.4"));
}

// Versions.

TEST_F(TheFacade, SetLogVersion_SavesNothing) {
    facade_->SetLogVersion("12.7");
    EXPECT_EQ("12.7", facade_->GetLogVersion());
    EXPECT_EQ(1U, facade_->GetLogMap().size());
    EXPECT_EQ(files_.PathOf("evening-1.3.logdata"), facade_->GetChangelogFilename());
    EXPECT_FALSE(std::filesystem::exists(files_.PathOf("evening-12.7.logdata")));
}

TEST_F(TheFacade, SetLogVersionToNoVersion_ThrowsAndChangesNothing) {
    for (const char* text : {"", "1", "1.", "1.2.3", "1.65536", "one.two"})
        EXPECT_THROW(facade_->SetLogVersion(text), std::invalid_argument) << text;
    EXPECT_EQ("1.3", facade_->GetLogVersion());
}

TEST_F(TheFacade, VersionTarget_IsTakenAsThirtyTwoBits) {
    for (const auto& [target, expected] :
         std::map<long, unsigned int>{{7, 7}, {-1, 0xFFFFFFFFU}, {0x100000002L, 2}, {0, 0}}) {
        facade_->SetVersionTarget(target);
        EXPECT_EQ(expected, CL::GetCaesuraVersionTarget()) << target;
    }
    facade_->SetVersionTarget(0);
}

// Switching.

TEST_F(TheFacade, SetChangelogFilename_HaltsTheOutputAndWorksOnTheOtherLog) {
    files_.WriteLog("evening-1.1.logdata", {1, 1}, [](CL::ChangeLog& log) { log.GetSongLog("1").SetAttacca(1); });
    const CL::Editor* const before = facade_->GetChangeLogEditor();
    EXPECT_EQ("HaltOutput", CallsOf([this] { facade_->SetChangelogFilename("evening-1.1.logdata"); }));
    EXPECT_EQ("1.1", facade_->GetLogVersion());
    EXPECT_EQ(1, facade_->GetAttacca("1"));
    EXPECT_EQ(files_.PathOf("evening-1.1.logdata"), facade_->GetChangelogFilename());
    EXPECT_EQ("evening-1.1.logdata", facade_->GetLogMap().at("1.1"));
    EXPECT_EQ(2U, facade_->GetLogMap().size());
    EXPECT_NE(before, facade_->GetChangeLogEditor());
}

TEST_F(TheFacade, LogOfTheVersionInUse_TakesItsPlaceInTheMap) {
    files_.WriteLog("another.logdata", {1, 3});
    facade_->SetChangelogFilename("another.logdata");
    EXPECT_EQ((std::map<std::string, std::string, kit::NumericStringCompare>{{"1.3", "another.logdata"}}),
              facade_->GetLogMap());
}

TEST_F(TheFacade, LogThatCannotBeRead_LeavesTheOldOneActive) {
    EXPECT_THROW(facade_->SetChangelogFilename("none.logdata"), std::runtime_error);
    EXPECT_EQ("1.3", facade_->GetLogVersion());
    EXPECT_EQ(1U, facade_->GetLogMap().size());
    EXPECT_EQ(files_.PathOf("none.logdata"), facade_->GetChangelogFilename()) << "the name is taken first";
}

TEST_F(TheFacade, DescriptionOfRepairs_IsNotClearedBetweenLogs) {
    const auto addInverted = [](unsigned int count) {
        return [count](CL::ChangeLog& log) {
            for (unsigned int i = 0; i < count; ++i)
                log.GetSongLog("1").GetCuts().Add(CL::Cut(3840 * (i + 1), 3840 * i + 1920));
        };
    };
    files_.WriteLog("evening-1.4.logdata", {1, 4}, addInverted(1));
    files_.WriteLog("evening-1.5.logdata", {1, 5}, addInverted(2));
    facade_->SetChangelogFilename("evening-1.4.logdata");
    const std::string first = facade_->GetInvertedLoopEventDescription();
    EXPECT_EQ(1U, facade_->GetInvertedLoopEventCount());
    EXPECT_NE("", first);
    facade_->SetChangelogFilename("evening-1.5.logdata");
    EXPECT_EQ(2U, facade_->GetInvertedLoopEventCount()) << "the count is the last load's";
    EXPECT_TRUE(facade_->GetInvertedLoopEventDescription().starts_with(first));
    EXPECT_GT(facade_->GetInvertedLoopEventDescription().size(), first.size());
}

TEST_F(TheFacade, PagesStay_WhenTheLogIsSwitched) {
    facade_->GetShowData().GetSongData("1").GetTimeline().GetPageNums() = {{480, 5}};
    facade_->LoadPageNumbers();
    facade_->GetShowData().GetSongData("1").GetTimeline().GetPageNums() = {{480, 6}};
    facade_->SetChangelogFilename("evening-1.3.logdata");
    EXPECT_EQ(480U, facade_->LookupPage(5).second);
    EXPECT_THROW((void)facade_->LookupPage(6), std::out_of_range);
}

// What is told after loading.

TEST_F(TheFacade, TempoScalesInRange_GiveNoWarning) {
    EXPECT_EQ("", facade_->GetTempoScaleWarnings());
    Edits().GetTempoScales().Add(CL::TempoScale(0, 480, 0.5F));
    Edits().GetTempoScales().Add(CL::TempoScale(480, 960, 2.0F));
    EXPECT_EQ("", facade_->GetTempoScaleWarnings());
}

TEST_F(TheFacade, TempoScalesOutOfRange_AreToldWithTheClosestPlayableValue) {
    Edits("2").GetTempoScales().Add(CL::TempoScale(0, 480, 2.5F));
    Edits("1").GetTempoScales().Add(CL::TempoScale(960, 1920, 0.4F));
    Edits("1").GetTempoScales().Add(CL::TempoScale(0, 480, 1.0F));
    ActiveChangeLogExclusive()->GetSongLogs()["10"].GetTempoScales().Add(CL::TempoScale(0, 480, 0.25F));
    EXPECT_EQ(
        "Song 1 contains an out-of-range tempo edit of 40.00%\n"
        "This software will play the closest possible value of 50.00%\n\n"
        "Song 2 contains an out-of-range tempo edit of 250.00%\n"
        "This software will play the closest possible value of 200.00%\n\n"
        "Song 10 contains an out-of-range tempo edit of 25.00%\n"
        "This software will play the closest possible value of 50.00%\n\n",
        facade_->GetTempoScaleWarnings());
}

TEST_F(TheFacade, NoModifiedClicks_GiveNoText) {
    EXPECT_EQ("", facade_->GetModifiedClickEditLog());
}

TEST_F(TheFacade, ModifiedClicks_AreToldInBarsWithTheirReasons) {
    // Five thirty-seconds divide no bar of 4/4.
    files_.WriteLog("evening-1.4.logdata", {1, 4}, [](CL::ChangeLog& log) {
        log.GetSongLog("2").GetClicks().Add(CL::Click(1920, 5760, 5));
        log.GetSongLog("1").GetClicks().Add(CL::Click(0, 3840, 7));
        log.GetSongLog("1").GetClicks().Add(CL::Click(3840, 5760, 4));
    });
    facade_->SetChangelogFilename("evening-1.4.logdata");
    const auto modified = facade_->GetChangeLogEditor()->GetModifiedClickEdits();
    ASSERT_EQ(2U, modified.size());
    ASSERT_EQ(1U, modified.at("1").size());
    ASSERT_EQ(1U, modified.at("2").size());
    EXPECT_EQ(
        "The following Click edits were modified or deleted to conform to current requirements:\n"
        "SongNumber: 1:\n"
        "  Click(start=1, end=3, value=7), Reason: " +
            modified.at("1")[0].reason +
            "\n"
            "SongNumber: 2:\n"
            "  Click(start=2, end=4, value=5), Reason: " +
            modified.at("2")[0].reason + "\n",
        facade_->GetModifiedClickEditLog());
}

}  // namespace
