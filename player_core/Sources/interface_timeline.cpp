// The timeline as the performers hear it.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <type_traits>

#include "player_core/interface.h"
#include "player_core/tavo_ext.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_core/editor.h"

namespace {

struct TickRange {
    unsigned int start;
    unsigned int end;

    [[nodiscard]] bool Contains(unsigned int tick) const { return start <= tick && tick < end; }
};

/// The bars of a song one after the other. The first begins at the song's first beat, whatever its number; the last,
/// which no bar line ends, is never given.
class BarIterator {
public:
    explicit BarIterator(const TL::TimelineSequence<TL::BarsBeats>& beats) : next_(beats.begin()), end_(beats.end()) {}

    TickRange Next() {
        const auto taken = next_;
        if (next_ != end_) ++next_;
        next_ = std::find_if(next_, end_, [](const TL::BarsBeats& beat) { return beat.beat() == 1; });
        if (next_ == end_) throw std::out_of_range("no more bars beats");
        return {taken->abs_time(), next_->abs_time()};
    }

private:
    TL::TimelineSequence<TL::BarsBeats>::const_iterator next_;
    const TL::TimelineSequence<TL::BarsBeats>::const_iterator end_;
};

/// Of the tempos in one bar keeps the first and the last, the last only where a later tempo follows. What is carried at
/// the end of the list, and all of the final bar, is dropped: displays count on it.
TL::TimelineSequence<TL::Tempo> ThinTempos(const TL::TimelineSequence<TL::Tempo>& tempos,
                                           const TL::TimelineSequence<TL::BarsBeats>& beats) {
    TL::TimelineSequence<TL::Tempo> thinned;
    const TL::Tempo& first = tempos.front();
    TL::Tempo carried = first;
    BarIterator bars(beats);
    TickRange currentBar{};
    try {
        currentBar = bars.Next();
    } catch (const std::out_of_range&) {
        return tempos;
    }
    TickRange previousBar = currentBar;
    try {
        for (const TL::Tempo& tempo : tempos) {
            if (tempo.abs_time() < currentBar.start) {
                carried = tempo;
                continue;
            }
            if (previousBar.Contains(carried.abs_time()) && carried != first) thinned.Append(carried);
            while (!currentBar.Contains(tempo.abs_time()))
                currentBar = bars.Next();
            thinned.Append(tempo);
            previousBar = currentBar;
            currentBar = bars.Next();
        }
    } catch (const std::out_of_range&) {
        // The song's final bar.
    }
    return thinned;
}

const TL::Meter& MeterAt(const TL::Timeline& timeline, unsigned int tick) {
    static const TL::Meter commonTime;
    const TL::Meter* meter = timeline.GetMeters().FindInForceAt(tick);
    if (meter != nullptr) return *meter;
    return timeline.GetMeters().empty() ? commonTime : timeline.GetMeters().front();
}

bool IsIgnored(const CL::Caesura& caesura) {
    return caesura.VersionTarget() == CL::GetCaesuraIgnoredVersionTarget();
}

}  // namespace

TL::TimelineSequence<TL::BarsBeats> Interface::GetBarsBeats(std::string song) {
    return GetBarsBeats(std::move(song), true);
}

TL::TimelineSequence<TL::BarsBeats> Interface::GetBarsBeats(std::string song, bool applyClicks) {
    const tavo_midi::SongData& songData = showData_->GetSongData(song);
    const TL::Timeline& timeline = songData.GetTimeline();
    const ActiveChangeLogShared changeLog;
    const CL::ChangeLogSequence<CL::Click>& clicks = changeLog->GetSongLog(song).GetClicks();
    if (!applyClicks || clicks.empty()) return timeline.GetBarsBeats();
    return ApplyClicks(timeline.GetBarsBeats(), clicks, timeline.GetMeters(), songData.GetTicksPerQuarter());
}

int Interface::GetClickValueAt(unsigned int tick) {
    const std::string song = GetCurrentSongNumber();
    const TL::Timeline& timeline = showData_->GetSongData(song).GetTimeline();
    const ActiveChangeLogShared changeLog;
    const CL::ChangeLogSequence<CL::Click>& clicks = changeLog->GetSongLog(song).GetClicks();
    const auto after = std::upper_bound(clicks.begin(), clicks.end(), tick,
                                        [](unsigned int t, const CL::Click& click) { return t < click.start(); });
    if (after != clicks.begin() && tick < std::prev(after)->end()) return std::prev(after)->int_value();
    const TL::Meter& meter = MeterAt(timeline, tick);
    constexpr unsigned int ClocksPerQuarter = 24;
    const unsigned int clocks = meter.clocks_per_click();
    return static_cast<int>(clocks * meter.thirty_seconds_per_quarter() / ClocksPerQuarter);
}

std::vector<int> Interface::GetClickValues(unsigned int tick, unsigned int /*ignored*/) {
    return showData_->GetSongData(GetCurrentSongNumber()).GetTimeline().GetAllowedClickValuesAtTickIndex(tick);
}

std::string Interface::GetBarString(unsigned int tick) {
    return changeLogEditor_->GetBarString(GetCurrentSongNumber(), tick);
}

bool Interface::SeekToBar(std::string bar) {
    std::optional<unsigned int> tick;
    try {
        tick = changeLogEditor_->GetBarTickIndex(GetCurrentSongNumber(), bar);
    } catch (const std::out_of_range&) {
        return false;
    }
    Seek(*tick);
    return true;
}

std::pair<std::string, unsigned int> Interface::LookupPage(unsigned int page) {
    const auto found = pageNumbers_.find(page);
    if (found == pageNumbers_.end()) throw std::out_of_range("invalid map<K, T> key");
    return found->second;
}

unsigned int Interface::GetSongLength(std::string song) {
    const TL::Timeline& timeline = showData_->GetSongData(song).GetTimeline();
    return timeline.GetEndTickIndex() - timeline.GetStartTickIndex();
}

unsigned int Interface::GetSongStartTickIndex(std::string song) {
    return showData_->GetSongData(song).GetSongStartTickIndex();
}

std::vector<cmn::TavoEvent*> Interface::GetMarkers() {
    const std::string song = GetCurrentSongNumber();
    // Exclusive although nothing is written here: what leaves are pointers through which a host may write.
    const ActiveChangeLogExclusive changeLog;
    std::vector<cmn::TavoEvent*> markers;
    for (CL::Marker& marker : changeLog->GetSongLog(song).GetMarkers())
        markers.push_back(&marker);
    return markers;
}

TL::Timeline Interface::GetTimeline() {
    const TL::Timeline& timeline = showData_->GetSongData(GetCurrentSongNumber()).GetTimeline();
    TL::Timeline copy = tavo_ext::copy_timeline(timeline);
    if (!timeline.GetTempos().empty()) copy.GetTempos() = ThinTempos(timeline.GetTempos(), timeline.GetBarsBeats());
    return copy;
}

std::vector<std::unique_ptr<cmn::TavoEvent>> Interface::GetChangeLogPanelEvents() {
    const std::string song = GetCurrentSongNumber();
    std::vector<std::unique_ptr<cmn::TavoEvent>> events;
    const ActiveChangeLogShared changeLog;
    changeLog->GetSongLog(song).ForEachSequence([&events](const auto& sequence) {
        using Edit = typename std::decay_t<decltype(sequence)>::value_type;
        if constexpr (!std::is_same_v<Edit, CL::Marker>) {
            for (const Edit& edit : sequence) {
                if constexpr (std::is_same_v<Edit, CL::Caesura>) {
                    if (IsIgnored(edit)) continue;
                }
                events.push_back(std::make_unique<Edit>(edit));
            }
        }
    });
    std::stable_sort(events.begin(), events.end(), [](const auto& a, const auto& b) {
        return std::pair(a->abs_time(), a->code()) < std::pair(b->abs_time(), b->code());
    });
    return events;
}
