#include <kit/format.h>
#include <kit/numeric_string_compare.h>
#include <player_core/loop_event_list.h>
#include <tavo_midi/midi_message_dispatcher.h>
#include <tavo_midi/midi_ports.h>
#include <tavo_midi/midi_time_code_controller.h>

#include <array>

namespace {

/// MIDI without devices: no ports, and all else as ever.
bool IsMidiSoundWithoutPorts() {
    MidiMessageDispatcher dispatcher;
    MidiTimeCodeController timeCode("midiTimeCodeSettings");
    timeCode.SetSong("1");
    timeCode.Start(std::chrono::seconds(1));
    dispatcher.ConnectSourceByName("pedal");
    int heard = 0;
    dispatcher.AddListener(&heard, [&heard](std::span<const unsigned char> message, std::chrono::nanoseconds) {
        heard += static_cast<int>(message.size());
    });
    dispatcher.Deliver(std::array<unsigned char, 2>{0xC0, 5});
    return GetNonTavoMidiSources().empty() && GetNonTavoMidiDestinations().empty() && !dispatcher.GetIsConnected() &&
           tavo_midi::GetMidiSystemName().empty() && heard == 2;
}

}  // namespace

int main() {
    LoopEvent vamp;
    vamp.end = 960;
    LoopEventList loops;
    const bool isInserted = loops.InsertLoopEvent(vamp);
    const bool isOrdered = kit::NumericStringCompare{}(kit::format("%u", 2U), "10");
    return isInserted && isOrdered && IsMidiSoundWithoutPorts() ? 0 : 1;
}
