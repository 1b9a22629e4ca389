"""A host of your own: your_host.py SHOW [SONG [BAR]]"""

import collections
import sys
import wave
from typing import Any, Callable, Deque

import tavo

RATE = 48000
BLOCK = 480  # frames; a press takes effect at the end of a block
CUES = {"/house/dim": "the house lights go down", "/curtain": "the curtain opens"}


def answer(player: tavo.Player, event: tavo.Event) -> str:
    """The operator: what your button does. Here a vamp goes round once, and nobody is waited for."""
    if event.is_loop and player.status.is_vamp_lamp_on:
        return "exit"
    return {"hold": "exit", "caesura": "continue"}.get(event.name, "")


def hear(player: tavo.Player, event: tavo.Event) -> None:
    """Called when an event is heard."""
    if event.name == "beat":
        song = player.show.songs[event.song]
        print(song.place_of(event.tick) if event.number == 1 else ".", end=" ", flush=True)
    if event.name == "cue":
        kind, name, *_ = event.text.split()
        print(f"[{CUES.get(name, kind + ' ' + name)}]", end=" ", flush=True)
    press = answer(player, event)
    if press:
        print(f"[{event.name}: {press}]", end=" ", flush=True)
        player.do(press)


def perform(player: tavo.Player, device: Callable[[Any], None]) -> None:
    """Plays the song that is loaded; the device takes block after block of sound."""
    coming: Deque[tavo.Event] = collections.deque()
    player.do("play")
    while player.status.motion != tavo.Motion.STOPPED:
        device(player.render(BLOCK))
        coming.extend(player.events())
        while coming and coming[0].frame <= player.status.frame - player.latency:
            hear(player, coming.popleft())
    print()
    device(player.render(RATE))  # what rings on


def main(path: str, number: str = "", bar: str = "") -> None:
    with tavo.Player(path, RATE) as player:
        print(player.show.title)
        if not number:
            for song in player.show.songs:
                print(f"{song.number:>3}  {song.title}")
            return
        song = player.show.song(number)
        print(f"{song.title}, bars", *(each.label for each in song.bars))
        for edit in song.edits:
            print(f"  {edit.kind} {edit.place} {edit.value}".rstrip())
        player.do(f"load {number}")
        if bar:
            player.do(f"seek {bar}")
        with wave.open("song.wav", "wb") as file:
            file.setparams((2, 2, RATE, 0, "NONE", ""))
            perform(player, lambda sound: file.writeframes(tavo.as_pcm(sound)))
            print(f"song.wav: {file.tell() / RATE:.1f} s")


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3, 4):
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except tavo.TavoError as problem:
        sys.exit(str(problem))
