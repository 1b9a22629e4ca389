"""A track to practise with: some bars, slower, with a click on every beat: practice_track.py SHOW SONG FROM TO TEMPO OUT.wav

TEMPO is in percent. The bars are played as they stand in the music, without edits that lead elsewhere.
"""

import sys
import wave

import tavo

RATE = 48000
LOOPS = ("vamp", "repeat", "cut", "fermata", "caesura")


def main(path: str, number: str, start: str, end: str, tempo: str, out: str) -> None:
    with tavo.Player(path, RATE, click=True, click_everywhere=True) as player:
        player.do(f"load {number}")
        for edit in player.song.edits:
            if edit.kind in LOOPS:
                player.show.edit(f"remove --song {number} {edit.id}")
        player.do(f"tempo {tempo}%")
        player.do(f"seek {start}")
        player.do("play")
        song = player.song
        seconds = (song.seconds_at(song.tick_of(end)) - song.seconds_at(song.tick_of(start))) * 100 / float(tempo)
        sound = player.render(round(seconds * RATE))
    with wave.open(out, "wb") as file:
        file.setparams((2, 2, RATE, 0, "NONE", ""))
        file.writeframes(tavo.as_pcm(sound))
    print(f"{seconds:.2f} s")


if __name__ == "__main__":
    main(*sys.argv[1:])
