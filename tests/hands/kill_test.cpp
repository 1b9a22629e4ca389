// A version is saved, and is in use, or is not: killed at any system call and with a disk that fails at any.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

#include "stage/cli/commands.h"
#include "stage/session/show_session.h"
#include "tavo_core/edit_journal.h"
#include "tests/hands/faulty_show.h"

using test_support::ChildResult;
using test_support::Fault;

namespace {

class KilledWhileSaving : public test_support::FaultyShow {
protected:
    /// As a session leaves it that added a marker to version 1.0 and was killed.
    void LeaveEdit(const std::string& text) const {
        CL::ChangeLog after = CL::ChangeLog::Load(Path("show-1.0.logdata"));
        const CL::ChangeLog before = after;
        after.GetSongLog("2").GetMarkers().Add(CL::Marker(0, text));
        CL::EditJournal(Path("show-1.0.logdata")).Append(CL::Compare(before, after), after);
    }
    /// The texts of markers in any version, each as often as the version has it that has it most often.
    [[nodiscard]] std::multiset<std::string> FindInAnyVersion() const {
        std::multiset<std::string> found;
        for (const auto& [version, name] : Scan().logNames) {
            const std::multiset<std::string> texts = MarkersOf(CL::ChangeLog::Load(Path(name)));
            for (const std::string& text : texts)
                while (found.count(text) < texts.count(text))
                    found.insert(text);
        }
        return found;
    }
};

TEST_F(KilledWhileSaving, EditWithAChosenVersion_IsWhollyInUseOrNotAtAll) {
    for (const std::string chosen : {"1.0", "1.1", "newest"}) {
        Restore();
        ASSERT_EQ(0, Log({"use", chosen}).exitCode);
        const std::string before = chosen == "newest" ? "2.1" : chosen;
        Fault fault{Fault::Kind::Kill, 1, 0};
        int inUse = 0;
        while (TryFault(fault, EditAndSave, [&](const ChildResult& result) {
            const bool isSaved = Scan().logNames.size() == 4;
            EXPECT_EQ(isSaved, IsInUse("new")) << "killed before call " << fault.call;
            EXPECT_TRUE(isSaved || result.said.empty()) << "killed before call " << fault.call;
            EXPECT_TRUE(isSaved || VersionInUse() == before) << VersionInUse();
            inUse += isSaved ? 1 : 0;
            EditNext();
        }))
            fault.call += GetStep(5);
        EXPECT_LT(50U, fault.call);
        EXPECT_LT(1, inUse) << "kill points after the version was there";
        std::cout << "use " << chosen << ": " << fault.call - 1 << " calls, " << inUse << " after the saving\n";
    }
}

TEST_F(KilledWhileSaving, RecoveringEdits_AreInUseOrStillOfferedAndNeverTwice) {
    LeaveEdit("left");
    const auto recover = [](const std::string& show, const Say& say) {
        stage::EditedShow edited(show);
        static_cast<void>(edited.Recover(""));
        edited.Save(false);
        say('a');
    };
    Fault fault{Fault::Kind::Kill, 1, 0};
    while (TryFault(fault, recover, [&](const ChildResult& result) {
        const bool isInUse = IsInUse("left");
        EXPECT_TRUE(isInUse || (IsOffered() && result.said.empty())) << "killed before call " << fault.call;
        EXPECT_TRUE(IsInUse("before")) << "nothing that was made since is taken away";
        RecoverAll();
        EXPECT_EQ(1U, MarkersOf(LogInUse()).count("left"));
        EXPECT_FALSE(IsOffered());
    }))
        fault.call += GetStep(5);
    EXPECT_LT(50U, fault.call);
    std::cout << fault.call - 1 << " kill points\n";
}

TEST_F(KilledWhileSaving, SessionWithAChosenVersion_HasEveryAcknowledgedEditInUseOrOffered) {
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    const auto evening = [](const std::string& show, const Say& say) {
        stage::ShowSession::Options options;
        options.hasRunningFeed = false;
        options.sendsTimeCode = false;
        stage::ShowSession session(show, show, options);
        say('o');
        session.AddEdit("2", CL::Marker(test_support::TickOf("first"), "first"));
        say('a');
        session.Save(false);
        say('s');
        session.AddEdit("2", CL::Marker(test_support::TickOf("second"), "second"));
        say('b');
    };
    Fault fault{Fault::Kind::Kill, 1, 0, 1};
    int points = 0;
    while (TryFault(fault, evening, [&](const ChildResult& result) {
        ++points;
        RecoverAll();
        const std::multiset<std::string> found = MarkersOf(LogInUse());
        EXPECT_LE(result.said.find('a') == std::string::npos ? 0U : 1U, found.count("first")) << result.said;
        EXPECT_LE(result.said.find('b') == std::string::npos ? 0U : 1U, found.count("second")) << result.said;
        EXPECT_GE(1U, found.count("first"));
        EXPECT_GE(1U, found.count("second"));
    }))
        fault.call += GetStep(17);
    EXPECT_LT(60U, fault.call);
    std::cout << points - 1 << " of " << fault.call - 1 << " kill points\n";
}

// --- the program's answer ---

/// `stage edit` as a person has it; says 'k' for success, else 'e', and 's' where it says that the version is saved.
void EditAtTheCommandLine(const std::string& show, const std::function<void(char)>& say) {
    std::ostringstream ignored;
    std::cout.rdbuf(ignored.rdbuf());
    std::cerr.rdbuf(ignored.rdbuf());
    CLI::App app;
    int exitCode = 0;
    AddEditCommand(app, exitCode);
    try {
        app.parse("edit " + show + " add marker --song 2 --at 3 --text new");
        say('k');
    } catch (const std::exception& problem) {
        say('e');
        if (std::string(problem.what()).find("is saved") != std::string::npos) say('s');
    }
}

class FailingWhileSaving : public KilledWhileSaving,
                           public testing::WithParamInterface<std::tuple<Fault::Kind, int>> {};

TEST_P(FailingWhileSaving, EditAtEachCall_SaysThatItIsSavedJustWhereItIs) {
    const auto [kind, error] = GetParam();
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    Fault fault{kind, 1, error};
    int refused = 0;
    while (TryFault(fault, EditAtTheCommandLine, [&](const ChildResult& result) {
        const bool saysSaved = result.said == "k" || result.said == "es";
        EXPECT_EQ(saysSaved, IsInUse("new"))
            << std::strerror(error) << " at call " << fault.call << ", said " << result.said;
        EXPECT_EQ(saysSaved ? 4U : 3U, Scan().logNames.size()) << "call " << fault.call;
        refused += result.said == "e" ? 1 : 0;
        EditNext();
    }))
        fault.call += GetStep(7);
    EXPECT_LT(20U, fault.call);
    EXPECT_LT(1, refused);
    std::cout << fault.call - 1 << " failing calls, " << refused << " refusals\n";
}

TEST_P(FailingWhileSaving, SessionThatRecoversSavesAndOpensAVersion_AcknowledgesNoEditWithoutAJournal) {
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    LeaveEdit("left");
    const auto evening = [](const std::string& show, const Say& say) {
        stage::ShowSession::Options options;
        options.hasRunningFeed = false;
        options.sendsTimeCode = false;
        stage::ShowSession session(show, show, options);
        const auto add = [&session](const char* text) {
            session.AddEdit("2", CL::Marker(test_support::TickOf(text), text));
        };
        say('o');
        Attempt(say, [&] { session.RecoverEdits(); });
        Attempt(say, [&] { add("first"); });
        Attempt(say, [&] { session.Save(false); });
        Attempt(say, [&] { session.UseVersion("1.1"); });
        Attempt(say, [&] { add("second"); });
        // As a program ends that is killed.
        ::_exit(0);
    };
    const std::map<std::size_t, std::string> edits{{2, "first"}, {5, "second"}};
    const auto [kind, error] = GetParam();
    Fault fault{kind, 1, error, 1};
    int refused = 0;
    while (TryFault(fault, evening, [&](const ChildResult& result) {
        const std::size_t failed = result.said.find('e');
        refused += failed == std::string::npos ? 0 : 1;
        RecoverAll();
        const std::multiset<std::string> found = FindInAnyVersion();
        EXPECT_EQ(1U, found.count("left")) << "call " << fault.call << ", said " << result.said;
        for (const auto& [answer, text] : edits) {
            const bool isAcknowledged = result.said.at(answer) == 'a';
            // Where nothing can be written any more, the edit that met it cannot always be cut off its journal.
            const bool mayRemain = fault.kind == Fault::Kind::ErrorsOn && answer == failed;
            EXPECT_TRUE(found.count(text) == (isAcknowledged ? 1U : 0U) || (mayRemain && found.count(text) == 1))
                << std::strerror(fault.error) << " at call " << fault.call << ", said " << result.said << ": " << text
                << " is there " << found.count(text) << " times";
        }
    }))
        fault.call += GetStep(71);
    EXPECT_LT(60U, fault.call);
    EXPECT_LE(1, refused);
    std::cout << fault.call - 1 << " failing calls, " << refused << " refusals\n";
}

INSTANTIATE_TEST_SUITE_P(Errors, FailingWhileSaving,
                         testing::Combine(testing::Values(Fault::Kind::Error, Fault::Kind::ErrorsOn),
                                          testing::Values(ENOSPC, EIO)),
                         [](const auto& errors) {
                             return std::string(std::get<0>(errors.param) == Fault::Kind::Error ? "Once"
                                                                                                : "FromThereOn") +
                                    ::strerrorname_np(std::get<1>(errors.param));
                         });

}  // namespace
