#pragma once

#include <list>
#include <vector>

#include "tavo_core/change_log_events.h"
#include "tavo_core/sequence.h"
#include "tavo_core/timeline.h"

/// The beats as the performers hear them: `beats` with the runs of clicks that the Click edits ask for in place of the
/// written ones. `ticksPerQuarter` is the song's resolution. A click with no beat at or after its start, a step of 0
/// or no meter is left out; before the first meter the first is taken.
/// Linear in the beats that result and the clicks.
[[nodiscard]] TL::TimelineSequence<TL::BarsBeats> ApplyClicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                                              const CL::ChangeLogSequence<CL::Click>& clicks,
                                                              const TL::TimelineSequence<TL::Meter>& meters,
                                                              unsigned int ticksPerQuarter);
/// The same packed.
[[nodiscard]] std::vector<TL::BarsBeats> CollectBeats(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                                      const CL::ChangeLogSequence<CL::Click>& clicks,
                                                      const TL::TimelineSequence<TL::Meter>& meters,
                                                      unsigned int ticksPerQuarter);

/// The ticks of those beats, ascending, up to and including `endTick`.
[[nodiscard]] std::vector<unsigned int> CollectBeatTicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                                         const CL::ChangeLogSequence<CL::Click>& clicks,
                                                         const TL::TimelineSequence<TL::Meter>& meters,
                                                         unsigned int endTick, unsigned int ticksPerQuarter);
/// The same as a list.
[[nodiscard]] std::list<unsigned int> CreateBeatTicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                                      const CL::ChangeLogSequence<CL::Click>& clicks,
                                                      const TL::TimelineSequence<TL::Meter>& meters,
                                                      unsigned int endTick, unsigned int ticksPerQuarter);
