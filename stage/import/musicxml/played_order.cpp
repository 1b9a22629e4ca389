#include "stage/import/musicxml/played_order.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "stage/import/musicxml/repeat_plan.h"
#include "stage/show/letters.h"
#include "tavo_midi/song_builder.h"

namespace stage::musicxml {

namespace {

/// Bars and marks on the way, for each bar that there may be: a bar full of marks is not repeated forever.
constexpr std::size_t MostWork = 16;

bool Holds(const std::vector<int>& numbers, int number) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

bool IsReturn(const WrittenMark& mark) {
    return mark.kind == MarkKind::DaCapo || mark.kind == MarkKind::DalSegno;
}

bool IsJump(const WrittenMark& mark) {
    return IsReturn(mark) || mark.kind == MarkKind::ToCoda;
}

/// "D.C. al Fine", as it stands over the bar of the jump.
JumpAim FindAim(const WrittenBar& bar) {
    JumpAim aim = JumpAim::Any;
    for (const WrittenMark& mark : bar.marks) {
        if (mark.kind != MarkKind::Words && !IsJump(mark)) continue;
        const std::string text = ToLower(mark.text);
        if (mark.aim != JumpAim::Any) aim = mark.aim;
        const std::size_t fine = text.find("al fine");
        if (fine != std::string::npos)
            aim = text.find("coda", fine) == std::string::npos ? JumpAim::Fine : JumpAim::FineThenCoda;
        else if (text.find("al coda") != std::string::npos)
            aim = JumpAim::Coda;
    }
    return aim;
}

/// A jump that is in force.
struct ReturnInForce {
    std::size_t jumpBar = 0;
    JumpAim aim = JumpAim::Any;
    /// The bar whose To Coda it uses.
    std::optional<std::size_t> toCodaBar;
};

/// Where a sign that is jumped to stands: the index of the first bar after it.
struct Target {
    std::size_t bar;
    std::string label;
};

std::vector<Target> FindTargets(const std::vector<WrittenBar>& bars, MarkKind kind) {
    std::vector<Target> targets;
    for (std::size_t bar = 0; bar < bars.size(); ++bar) {
        for (const WrittenMark& mark : bars[bar].marks) {
            if (mark.kind != kind) continue;
            const bool standsBehind = mark.position > 0 && mark.position >= bars[bar].length;
            targets.push_back({standsBehind && bar + 1 < bars.size() ? bar + 1 : bar, mark.text});
        }
    }
    return targets;
}

class Walk {
public:
    Walk(const std::vector<WrittenBar>& bars, std::size_t maxBars)
        : bars_(bars),
          maxBars_(maxBars),
          plan_(PlanRepeats(bars)),
          segnos_(FindTargets(bars, MarkKind::Segno)),
          codas_(FindTargets(bars, MarkKind::Coda)),
          pass_(plan_.passages.size(), 1),
          wasEntered_(plan_.passages.size(), false),
          wasEnteredBeforeJump_(plan_.passages.size(), false),
          times_(bars.size(), 0),
          arrivals_(plan_.endings.size(), 0) {}

    PlayedOrder Go() {
        order_.notes = plan_.notes;
        std::size_t bar = 0;
        EnterPassagesAt(bar);
        while (bar < bars_.size()) {
            if (const Ending* ending = FindSkippedEnding(bar)) {
                bar = ending->end;
                EnterPassagesAt(bar);
                continue;
            }
            work_ += 1 + bars_[bar].marks.size();
            if (order_.bars.size() == maxBars_ || work_ > MostWork * maxBars_) {
                order_.notes.push_back(
                    fmt::format("the repeats ask for more than {} bars, or {} marks: the music is ended before {}",
                                maxBars_, MostWork * maxBars_, NameBar(bars_, bar)));
                break;
            }
            Play(bar);
            const std::optional<std::size_t> next = FindNext(bar);
            if (!next) break;
            bar = *next;
        }
        NameUnplayedBars();
        return std::move(order_);
    }

private:
    [[nodiscard]] int GetPass(std::size_t bar) const {
        const std::optional<PassageIndex> passage = plan_.innermost[bar];
        return passage ? pass_[*passage] : static_cast<int>(times_[bar]);
    }

    void Play(std::size_t bar) {
        ++times_[bar];
        order_.bars.push_back({static_cast<std::uint32_t>(bar), times_[bar], static_cast<std::uint32_t>(GetPass(bar))});
    }

    void Enter(PassageIndex index) {
        pass_[index] = IsReplay(index) ? plan_.passages[index].times : 1;
        wasEntered_[index] = true;
    }

    [[nodiscard]] bool IsReplay(PassageIndex index) const {
        return wasEnteredBeforeJump_[index] && !plan_.passages[index].repeatsAfterJump;
    }

    /// Begins the passages that begin with the bar; after going back in one, only those inside it.
    void EnterPassagesAt(std::size_t bar, std::optional<PassageIndex> wentBackIn = std::nullopt) {
        if (bar >= bars_.size()) return;
        const std::vector<PassageIndex>& passages = plan_.beginsAt[bar];
        auto first = passages.begin();
        if (wentBackIn) first = std::next(std::find(passages.begin(), passages.end(), *wentBackIn));
        for (; first != passages.end(); ++first) {
            Enter(*first);
            if (wentBackIn && plan_.passages[*first].onceInParent) pass_[*first] = plan_.passages[*first].times;
        }
    }

    std::size_t JumpTo(std::size_t bar) {
        for (auto passage = plan_.innermost[bar]; passage; passage = plan_.passages[*passage].parent) {
            Enter(*passage);
            if (IsReplay(*passage)) pass_[*passage] = FindLastPass(*passage, bar);
        }
        return bar;
    }

    [[nodiscard]] const Ending* FindSkippedEnding(std::size_t bar) {
        if (!plan_.endingAt[bar]) return nullptr;
        const EndingIndex index = *plan_.endingAt[bar];
        const Ending& ending = plan_.endings[index];
        if (ending.passage) return Holds(ending.numbers, pass_[*ending.passage]) ? nullptr : &ending;
        if (ending.chain == index) ++arrivals_[index];
        const int arrival = arrivals_[ending.chain];
        return Holds(ending.numbers, arrival) || !IsInChain(ending.chain, arrival) ? nullptr : &ending;
    }

    [[nodiscard]] bool IsInChain(std::size_t chain, int number) const {
        for (std::size_t i = chain; i < plan_.endings.size() && plan_.endings[i].chain == chain; ++i)
            if (Holds(plan_.endings[i].numbers, number)) return true;
        return false;
    }

    /// Whether no repeat around the bar plays it once more.
    [[nodiscard]] bool IsLastTime(std::size_t bar) {
        for (auto passage = plan_.innermost[bar]; passage; passage = plan_.passages[*passage].parent)
            if (pass_[*passage] < FindLastPass(*passage, bar)) return false;
        return true;
    }
    [[nodiscard]] int FindLastPass(PassageIndex passage, std::size_t bar) const {
        const int times = plan_.passages[passage].times;
        auto after = std::upper_bound(plan_.endings.begin(), plan_.endings.end(), bar,
                                      [](std::size_t wanted, const Ending& ending) { return wanted < ending.begin; });
        if (after == plan_.endings.begin()) return times;
        const Ending& ending = *std::prev(after);
        if (bar >= ending.end || ending.passage != passage) return times;
        int last = 0;
        for (const int number : ending.numbers)
            if (number <= times) last = std::max(last, number);
        return last;
    }

    /// A mark without passes holds where `holdsOtherwise`.
    [[nodiscard]] bool HoldsNow(const WrittenMark& mark, std::size_t bar, bool holdsOtherwise) const {
        return mark.passes.empty() ? holdsOtherwise : Holds(mark.passes, GetPass(bar));
    }

    enum class FineEffect { None, Ends, GoesToCoda, GoesOnAfterJump };

    FineEffect JudgeFine(std::size_t bar) {
        const std::vector<WrittenMark>& marks = bars_[bar].marks;
        const auto fine = std::find_if(marks.begin(), marks.end(),
                                       [](const WrittenMark& mark) { return mark.kind == MarkKind::Fine; });
        if (fine == marks.end()) return FineEffect::None;
        if (!fine->passes.empty()) return Holds(fine->passes, GetPass(bar)) ? FineEffect::Ends : FineEffect::None;
        const JumpAim aim = return_ ? return_->aim : JumpAim::Any;
        if (!hasJumped_ || aim == JumpAim::Coda || !IsLastTime(bar)) return FineEffect::None;
        if (aim == JumpAim::FineThenCoda && !codas_.empty()) return FineEffect::GoesToCoda;
        if (aim != JumpAim::Any)
            return FindJumpBack(return_->jumpBar + 1, bar) ? FineEffect::GoesOnAfterJump : FineEffect::Ends;
        return FindJumpBack(bar, bar) ? FineEffect::None : FineEffect::Ends;
    }

    /// The bar of a jump at or after `from` that is still to come and leads back to `bar` or before it.
    std::optional<std::size_t> FindJumpBack(std::size_t from, std::size_t bar) {
        for (std::size_t later = from; later < bars_.size(); ++later)
            for (const WrittenMark& mark : bars_[later].marks) {
                ++work_;
                if (!IsReturn(mark) || taken_.count({later, mark.kind, 0}) > 0) continue;
                if (mark.kind == MarkKind::DaCapo) return later;
                const Target* segno = FindSegno(later, mark.text);
                if (segno != nullptr && segno->bar <= bar) return later;
            }
        return std::nullopt;
    }

    /// "al Fine", and another jump comes that leads back to the Fine: what comes between is played.
    std::size_t GoOnAfterJump(std::size_t bar) {
        const std::size_t next = return_->jumpBar + 1;
        order_.notes.push_back(
            fmt::format("after the Fine in {} the music goes on with {}, since another jump leads back to the Fine",
                        NameBar(bars_, bar), NameBar(bars_, next)));
        EndReturn();
        EnterPassagesAt(next);
        return next;
    }

    void EndReturn() {
        return_.reset();
        wasEnteredBeforeJump_.assign(wasEnteredBeforeJump_.size(), false);
    }

    /// The bar that follows; nothing at the end of the music.
    std::optional<std::size_t> FindNext(std::size_t bar) {
        const FineEffect fine = JudgeFine(bar);
        if (fine == FineEffect::Ends) return std::nullopt;
        if (fine == FineEffect::GoesOnAfterJump) return GoOnAfterJump(bar);
        if (fine == FineEffect::GoesToCoda) return GoToCoda(FindCoda(bar, "")->bar);
        if (const auto target = TakeJump(bar)) return target;
        for (const PassageIndex passage : plan_.goesBack[bar]) {
            if (pass_[passage] >= plan_.passages[passage].times) continue;
            ++pass_[passage];
            const std::size_t begin = plan_.passages[passage].begin;
            EnterPassagesAt(begin, passage);
            return begin;
        }
        if (return_ && return_->jumpBar == bar) EndReturn();
        EnterPassagesAt(bar + 1);
        return bar + 1;
    }

    std::optional<std::size_t> TakeJump(std::size_t bar) {
        const std::vector<WrittenMark>& marks = bars_[bar].marks;
        if (std::none_of(marks.begin(), marks.end(), IsJump)) return std::nullopt;
        const bool isLast = IsLastTime(bar);
        for (const WrittenMark& mark : marks) {
            if (!IsJump(mark)) continue;
            const bool isToCoda = mark.kind == MarkKind::ToCoda;
            if (!HoldsNow(mark, bar, isLast && (!isToCoda || (return_ && return_->toCodaBar == bar)))) continue;
            const int pass = mark.passes.empty() ? 0 : GetPass(bar);
            const bool isNew = taken_.insert({bar, mark.kind, pass}).second;
            // The jump that is in force says how often a To Coda is taken.
            if (!isNew && !(isToCoda && mark.passes.empty())) continue;
            const auto target = isToCoda ? CheckTarget(FindCoda(bar, mark.text), codas_, bar, mark, "To Coda", "coda")
                                         : FindReturn(bar, mark);
            if (target) return isToCoda ? GoToCoda(*target) : GoBack(*target, bar);
        }
        return std::nullopt;
    }

    std::size_t GoToCoda(std::size_t target) {
        return_.reset();
        return JumpTo(target);
    }

    std::size_t GoBack(std::size_t target, std::size_t bar) {
        hasJumped_ = true;
        wasEnteredBeforeJump_ = wasEntered_;
        return_ = ReturnInForce{bar, FindAim(bars_[bar]), std::nullopt};
        if (return_->aim == JumpAim::Any || return_->aim == JumpAim::Coda)
            return_->toCodaBar = ChooseToCoda(target, bar);
        if (!plan_.goesBack[bar].empty())
            order_.notes.push_back(fmt::format("the jump in {}, where a repeat ends, is taken when the repeat is done",
                                               NameBar(bars_, bar)));
        return JumpTo(target);
    }

    /// The first To Coda between the ends of a jump that none has used yet, else the first.
    std::optional<std::size_t> ChooseToCoda(std::size_t target, std::size_t jumpBar) {
        std::optional<std::size_t> chosen;
        for (std::size_t bar = target; bar <= jumpBar; ++bar) {
            ++work_;
            const auto& marks = bars_[bar].marks;
            const bool isToCoda = std::any_of(marks.begin(), marks.end(), [](const WrittenMark& mark) {
                return mark.kind == MarkKind::ToCoda && mark.passes.empty();
            });
            if (!isToCoda) continue;
            if (!chosen) chosen = bar;
            if (taken_.count({bar, MarkKind::ToCoda, 0}) == 0) return bar;
        }
        return chosen;
    }

    std::optional<std::size_t> FindReturn(std::size_t bar, const WrittenMark& mark) {
        if (mark.kind == MarkKind::DaCapo) return 0;
        const Target* segno = FindSegno(bar, mark.text);
        return CheckTarget(segno, segnos_, bar, mark, "D.S.", "segno");
    }

    /// Nothing only where there is no coda at all.
    const Target* FindCoda(std::size_t bar, const std::string& label) {
        const std::size_t behind = return_ ? std::max(bar, return_->jumpBar) : bar;
        for (const std::size_t from : {behind, bar})
            if (const Target* coda = FindTarget(codas_, label, [&](const Target& target) { return target.bar > from; }))
                return coda;
        return FindTarget(
            codas_, label, [](const Target&) { return true; }, true);
    }

    const Target* FindSegno(std::size_t bar, const std::string& label) {
        const Target* last = FindTarget(
            segnos_, label, [bar](const Target& target) { return target.bar <= bar; }, true);
        return last != nullptr ? last : FindTarget(segnos_, label, [](const Target&) { return true; });
    }

    /// Notes what a jump asks for and does not find.
    std::optional<std::size_t> CheckTarget(const Target* found, const std::vector<Target>& targets, std::size_t bar,
                                           const WrittenMark& mark, const char* jump, const char* sign) {
        if (found == nullptr) {
            order_.notes.push_back(
                fmt::format("the {} in {} is passed over: there is no {}", jump, NameBar(bars_, bar), sign));
            return std::nullopt;
        }
        const bool hasNames =
            std::any_of(targets.begin(), targets.end(), [](const Target& target) { return !target.label.empty(); });
        // A label may be words, "D.S. al Coda": only one that is a name of its own is missed.
        const bool isName = !mark.text.empty() && mark.text.find(' ') == std::string::npos;
        if (hasNames && isName && !HasLabel(targets, mark.text))
            order_.notes.push_back(fmt::format("the {} in {} asks for the {} \"{}\", which is not there; it goes to {}",
                                               jump, NameBar(bars_, bar), sign, mark.text, NameBar(bars_, found->bar)));
        return found->bar;
    }

    static bool HasLabel(const std::vector<Target>& targets, const std::string& label) {
        return !label.empty() &&
               std::any_of(targets.begin(), targets.end(), [&](const Target& target) { return target.label == label; });
    }

    /// The first target, or the last, that fits and has the label; where no target has it, all are meant.
    template <class Fits>
    const Target* FindTarget(const std::vector<Target>& targets, const std::string& label, Fits fits,
                             bool takesLast = false) {
        work_ += targets.size();
        const bool isNamed = HasLabel(targets, label);
        const Target* found = nullptr;
        for (const Target& target : targets) {
            if ((isNamed && target.label != label) || !fits(target)) continue;
            if (!takesLast) return &target;
            found = &target;
        }
        return found;
    }

    void NameUnplayedBars() {
        std::size_t begin = 0;
        for (std::size_t bar = 0; bar <= bars_.size(); ++bar) {
            if (bar < bars_.size() && times_[bar] == 0) continue;
            if (bar > begin)
                order_.unplayed.push_back(
                    fmt::format("{} {} never played", NameBars(bars_, begin, bar), bar - begin == 1 ? "is" : "are"));
            begin = bar + 1;
        }
    }

    const std::vector<WrittenBar>& bars_;
    const std::size_t maxBars_;
    const RepeatPlan plan_;
    const std::vector<Target> segnos_;
    const std::vector<Target> codas_;
    std::vector<int> pass_;         // by passage
    std::vector<bool> wasEntered_;  // by passage
    /// By passage: those that a jump which is in force has gone back behind.
    std::vector<bool> wasEnteredBeforeJump_;
    std::vector<std::uint32_t> times_;
    std::vector<int> arrivals_;  // by the first ending of a chain
    /// Bar and kind of a jump, and the pass where it names passes: it is taken once.
    std::set<std::tuple<std::size_t, MarkKind, int>> taken_;
    std::size_t work_ = 0;
    bool hasJumped_ = false;
    std::optional<ReturnInForce> return_;
    PlayedOrder order_;
};

}  // namespace

std::size_t FindMostPlayedBars(std::size_t writtenBars) {
    return std::min(std::max(AlwaysPlayedBars, 2 * writtenBars), tavo_midi::MaxSongBeats);
}

PlayedOrder FindPlayedOrder(const std::vector<WrittenBar>& bars, std::size_t maxBars) {
    return Walk(bars, maxBars).Go();
}

}  // namespace stage::musicxml
