// Two sessions and a person at the command line work on one show in random order and die at random, beside a plain
// model of what was acknowledged.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <set>

#include "stage/show/show_journals.h"
#include "tests/hands/session_program.h"
#include "tests/hands/shared_show.h"

using test_support::ProgramResult;
using test_support::SessionProgram;

namespace {

using Markers = std::multiset<std::string>;

/// What one session has, as it was acknowledged.
struct ModelSession {
    std::string version;  // that its journal belongs to
    Markers markers;
    std::vector<Markers> undo;
    std::vector<Markers> redo;
    bool isReadOnly = false;
    bool isUndecided = false;  // edits of a crash wait
};

/// What a journal was left with: what turns the one set into the other.
struct ModelJournal {
    Markers before;
    Markers after;
};

class RandomHands : public test_support::SharedShow {
protected:
    void Start(unsigned int seed) {
        random_.seed(seed);
        trace_ = "seed " + std::to_string(seed);
        versions_ = {{0, Markers()}};
        inUse_ = 0;
    }
    int Choose(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }
    static std::string Text(int minor) { return "1." + std::to_string(minor); }

    /// The number after every one that a log or a journal has.
    int NextMinor() {
        int last = versions_.rbegin()->first;
        if (!journals_.empty()) last = std::max(last, journals_.rbegin()->first);
        return last + 1;
    }
    int Save(const Markers& markers) {
        const int minor = NextMinor();
        versions_[minor] = markers;
        inUse_ = minor;
        return minor;
    }
    [[nodiscard]] bool IsHeld() const {
        return std::any_of(hands_.begin(), hands_.end(),
                           [](const auto& hand) { return hand.program && !hand.model.isReadOnly; });
    }

    struct Hand {
        std::unique_ptr<SessionProgram> program;
        ModelSession model;
    };

    void OpenSession(Hand& hand) {
        const bool wasHeld = IsHeld();
        hand.program = std::make_unique<SessionProgram>(Show());
        ASSERT_TRUE(hand.program->IsOpen()) << trace_ << hand.program->Opening();
        hand.model = {};
        hand.model.version = Text(inUse_);
        hand.model.markers = versions_[inUse_];
        hand.model.isReadOnly = wasHeld;
        hand.model.isUndecided = !wasHeld && journals_.contains(inUse_);
        const std::string expected = "ok " + hand.model.version + (hand.model.isUndecided ? " " : " 0 ");
        EXPECT_EQ(0U, hand.program->Opening().find(expected)) << trace_ << hand.program->Opening();
    }

    int MinorOf(const Hand& hand) { return std::stoi(hand.model.version.substr(2)); }

    void WorkInSession(Hand& hand) {
        ModelSession& model = hand.model;
        const bool mayEdit = !model.isReadOnly && !model.isUndecided;
        const auto change = [&](const std::string& line, bool isPossible, const auto& make) {
            EXPECT_EQ(isPossible, hand.program->Does(line)) << trace_;
            if (isPossible) make();
        };
        switch (Choose(7)) {
            case 0:
            case 1:
            case 2: {
                const std::string text = "m" + std::to_string(++marker_);
                change("add " + text, mayEdit, [&] {
                    model.undo.push_back(model.markers);
                    model.redo.clear();
                    model.markers.insert(text);
                });
                break;
            }
            case 3:
                change("undo", mayEdit && !model.undo.empty(), [&] {
                    model.redo.push_back(model.markers);
                    model.markers = model.undo.back();
                    model.undo.pop_back();
                });
                break;
            case 4:
                change("redo", mayEdit && !model.redo.empty(), [&] {
                    model.undo.push_back(model.markers);
                    model.markers = model.redo.back();
                    model.redo.pop_back();
                });
                break;
            case 5:
                if (model.isUndecided) {
                    change("recover", true, [&] {
                        model.undo.push_back(model.markers);
                        model.markers = journals_.at(MinorOf(hand)).after;
                        journals_.erase(MinorOf(hand));
                        model.isUndecided = false;
                    });
                } else {
                    change("save", !model.isReadOnly, [&] { model.version = Text(Save(model.markers)); });
                }
                break;
            default:
                EndSession(hand);
        }
    }

    // A session that quits without saving leaves its journal as one does that is killed.
    void EndSession(Hand& hand) {
        const bool isKilled = Choose(2) == 0;
        trace_ += isKilled ? " kill" : " quit";
        if (isKilled) {
            hand.program->Kill();
        } else {
            hand.program->Quit();
        }
        hand.program.reset();
        if (hand.model.isReadOnly || hand.model.isUndecided) return;
        const Markers& saved = versions_.at(MinorOf(hand));
        if (saved != hand.model.markers) journals_[MinorOf(hand)] = {saved, hand.model.markers};
    }

    void WorkAtTheCommandLine() {
        if (IsHeld()) return;
        switch (Choose(4)) {
            case 0: {
                const std::string text = "m" + std::to_string(++marker_);
                EXPECT_EQ(0, AddMarker(text).exitCode) << trace_;
                Markers markers = versions_[inUse_];
                markers.insert(text);
                Save(markers);
                break;
            }
            case 1: {
                auto chosen = versions_.begin();
                std::advance(chosen, Choose(static_cast<int>(versions_.size())));
                EXPECT_EQ(0, Log({"use", Text(chosen->first)}).exitCode) << trace_;
                inUse_ = chosen->first;
                break;
            }
            case 2: {
                auto chosen = versions_.begin();
                std::advance(chosen, Choose(static_cast<int>(versions_.size())));
                EXPECT_EQ(0, Log({"rollback", Text(chosen->first)}).exitCode) << trace_;
                if (chosen->second != versions_[inUse_]) Save(chosen->second);
                break;
            }
            default:
                RecoverAll();
        }
    }

    void RecoverAll() {
        const ProgramResult result = Log({"recover"});
        EXPECT_EQ(0, result.exitCode) << trace_ << result.err;
        Markers markers = versions_[inUse_];
        for (const auto& [minor, journal] : journals_) {
            for (const std::string& text : journal.after) {
                if (!journal.before.contains(text) && !markers.contains(text)) markers.insert(text);
            }
            for (const std::string& text : journal.before) {
                if (!journal.after.contains(text) && markers.contains(text)) markers.erase(markers.find(text));
            }
        }
        const bool changes = markers != versions_[inUse_];
        if (changes) Save(markers);
        journals_.clear();
    }

    // What a rolled-back version holds already is nothing unsaved.
    void DropSavedJournals() {
        for (auto journal = journals_.begin(); journal != journals_.end();) {
            const bool isSaved =
                std::any_of(versions_.upper_bound(journal->first), versions_.end(), [&](const auto& v) {
                    return v.second == journal->second.after && !known_[journal->first].contains(v.first);
                });
            journal = isSaved ? journals_.erase(journal) : std::next(journal);
        }
    }

    void CheckAll() {
        EXPECT_EQ(Text(inUse_), VersionInUse()) << trace_;
        EXPECT_EQ(versions_.size(), LogFiles().size()) << trace_;
        const auto listed = nlohmann::json::parse(Log({"list", "--json"}).out, nullptr, false);
        ASSERT_TRUE(listed.is_array()) << trace_;
        ASSERT_EQ(versions_.size(), listed.size()) << trace_;
        std::size_t i = 0;
        for (const auto& [minor, markers] : versions_) {
            EXPECT_EQ(Text(minor), listed[i].value("version", "")) << trace_;
            EXPECT_EQ(markers, MarkersOf(CL::ChangeLog::Load(Path(listed[i].value("file", ""))))) << trace_;
            ++i;
        }
        if (IsHeld()) return;
        std::set<std::string> left;
        for (const stage::ShowJournal& journal : stage::FindJournals(Scan()))
            left.insert(journal.version.GetAsString() + journal.problem);
        std::set<std::string> expected;
        for (const auto& [minor, journal] : journals_)
            expected.insert(Text(minor));
        EXPECT_EQ(expected, left) << trace_;
    }

    void Run(unsigned int seed, int steps) {
        Start(seed);
        for (int step = 0; step < steps && !HasFailure(); ++step) {
            const auto who = static_cast<std::size_t>(Choose(3));
            trace_ += " " + std::to_string(who);
            if (who == 2) {
                WorkAtTheCommandLine();
            } else if (hands_[who].program == nullptr) {
                OpenSession(hands_[who]);
            } else {
                WorkInSession(hands_[who]);
            }
            NoteKnownVersions();
            DropSavedJournals();
        }
        for (Hand& hand : hands_) {
            if (hand.program) EndSession(hand);
        }
        NoteKnownVersions();
        DropSavedJournals();
        CheckAll();
        RecoverAll();
        CheckAll();
    }

    /// A journal is begun with the versions that there are.
    void NoteKnownVersions() {
        for (const auto& [minor, journal] : journals_) {
            if (known_.contains(minor) && noted_.contains(minor)) continue;
            for (const auto& [version, markers] : versions_)
                known_[minor].insert(version);
            noted_.insert(minor);
        }
        for (auto noted = noted_.begin(); noted != noted_.end();)
            noted = journals_.contains(*noted) ? std::next(noted) : noted_.erase(noted);
    }

    std::mt19937 random_;
    std::string trace_;
    std::map<int, Markers> versions_;  // by minor number
    int inUse_ = 0;
    std::map<int, ModelJournal> journals_;
    std::map<int, std::set<int>> known_;
    std::set<int> noted_;
    std::array<Hand, 2> hands_;
    int marker_ = 0;
};

TEST_F(RandomHands, SequencesOfEditUndoUseRecoverSaveAndKill_NothingMissingNothingDoubled) {
    const int sequences = test_support::CountRounds("TAVO_SEQUENCES", 3);
    const int first = test_support::CountRounds("TAVO_FIRST_SEQUENCE", 1);
    const std::string empty = Show() + ".empty";
    std::filesystem::copy(Show(), empty);
    for (int sequence = 0; sequence < sequences && !HasFailure(); ++sequence) {
        std::filesystem::remove_all(Show());
        std::filesystem::copy(empty, Show());
        journals_.clear();
        known_.clear();
        noted_.clear();
        hands_ = {};
        Run(static_cast<unsigned int>(first + sequence), 40);
    }
    std::cout << sequences << " sequences, " << marker_ << " edits\n";
}

}  // namespace
