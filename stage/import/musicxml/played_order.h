#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "stage/import/musicxml/written_score.h"

namespace stage::musicxml {

struct PlayedBar {
    /// Index of the written bar.
    std::uint32_t bar = 0;
    /// How often it is played by now, from 1.
    std::uint32_t time = 1;
    /// The pass of the innermost repeat around it, from 1; without a repeat the same as `time`.
    std::uint32_t pass = 1;

    bool operator==(const PlayedBar&) const = default;
};

struct PlayedOrder {
    std::vector<PlayedBar> bars;
    /// What was odd in the flow and how it was taken, a sentence each.
    std::vector<std::string> notes;
};

/// The bars in the order in which they are played. repeat_plan.h says which repeat signs and endings belong together.
///   - A bar in an ending is played in that ending's passes only. Endings without a repeat count how often they are
///     reached.
///   - D.C. and D.S. are taken at the end of their bar when its repeats are done, once; where they name passes, once in
///     each of these.
///   - Fine ends the music after a jump, To Coda goes to the coda after a jump. "al Fine" or "al Coda" over the bar of
///     the jump leaves the other one out. A sign with a label goes to the one with the same label, without one D.S. to
///     the last segno before it, To Coda to the next coda.
///   - A passage that was played before the jump is played once more with its last pass only, unless its repeat says
///     after-jump; one that is new, as in a coda, is repeated.
/// A jump that leads nowhere is passed over with a note. Ends at `maxBars` with a note.
[[nodiscard]] PlayedOrder FindPlayedOrder(const std::vector<WrittenBar>& bars, std::size_t maxBars);

}  // namespace stage::musicxml
