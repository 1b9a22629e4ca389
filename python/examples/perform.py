"""Performs a song, block by block, with an operator who listens: perform.py SHOW SONG

A host does the same with the sound going to a device, and with a person's presses in place of `answer`.
"""

import sys
from typing import Optional

import tavo

BLOCK = 1024
LONGEST_SECONDS = 600


def answer(event: tavo.Event) -> Optional[str]:
    """The operator: one return of every vamp is enough, and nobody waits."""
    if event.is_loop or event.name == "hold":
        return "exit"
    return "continue" if event.name == "caesura" else None


def main(path: str, number: str) -> None:
    with tavo.Player(path) as player:
        player.do(f"load {number}")
        player.do("play")
        song = player.song
        while player.status.frame < LONGEST_SECONDS * player.frames_per_second:
            player.render(BLOCK)
            for event in player.events():
                if event.name in ("jump", "hold", "caesura", "song-end"):
                    seconds = event.frame / player.frames_per_second
                    print(f"{seconds:6.2f} s  {event.name} {song.place_of(event.tick)}")
                if event.name == "song-end":
                    return
                press = answer(event)
                if press:
                    player.do(press)


if __name__ == "__main__":
    main(*sys.argv[1:])
