#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

#include "stage/session/show_session.h"
#include "tavo_midi/midi_commands.h"

namespace stage {

/// Changes what the page's view Set up may change, at once and for the next time: "press-guard 300", "time-code on",
/// "time-code-rate 25", "time-code-output Desk", "time-code-jumps locate", "midi-input pedal:out", "midi-learn Play"
/// (without a command it ends learning), "midi-forget Play"; and for the next time only, lists as settings.json has
/// them: "outputs [...]", "groups [...]", "osc-targets [...]". The host's thread; waits for the disk, and for the MIDI
/// system as MidiTimeCodeController and MidiCommands say. Throws std::invalid_argument with one sentence without a full
/// stop for what cannot be read, and std::runtime_error where it cannot be kept.
void ChangeSetting(ShowSession& session, std::string_view words);

/// Whether the words are those of a setting that has the next MIDI message learned.
[[nodiscard]] bool StartsLearning(std::string_view words);

/// What gives each MIDI command and which one is being learned, as docs/web.md has it. Any thread.
[[nodiscard]] nlohmann::ordered_json MakePedals(const midi_commands::MidiCommands& commands);

}  // namespace stage
