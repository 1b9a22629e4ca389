"""Writes the cues of a show, and where its flow waits, as CSV: cue_sheet.py SHOW > cues.csv"""

import csv
import sys

import tavo

KINDS = ("sfx", "ambient sfx", "OSC", "vamp", "fermata", "caesura", "marker")


def main(path: str) -> None:
    sheet = csv.writer(sys.stdout, lineterminator="\n")
    sheet.writerow(["song", "title", "place", "seconds", "kind", "what"])
    with tavo.Show(path) as show:
        for song in show.songs:
            for edit in song.edits:
                if edit.kind in KINDS:
                    seconds = f"{song.seconds_at(edit.start_tick):.2f}"
                    sheet.writerow([song.number, song.title, song.place_of(edit.start_tick), seconds, edit.kind,
                                    edit.value])


if __name__ == "__main__":
    main(*sys.argv[1:])
