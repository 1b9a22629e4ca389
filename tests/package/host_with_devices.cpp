#include <tavo_midi/midi_message_dispatcher.h>
#include <tavo_midi/midi_ports.h>
#include <tavo_midi_io/install_midi_ports.h>

/// The ports of whatever computer this is are listed without harm; that none are chosen lists none.
int main() {
    tavo_midi_io::InstallMidiPorts();
    static_cast<void>(GetNonTavoMidiSources());
    tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    return GetNonTavoMidiSources().empty() ? 0 : 1;
}
