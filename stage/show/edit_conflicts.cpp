#include "stage/show/edit_conflicts.h"

#include <fmt/format.h>

#include <algorithm>

#include "player_core/caesura_counter.h"
#include "tavo_core/bar_positions.h"
#include "tavo_core/edit_text.h"

namespace stage {

namespace {

class ConflictFinder {
public:
    ConflictFinder(const CL::SongLog& songLog, const tavo_midi::SongData& song)
        : songLog_(songLog), song_(song), positions_(song.GetTimeline()) {
        cuts_.assign(songLog.GetCuts().begin(), songLog.GetCuts().end());
        std::sort(cuts_.begin(), cuts_.end(), [](const auto& a, const auto& b) { return a.start() < b.start(); });
        for (const CL::Caesura& caesura : songLog.GetCaesuras())
            caesuraTicks_.push_back(caesura.abs_time());
        std::sort(caesuraTicks_.begin(), caesuraTicks_.end());
    }

    std::vector<std::string> Find() {
        for (const CL::Vamp& vamp : songLog_.GetVamps()) {
            if (vamp.int_value() == 1) Report("{} has at most one pass and never goes back", Describe(vamp));
            FindCaesuraIn(vamp);
            FindCutOf(vamp);
        }
        for (const CL::Repeat& repeat : songLog_.GetRepeats())
            FindCutOf(repeat);
        FindCaesurasThatAreNeverMet();
        FindMarkersOnOneTick();
        return std::move(conflicts_);
    }

private:
    template <class... Words>
    void Report(fmt::format_string<Words...> sentence, Words&&... words) {
        conflicts_.push_back(fmt::format(sentence, std::forward<Words>(words)...));
    }
    [[nodiscard]] std::string Describe(const cmn::TavoEvent& edit) const {
        return fmt::format("the {} over {}", CL::DescribeKind(edit), CL::DescribePlace(edit, positions_));
    }

    /// The cut that leaves the tick out; null where none does. Cuts do not overlap.
    [[nodiscard]] const CL::Cut* FindCutOver(unsigned int tick) const {
        const auto after = std::upper_bound(cuts_.begin(), cuts_.end(), tick,
                                            [](unsigned int t, const CL::Cut& cut) { return t < cut.start(); });
        if (after == cuts_.begin() || tick >= std::prev(after)->end()) return nullptr;
        return &*std::prev(after);
    }

    void FindCaesuraIn(const CL::Vamp& vamp) {
        const auto caesura = std::upper_bound(caesuraTicks_.begin(), caesuraTicks_.end(), vamp.start());
        if (caesura != caesuraTicks_.end() && *caesura < vamp.end())
            Report("{} goes around the caesura at {}, which stops it in every pass", Describe(vamp),
                   positions_.DescribeTick(*caesura));
    }

    template <class Loop>
    void FindCutOf(const Loop& loop) {
        if (const CL::Cut* const cut = FindCutOver(loop.start()); cut != nullptr) {
            Report("{} is never entered: {} leaves out its beginning", Describe(loop), Describe(*cut));
        } else if (const CL::Cut* const over = FindCutOver(loop.end()); over != nullptr && over->start() < loop.end()) {
            Report("{} never goes back: {} leaves out its end", Describe(loop), Describe(*over));
        }
    }

    void FindCaesurasThatAreNeverMet() {
        CaesuraCounter counter(songLog_, song_.GetTimeline(), song_.GetTicksPerQuarter(),
                               [](unsigned int tick) { return tick; });
        for (const CountdownCaesura& countdown : counter.GetCountdownCaesuras()) {
            const std::string caesura =
                fmt::format("the caesura at {}", positions_.DescribeTick(countdown.GetTickIndex()));
            const CL::Cut* const over = FindCutOver(countdown.GetTickIndex());
            const CL::Cut* const before = FindCutOver(countdown.GetFirstCountdownTickIndex());
            // Between two beats it is counted down to the later one, with which it would have to begin.
            if (countdown.GetCountdownTickIndices().empty() ||
                countdown.GetFirstCountdownTickIndex() > countdown.GetTickIndex()) {
                Report("{} is never met: it stands before the song's second beat", caesura);
            } else if (over != nullptr && over->start() == countdown.GetTickIndex()) {
                Report("{} stands where {} begins: it stops before the jump", caesura, Describe(*over));
            } else if (over != nullptr) {
                Report("{} is never met: {} leaves it out", caesura, Describe(*over));
            } else if (before != nullptr && !IsMetAtTheEndOf(*before, countdown)) {
                Report("{} is never met: {} leaves out the beginning of its countdown", caesura, Describe(*before));
            }
        }
    }

    /// Of a countdown and a cut that begin together, the one that ends first, or with the other, is looked at first.
    [[nodiscard]] static bool IsMetAtTheEndOf(const CL::Cut& cut, const CountdownCaesura& countdown) {
        return countdown.GetFirstCountdownTickIndex() == cut.start() && countdown.GetTickIndex() == cut.end();
    }

    void FindMarkersOnOneTick() {
        std::vector<const CL::Marker*> markers;
        for (const CL::Marker& marker : songLog_.GetMarkers())
            markers.push_back(&marker);
        std::stable_sort(markers.begin(), markers.end(),
                         [](const auto* a, const auto* b) { return a->abs_time() < b->abs_time(); });
        for (std::size_t i = 1; i < markers.size(); ++i) {
            if (markers[i]->abs_time() == markers[i - 1]->abs_time())
                Report("the markers \"{}\" and \"{}\" stand at one place, {}", markers[i - 1]->value(),
                       markers[i]->value(), positions_.DescribeTick(markers[i]->abs_time()));
        }
    }

    const CL::SongLog& songLog_;
    const tavo_midi::SongData& song_;
    const TL::BarPositions positions_;
    std::vector<CL::Cut> cuts_;
    std::vector<unsigned int> caesuraTicks_;
    std::vector<std::string> conflicts_;
};

}  // namespace

std::vector<std::string> FindConflicts(const CL::SongLog& songLog, const tavo_midi::SongData& song) {
    return ConflictFinder(songLog, song).Find();
}

}  // namespace stage
