#pragma once

#include <functional>

/// For the parts of a program that are clients of a JACK server of their own, beside its MIDI ports.
namespace tavo_midi_io {

/// Makes the request on the thread that makes all of this process's requests to JACK, one after the other: a server
/// that is stopped never answers, and whoever asks it would hang. False if it was not done in two seconds; it may then
/// still be done at any later time, so what it uses belongs to it. What it throws is thrown here. Thread-safe; blocks.
[[nodiscard]] bool AskJack(std::function<void()> request);
/// Has a client closed, which is done in any case, if need be when the server goes on; waits for two seconds at most.
/// What it throws is logged.
void CloseJackClient(std::function<void()> request);

/// Which clients the process has. libjack, asked for a client after its server has died, destroys those that the
/// process still has under their owners' hands: so nobody opens one before all clients of the dead server have been
/// closed. Thread-safe, without locks.
namespace jack_clients {

/// Whether a client may be opened now. To be asked within AskJack, right before.
[[nodiscard]] bool MayOpen();
/// Within the AskJack that MayOpen was asked in, right before or after the client is opened.
void NoteOpened();
/// After it was closed, once for each NoteOpened. Where none is left, the death of their server is forgotten.
void NoteClosed();
/// A client was told that its server has died.
void NoteServerDied();

/// Whether libjack has missed that another program left the server while a client was opened here (jackd 1.9.21 and
/// before): whoever takes that program's place is never woken by this process, and a server that waits for its clients
/// then stands still for all of them. To be asked within AskJack once the client is active; when all of the process's
/// clients have been closed it is over. Blocks for less than a millisecond.
[[nodiscard]] bool HasMissedALeaver();

}  // namespace jack_clients

}  // namespace tavo_midi_io
