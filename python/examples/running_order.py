"""Prints the running order with lengths as written: running_order.py SHOW"""

import sys

import tavo

AFTER = {"normal": "", "attacca": "  attacca", "skip": "  (skipped)"}


def clock(seconds: float) -> str:
    return f"{int(seconds) // 60}:{int(seconds) % 60:02}"


def main(path: str) -> None:
    with tavo.Show(path) as show:
        print(show.title)
        total = 0.0
        for song in show.songs:
            print(f"{song.number:>4}  {clock(song.seconds):>6}  {song.title}{AFTER[song.attacca]}")
            if song.attacca != "skip":
                total += song.seconds
        print(f"      {clock(total):>6}")


if __name__ == "__main__":
    main(*sys.argv[1:])
