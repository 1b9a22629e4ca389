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
    /// The bars that are never played, a sentence for each passage.
    std::vector<std::string> unplayed;
};

/// The bars in the order in which they are played. repeat_plan.h says which repeat signs and endings belong together.
///   - A bar in an ending is played in that ending's passes only. Endings without a repeat count how often they are
///     reached.
///   - D.C. and D.S. are taken at the end of their bar when its repeats are done, once; where they name passes, once in
///     each of these. D.S. goes to the last segno before it.
///   - A jump is in force until its place is passed once more, or until a To Coda is taken. It uses one To Coda between
///     where it goes and where it stands, one that no other jump has used if there is such; that leads to the next coda
///     behind the jump. So each section has its own signs, whether or not they have names of their own.
///   - Fine ends the music after a jump, unless another jump, which is still to come, leads back to it: then what comes
///     after a jump "al Fine" goes on, and any other passes the Fine over. "al Fine" or "al Coda" leaves the other sign
///     out.
///   - A sign with a label goes to one with the same label where there is one.
///   - A passage that was played before the jump is played once more with its last pass only, unless its repeat says
///     after-jump; one that is new, as in a coda, is repeated. A jump into an ending makes its last pass.
/// A jump that leads nowhere is passed over with a note. Ends at `maxBars` with a note.
[[nodiscard]] PlayedOrder FindPlayedOrder(const std::vector<WrittenBar>& bars, std::size_t maxBars);

/// More bars than this, or than twice those that are written, no repeats make of a score: it is a day of music, and
/// a file of a few hundred bytes can ask for any number.
inline constexpr std::size_t AlwaysPlayedBars = 50'000;
[[nodiscard]] std::size_t FindMostPlayedBars(std::size_t writtenBars);

}  // namespace stage::musicxml
