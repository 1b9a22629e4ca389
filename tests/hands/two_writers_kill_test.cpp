// Two writers at the same moment, one of whom is killed or fails at any system call: what either was told is there,
// once, and the other is never held up.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <utility>

#include "stage/session/show_session.h"
#include "tests/hands/colleague.h"
#include "tests/hands/faulty_show.h"

using test_support::ChildResult;
using test_support::Colleague;
using test_support::Fault;
using test_support::Gate;

namespace {

using Markers = std::multiset<std::string>;

class OneOfTwoKilled : public test_support::FaultyShow {
protected:
    /// Where the two meet: the one that has the fault comes to it, and the other.
    struct Meeting {
        Gate faulty;
        Gate other;
    };

    static void Add(stage::EditedShow& show, const std::string& text) {
        show.Add("2", CL::Marker(test_support::TickOf(text), text));
    }
    static void Add(stage::ShowSession& session, const std::string& text) {
        session.AddEdit("2", CL::Marker(test_support::TickOf(text), text));
    }
    static stage::ShowSession::Options MakeOptions() {
        stage::ShowSession::Options options;
        options.hasRunningFeed = false;
        options.sendsTimeCode = false;
        options.holdWait = stage::ShowHold::Wait;
        return options;
    }

    /// Says 'a' where "new" is saved, else 'e', and 's' where it says so all the same.
    static void SaveNew(stage::EditedShow& edited, const Say& say) {
        try {
            Add(edited, "new");
            edited.Save(false);
            say('a');
        } catch (const std::exception& problem) {
            say('e');
            if (std::string(problem.what()).find("is saved") != std::string::npos) say('s');
        }
    }
    static bool SaysSaved(const ChildResult& result) { return result.said.find_first_of("as") != std::string::npos; }

    // --- the one that has the fault ---

    /// Has the show when the other comes, who then waits for it.
    static void EditThatIsWaitedFor(const std::string& show, const Say& say, const Meeting& meeting) {
        stage::EditedShow edited(show);
        say('o');
        meeting.faulty.Open();
        meeting.other.Wait();
        SaveNew(edited, say);
    }
    /// Comes when the other has the show and is about to save.
    static void EditThatComesLater(const std::string& show, const Say& say, const Meeting& meeting) {
        meeting.faulty.Open();
        meeting.other.Wait();
        meeting.faulty.Open();
        std::optional<stage::EditedShow> edited;
        try {
            edited.emplace(show);
        } catch (const std::exception&) {
            say('e');
            return;
        }
        SaveNew(*edited, say);
    }
    /// Says a for each of an edit, a save and another edit, or e where it is refused.
    static void SessionThatIsWaitedFor(const std::string& show, const Say& say, const Meeting& meeting) {
        stage::ShowSession session(show, show, MakeOptions());
        say('o');
        meeting.faulty.Open();
        meeting.other.Wait();
        Attempt(say, [&] { Add(session, "first"); });
        Attempt(say, [&] { session.Save(false); });
        Attempt(say, [&] { Add(session, "second"); });
    }
    /// Its edits by where its answers stand in what it says.
    static const std::map<std::size_t, std::string>& SessionEdits() {
        static const std::map<std::size_t, std::string> edits{{1, "first"}, {3, "second"}};
        return edits;
    }

    // --- the other ---

    static void WaitAndEdit(const std::string& show, const Meeting& meeting) {
        meeting.faulty.Wait();
        meeting.other.Open();
        stage::EditedShow edited(show);
        Add(edited, "other");
        edited.Save(false);
    }
    static void EditAndBeWaitedFor(const std::string& show, const Meeting& meeting) {
        meeting.faulty.Wait();
        stage::EditedShow edited(show);
        meeting.other.Open();
        meeting.faulty.Wait();
        Add(edited, "other");
        edited.Save(false);
    }
    static void WaitAndHaveASession(const std::string& show, const Meeting& meeting) {
        meeting.faulty.Wait();
        meeting.other.Open();
        stage::ShowSession session(show, show, MakeOptions());
        Add(session, "other");
        session.Save(false);
        Add(session, "unsaved");
    }

    using FaultyWork = void (*)(const std::string& show, const Say& say, const Meeting& meeting);
    using OtherWork = void (*)(const std::string& show, const Meeting& meeting);
    /// Both at once on a copy of the show; `check` sees what they left. False behind the last call.
    bool TryTogether(const Fault& fault, FaultyWork faulty, OtherWork other,
                     const std::function<void(const ChildResult& result)>& check) {
        const Meeting meeting;
        Colleague colleague([&] { other(Show(), meeting); });
        return TryFault(
            fault, [&](const std::string& show, const Say& say) { faulty(show, say, meeting); },
            [&](const ChildResult& result) {
                // It may have died before it let the other begin.
                meeting.faulty.Open();
                meeting.faulty.Open();
                EXPECT_EQ("", colleague.Finish()) << Describe(fault, result);
                check(result);
            });
    }

    static std::string Describe(const Fault& fault, const ChildResult& result) {
        return std::string(fault.kind == Fault::Kind::Kill ? "killed" : std::strerror(fault.error)) + " at call " +
               std::to_string(fault.call) + ", said " + result.said;
    }

    /// All that is in use is `expected`, and no version hides another.
    void ExpectInUse(const Markers& expected, std::size_t versions, const std::string& when) const {
        EXPECT_EQ(expected, MarkersOf(LogInUse())) << when;
        EXPECT_EQ(versions, LogFiles().size()) << when;
        EXPECT_EQ(versions, Scan().logNames.size()) << when;
    }
    /// What two edits left, of which the other's is always there.
    void ExpectBothEdits(Markers expected, const std::string& when) const {
        const bool isSaved = IsInUse("new");
        expected.insert("other");
        if (isSaved) expected.insert("new");
        ExpectInUse(expected, isSaved ? 5U : 4U, when);
        EditNext();
    }
    /// What is in use or offered by journals, which are recovered for it.
    Markers FindAll(const std::string& when) const {
        RecoverAll();
        EXPECT_FALSE(IsOffered()) << when;
        EXPECT_EQ(LogFiles().size(), Scan().logNames.size()) << when;
        return MarkersOf(LogInUse());
    }

    /// Counts what a run met, for its account.
    struct Account {
        int points = 0;
        int saved = 0;
    };
    static void Print(const char* what, const Account& account) {
        std::cout << what << ": " << account.points << " points, " << account.saved << " of them after the saving\n";
    }
};

TEST_F(OneOfTwoKilled, EditWhileAnotherWaits_TheOtherGoesOnFromWhatItSaved) {
    for (const std::string chosen : {"1.0", "newest"}) {
        Restore();
        ASSERT_EQ(0, Log({"use", chosen}).exitCode);
        const Markers before = MarkersOf(LogInUse());
        Fault fault{Fault::Kind::Kill, 1, 0, 1};
        Account account;
        while (TryTogether(fault, EditThatIsWaitedFor, WaitAndEdit, [&](const ChildResult& result) {
            ++account.points;
            account.saved += IsInUse("new") ? 1 : 0;
            EXPECT_TRUE(IsInUse("new") || !SaysSaved(result)) << Describe(fault, result);
            ExpectBothEdits(before, Describe(fault, result));
        }))
            fault.call += GetStep(13);
        EXPECT_LT(50U, fault.call);
        EXPECT_LT(1, account.saved);
        Print(chosen.c_str(), account);
    }
}

TEST_F(OneOfTwoKilled, EditThatComesWhileAnotherSaves_TakesNothingFromIt) {
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    Fault fault{Fault::Kind::Kill, 1, 0};
    Account account;
    while (TryTogether(fault, EditThatComesLater, EditAndBeWaitedFor, [&](const ChildResult& result) {
        ++account.points;
        account.saved += IsInUse("new") ? 1 : 0;
        EXPECT_TRUE(IsInUse("new") || !SaysSaved(result)) << Describe(fault, result);
        ExpectBothEdits({}, Describe(fault, result));
    }))
        fault.call += GetStep(19);
    EXPECT_LT(50U, fault.call);
    EXPECT_LT(1, account.saved);
    Print("comes later", account);
}

TEST_F(OneOfTwoKilled, SessionWhileAnEditWaits_HasEveryAcknowledgedEditInUseOrOffered) {
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    Fault fault{Fault::Kind::Kill, 1, 0, 1};
    Account account;
    while (TryTogether(fault, SessionThatIsWaitedFor, WaitAndEdit, [&](const ChildResult& result) {
        ++account.points;
        account.saved += IsInUse("first") ? 1 : 0;
        EXPECT_EQ(1U, MarkersOf(LogInUse()).count("other")) << Describe(fault, result);
        Markers expected{"other"};
        const Markers found = FindAll(Describe(fault, result));
        for (const auto& [answer, text] : SessionEdits()) {
            if (answer < result.said.size() || found.contains(text)) expected.insert(text);
        }
        EXPECT_EQ(expected, found) << Describe(fault, result);
    }))
        fault.call += GetStep(31);
    EXPECT_LT(60U, fault.call);
    EXPECT_LT(1, account.saved);
    Print("a session", account);
}

TEST_F(OneOfTwoKilled, EditWhileASessionWaits_TheSessionEditsWhatItSaved) {
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    Fault fault{Fault::Kind::Kill, 1, 0, 1};
    Account account;
    while (TryTogether(fault, EditThatIsWaitedFor, WaitAndHaveASession, [&](const ChildResult& result) {
        ++account.points;
        const bool isSaved = IsInUse("new");
        account.saved += isSaved ? 1 : 0;
        EXPECT_TRUE(isSaved || !SaysSaved(result)) << Describe(fault, result);
        Markers expected{"other", "unsaved"};
        if (isSaved) expected.insert("new");
        EXPECT_EQ(expected, FindAll(Describe(fault, result))) << Describe(fault, result);
    }))
        fault.call += GetStep(31);
    EXPECT_LT(50U, fault.call);
    EXPECT_LT(1, account.saved);
    Print("before a session", account);
}

// Until it is killed the other keeps the show: it dies while it waits.
TEST_F(OneOfTwoKilled, EditThatWaits_LeavesNothing) {
    constexpr unsigned int Calls = 45;  // the first tries among them
    const auto faulty = [](const std::string& show, const Say& say, const Meeting& meeting) {
        meeting.faulty.Open();
        meeting.other.Wait();
        const stage::EditedShow edited(show);
        say('o');
    };
    int killed = 0;
    Fault fault{Fault::Kind::Kill, 1, 0};
    for (; fault.call <= Calls; fault.call += GetStep(11)) {
        const bool isKilled = TryTogether(fault, faulty, EditAndBeWaitedFor, [&](const ChildResult& result) {
            EXPECT_EQ("", result.said) << Describe(fault, result);
            ExpectBothEdits({"before"}, Describe(fault, result));
        });
        ASSERT_TRUE(isKilled) << "call " << fault.call;
        ++killed;
    }
    EXPECT_LT(3, killed);
    std::cout << killed << " killed while they waited\n";
}

class OneOfTwoFailing : public OneOfTwoKilled, public testing::WithParamInterface<std::pair<Fault::Kind, int>> {
protected:
    /// Both edits are in use just as their writers were told.
    void ExpectEditsAsTold(FaultyWork faulty, OtherWork other, std::size_t afterWords, unsigned int step) {
        ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
        Fault fault{GetParam().first, 1, GetParam().second, afterWords};
        int refused = 0;
        while (TryTogether(fault, faulty, other, [&](const ChildResult& result) {
            EXPECT_EQ(SaysSaved(result), IsInUse("new")) << Describe(fault, result);
            refused += SaysSaved(result) ? 0 : 1;
            ExpectBothEdits({}, Describe(fault, result));
        }))
            fault.call += step;
        EXPECT_LT(20U, fault.call);
        EXPECT_LE(1, refused);
        std::cout << fault.call - 1 << " failing calls, " << refused << " refusals\n";
    }
};

TEST_P(OneOfTwoFailing, EditWhileAnotherWaits_BothAreInUseJustAsTheyWereTold) {
    ExpectEditsAsTold(EditThatIsWaitedFor, WaitAndEdit, 1, GetStep(19));
}

TEST_P(OneOfTwoFailing, EditThatComesWhileAnotherSaves_BothAreInUseJustAsTheyWereTold) {
    ExpectEditsAsTold(EditThatComesLater, EditAndBeWaitedFor, 0, GetStep(23));
}

TEST_P(OneOfTwoFailing, SessionWhileAnEditWaits_HasWhatItAcknowledgedAndNothingTwice) {
    const auto [kind, error] = GetParam();
    ASSERT_EQ(0, Log({"use", "1.0"}).exitCode);
    Fault fault{kind, 1, error, 1};
    int refused = 0;
    while (TryTogether(fault, SessionThatIsWaitedFor, WaitAndEdit, [&](const ChildResult& result) {
        const std::size_t failed = result.said.find('e');
        refused += failed == std::string::npos ? 0 : 1;
        Markers expected{"other"};
        const Markers found = FindAll(Describe(fault, result));
        for (const auto& [answer, text] : SessionEdits()) {
            const bool isAcknowledged = answer < result.said.size() && result.said[answer] == 'a';
            // Where nothing can be written any more, the edit that met it cannot always be cut off its journal.
            const bool mayRemain = fault.kind == Fault::Kind::ErrorsOn && answer == failed && found.contains(text);
            if (isAcknowledged || mayRemain) expected.insert(text);
        }
        EXPECT_EQ(expected, found) << Describe(fault, result);
    }))
        fault.call += GetStep(31);
    EXPECT_LT(20U, fault.call);
    EXPECT_LE(1, refused);
    std::cout << fault.call - 1 << " failing calls, " << refused << " refusals\n";
}

INSTANTIATE_TEST_SUITE_P(Errors, OneOfTwoFailing,
                         testing::Values(std::pair(Fault::Kind::Error, EIO), std::pair(Fault::Kind::ErrorsOn, ENOSPC)),
                         [](const auto& errors) {
                             return std::string(errors.param.first == Fault::Kind::Error ? "Once" : "FromThereOn") +
                                    ::strerrorname_np(errors.param.second);
                         });

}  // namespace
