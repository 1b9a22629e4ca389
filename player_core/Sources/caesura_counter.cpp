#include "player_core/caesura_counter.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kit/cout_buffer.h"
#include "tavo_core/beat_ticks.h"

namespace {
constexpr std::size_t MaxCountdownBeats = 5;
}

CountdownCaesura::CountdownCaesura(unsigned int tickIndex) : CL::Caesura(tickIndex, "", 0) {}

CountdownCaesura::CountdownCaesura(unsigned int tickIndex, std::list<unsigned int> beatTicks)
    : CountdownCaesura(tickIndex) {
    CollectCountdown_(std::vector<unsigned int>(beatTicks.begin(), beatTicks.end()));
}

void CountdownCaesura::CollectCountdown_(const std::vector<unsigned int>& beatTicks) {
    if (beatTicks.empty()) return;
    auto anchor = std::upper_bound(beatTicks.begin(), beatTicks.end(), GetTickIndex());
    if (anchor != beatTicks.begin() && *std::prev(anchor) == GetTickIndex()) --anchor;
    // The song's first beat is never counted, not even where a caesura stands on the second.
    for (; anchor != beatTicks.begin() && countdownTickIndices_.size() < MaxCountdownBeats; --anchor) {
        // Behind the last beat the caesura's own tick stands for the missing one.
        countdownTickIndices_.push_front(anchor == beatTicks.end() ? GetTickIndex() : *anchor);
    }
}

unsigned int CountdownCaesura::GetFirstCountdownTickIndex() const {
    return countdownTickIndices_.empty() ? GetTickIndex() : countdownTickIndices_.front();
}

bool CountdownCaesura::WithinCountdownRange(unsigned int tickIndex) const {
    return !countdownTickIndices_.empty() && countdownTickIndices_.front() <= tickIndex && tickIndex < GetTickIndex();
}

int CountdownCaesura::GetCountdown(unsigned int tickIndex) const {
    return static_cast<int>(std::count_if(countdownTickIndices_.begin(), countdownTickIndices_.end(),
                                          [tickIndex](unsigned int beat) { return beat > tickIndex; }));
}

int CountdownCaesura::GetCountdownAtTickIndex(unsigned int tickIndex) const {
    const bool isBeat =
        std::find(countdownTickIndices_.begin(), countdownTickIndices_.end(), tickIndex) != countdownTickIndices_.end();
    return isBeat ? GetCountdown(tickIndex) : -1;
}

void CountdownCaesura::WriteString(std::basic_ostream<char>& os) const {
    os << "CountdownCaesura: tickIndex_ = " << GetTickIndex() << ", countdown range = [" << GetFirstCountdownTickIndex()
       << ", " << GetTickIndex() << ")" << std::endl;
}

CaesuraCounter::CaesuraCounter(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int songValue,
                               const std::function<unsigned int(unsigned int)>& mapTickIndex) {
    if (songLog.GetCaesuras().empty()) return;
    const unsigned int ignored = CL::GetCaesuraIgnoredVersionTarget();
    // One that all countdowns search, not a copy for each.
    const std::vector<unsigned int> beatTicks = CollectBeatTicks(
        timeline.GetBarsBeats_(), songLog.GetClicks(), timeline.GetMeters_(), timeline.GetEndTickIndex(), songValue);
    countdownCaesuras_.reserve(songLog.GetCaesuras().size());
    for (const CL::Caesura& caesura : songLog.GetCaesuras()) {
        if (caesura.VersionTarget() == ignored) continue;
        CountdownCaesura countdown(mapTickIndex(caesura.abs_time()));
        countdown.CollectCountdown_(beatTicks);
        countdownCaesuras_.push_back(std::move(countdown));
    }
}

bool CaesuraCounter::HasCaesuraAtTickIndex(unsigned int tickIndex) const {
    return std::any_of(countdownCaesuras_.begin(), countdownCaesuras_.end(),
                       [tickIndex](const CountdownCaesura& caesura) { return caesura.GetTickIndex() == tickIndex; });
}

bool CaesuraCounter::HasCaesuraWithinCountdownRange(unsigned int tickIndex) const {
    for (const CountdownCaesura& caesura : countdownCaesuras_) {
        if (caesura.WithinCountdownRange(tickIndex)) return true;
        if (caesura.GetTickIndex() > tickIndex) return false;
    }
    return false;
}

const CountdownCaesura& CaesuraCounter::GetCountdownCaesuraAtTickIndex(unsigned int tickIndex) const {
    for (const CountdownCaesura& caesura : countdownCaesuras_) {
        if (caesura.GetTickIndex() == tickIndex) return caesura;
    }
    throw std::logic_error("There is no CountdownCaesura at requested tick index.");
}

void CaesuraCounter::PrintCaesuras() const {
    std::ostringstream text;
    text << "CaesuraCounter" << std::endl;
    for (const CountdownCaesura& caesura : countdownCaesuras_) {
        caesura.WriteString(text);
        text << "  at " << static_cast<const void*>(&caesura) << std::endl;
    }
    kit::CoutBuffer out;
    out << text.str();
}
