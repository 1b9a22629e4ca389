#include "stage/import/musicxml/repeat_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
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
        DropEndingsWithoutPasses();
        CountPasses();
        NestPassages();  // again: endings have made passages longer
        for (std::size_t i = 0; i < plan_.endings.size(); ++i)
            plan_.endingAt[plan_.endings[i].begin] = i;
        return std::move(plan_);
    }

private:
    void Note(std::string sentence) { plan_.notes.push_back(std::move(sentence)); }

    /// An ending whose stop is not written lasts to the next sign that goes back, else for its bar.
    std::size_t FindEndOfEnding(std::size_t begin) {
        std::size_t firstRepeat = bars_.size();
        for (std::size_t bar = begin; bar < bars_.size(); ++bar) {
            if (bar > begin && bars_[bar].endingStart) break;
            if (bars_[bar].endsRepeat) firstRepeat = std::min(firstRepeat, bar);
            if (bars_[bar].endingStop) return bar + 1;
        }
        Note(fmt::format("the end of the ending over {} is not written", NameBar(bars_, begin)));
        return firstRepeat < bars_.size() ? firstRepeat + 1 : begin + 1;
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
                end = FindEndOfEnding(bar);
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

    /// Whether a passage that goes back at the end of `bar` lies inside the ending, as a repeat of its own.
    static bool LiesInside(std::size_t begin, std::size_t bar, const Ending& ending) {
        return begin > ending.begin || (begin == ending.begin && bar + 1 != ending.end);
    }

    void MatchSigns() {
        for (std::size_t bar = 0; bar < bars_.size(); ++bar) {
            if (bars_[bar].startsRepeat) OpenPassage(bar);
            if (bars_[bar].endsRepeat) ClosePassage(bar);
        }
        for (const std::size_t bar : open_)
            Note(fmt::format("the repeat that begins with {} ends nowhere", NameBar(bars_, bar)));
    }

    void OpenPassage(std::size_t bar) {
        if (open_.size() < MaxRepeatDepth) {
            open_.push_back(bar);
        } else if (!toldDepth_) {
            toldDepth_ = true;
            Note(fmt::format("the repeats around {} lie more than {} deep, and some are left out", NameBar(bars_, bar),
                             MaxRepeatDepth));
        }
    }

    void ClosePassage(std::size_t bar) {
        Ending* ending = FindEndingAround(bar);
        const bool isOwnRepeat = ending != nullptr && !open_.empty() && LiesInside(open_.back(), bar, *ending);
        if (ending != nullptr && !isOwnRepeat && passageOfChain_[ending->chain]) return GoBackAlso(*ending, bar);
        const std::size_t begin = open_.empty() ? implicitBegin_ : open_.back();
        if (!open_.empty()) open_.pop_back();
        const PassageIndex index = plan_.passages.size();
        RepeatedPassage& passage = plan_.passages.emplace_back();
        passage = {begin, bar + 1, {bar}, bars_[bar].repeatTimes, bars_[bar].repeatsAfterJump, false, std::nullopt};
        if (ending != nullptr && !LiesInside(begin, bar, *ending)) GiveEndingTo(index, *ending);
        plan_.goesBack[bar] = index;
        if (open_.empty()) implicitBegin_ = bar + 1;
    }

    void GiveEndingTo(PassageIndex passage, Ending& ending) {
        ending.passage = passage;
        std::optional<PassageIndex>& ofChain = passageOfChain_[ending.chain];
        if (!ofChain) ofChain = passage;
    }

    /// The passage of the endings before this one goes back at its end, too.
    void GoBackAlso(Ending& ending, std::size_t bar) {
        const PassageIndex index = passageOfChain_[ending.chain].value();
        GiveEndingTo(index, ending);
        RepeatedPassage& passage = plan_.passages[index];
        passage.repeatBars.push_back(bar);
        passage.times = std::max(passage.times, bars_[bar].repeatTimes);
        passage.repeatsAfterJump = passage.repeatsAfterJump || bars_[bar].repeatsAfterJump;
        passage.end = bar + 1;
        plan_.goesBack[bar] = index;
        if (open_.empty()) implicitBegin_ = bar + 1;
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
        if (ending.begin == 0 || ending.numbers.front() == 1) return std::nullopt;
        return plan_.goesBack[ending.begin - 1];
    }

    [[nodiscard]] std::optional<PassageIndex> FindPassageAround(const Ending& ending) const {
        for (auto index = plan_.innermost[ending.begin]; index; index = plan_.passages[*index].parent) {
            const RepeatedPassage& passage = plan_.passages[*index];
            const bool isRepeatInside = LiesInside(passage.begin, passage.repeatBars.front(), ending);
            if (ending.end <= passage.end && !isRepeatInside) return index;
        }
        return std::nullopt;
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
            if (!endingsOf[i].empty()) CountPassesByEndings(passage, endingsOf[i]);
        }
    }

    void CountPassesByEndings(RepeatedPassage& passage, const std::vector<Ending*>& endings) {
        int highest = 1;
        for (const Ending* ending : endings)
            highest = std::max(highest, *std::max_element(ending->numbers.begin(), ending->numbers.end()));
        const auto goesBackInside = [&](const Ending* ending) {
            return std::any_of(passage.repeatBars.begin(), passage.repeatBars.end(),
                               [&](std::size_t bar) { return ending->begin <= bar && bar < ending->end; });
        };
        if (std::none_of(endings.begin(), endings.end(), goesBackInside)) {
            passage.times = std::max(passage.times, highest);
        } else if (endings.size() > 1) {
            passage.times = highest;
            FillGaps(highest, endings);
        } else {
            // The bars after the only ending are its last pass, unless the count says that it is played in all.
            const bool isPlayedInAll = passage.times > 2 && passage.times <= highest;
            passage.times = isPlayedInAll ? highest : highest + 1;
        }
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
    /// First bars of the passages that no sign has closed yet, and of one that has no forward sign.
    std::vector<std::size_t> open_;
    std::size_t implicitBegin_ = 0;
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

}  // namespace stage::musicxml
