#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "stage/session/edit_session.h"
#include "stage/session/show_directory.h"
#include "tests/support/run_program.h"

namespace {

using test_support::ProgramResult;
using test_support::RunStage;

class Demo : public testing::Test {
protected:
    Demo() {
        const std::filesystem::path source = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
        const ProgramResult build =
            test_support::RunProgram({source / "examples/demo/build", STAGE_BINARY, directory_ / "show"});
        EXPECT_EQ(0, build.exitCode) << build.out << build.err;
    }
    test_support::TemporaryDirectory directory_;
};

TEST_F(Demo, HasEveryKindOfEdit_AndNothingIsWrong) {
    const stage::ShowDirectory show = stage::ScanShowDirectory(directory_ / "show");
    const CL::ChangeLog log = CL::ChangeLog::Load(show.NewestLogPath());
    std::set<std::string> kinds;
    std::set<unsigned char> attaccas;
    for (const auto& [number, songLog] : log.GetSongLogs()) {
        attaccas.insert(songLog.GetAttacca());
        for (const stage::ListedEdit& listed : stage::ListEdits(songLog))
            kinds.insert(CL::DescribeKind(*listed.edit));
    }
    EXPECT_EQ((std::set<std::string>{"vamp", "repeat", "cut", "fermata", "caesura", "tempo scale", "transposition",
                                     "click", "sfx", "ambient sfx", "OSC", "marker"}),
              kinds);
    EXPECT_EQ((std::set<unsigned char>{CL::AttaccaNormal, CL::AttaccaNext, CL::AttaccaSkip}), attaccas);
    EXPECT_EQ(6U, log.GetSongLogs().size());
    EXPECT_EQ("nothing is wrong\n", RunStage({"check", directory_ / "show"}).out);
}

}  // namespace
