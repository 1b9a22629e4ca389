"""Makes the edits of a file, one a line, and saves them as a version, or nothing: apply_edits.py SHOW FILE COMMENT"""

import sys

import tavo


def main(path: str, edits: str, comment: str) -> None:
    with tavo.Show(path, change=True) as show, open(edits, encoding="utf-8") as lines:
        for number, line in enumerate(lines, start=1):
            if line.strip() and not line.startswith("#"):
                try:
                    show.edit(line.strip())
                except tavo.TavoError as problem:
                    sys.exit(f"{edits}, line {number}: {problem}")
        before = next(version.number for version in show.versions if version.is_in_use)
        print(f"saved as {show.save(comment)}:")
        for line in show.compare(before):
            print("  " + line)


if __name__ == "__main__":
    main(*sys.argv[1:])
