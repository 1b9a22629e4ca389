#include "stage/import/musicxml/repeat_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <utility>

namespace stage::musicxml {

namespace {

bool HasJumps(const std::vector<WrittenBar>& bars) {
    return std::any_of(bars.begin(), bars.end(), [](const WrittenBar& bar) {
        return std::any_of(bar.marks.begin(), bar.marks.end(), [](const WrittenMark& mark) {
            return mark.kind == MarkKind::DaCapo || mark.kind == MarkKind::DalSegno;
        });
    });
}

class Planner {
public:
    explicit Planner(const std::vector<WrittenBar>& bars) : bars_(bars) {
        plan_.innermost.resize(bars.size());
        plan_.goesBack.resize(bars.size());
        plan_.endingAt.resize(bars.size());
    }

    RepeatPlan Plan() {
        FindEndings();
        passageOfChain_.resize(plan_.endings.size());
        MatchSigns();
        NestPassages();
        FindPassagesOfEndings();
        AddSignsThatAreMissing();
        DropEndingsWithoutPasses();
        CountPasses();
        NestPassages();  // again: endings have made passages longer
        for (std::size_t i = 0; i < plan_.endings.size(); ++i)
            plan_.endingAt[plan_.endings[i].begin] = i;
        return std::move(plan_);
    }

private:
    void Note(std::string sentence) { plan_.notes.push_back(std::move(sentence)); }

    /// An ending whose stop is not written lasts to the next sign that goes back or up to the next ending of its
    /// passage, else for its bar.
    std::size_t FindEndOfEnding(std::size_t begin) {
        std::size_t bar = begin;
        std::optional<std::size_t> firstRepeat;
        bool isBeforeForwardSign = true;
        for (; bar < bars_.size() && (bar == begin || !bars_[bar].endingStart); ++bar) {
            if (bar > begin && bars_[bar].startsRepeat) isBeforeForwardSign = false;
            if (bars_[bar].endsRepeat && !firstRepeat && isBeforeForwardSign) firstRepeat = bar;
            if (bars_[bar].endingStop) return bar + 1;
        }
        Note(fmt::format("the end of the ending over {} is not written", NameBar(bars_, begin)));
        if (firstRepeat) return *firstRepeat + 1;
        const bool isGoneOn = bar < bars_.size() && isBeforeForwardSign && ContinuesNumbers(begin, bar);
        return isGoneOn ? bar : begin + 1;
    }

    [[nodiscard]] bool ContinuesNumbers(std::size_t bar, std::size_t next) const {
        const std::vector<int>& before = bars_[bar].endingStart->numbers;
        const std::vector<int>& numbers = bars_[next].endingStart->numbers;
        return !before.empty() && !numbers.empty() && numbers.front() > before.back();
    }

    void FindEndings() {
        std::size_t end = 0;
        for (std::size_t bar = 0; bar < bars_.size(); ++bar) {
            if (bars_[bar].endingStart && !bars_[bar].endingStart->numbers.empty()) {
                const bool isBeside = !plan_.endings.empty() && plan_.endings.back().end == bar;
                const std::size_t chain = isBeside ? plan_.endings.back().chain : plan_.endings.size();
                end = FindEndOfEnding(bar);
                plan_.endings.push_back({bar, end, bars_[bar].endingStart->numbers, std::nullopt, chain});
            } else if (bars_[bar].endingStart) {
                Note(fmt::format("the ending over {} has no number and is played in every pass", NameBar(bars_, bar)));
                end = std::min(FindEndOfEnding(bar), bars_.size());
            } else if (bars_[bar].endingStop && bar >= end) {
                Note(fmt::format("an ending stops after {} and begins nowhere", NameBar(bars_, bar)));
            }
        }
    }

    [[nodiscard]] Ending* FindEndingAround(std::size_t bar) {
        auto after = std::upper_bound(plan_.endings.begin(), plan_.endings.end(), bar,
                                      [](std::size_t wanted, const Ending& ending) { return wanted < ending.begin; });
        if (after == plan_.endings.begin() || bar >= std::prev(after)->end) return nullptr;
        return &*std::prev(after);
    }

    [[nodiscard]] std::vector<Ending*> GetChain(EndingIndex first) {
        std::vector<Ending*> chain;
        for (EndingIndex i = first; i < plan_.endings.size() && plan_.endings[i].chain == first; ++i)
            chain.push_back(&plan_.endings[i]);
        return chain;
    }

    void MatchSigns() {
        for (std::size_t bar = 0; bar < bars_.size(); ++bar) {
            if (bars_[bar].startsRepeat) OpenPassage(bar);
            if (bars_[bar].endsRepeat) ClosePassage(bar);
        }
        matched_ = plan_.passages.size();
    }

    void OpenPassage(std::size_t bar) {
        if (open_.size() < MaxRepeatDepth) {
            open_.push_back(bar);
        } else {
            NoteDepth(bar);
        }
    }

    void NoteDepth(std::size_t bar) {
        if (std::exchange(toldDepth_, true)) return;
        Note(fmt::format("the repeats around {} lie more than {} deep, and some are left out", NameBar(bars_, bar),
                         MaxRepeatDepth));
    }

    void ClosePassage(std::size_t bar) {
        Ending* ending = FindEndingAround(bar);
        const bool isInsideEnding = ending != nullptr && !open_.empty() && open_.back() >= ending->begin;
        if (ending != nullptr && !isInsideEnding && !ClosesOuterPassage(*ending)) return CloseEnding(*ending, bar);
        if (!open_.empty()) {
            const std::size_t begin = open_.back();
            open_.pop_back();
            AddPassage(begin, bar);
        } else if (const std::optional<PassageIndex> last = FindLastPassageBefore(bar, ending)) {
            GoBackAsBefore(*last, bar);
        } else {
            AddPassage(0, bar);
        }
    }

    /// The sign under the last ending is that of the passage around, if that is still open.
    [[nodiscard]] bool ClosesOuterPassage(const Ending& ending) {
        const auto next = static_cast<std::size_t>(&ending - plan_.endings.data()) + 1;
        const bool isLast = next == plan_.endings.size() || plan_.endings[next].chain != ending.chain;
        return !open_.empty() && passageOfChain_[ending.chain] && isLast;
    }

    PassageIndex AddPassage(std::size_t begin, std::size_t bar) {
        const PassageIndex index = plan_.passages.size();
        RepeatedPassage& passage = plan_.passages.emplace_back();
        passage.begin = begin;
        passage.end = bar + 1;
        passage.repeatBars = {bar};
        passage.times = bars_[bar].repeatTimes;
        passage.repeatsAfterJump = bars_[bar].repeatsAfterJump;
        plan_.goesBack[bar].push_back(index);
        if (open_.empty()) closed_.push_back(index);
        return index;
    }

    /// The passage that was closed last, outside of all others. One inside an ending is for the signs in that ending.
    [[nodiscard]] std::optional<PassageIndex> FindLastPassageBefore(std::size_t bar, const Ending* around) {
        for (auto index = closed_.rbegin(); index != closed_.rend(); ++index) {
            const RepeatedPassage& passage = plan_.passages[*index];
            const Ending* ending = FindEndingAround(passage.begin);
            if (passage.end <= bar && (ending == nullptr || ending == around)) return *index;
        }
        return std::nullopt;
    }

    void GoBackAsBefore(PassageIndex last, std::size_t bar) {
        if (LeavesEndingsOut(last)) {
            NoteSignWithoutStart(bar, plan_.passages[last].begin);
            return AddSign(last, bar);
        }
        AddPassage(BeginWith(last, bar), bar);
    }

    /// Where a passage begins that begins with the one before it, which is then not repeated again.
    std::size_t BeginWith(PassageIndex last, std::size_t bar) {
        RepeatedPassage& passage = plan_.passages[last];
        if (++depths_[passage.begin] >= MaxRepeatDepth) {
            NoteDepth(bar);
            return passage.end;
        }
        passage.onceInParent = true;
        NoteSignWithoutStart(bar, passage.begin);
        return passage.begin;
    }

    void NoteSignWithoutStart(std::size_t bar, std::size_t begin) {
        Note(fmt::format("the repeat sign after {} has no sign to go back to: it goes back to {}, as the one before it",
                         NameBar(bars_, bar), NameBar(bars_, begin)));
    }

    void CloseEnding(Ending& ending, std::size_t bar) {
        if (const std::optional<PassageIndex> index = passageOfChain_[ending.chain]) {
            GiveEndingTo(*index, ending);
            return AddSign(*index, bar);
        }
        std::size_t begin = 0;
        if (!open_.empty()) {
            begin = open_.back();
            open_.pop_back();
        } else if (const auto last = FindLastPassageBefore(plan_.endings[ending.chain].begin, nullptr)) {
            begin = BeginWith(*last, bar);
        }
        GiveEndingTo(AddPassage(begin, bar), ending);
    }

    void GiveEndingTo(PassageIndex passage, Ending& ending) {
        ending.passage = passage;
        std::optional<PassageIndex>& ofChain = passageOfChain_[ending.chain];
        if (!ofChain) ofChain = passage;
        chainOf_.emplace(passage, ending.chain);
    }

    /// The passage goes back at the end of this bar, too.
    void AddSign(PassageIndex index, std::size_t bar) {
        RepeatedPassage& passage = plan_.passages[index];
        passage.repeatBars.push_back(bar);
        passage.times = std::max(passage.times, bars_[bar].repeatTimes);
        passage.repeatsAfterJump = passage.repeatsAfterJump || bars_[bar].repeatsAfterJump;
        passage.end = std::max(passage.end, bar + 1);
        plan_.goesBack[bar].push_back(index);
    }

    /// Whether the passage goes back inside the ending.
    [[nodiscard]] bool GoesBack(PassageIndex index, const Ending& ending) const {
        for (std::size_t bar = ending.begin; bar < ending.end; ++bar) {
            const std::vector<PassageIndex>& passages = plan_.goesBack[bar];
            if (std::find(passages.begin(), passages.end(), index) != passages.end()) return true;
        }
        return false;
    }

    /// Whether it also goes back before or after its endings.
    [[nodiscard]] bool HasSignOutside(PassageIndex index) {
        const std::vector<std::size_t>& repeatBars = plan_.passages[index].repeatBars;
        return std::any_of(repeatBars.begin(), repeatBars.end(), [&](std::size_t bar) {
            const Ending* ending = FindEndingAround(bar);
            return ending == nullptr || ending->passage != index;
        });
    }

    /// Those of the endings side by side that a later one, or one more pass, should follow and that have no sign.
    [[nodiscard]] std::vector<Ending*> FindEndingsWithoutSign(PassageIndex passage, EndingIndex first) {
        const std::vector<Ending*> chain = GetChain(first);
        const auto last = std::max_element(chain.begin(), chain.end(), [](const Ending* a, const Ending* b) {
            return a->numbers.back() < b->numbers.back();
        });
        std::vector<Ending*> found;
        for (Ending* ending : chain)
            if (ending != *last && !GoesBack(passage, *ending)) found.push_back(ending);
        return found;
    }

    /// Whether some of a passage's endings are never reached with the signs so far.
    [[nodiscard]] bool LeavesEndingsOut(PassageIndex index) {
        const auto chain = chainOf_.find(index);
        return chain != chainOf_.end() && !FindEndingsWithoutSign(index, chain->second).empty();
    }

    void FindPassagesOfEndings() {
        for (Ending& ending : plan_.endings) {
            if (!ending.passage) ending.passage = passageOfChain_[ending.chain];
            if (!ending.passage) ending.passage = FindPassageEndingBefore(ending);
            if (!ending.passage) ending.passage = FindPassageAround(ending);
            if (!ending.passage) continue;
            GiveEndingTo(*ending.passage, ending);
            RepeatedPassage& passage = plan_.passages[*ending.passage];
            passage.hasEndings = true;
            passage.end = std::max(passage.end, ending.end);
        }
    }

    /// Behind a repeat without a first ending may stand a second one.
    [[nodiscard]] std::optional<PassageIndex> FindPassageEndingBefore(const Ending& ending) const {
        if (ending.begin == 0 || ending.numbers.front() == 1 || plan_.goesBack[ending.begin - 1].empty())
            return std::nullopt;
        return plan_.goesBack[ending.begin - 1].front();
    }

    [[nodiscard]] std::optional<PassageIndex> FindPassageAround(const Ending& ending) const {
        for (auto index = plan_.innermost[ending.begin]; index; index = plan_.passages[*index].parent) {
            const RepeatedPassage& passage = plan_.passages[*index];
            const bool isRepeatInside = passage.begin >= ending.begin;
            if (ending.end <= passage.end && !isRepeatInside) return index;
        }
        return std::nullopt;
    }

    /// A reader goes back at the end of a first ending, whether or not its sign was forgotten.
    void AddSignsThatAreMissing() {
        for (EndingIndex first = 0; first < plan_.endings.size(); ++first) {
            if (plan_.endings[first].chain != first) continue;
            const std::vector<Ending*> chain = GetChain(first);
            std::optional<PassageIndex> index = chain.front()->passage;
            if (!index && chain.size() > 1 && chain.front()->numbers.front() == 1 && !HasJumps(bars_))
                index = AddPassageWithoutSigns(chain);
            if (!index || HasSignOutside(*index)) continue;
            for (Ending* ending : FindEndingsWithoutSign(*index, first)) {
                Note(fmt::format("the ending over {} has no repeat sign; it goes back to {} all the same",
                                 NameBars(bars_, ending->begin, ending->end),
                                 NameBar(bars_, plan_.passages[*index].begin)));
                AddSign(*index, ending->end - 1);
            }
        }
        for (const std::size_t bar : open_)
            Note(fmt::format("the repeat that begins with {} ends nowhere", NameBar(bars_, bar)));
    }

    /// Endings with not a single sign that goes back: the passage of the forward sign before them, if there is one.
    PassageIndex AddPassageWithoutSigns(const std::vector<Ending*>& chain) {
        const auto& passages = plan_.passages;
        std::size_t begin = endWithoutSigns_;
        const auto after = std::partition_point(
            passages.begin(), passages.begin() + static_cast<std::ptrdiff_t>(matched_),
            [&](const RepeatedPassage& passage) { return passage.repeatBars.front() < chain.front()->begin; });
        if (after != passages.begin()) begin = std::max(begin, std::min(std::prev(after)->end, chain.front()->begin));
        const auto open = std::find_if(open_.rbegin(), open_.rend(),
                                       [&](std::size_t bar) { return bar <= chain.front()->begin && bar >= begin; });
        if (open != open_.rend()) {
            begin = *open;
            open_.erase(std::prev(open.base()));
        }
        const PassageIndex index = plan_.passages.size();
        endWithoutSigns_ = chain.back()->end;
        RepeatedPassage& passage = plan_.passages.emplace_back();
        passage.begin = begin;
        passage.end = chain.back()->end;
        passage.hasEndings = true;
        for (Ending* ending : chain)
            GiveEndingTo(index, *ending);
        return index;
    }

    /// Endings without a repeat are for the passes that jumps make; without jumps they mean nothing.
    void DropEndingsWithoutPasses() {
        if (HasJumps(bars_)) return;
        std::vector<Ending> kept;
        for (Ending& ending : plan_.endings) {
            if (ending.passage) {
                const bool goesOn = !kept.empty() && kept.back().end == ending.begin;
                ending.chain = goesOn ? kept.back().chain : kept.size();
                kept.push_back(std::move(ending));
            } else {
                Note(fmt::format("the ending over {} belongs to no repeat and is played like any other bar",
                                 NameBar(bars_, ending.begin)));
            }
        }
        plan_.endings = std::move(kept);
    }

    void CountPasses() {
        std::vector<std::vector<Ending*>> endingsOf(plan_.passages.size());
        for (Ending& ending : plan_.endings)
            if (ending.passage) endingsOf[*ending.passage].push_back(&ending);
        for (std::size_t i = 0; i < plan_.passages.size(); ++i) {
            RepeatedPassage& passage = plan_.passages[i];
            passage.times = std::max(passage.times, 1);
            if (!endingsOf[i].empty()) CountPassesByEndings(i, endingsOf[i]);
        }
    }

    void CountPassesByEndings(PassageIndex index, const std::vector<Ending*>& endings) {
        RepeatedPassage& passage = plan_.passages[index];
        const auto goesBack = [&](const Ending* ending) { return GoesBack(index, *ending); };
        const bool hasSignInside = std::any_of(endings.begin(), endings.end(), goesBack);
        const Ending* last = *std::max_element(endings.begin(), endings.end(), [](const Ending* a, const Ending* b) {
            return a->numbers.back() < b->numbers.back();
        });
        const int highest = last->numbers.back();
        // A single ending may be played in all passes that the sign counts.
        if (endings.size() == 1 && hasSignInside && passage.times > 2 && passage.times <= highest) {
            passage.times = highest;
            return;
        }
        if (endings.size() > 1 && hasSignInside) FillGaps(highest, endings);
        std::set<int> returns;
        std::set<int> others;
        for (const Ending* ending : endings)
            (goesBack(ending) ? returns : others).insert(ending->numbers.begin(), ending->numbers.end());
        if (goesBack(last) && endings.size() > 1 && last->end == bars_.size()) {
            Note(fmt::format(
                "the repeat sign under the last ending, after {}, has no music behind it and is passed over",
                NameBar(bars_, last->end - 1)));
            returns.erase(highest);
        }
        if (!goesBack(last)) others.erase(highest);
        const int outside = HasSignOutside(index) ? std::max(passage.times - 1, static_cast<int>(others.size())) : 0;
        passage.times = 1 + static_cast<int>(returns.size()) + outside;
    }

    /// A pass for which no ending is written takes the one before.
    void FillGaps(int highest, const std::vector<Ending*>& endings) {
        Ending* last = endings.front();
        for (int pass = 1; pass < std::min(highest, MostNumbers); ++pass) {
            const auto plays = [pass](const Ending* ending) {
                return std::find(ending->numbers.begin(), ending->numbers.end(), pass) != ending->numbers.end();
            };
            const auto found = std::find_if(endings.begin(), endings.end(), plays);
            if (found != endings.end()) {
                last = *found;
                continue;
            }
            Note(fmt::format("no ending is written for pass {}, which takes the one over {}", pass,
                             NameBar(bars_, last->begin)));
            last->numbers.push_back(pass);
        }
    }

    void NestPassages() {
        plan_.beginsAt.assign(bars_.size(), {});
        std::vector<RepeatedPassage>& passages = plan_.passages;
        std::vector<PassageIndex> order(passages.size());
        std::iota(order.begin(), order.end(), PassageIndex{0});
        std::stable_sort(order.begin(), order.end(), [&](PassageIndex a, PassageIndex b) {
            return std::pair(passages[a].begin, passages[b].end) < std::pair(passages[b].begin, passages[a].end);
        });
        std::vector<PassageIndex> open;
        const auto last = [&] { return open.empty() ? std::nullopt : std::optional(open.back()); };
        auto next = order.begin();
        for (std::size_t bar = 0; bar < bars_.size(); ++bar) {
            while (!open.empty() && passages[open.back()].end <= bar)
                open.pop_back();
            for (; next != order.end() && passages[*next].begin == bar; ++next) {
                passages[*next].parent = last();
                plan_.beginsAt[bar].push_back(*next);
                open.push_back(*next);
            }
            plan_.innermost[bar] = last();
        }
    }

    /// Endings with higher numbers are believed, but gaps between them are not filled.
    static constexpr int MostNumbers = 100;

    const std::vector<WrittenBar>& bars_;
    RepeatPlan plan_;
    std::vector<std::optional<PassageIndex>> passageOfChain_;  // by the chain's first ending
    /// First bars of the passages that no sign has closed yet.
    std::vector<std::size_t> open_;
    /// Passages outside of all that were open when they were closed, in that order.
    std::vector<PassageIndex> closed_;
    /// The first of the endings of a passage that goes back in them.
    std::map<PassageIndex, EndingIndex> chainOf_;
    /// By first bar: how many passages without a forward sign of their own begin there.
    std::map<std::size_t, std::size_t> depths_;
    /// Passages that signs have made, and the end of the last one that endings alone have.
    std::size_t matched_ = 0;
    std::size_t endWithoutSigns_ = 0;
    bool toldDepth_ = false;
};

}  // namespace

RepeatPlan PlanRepeats(const std::vector<WrittenBar>& bars) {
    return Planner(bars).Plan();
}

std::string NameBar(const std::vector<WrittenBar>& bars, std::size_t bar) {
    if (bar < bars.size() && !bars[bar].label.empty()) return "bar " + bars[bar].label;
    std::size_t before = std::min(bar, bars.size());
    while (before > 0 && bars[before - 1].label.empty())
        --before;
    if (before == 0) return fmt::format("bar number {} of the file", bar + 1);
    const std::size_t distance = bar - before + 1;
    if (distance == 1) return "the bar after bar " + bars[before - 1].label;
    return fmt::format("the bar {} bars after bar {}", distance, bars[before - 1].label);
}

std::string NameBars(const std::vector<WrittenBar>& bars, std::size_t begin, std::size_t end) {
    if (end - begin == 1) return NameBar(bars, begin);
    const std::string& first = bars[begin].label;
    const std::string& last = bars[end - 1].label;
    if (!first.empty() && !last.empty()) return fmt::format("bars {} to {}", first, last);
    return fmt::format("{} up to {}", NameBar(bars, begin), NameBar(bars, end - 1));
}

}  // namespace stage::musicxml
