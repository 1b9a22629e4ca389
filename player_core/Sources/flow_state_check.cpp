#include "flow_state_check.h"

#include <algorithm>
#include <array>
#include <functional>
#include <stdexcept>
#include <utility>

#include "player_core/loop_event_list.h"
#include "tavo_core/event_codes.h"
#include "tavo_midi/user_controls.h"

namespace flow_state {
namespace {

constexpr std::size_t LongestCountdown = 5;

constexpr std::array<std::pair<unsigned char, const char*>, 4> Kinds{
    {{codes::Vamp, "vamp"}, {codes::Repeat, "repeat"}, {codes::Cut, "cut"}, {codes::Fermata, "fermata"}}};

void Require(bool holds, const std::string& sentence) {
    if (!holds) throw std::invalid_argument(sentence);
}

bool IsLoop(unsigned char code) {
    return codes::IsVampOrRepeat(code) || code == codes::Fermata;
}

bool ComesBefore(const FlowState::Loop& a, const FlowState::Loop& b) {
    if (a.end != b.end) return a.end < b.end;
    if (a.start != b.start) return a.start > b.start;
    return a.type < b.type;
}

template <class Values, class Before>
bool IsInOrder(const Values& values, Before&& before) {
    return std::adjacent_find(values.begin(), values.end(),
                              [&before](const auto& a, const auto& b) { return !before(a, b); }) == values.end();
}

void RequireSoundLoops(const FlowState& state) {
    for (const FlowState::Loop& loop : state.loops) {
        Require(IsLoop(loop.type), "the flow state has a loop that is not a vamp, a repeat or a fermata");
        Require(loop.pass >= 1,
                "the flow state has a loop in pass " + std::to_string(loop.pass) + ": passes count from 1");
    }
    Require(IsInOrder(state.loops, ComesBefore),
            "the flow state has loops that are not in the order of their ends, or one loop twice");
    for (const FlowState::Spent& edit : state.spent) {
        Require(*KindName(edit.type) != '\0', "the flow state has a spent edit that is not a loop or a cut");
        Require(edit.end <= edit.start, "the flow state has a spent edit that has a length");
    }
}

}  // namespace

const char* KindName(unsigned char code) {
    const auto found =
        std::find_if(Kinds.begin(), Kinds.end(), [code](const auto& kind) { return kind.first == code; });
    return found == Kinds.end() ? "" : found->second;
}

unsigned char KindOf(std::string_view name) {
    const auto found =
        std::find_if(Kinds.begin(), Kinds.end(), [name](const auto& kind) { return kind.second == name; });
    return found == Kinds.end() ? 0 : found->first;
}

void RequireSound(const FlowState& state) {
    RequireSoundLoops(state);
    for (const FlowState::Caesura& caesura : state.caesuras) {
        Require(caesura.countdown.size() <= LongestCountdown && IsInOrder(caesura.countdown, std::less_equal<>()),
                "the flow state has a caesura that does not count down over at most five ascending beats");
    }
    // Written so that what is not a number is refused as well.
    Require(state.tempoScale >= UserControls::LowestTempoScale && state.tempoScale <= UserControls::HighestTempoScale,
            "the flow state has a tempo scale outside 0.5 to 2");
    Require(state.transposition >= UserControls::LowestTransposition &&
                state.transposition <= UserControls::HighestTransposition,
            "the flow state has a transposition outside -24 to 24 semitones");
    Require(IsInOrder(state.display.filed, [](const auto& a, const auto& b) { return a.tick < b.tick; }),
            "the flow state has statuses that are not in the order of their ticks, or two at one tick");
}

}  // namespace flow_state
