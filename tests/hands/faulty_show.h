#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include "stage/session/edited_show.h"
#include "stage/show/show_journals.h"
#include "tests/hands/shared_show.h"
#include "tests/saving/traced_child.h"

namespace test_support {

/// A show on which something is tried again and again, each time with a fault at another system call.
class FaultyShow : public SharedShow {
protected:
    void SetUp() override {
        if (!RunTraced({}, [](const auto&) {}).couldTrace) GTEST_SKIP() << "processes cannot be traced here";
        // 1.0, 1.1 with a marker, and 2.1, a copy of that.
        ASSERT_EQ(0, AddMarker("before").exitCode);
        ASSERT_EQ(0, Log({"copy"}).exitCode);
    }

    /// Every call is met where the environment says so; by default some of them, to be quick.
    static unsigned int GetStep(int usual) { return static_cast<unsigned int>(CountRounds("TAVO_FAULT_STEP", usual)); }
    /// The show as it was before anything was tried.
    void Restore() const {
        const std::string kept = Show() + ".kept";
        if (!std::filesystem::exists(kept)) return;
        std::filesystem::remove_all(Show());
        std::filesystem::rename(kept, Show());
    }

    using Say = std::function<void(char)>;
    using Work = std::function<void(const std::string& show, const Say& say)>;
    /// Does it and says a, or e where it is refused.
    static void Attempt(const Say& say, const std::function<void()>& work) {
        try {
            work();
            say('a');
        } catch (const std::exception&) {
            say('e');
        }
    }
    /// Runs `body` on a copy of the show with the fault; false behind the last call that the fault could meet.
    bool TryFault(const Fault& fault, const Work& body, const std::function<void(const ChildResult& result)>& check) {
        const std::string whole = Show();
        const std::string kept = whole + ".kept";
        if (!std::filesystem::exists(kept)) std::filesystem::rename(whole, kept);
        std::filesystem::remove_all(whole);
        std::filesystem::copy(kept, whole);
        const ChildResult result = RunTraced(fault, [&](const Say& say) { body(whole, say); });
        try {
            check(result);
        } catch (const std::exception& problem) {
            ADD_FAILURE() << "call " << fault.call << ", said " << result.said << ": " << problem.what();
        }
        return result.wasFaulted && !HasFailure();
    }

    [[nodiscard]] bool IsInUse(const std::string& text) const { return MarkersOf(LogInUse()).contains(text); }
    /// Whether a journal offers edits.
    [[nodiscard]] bool IsOffered() const {
        for (const stage::ShowJournal& journal : stage::FindJournals(Scan())) {
            if (!journal.changes.empty()) return true;
        }
        return false;
    }
    /// The next one who edits gets in, and adds to what is in use.
    void EditNext() const {
        const std::multiset<std::string> before = MarkersOf(LogInUse());
        stage::EditedShow show(Show());
        show.Add("2", CL::Marker(TickOf("next"), "next"));
        show.Save(false);
        std::multiset<std::string> after = before;
        after.insert("next");
        EXPECT_EQ(after, MarkersOf(LogInUse()));
    }

    /// As `stage log recover` does it.
    void RecoverAll() const {
        stage::EditedShow show(Show());
        static_cast<void>(show.Recover(""));
        if (show.GetChanges().empty()) {
            show.EndRecovered();
        } else {
            show.Save(false);
        }
    }

    static void EditAndSave(const std::string& show, const Say& say) {
        stage::EditedShow edited(show);
        edited.Add("2", CL::Marker(TickOf("new"), "new"));
        edited.Save(false);
        say('a');
    }
};

}  // namespace test_support
