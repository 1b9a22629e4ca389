"""Finds every vamp of a show: find_vamps.py SHOW"""

import sys

import tavo


def main(path: str) -> None:
    with tavo.Show(path) as show:
        for song in show.songs:
            for edit in song.edits:
                if edit.kind == "vamp":
                    seconds = song.seconds_at(edit.end_tick) - song.seconds_at(edit.start_tick)
                    print(f"song {song.number}: {edit.place}, {seconds:.1f} s a pass {edit.value}".rstrip())


if __name__ == "__main__":
    main(*sys.argv[1:])
