"""Shows: their songs, bars, markers, edits and versions."""

import ctypes
import datetime
import os
from dataclasses import dataclass
from typing import List, Optional, Tuple, Union

from . import _library as c

Path = Union[str, "os.PathLike[str]"]


@dataclass(frozen=True)
class Bar:
    """One bar as it is printed; ticks are half-open, seconds count from the song's beginning and leave edits out."""

    label: str
    start_tick: int
    end_tick: int
    seconds: float
    meter: Tuple[int, int]
    quarters_per_minute: float


@dataclass(frozen=True)
class Edit:
    """One edit of a production: its kind ("vamp"), its place in words ("bars 12 to 16") and what it says ("3 times")."""

    id: int
    kind: str
    place: str
    value: str
    start_tick: int
    end_tick: int


@dataclass(frozen=True)
class Version:
    """One saved state of the edits."""

    number: str
    file: str
    saved_by: str
    saved_at: datetime.datetime
    comment: str
    edit_count: int
    unsaved_count: int
    is_in_use: bool
    problem: str


class Song:
    """One song of a show. Good as long as the show is open."""

    def __init__(self, show: "Show", index: int) -> None:
        self._show = show
        self.index = index
        info = self._info()
        self.number: str = c.decode(info.number)
        self.title: str = c.decode(info.title)
        self.start_tick: int = info.start_tick
        self.end_tick: int = info.end_tick
        self.ticks_per_quarter: int = info.ticks_per_quarter
        self.seconds: float = info.seconds
        """As written, to the end of the last note."""

    def __repr__(self) -> str:
        return f"Song({self.number!r}, {self.title!r})"

    def _info(self) -> c.SongInfo:
        info = c.SongInfo()
        c.check(c.library.tavo_show_song(self._show.handle, self.index, info))
        return info

    @property
    def attacca(self) -> str:
        """What follows the song by the edits: "normal" a stop, "attacca" the next one at once; "skip": it is passed over."""
        return ("normal", "attacca", "skip")[self._info().attacca]

    @property
    def bars(self) -> List[Bar]:
        """The bars in order."""
        bars = []
        for index in range(self._info().bar_count):
            info = c.BarInfo()
            c.check(c.library.tavo_show_bar(self._show.handle, self.index, index, info))
            bars.append(Bar(c.decode(info.label), info.start_tick, info.end_tick, info.seconds,
                            (info.meter_numerator, info.meter_denominator), info.quarters_per_minute))
        return bars

    @property
    def edits(self) -> List[Edit]:
        """The edits as they are now, markers among them, by place and then by kind."""
        count = ctypes.c_uint32()
        c.check(c.library.tavo_show_list_edits(self._show.handle, self.index, count))
        edits = []
        for index in range(count.value):
            info = c.EditInfo()
            c.check(c.library.tavo_show_edit_at(self._show.handle, index, info))
            edits.append(Edit(info.id, c.decode(info.kind), c.decode(info.place), c.decode(info.value),
                              info.start_tick, info.end_tick))
        return edits

    @property
    def markers(self) -> List[Edit]:
        """The markers among the edits; each has its text as the value."""
        return [edit for edit in self.edits if edit.kind == "marker"]

    def tick_of(self, place: str) -> int:
        """The tick of a place as musicians write it: "17", "17:3", "start". Raises NotFound where there is none."""
        tick = ctypes.c_uint32()
        c.check(c.library.tavo_show_find_place(self._show.handle, self.index, c.encode(place), tick))
        return tick.value

    def place_of(self, tick: int) -> str:
        """The place at a tick: "17:3"."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_show_describe_tick(self._show.handle, self.index, tick, text))
        return c.take_text(text)

    def seconds_at(self, tick: int) -> float:
        """Seconds from the song's beginning to a tick, as written."""
        seconds = ctypes.c_double()
        c.check(c.library.tavo_show_seconds(self._show.handle, self.index, tick, seconds))
        return seconds.value


class Show:
    """A show that is open for reading and, with `change`, for editing. A context manager: leaving it closes the show.

    Edits are made in memory and become a version by `save`. Nobody else may change a show that is open for change.
    """

    def __init__(self, path: Path, change: bool = False, version: Optional[str] = None) -> None:
        handle = ctypes.c_void_p()
        options = c.ShowOptions(ctypes.sizeof(c.ShowOptions), int(change), c.encode(version))
        c.check(c.library.tavo_show_open(os.fsencode(path), options, handle))
        self.handle: ctypes.c_void_p = handle
        self._is_own = True

    @classmethod
    def _of_player(cls, handle: ctypes.c_void_p) -> "Show":
        show = cls.__new__(cls)
        show.handle = handle
        show._is_own = False
        return show

    def close(self) -> None:
        """Closes the show; edits that were not saved are forgotten. Twice does no harm. That of a player closes with it."""
        if self._is_own and self.handle:
            handle, self.handle = self.handle, ctypes.c_void_p()
            c.check(c.library.tavo_show_close(handle))

    def __enter__(self) -> "Show":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_is_own", False) and self.handle:
            c.library.tavo_show_close(self.handle)

    # Reading.

    @property
    def title(self) -> str:
        """The show's title."""
        title = ctypes.c_char_p()
        c.check(c.library.tavo_show_title(self.handle, title))
        return c.decode(title.value)

    @property
    def songs(self) -> List[Song]:
        """The songs in show order."""
        count = ctypes.c_uint32()
        c.check(c.library.tavo_show_song_count(self.handle, count))
        return [Song(self, index) for index in range(count.value)]

    def song(self, number: str) -> Song:
        """The song of that number, "12a"; raises NotFound where the show has none."""
        index = ctypes.c_uint32()
        c.check(c.library.tavo_show_find_song(self.handle, c.encode(number), index))
        return Song(self, index.value)

    @property
    def warnings(self) -> List[str]:
        """What is odd about the show and was passed over or repaired."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_show_warnings(self.handle, text))
        return c.take_text(text).splitlines()

    # Editing.

    def edit(self, line: str) -> None:
        """Does what a line of the edit grammar says: "add vamp --song 3 --from 12 --to 15"."""
        c.check(c.library.tavo_show_do_edit(self.handle, c.encode(line)))

    def undo(self) -> List[str]:
        """Takes back the last edit; a line for each edit that this changed."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_show_undo(self.handle, text))
        return c.take_text(text).splitlines()

    def redo(self) -> List[str]:
        """Makes it again."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_show_redo(self.handle, text))
        return c.take_text(text).splitlines()

    def save(self, comment: str = "", major: bool = False) -> str:
        """Saves the edits as the next version, which is in use from then on, and returns its number."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_show_save(self.handle, int(major), c.encode(comment), text))
        return c.take_text(text)

    # Versions.

    @property
    def versions(self) -> List[Version]:
        """The saved versions, ascending."""
        count = ctypes.c_uint32()
        c.check(c.library.tavo_show_list_versions(self.handle, count))
        versions = []
        for index in range(count.value):
            info = c.VersionInfo()
            c.check(c.library.tavo_show_version_at(self.handle, index, info))
            saved_at = datetime.datetime.fromtimestamp(info.saved_at, datetime.timezone.utc)
            versions.append(Version(c.decode(info.version), c.decode(info.file), c.decode(info.by), saved_at,
                                    c.decode(info.comment), info.edit_count, info.unsaved_count,
                                    bool(info.is_in_use), c.decode(info.problem)))
        return versions

    def compare(self, before: Optional[str] = None, after: Optional[str] = None) -> List[str]:
        """What changed from one version to another, a line for each edit; None stands for the edits as they are now."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_show_compare(self.handle, c.encode(before), c.encode(after), text))
        return c.take_text(text).splitlines()

    def roll_back(self, version: str) -> None:
        """Makes the edits those of a saved version, as one step that can be undone."""
        c.check(c.library.tavo_show_roll_back(self.handle, c.encode(version)))
