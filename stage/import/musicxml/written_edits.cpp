#include "stage/import/musicxml/written_edits.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

#include "stage/import/musicxml/repeat_plan.h"
#include "stage/import/musicxml/written_order.h"
#include "tavo_core/edit_rules.h"
#include "tavo_midi/song_builder.h"

namespace stage::musicxml {

namespace {

struct TickRange {
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
};

class Finder {
public:
    Finder(const WrittenScore& score, const SongGrid& grid, const TL::Timeline& timeline, bool breathsStop)
        : score_(score),
          grid_(grid),
          timeline_(timeline),
          breathsStop_(breathsStop),
          plan_(PlanRepeats(score.bars)),
          isVamp_(FindVamps(score.bars, plan_)),
          written_(OrderAsWritten(score.bars, plan_, isVamp_, FindMostPlayedBars(score.bars.size()))) {}

    WrittenEdits Find() {
        found_.notes = plan_.notes;
        NameVampsOverNothing();
        AddLoops();
        NameEndingsOfJumps();
        NameJumps();
        AddFermatas();
        AddStops();
        FindAttacca();
        return std::move(found_);
    }

private:
    void Note(std::string sentence) { found_.notes.push_back(std::move(sentence)); }

    template <class Edit>
    void Add(const Edit& edit, CL::ChangeLogSequence<Edit>& sequence) {
        const std::string problem = CL::CheckEdit(edit, found_.log, timeline_);
        if (problem.empty())
            sequence.Add(edit);
        else
            Note("what the score asks for cannot be an edit: " + problem);
    }

    /// Calls `visit(place, mark)` for each mark of a kind, with the bar of the song over which it stands.
    template <class Visitor>
    void ForEachMark(MarkKind kind, Visitor visit) const {
        for (std::size_t place = 0; place < written_.order.bars.size(); ++place)
            for (const WrittenMark& mark : score_.bars[written_.order.bars[place].bar].marks)
                if (mark.kind == kind) visit(place, mark);
    }

    /// The same for each that is printed, with the bar of the score.
    template <class Visitor>
    void ForEachPrintedMark(MarkKind kind, Visitor visit) const {
        for (std::size_t bar = 0; bar < score_.bars.size(); ++bar)
            for (const WrittenMark& mark : score_.bars[bar].marks)
                if (mark.kind == kind) visit(bar, mark);
    }

    void NameVampsOverNothing() {
        ForEachPrintedMark(MarkKind::Words, [&](std::size_t bar, const WrittenMark& mark) {
            if (HoldsWord(mark.text, "vamp") && !plan_.innermost[bar])
                Note(fmt::format("\"{}\" in {} stands over no repeat and is a marker only", mark.text,
                                 NameBar(score_.bars, bar)));
        });
    }

    void AddLoops() {
        for (const RepeatedPassage& passage : plan_.passages)
            if (passage.hasEndings)
                Note(fmt::format("the repeat of {} has endings, which no edit can say: each of its bars is played once",
                                 NameBars(score_.bars, passage.begin, passage.end)));
        for (const PassageIndex index : written_.passed) {
            const RepeatedPassage& passage = plan_.passages[index];
            if (passage.hasEndings) continue;
            Note(
                fmt::format("the repeat of {} takes the one inside it only once, which no edit can say: it is left out",
                            NameBars(score_.bars, passage.begin, passage.end)));
        }
        for (const WrittenLoop& loop : written_.loops) {
            if (plan_.passages[loop.passage].hasEndings) continue;
            const std::uint32_t begin = grid_.GetBarTick(loop.begin);
            const std::uint32_t end = grid_.GetBarTick(loop.end);
            if (isVamp_[loop.passage])
                Add(CL::Vamp(begin, end), found_.log.GetVamps());
            else if (loop.times > 1)
                Add(CL::Repeat(begin, end, loop.times), found_.log.GetRepeats());
        }
    }

    void NameEndingsOfJumps() {
        for (const Ending& ending : plan_.endings)
            if (!ending.passage)
                Note(fmt::format("the ending over {} is for a jump, which no edit can say: it is played",
                                 NameBars(score_.bars, ending.begin, ending.end)));
    }

    void NameJumps() {
        bool hasJumps = false;
        const auto name = [&](MarkKind kind, const char* jump) {
            ForEachPrintedMark(kind, [&](std::size_t bar, const WrittenMark&) {
                hasJumps = true;
                Note(fmt::format("the {} in {} is not an edit: playback goes on there", jump,
                                 NameBar(score_.bars, bar)));
            });
        };
        name(MarkKind::DaCapo, "D.C.");
        name(MarkKind::DalSegno, "D.S.");
        if (!hasJumps) return;
        name(MarkKind::ToCoda, "To Coda");
        name(MarkKind::Fine, "Fine");
    }

    /// What a fermata holds.
    [[nodiscard]] TickRange FindHold(std::size_t bar, const WrittenMark& mark) const {
        const Units begin = grid_.GetBarStart(bar) + mark.position;
        const std::uint32_t end = std::min(grid_.ToTick(begin + mark.length), grid_.GetEndTick());
        if (mark.length > 0) return EndBeforeLoop({grid_.ToTick(begin), end});
        const auto& beats = timeline_.GetBarsBeats();
        const auto after = std::partition_point(beats.begin(), beats.end(),
                                                [end](const TL::BarsBeats& beat) { return beat.abs_time() < end; });
        return EndBeforeLoop({after == beats.begin() ? end : std::prev(after)->abs_time(), end});
    }

    /// Where a hold and a loop end together, releasing the hold would leave the loop, too: the hold ends a tick before.
    [[nodiscard]] TickRange EndBeforeLoop(TickRange hold) const {
        const auto endsThere = [&hold](const CL::PairedEvent& loop) { return loop.end() == hold.end; };
        const bool meetsLoop = std::any_of(found_.log.GetRepeats().begin(), found_.log.GetRepeats().end(), endsThere) ||
                               std::any_of(found_.log.GetVamps().begin(), found_.log.GetVamps().end(), endsThere);
        if (meetsLoop && hold.end > hold.begin + 1) --hold.end;
        return hold;
    }

    /// Of fermatas that overlap the shortest says where the music is held; the others sound through it.
    void AddFermatas() {
        std::vector<TickRange> holds;
        ForEachMark(MarkKind::Fermata,
                    [&](std::size_t bar, const WrittenMark& mark) { holds.push_back(FindHold(bar, mark)); });
        std::sort(holds.begin(), holds.end(), [](const TickRange& a, const TickRange& b) {
            return std::pair(a.end - a.begin, a.begin) < std::pair(b.end - b.begin, b.begin);
        });
        std::map<std::uint32_t, std::uint32_t> endByBegin;
        for (const TickRange& hold : holds) {
            const auto next = endByBegin.lower_bound(hold.begin);
            const bool meetsNext = next != endByBegin.end() && next->first < hold.end;
            const bool meetsLast = next != endByBegin.begin() && std::prev(next)->second > hold.begin;
            if (meetsNext || meetsLast) continue;
            endByBegin.emplace(hold.begin, hold.end);
            Add(CL::Fermata(hold.begin, hold.end), found_.log.GetFermatas());
        }
    }

    void AddStops() {
        std::map<std::uint32_t, std::string> textByTick;
        const auto collect = [&](MarkKind kind, const char* text) {
            ForEachMark(kind, [&](std::size_t bar, const WrittenMark& mark) {
                textByTick.try_emplace(grid_.ToTick(grid_.GetBarStart(bar) + mark.position), text);
            });
        };
        collect(MarkKind::Caesura, "caesura");
        if (breathsStop_) collect(MarkKind::Breath, "breath");
        for (const auto& [tick, text] : textByTick)
            Add(CL::Caesura(tick, text, 0), found_.log.GetCaesuras());
    }

    void FindAttacca() {
        ForEachPrintedMark(MarkKind::Words, [&](std::size_t bar, const WrittenMark& mark) {
            if (!HoldsWord(mark.text, "attacca")) return;
            if (bar + 2 >= score_.bars.size())
                found_.log.SetAttacca(CL::AttaccaNext);
            else
                Note(fmt::format("\"{}\" in {} does not stand at the end and is a marker only", mark.text,
                                 NameBar(score_.bars, bar)));
        });
    }

    const WrittenScore& score_;
    const SongGrid& grid_;
    const TL::Timeline& timeline_;
    const bool breathsStop_;
    const RepeatPlan plan_;
    const std::vector<bool> isVamp_;  // by passage
    const WrittenOrder written_;
    WrittenEdits found_;
};

}  // namespace

WrittenEdits FindWrittenEdits(const WrittenScore& score, const SongGrid& grid, const TL::Timeline& timeline,
                              bool breathsStop) {
    return Finder(score, grid, timeline, breathsStop).Find();
}

}  // namespace stage::musicxml
