// Several people who edit one show at the same moment, each with a program of their own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "stage/show/show_hold.h"
#include "tests/hands/shared_show.h"

using test_support::ProgramResult;
using test_support::RunStage;
using testing::HasSubstr;

namespace {

class TwoWriters : public test_support::SharedShow {
protected:
    /// Lets `hands` programs add a marker each at the same moment; returns those of which that was said.
    std::multiset<std::string> EditAtOnce(int hands, int round) {
        std::vector<ProgramResult> results(static_cast<std::size_t>(hands));
        std::vector<std::thread> threads;
        std::atomic<int> ready = 0;
        for (int hand = 0; hand < hands; ++hand) {
            threads.emplace_back([&, hand] {
                for (++ready; ready < hands;)
                    std::this_thread::yield();
                results[static_cast<std::size_t>(hand)] = AddMarker(NameOf(round * hands + hand));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        std::multiset<std::string> acknowledged;
        for (int hand = 0; hand < hands; ++hand) {
            const ProgramResult& result = results[static_cast<std::size_t>(hand)];
            if (result.exitCode == 0) {
                acknowledged.insert(NameOf(round * hands + hand));
            } else {
                EXPECT_THAT(result.err, HasSubstr("the show is held by ")) << "refused for another reason";
            }
        }
        return acknowledged;
    }
    static std::string NameOf(int edit) { return "m" + std::to_string(edit); }

    /// Rounds on one show; all that was acknowledged has to be in use, and every version listed.
    void EditInRounds(int rounds, int hands) {
        std::multiset<std::string> acknowledged;
        for (int round = 0; round < rounds; ++round) {
            acknowledged.merge(EditAtOnce(hands, round));
            ASSERT_EQ(acknowledged, MarkersOf(LogInUse())) << "in round " << round;
        }
        EXPECT_LE(rounds, static_cast<int>(acknowledged.size()));
        EXPECT_EQ(acknowledged.size() + 1, LogFiles().size()) << "a version each, and the first";
        EXPECT_EQ(LogFiles().size(), Scan().logNames.size()) << "none hides another";
        RecordProperty("acknowledged", static_cast<int>(acknowledged.size()));
        std::cout << rounds << " rounds of " << hands << ": " << acknowledged.size() << " acknowledged, all in use\n";
    }
};

TEST_F(TwoWriters, PairsOfEditsAtOnce_NothingIsLostAndNothingHidden) {
    EditInRounds(test_support::CountRounds("TAVO_PAIRS", 10), 2);
}

TEST_F(TwoWriters, EightEditsAtOnce_NothingIsLostAndNothingHidden) {
    EditInRounds(test_support::CountRounds("TAVO_EIGHTS", 2), 8);
}

TEST_F(TwoWriters, ShowThatIsHeld_IsReadAndNotChanged_AndEachSaysWhoHasIt) {
    const stage::ShowHold held(Show(), "a rehearsal");
    const std::string begun = directory_ / "begun";
    std::filesystem::create_directory(begun);
    const stage::ShowHold heldImport(begun, "a rehearsal");
    EXPECT_EQ(0, Edit("list").exitCode);
    EXPECT_EQ(0, Log({"list"}).exitCode);
    EXPECT_EQ(0, RunStage({"info", Show()}).exitCode);
    EXPECT_EQ(0, RunStage({"check", Show()}).exitCode);
    const std::vector<std::vector<std::string>> changes{{"edit", Show(), "attacca", "--song", "1", "attacca"},
                                                        {"log", Show(), "use", "1.0"},
                                                        {"log", Show(), "rollback", "1.0"},
                                                        {"log", Show(), "copy"},
                                                        {"log", Show(), "recover"},
                                                        {"log", Show(), "forget"},
                                                        {"import", directory_ / "midi", "-o", begun}};
    std::vector<ProgramResult> results(changes.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < changes.size(); ++i)
        threads.emplace_back([&, i] { results[i] = RunStage(changes[i]); });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < changes.size(); ++i) {
        EXPECT_EQ(1, results[i].exitCode) << changes[i][2];
        EXPECT_THAT(results[i].err, testing::ContainsRegex("^stage: the show is held by .+ since [0-9]+:[0-9]+, for a "
                                                           "rehearsal \\(process [0-9]+\\)\n$"))
            << changes[i][2];
    }
    EXPECT_EQ(1U, LogFiles().size());
    EXPECT_FALSE(std::filesystem::exists(begun + "/begun.showdata"));
}

TEST_F(TwoWriters, HolderThatLetsGo_LetsTheEditWhichWaitsGoOn) {
    auto held = std::make_unique<stage::ShowHold>(Show(), "a rehearsal");
    ProgramResult result;
    std::thread waiting([&] { result = AddMarker("at last"); });
    held.reset();
    waiting.join();
    EXPECT_EQ(0, result.exitCode) << result.err;
}

}  // namespace
