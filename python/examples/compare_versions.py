"""Compares two versions of the edits: compare_versions.py SHOW [FROM TO], without numbers the last two"""

import sys

import tavo


def main(path: str, *numbers: str) -> None:
    with tavo.Show(path) as show:
        before, after = numbers or [version.number for version in show.versions[-2:]]
        print(f"from {before} to {after}:")
        for line in show.compare(before, after) or ["nothing"]:
            print("  " + line)


if __name__ == "__main__":
    main(*sys.argv[1:])
