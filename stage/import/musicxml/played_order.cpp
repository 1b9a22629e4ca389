#include "stage/import/musicxml/played_order.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "stage/import/musicxml/repeat_plan.h"
#include "stage/show/letters.h"

namespace stage::musicxml {

namespace {

/// What a jump leads to.
enum class Aim { Any, Fine, Coda };

/// Bars and marks on the way, for each bar that there may be: a bar full of marks is not repeated forever.
constexpr std::size_t MostWork = 16;

bool Holds(const std::vector<int>& numbers, int number) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

bool IsJump(const WrittenMark& mark) {
    return mark.kind == MarkKind::DaCapo || mark.kind == MarkKind::DalSegno || mark.kind == MarkKind::ToCoda;
}

/// "D.C. al Fine", as it stands over the bar of the jump.
Aim FindAim(const WrittenBar& bar) {
    Aim aim = Aim::Any;
    for (const WrittenMark& mark : bar.marks) {
        if (mark.kind != MarkKind::Words && !IsJump(mark)) continue;
        const std::string text = ToLower(mark.text);
        if (text.find("al fine") != std::string::npos) aim = Aim::Fine;
        if (text.find("al coda") != std::string::npos) aim = Aim::Coda;
    }
    return aim;
}

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
        const bool isReplay = hasJumped_ && wasEntered_[index] && !plan_.passages[index].repeatsAfterJump;
        pass_[index] = isReplay ? plan_.passages[index].times : 1;
        wasEntered_[index] = true;
    }

    /// Begins the passages that begin with the bar; after going back in one, only those inside it.
    void EnterPassagesAt(std::size_t bar, std::optional<PassageIndex> wentBackIn = std::nullopt) {
        if (bar >= bars_.size()) return;
        const std::vector<PassageIndex>& passages = plan_.beginsAt[bar];
        auto first = passages.begin();
        if (wentBackIn) first = std::next(std::find(passages.begin(), passages.end(), *wentBackIn));
        for (; first != passages.end(); ++first)
            Enter(*first);
    }

    std::size_t JumpTo(std::size_t bar, Aim aim) {
        hasJumped_ = true;
        aim_ = aim;
        for (auto passage = plan_.innermost[bar]; passage; passage = plan_.passages[*passage].parent)
            Enter(*passage);
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

    [[nodiscard]] bool EndsHere(std::size_t bar) {
        const bool ends = hasJumped_ && aim_ != Aim::Coda && IsLastTime(bar);
        return std::any_of(bars_[bar].marks.begin(), bars_[bar].marks.end(), [&](const WrittenMark& mark) {
            return mark.kind == MarkKind::Fine && HoldsNow(mark, bar, ends);
        });
    }

    /// The bar that follows; nothing at the end of the music.
    std::optional<std::size_t> FindNext(std::size_t bar) {
        if (EndsHere(bar)) return std::nullopt;
        if (const auto target = TakeJump(bar)) return target;
        const std::optional<PassageIndex> passage = plan_.goesBack[bar];
        if (passage && pass_[*passage] < plan_.passages[*passage].times) {
            ++pass_[*passage];
            const std::size_t begin = plan_.passages[*passage].begin;
            EnterPassagesAt(begin, passage);
            return begin;
        }
        EnterPassagesAt(bar + 1);
        return bar + 1;
    }

    std::optional<std::size_t> TakeJump(std::size_t bar) {
        const std::vector<WrittenMark>& marks = bars_[bar].marks;
        if (std::none_of(marks.begin(), marks.end(), IsJump)) return std::nullopt;
        const bool isLast = IsLastTime(bar);
        for (std::size_t i = 0; i < marks.size(); ++i) {
            if (!IsJump(marks[i])) continue;
            const bool isToCoda = marks[i].kind == MarkKind::ToCoda;
            if (!HoldsNow(marks[i], bar, isLast && (!isToCoda || (hasJumped_ && aim_ != Aim::Fine)))) continue;
            const int pass = marks[i].passes.empty() ? 0 : GetPass(bar);
            if (!taken_.insert({{bar, i}, pass}).second) continue;
            if (const auto target = FindTarget(bar, marks[i]))
                return JumpTo(*target, isToCoda ? Aim::Any : FindAim(bars_[bar]));
        }
        return std::nullopt;
    }

    std::optional<std::size_t> FindTarget(std::size_t bar, const WrittenMark& mark) {
        if (mark.kind == MarkKind::DaCapo) return 0;
        const bool isSegno = mark.kind == MarkKind::DalSegno;
        const std::vector<Target>& targets = isSegno ? segnos_ : codas_;
        const char* const jump = isSegno ? "D.S." : "To Coda";
        const char* const sign = isSegno ? "segno" : "coda";
        if (targets.empty()) {
            order_.notes.push_back(
                fmt::format("the {} in {} is passed over: there is no {}", jump, NameBar(bars_, bar), sign));
            return std::nullopt;
        }
        if (const Target* named = FindNamed(targets, mark.text)) return named->bar;
        const Target& nearest = isSegno ? FindLastUpTo(targets, bar) : FindFirstBehind(targets, bar);
        // A label may be words, "D.S. al Coda": only one that is a name of its own is missed.
        if (!mark.text.empty() && mark.text.find(' ') == std::string::npos)
            order_.notes.push_back(fmt::format("the {} in {} asks for the {} \"{}\", which is not there; it goes to {}",
                                               jump, NameBar(bars_, bar), sign, mark.text,
                                               NameBar(bars_, nearest.bar)));
        return nearest.bar;
    }

    static const Target* FindNamed(const std::vector<Target>& targets, const std::string& label) {
        const auto found =
            std::find_if(targets.begin(), targets.end(), [&](const Target& target) { return target.label == label; });
        return label.empty() || found == targets.end() ? nullptr : &*found;
    }
    static const Target& FindLastUpTo(const std::vector<Target>& targets, std::size_t bar) {
        const Target* found = &targets.front();
        for (const Target& target : targets)
            if (target.bar <= bar) found = &target;
        return *found;
    }
    static const Target& FindFirstBehind(const std::vector<Target>& targets, std::size_t bar) {
        const auto found =
            std::find_if(targets.begin(), targets.end(), [bar](const Target& target) { return target.bar > bar; });
        return found == targets.end() ? targets.back() : *found;
    }

    const std::vector<WrittenBar>& bars_;
    const std::size_t maxBars_;
    const RepeatPlan plan_;
    const std::vector<Target> segnos_;
    const std::vector<Target> codas_;
    std::vector<int> pass_;         // by passage
    std::vector<bool> wasEntered_;  // by passage
    std::vector<std::uint32_t> times_;
    std::vector<int> arrivals_;  // by the first ending of a chain
    /// Bar and index of a mark, and the pass where it names passes: a jump is taken once.
    std::set<std::pair<std::pair<std::size_t, std::size_t>, int>> taken_;
    std::size_t work_ = 0;
    bool hasJumped_ = false;
    Aim aim_ = Aim::Any;
    PlayedOrder order_;
};

}  // namespace

PlayedOrder FindPlayedOrder(const std::vector<WrittenBar>& bars, std::size_t maxBars) {
    return Walk(bars, maxBars).Go();
}

}  // namespace stage::musicxml
