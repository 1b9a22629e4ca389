"""tests/scenarios/evening.txt through the Python package over libtavo, which TAVO_LIBRARY names; STAGE makes the shows."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
from dataclasses import dataclass, field
from typing import Dict, List

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))

import tavo  # noqa: E402

SCENARIOS = HERE.parent.parent / "tests" / "scenarios" / "evening.txt"
RATE = 48000

# How an arranger writes the edits of the scenarios.
EDITS = {
    r"vamp (\S+) (\S+)": "add vamp --song 1 --from {0} --to {1}",
    r"vamp (\S+) (\S+) (\d+)": "add vamp --song 1 --from {0} --to {1} --max {2}",
    r"repeat (\S+) (\S+) (\d+)": "add repeat --song 1 --from {0} --to {1} --times {2}",
    r"cut (\S+) (\S+)": "add cut --song 1 --from {0} --to {1}",
    r"fermata (\S+) (\S+)": "add fermata --song 1 --from {0} --to {1}",
    r"caesura (\S+)": "add caesura --song 1 --at {0}",
    r"tempo (\S+) (\S+) (\d+)": "add tempo-scale --song 1 --from {0} --to {1} --percent {2}",
    r"marker (\S+) (\S+)": "add marker --song 1 --at {0} --text {1}",
    r"attacca": "attacca --song 1 attacca",
}


@dataclass
class Scenario:
    name: str
    bars: List[int] = field(default_factory=list)
    edits: List[str] = field(default_factory=list)
    script: str = ""
    trace: List[str] = field(default_factory=list)

    def add(self, line: str) -> None:
        what, _, text = line.partition(": ")
        if what == "bars":
            self.bars = [int(count) for count in text.split()]
        elif what == "edit":
            self.edits.append(as_edit(text))
        elif what == "press":
            self.script += text + "\n"
        elif what != "plays":
            self.trace.append(line)


def as_edit(text: str) -> str:
    for pattern, line in EDITS.items():
        match = re.fullmatch(pattern, text)
        if match:
            return line.format(*match.groups())
    raise ValueError(f"the edit {text!r} is not known here")


def read_scenarios() -> List[Scenario]:
    scenarios: List[Scenario] = []
    for line in SCENARIOS.read_text(encoding="utf-8").splitlines():
        if line.startswith("["):
            scenarios.append(Scenario(line[1:-1]))
        elif line and not line.startswith("#"):
            scenarios[-1].add(line)
    return scenarios


def as_written(line: str) -> str:
    """A line of a trace as the scenarios have them: seconds, event, details."""
    frame, _tick, event, details = line.rstrip("\n").split("\t")
    return f"{int(frame) / RATE:.3f} {event}" + ("" if details == "-" else f" {details}")


class Evening(unittest.TestCase):
    def make_show(self, directory: pathlib.Path, scenario: Scenario) -> str:
        for number, bars in enumerate(scenario.bars, 1):
            (directory / f"{number}.score.txt").write_text(
                f"number {number}\ntitle Song {number}\nat 1 meter 4/4\nat 1 tempo 120\n\npart Piano program 1\n"
                f"| c4/4 c4 c4 c4 {'| % ' * (bars - 1)}|\n", encoding="utf-8")
        stage = os.environ["STAGE"]
        for words in (["compose", *map(str, sorted(directory.glob("*.txt"))), "-o", str(directory / "midi")],
                      ["import", str(directory / "midi"), "-o", str(directory / "show")]):
            subprocess.run([stage, *words], check=True, capture_output=True)
        return str(directory / "show")

    def play(self, scenario: Scenario) -> List[str]:
        with tempfile.TemporaryDirectory() as directory:
            path = self.make_show(pathlib.Path(directory), scenario)
            if scenario.edits:
                with tavo.Show(path, change=True) as show:
                    for edit in scenario.edits:
                        show.edit(edit)
                    show.save()
            rendered = tavo.render_songs(path, "1", script=scenario.script)
            self.assertEqual([], rendered.remarks)
            return [as_written(line) for line in rendered.trace]

    def test_is_played_as_written(self) -> None:
        scenarios = read_scenarios()
        self.assertGreater(len(scenarios), 20)
        for scenario in scenarios:
            with self.subTest(scenario.name):
                wanted: Dict[str, bool] = {line.split()[1]: True for line in scenario.trace}
                self.assertEqual(scenario.trace, [line for line in self.play(scenario) if line.split()[1] in wanted])


if __name__ == "__main__":
    unittest.main()
