"""Lists the bars of a song: list_bars.py SHOW SONG"""

import sys

import tavo


def main(path: str, number: str) -> None:
    with tavo.Show(path) as show:
        song = show.song(number)
        print(f"{song.number} {song.title}, {len(song.bars)} bars")
        for bar in song.bars:
            beats, unit = bar.meter
            print(f"{bar.label:>5}  {bar.seconds:7.2f} s  {beats}/{unit}  {bar.quarters_per_minute:g}")


if __name__ == "__main__":
    main(*sys.argv[1:])
