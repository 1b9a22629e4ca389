"""The Python package and its examples over libtavo, which TAVO_LIBRARY names; SHOW is a show that is copied."""

import csv
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import wave

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))

import tavo  # noqa: E402
from tavo import _library  # noqa: E402

KEPT_SHOW = HERE.parent.parent / "tests" / "shows" / "0.1.0"


class WithShow(unittest.TestCase):
    def setUp(self) -> None:
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.work = pathlib.Path(directory.name)
        self.show = str(self.work / "show")
        shutil.copytree(KEPT_SHOW, self.show)
        (self.work / "show" / "show-1.2.logdata.journal").unlink()


class Examples(WithShow):
    def run_example(self, name: str, *words: str) -> str:
        environment = dict(os.environ, PYTHONPATH=str(HERE.parent), PYTHONIOENCODING="utf-8")
        done = subprocess.run([sys.executable, "-W", "error", str(HERE.parent / "examples" / name), *words], text=True,
                              capture_output=True, env=environment, encoding="utf-8", check=False)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return done.stdout

    def test_list_bars_prints_each_with_its_time(self) -> None:
        lines = self.run_example("list_bars.py", self.show, "1").splitlines()
        self.assertEqual("1 Lantern Waltz, 23 bars", lines[0])
        self.assertEqual("    1     0.45 s  3/4  132", lines[2])
        self.assertEqual(24, len(lines))

    def test_find_vamps_finds_the_one(self) -> None:
        found = self.run_example("find_vamps.py", self.show).splitlines()
        with tavo.Show(self.show) as show:
            vamps = [edit for song in show.songs for edit in song.edits if edit.kind == "vamp"]
        self.assertGreater(len(vamps), 0)
        self.assertEqual(len(vamps), len(found))
        self.assertIn(vamps[0].place, found[0])

    def test_render_song_writes_sound(self) -> None:
        out = str(self.work / "song.wav")
        said = self.run_example("render_song.py", self.show, "2", out)
        with wave.open(out) as file:
            self.assertEqual((2, 2, 44100), (file.getnchannels(), file.getsampwidth(), file.getframerate()))
            self.assertGreater(file.getnframes(), 31 * 44100)
            self.assertTrue(any(file.readframes(5 * 44100)))
        self.assertIn(" s\n", said)

    def test_perform_goes_through_caesura_and_hold(self) -> None:
        lines = self.run_example("perform.py", self.show, "2").splitlines()
        self.assertEqual(["caesura", "hold", "song-end"], [line.split()[2] for line in lines])

    def test_compare_versions_names_each_edit(self) -> None:
        lines = self.run_example("compare_versions.py", self.show, "1.0", "1.1").splitlines()
        self.assertEqual("from 1.0 to 1.1:", lines[0])
        self.assertTrue(any("vamp" in line and line.endswith("added") for line in lines), lines)
        self.assertIn("nothing", self.run_example("compare_versions.py", self.show, "1.1", "1.1"))

    def test_cue_sheet_is_a_table(self) -> None:
        rows = list(csv.DictReader(io.StringIO(self.run_example("cue_sheet.py", self.show))))
        self.assertIn(("2", "OSC"), {(row["song"], row["kind"]) for row in rows})
        self.assertTrue(all(float(row["seconds"]) >= 0 for row in rows))

    def test_running_order_adds_up(self) -> None:
        lines = self.run_example("running_order.py", self.show).splitlines()
        self.assertEqual(4, len(lines))
        self.assertIn("Lantern Waltz", lines[1])
        self.assertRegex(lines[-1], r"^ +\d+:\d\d$")

    def test_practice_track_is_as_long_as_its_bars(self) -> None:
        out = str(self.work / "practice.wav")
        self.run_example("practice_track.py", self.show, "2", "3", "6", "80", out)
        with wave.open(out) as file:
            # Three bars of 3/4 at four fifths of 96.
            self.assertEqual(round(9 * 60 / 96 / 0.8 * 48000), file.getnframes())
            self.assertTrue(any(file.readframes(48000)))

    def test_apply_edits_saves_all_or_nothing(self) -> None:
        edits = self.work / "edits"
        edits.write_text("# Tonight\nadd caesura --song 1 --at 5\n", encoding="utf-8")
        said = self.run_example("apply_edits.py", self.show, str(edits), "for Anna")
        self.assertIn("saved as 1.3:", said)
        self.assertIn("caesura 5 added", said)
        with tavo.Show(self.show) as show:
            self.assertEqual("for Anna", show.versions[-1].comment)

    def test_go_on_elsewhere_goes_on_at_the_place(self) -> None:
        first, second = self.run_example("go_on_elsewhere.py", self.show, "1", "22").splitlines()
        self.assertEqual(first.split(" at ")[1].split(":")[0], second.split(" at ")[1].split(":")[0])


class Package(WithShow):
    def test_errors_are_of_their_kinds_with_a_sentence(self) -> None:
        with self.assertRaisesRegex(tavo.TavoError, "/nowhere"):
            tavo.Show("/nowhere")
        with tavo.Show(self.show) as show:
            with self.assertRaisesRegex(tavo.NotFound, 'no song "99"'):
                show.song("99")
            with self.assertRaises(tavo.NotFound):
                show.song("1").tick_of("999")
            with self.assertRaises(tavo.BadArgument):
                show.song("a\0b")
            with self.assertRaisesRegex(tavo.TavoError, "reading only"):
                show.save()
        with self.assertRaises(tavo.Closed):
            show.title  # noqa: B018
        with tavo.Player(self.show) as player:
            with self.assertRaises(tavo.Busy):
                tavo.Player(self.show)
            with self.assertRaises(tavo.Refused):
                player.do("play")
            with self.assertRaises(tavo.BadArgument):
                player.do("dance")
            with self.assertRaises(tavo.BadArgument):
                player.render(-1)

    def test_edits_are_undone_and_done_again(self) -> None:
        with tavo.Show(self.show) as show:
            before = show.song("1").edits
            show.edit("add marker --song 1 --at 2 --text Brücke")
            self.assertTrue(any("Brücke" in marker.value for marker in show.song("1").markers))
            self.assertEqual(1, len(show.undo()))
            self.assertEqual(before, show.song("1").edits)
            self.assertEqual(1, len(show.redo()))
            self.assertEqual(1, len(show.compare("1.2")))

    def test_rendering_gives_what_render_songs_gives(self) -> None:
        with tavo.Player(self.show) as player:
            player.do("load 2")
            player.do("play")
            played = player.render(2 * 48000)
            latency = player.latency
            self.assertEqual(tavo.Motion.PLAYING, player.status.motion)
            self.assertTrue(any(event.name == "beat" for event in player.events()))
        rendered = tavo.render_songs(self.show, "2", end="4")
        self.assertTrue(any("\tsong-end\t" in line or "\tend\t" in line for line in rendered.trace))
        frames = 2 * 48000 - latency
        self.assertEqual(tavo.as_pcm(played)[4 * latency:], tavo.as_pcm(rendered.sound)[:4 * frames])

    def test_the_click_leaves_by_its_own_pair(self) -> None:
        with tavo.Player(self.show, click_everywhere=True) as player:
            self.assertEqual(["main", "click"], player.pairs)
            player.do("load 2")
            player.do("play")
            alone = player.render(48000)
            self.assertEqual(["main", "click"], list(player.render_pairs(0)))
            pairs = player.render_pairs(48000)
        rest = tavo.as_pcm(alone) + tavo.as_pcm(pairs["main"])
        with tavo.Player(self.show) as player:
            player.do("load 2")
            player.do("play")
            self.assertEqual(tavo.as_pcm(player.render(96000)), rest)
        self.assertTrue(any(tavo.as_pcm(pairs["click"])))

    def test_numpy_gets_one_array_where_it_is_there(self) -> None:
        with tavo.Player(self.show) as player:
            sound = player.render(480)
            self.assertEqual(0, len(player.render(0)[0]) if isinstance(sound, tuple) else len(player.render(0)))
        if isinstance(sound, tuple):
            self.assertEqual([480, 480], [len(channel) for channel in sound])
        else:
            self.assertEqual((480, 2), sound.shape)

    def test_every_function_of_the_header_is_known(self) -> None:
        header = (HERE.parent.parent / "tavo_c" / "include" / "tavo" / "tavo.h").read_text(encoding="utf-8")
        declared = set(re.findall(r"TAVO_API [^;(]*?(tavo_\w+)\(", header))
        # Python fetches events, renders pairs, and needs neither a callback nor a number for the version.
        rest = {"tavo_version_number", "tavo_version", "tavo_result_name", "tavo_last_error", "tavo_free",
                "tavo_event_name", "tavo_player_position", "tavo_player_render", "tavo_player_set_callback"}
        self.assertEqual(declared, set(_library._FUNCTIONS) | rest)


if __name__ == "__main__":
    unittest.main()
