#include "stage/import/musicxml/written_order.h"

#include <algorithm>

#include "stage/import/musicxml/song_layout.h"

namespace stage::musicxml {

namespace {

/// Passages that begin together, each going back as the one before it; the longest is the last.
using Group = std::vector<PassageIndex>;

class Writing {
public:
    Writing(const std::vector<WrittenBar>& bars, const RepeatPlan& plan, const std::vector<bool>& isVamp,
            std::size_t maxBars)
        : bars_(bars), plan_(plan), isVamp_(isVamp), maxBars_(maxBars), isGrouped_(plan.passages.size(), false) {}

    WrittenOrder Write() {
        std::size_t bar = 0;
        while (bar < bars_.size()) {
            const Group group = FindGroupAt(bar);
            if (group.empty()) {
                WriteBars(bar, bar + 1, bars_.size());
                ++bar;
                continue;
            }
            WriteGroup(group);
            bar = plan_.passages[group.back()].end;
        }
        // In the order in which their signs close them: loops inside come first.
        std::stable_sort(written_.loops.begin(), written_.loops.end(),
                         [](const WrittenLoop& a, const WrittenLoop& b) { return a.passage < b.passage; });
        return std::move(written_);
    }

private:
    /// Empty where none begins, or one that cannot be written out.
    Group FindGroupAt(std::size_t bar) {
        Group group;
        for (const PassageIndex index : plan_.beginsAt[bar]) {
            const bool isFirst = !plan_.passages[index].onceInParent;
            if (isFirst && group.size() > 1) break;
            if (isFirst) group.clear();
            group.insert(group.begin(), index);
        }
        if (group.size() < 2) return {};
        std::size_t more = 0;
        bool canBeWritten = !plan_.passages[group.back()].parent;
        for (const PassageIndex index : group) {
            isGrouped_[index] = true;
            more += plan_.passages[index].end - bar;
            canBeWritten = canBeWritten && !plan_.passages[index].hasEndings && !isVamp_[index];
        }
        if (canBeWritten && written_.order.bars.size() + more + bars_.size() <= maxBars_) return group;
        isGrouped_[group.front()] = false;
        written_.passed.insert(written_.passed.end(), std::next(group.begin()), group.end());
        return {};
    }

    void WriteGroup(const Group& group) {
        for (const PassageIndex index : group) {
            const RepeatedPassage& passage = plan_.passages[index];
            const int times = index == group.back() ? passage.times : passage.times - 1;
            if (times < 1) continue;
            const std::size_t begin = written_.order.bars.size();
            WriteBars(passage.begin, passage.end, passage.end);
            if (times > 1) written_.loops.push_back({index, begin, written_.order.bars.size(), times});
        }
    }

    /// With the loops that begin in them and end at `limit` at the latest.
    void WriteBars(std::size_t first, std::size_t end, std::size_t limit) {
        times_.resize(bars_.size(), 0);
        for (std::size_t bar = first; bar < end; ++bar) {
            const std::size_t place = written_.order.bars.size();
            for (const PassageIndex index : plan_.beginsAt[bar]) {
                const RepeatedPassage& passage = plan_.passages[index];
                if (isGrouped_[index] || passage.end > limit) continue;
                written_.loops.push_back({index, place, place + passage.end - passage.begin, passage.times});
            }
            const std::uint32_t time = ++times_[bar];
            written_.order.bars.push_back({static_cast<std::uint32_t>(bar), time, time});
        }
    }

    const std::vector<WrittenBar>& bars_;
    const RepeatPlan& plan_;
    const std::vector<bool>& isVamp_;
    const std::size_t maxBars_;
    std::vector<bool> isGrouped_;
    std::vector<std::uint32_t> times_;  // by bar
    WrittenOrder written_;
};

}  // namespace

WrittenOrder OrderAsWritten(const std::vector<WrittenBar>& bars, const RepeatPlan& plan,
                            const std::vector<bool>& isVamp, std::size_t maxBars) {
    return Writing(bars, plan, isVamp, maxBars).Write();
}

std::vector<bool> FindVamps(const std::vector<WrittenBar>& bars, const RepeatPlan& plan) {
    std::vector<bool> isVamp(plan.passages.size(), false);
    for (std::size_t bar = 0; bar < bars.size(); ++bar)
        for (const WrittenMark& mark : bars[bar].marks)
            if (mark.kind == MarkKind::Words && plan.innermost[bar] && HoldsWord(mark.text, "vamp"))
                isVamp[*plan.innermost[bar]] = true;
    return isVamp;
}

}  // namespace stage::musicxml
