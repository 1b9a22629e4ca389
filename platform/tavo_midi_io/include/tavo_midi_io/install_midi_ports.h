#pragma once

namespace tavo_midi_io {

/// Gives the process the computer's MIDI ports: those of JACK where a server runs, otherwise those that RtMidi finds
/// (tavo_midi::SetMidiSystemChoice chooses). A host with MIDI devices calls it once, before it opens a show or later;
/// another call changes nothing. Until then no ports are listed, and chosen ones are waited for. Thread-safe; blocks
/// for some seconds where a port is waited for and its system does not answer.
void InstallMidiPorts();

}  // namespace tavo_midi_io
