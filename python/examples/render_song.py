"""Renders a song into a WAV file, with an operator who leaves vamps and holds by himself: render_song.py SHOW SONG OUT.wav"""

import sys
import wave

import tavo

RATE = 44100


def main(path: str, number: str, out: str) -> None:
    rendered = tavo.render_songs(path, number, frames_per_second=RATE)
    with wave.open(out, "wb") as file:
        file.setparams((2, 2, RATE, 0, "NONE", ""))
        file.writeframes(tavo.as_pcm(rendered.sound))
    for remark in rendered.remarks:
        print(remark)
    with wave.open(out) as file:
        print(f"{file.getnframes() / RATE:.1f} s")


if __name__ == "__main__":
    main(*sys.argv[1:])
