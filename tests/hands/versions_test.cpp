// Which number the next version gets, and which version opens, whoever saved what before.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stage/show/log_versions.h"
#include "stage/show/settings.h"
#include "tavo_core/edit_journal.h"
#include "tests/hands/shared_show.h"

using test_support::ProgramResult;
using test_support::ReadAll;
using test_support::RunStage;
using test_support::WriteAll;
using testing::HasSubstr;

namespace {

class Versions : public test_support::SharedShow {
protected:
    void SaveAs(std::uint16_t majorNumber, std::uint16_t minorNumber) const {
        CL::ChangeLog log = CL::ChangeLog::Load(Path("show-1.0.logdata"));
        log.GetVersion() = {majorNumber, minorNumber};
        static_cast<void>(log.Save(""));
    }
};

TEST_F(Versions, AfterMinorNumber65535_TheNextMajorNumberFollows) {
    SaveAs(1, 65535);
    const std::string first = ReadAll(Path("show-1.0.logdata"));
    EXPECT_THAT(AddMarker("a").out, HasSubstr("saved version 2.0 as "));
    EXPECT_EQ(first, ReadAll(Path("show-1.0.logdata")));
    EXPECT_EQ(3U, LogFiles().size());
    EXPECT_EQ("2.0", VersionInUse());
}

TEST_F(Versions, AfterTheLastNumberOfAll_IsRefusedInOneSentence) {
    SaveAs(65535, 65535);
    const ProgramResult refused = AddMarker("a");
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ("stage: the show has a version 65535.65535, after which there is no major number\n", refused.err);
    EXPECT_EQ(2U, LogFiles().size());
}

TEST_F(Versions, VersionThatHasOnlyAJournal_IsPassedOver) {
    {
        CL::ChangeLog after = CL::ChangeLog::Load(Path("show-1.0.logdata"));
        const CL::ChangeLog before = after;
        after.GetSongLog("1").SetAttacca(CL::AttaccaNext);
        CL::EditJournal(Path("show-1.1.logdata")).Append(CL::Compare(before, after), after);
    }
    EXPECT_THAT(AddMarker("a").out, HasSubstr("saved version 1.2 as "));
}

TEST_F(Versions, AnnouncedVersion_OpensAsSoonAsItIsThere_AndAChoiceEndsIt) {
    SaveAs(2, 0);
    WriteAll(Path("settings.json"), R"({"changeLog": "show-1.0.logdata", "nextVersion": "1.1"})");
    EXPECT_EQ("1.0", VersionInUse());
    SaveAs(1, 1);
    EXPECT_EQ("1.1", VersionInUse());
    EXPECT_EQ("version 1.0 opens from now on\n", Log({"use", "1.0"}).out);
    EXPECT_EQ("1.0", VersionInUse());
    EXPECT_EQ("", stage::ReadSettings(Path("settings.json")).nextVersion);
}

TEST_F(Versions, AnnouncementThatIsNoVersion_IsToldWithItsPlace) {
    WriteAll(Path("settings.json"), R"({"nextVersion": "next"})");
    EXPECT_THAT(RunStage({"info", Show()}).err,
                HasSubstr("stage: settings.json: nextVersion must be a version: \"next\" is not a version"));
}

TEST_F(Versions, SettingsThatCannotBeWritten_RefuseTheEditBeforeAnythingIsSaved) {
    SaveAs(2, 0);
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    WriteAll(Path("settings.json"), "{");
    const ProgramResult refused = AddMarker("a");
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ(2U, LogFiles().size());
}

}  // namespace
