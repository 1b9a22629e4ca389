"""Players: shows that are played, whose device and operator the caller is."""

import array
import ctypes
import enum
import os
from dataclasses import dataclass
from typing import Any, Dict, Iterator, List, Optional, Tuple

from . import _library as c
from .show import Path, Show, Song

try:
    import numpy
except ImportError:
    numpy = None  # type: ignore[assignment]


class Motion(enum.IntEnum):
    """What playback does at the moment."""

    NO_SONG = 0
    STOPPED = 1
    PAUSED = 2
    PLAYING = 3
    HOLDING = 4
    FADING = 5
    COUNTING_IN = 6


class Editing(enum.IntEnum):
    """What becomes of edits: forgotten with the player, kept in a journal until they are saved, or refused."""

    IN_MEMORY = 0
    KEPT = 1
    REFUSED = 2


@dataclass(frozen=True)
class Event:
    """One thing that playback did, or that a display shows anew. tavo.h and docs/c-api.md list the names."""

    name: str
    frame: int
    tick: int
    from_tick: int
    number: int
    text: str
    song: Optional[int]
    """Index among the show's songs."""

    @property
    def is_loop(self) -> bool:
        """A jump back at the end of a vamp or repeat."""
        return self.name == "jump" and self.number == 0


@dataclass(frozen=True)
class Status:
    """Where playback is."""

    motion: Motion
    song: Optional[int]
    tick: int
    frame: int
    beats_to_count_in: int
    transposition: int
    tempo_scale: float
    is_vamp_lamp_on: bool
    limited_frames: int


def _song(index: int) -> Optional[int]:
    return None if index == c.NO_SONG else index


class Player:
    """A show that is played: `render` makes the sound, `do` is the operator, `events` what happened. One in a process.

    A context manager: leaving it closes the player and its show. `offline` waits for sound files and plans as a render
    does; `press_guard` treats commands as a person's presses and refuses one that comes twice by mistake.
    """

    def __init__(self, path: Path, frames_per_second: int = 48000, *, offline: bool = True, click: bool = False,
                 click_everywhere: bool = False, editing: Editing = Editing.IN_MEMORY,
                 sound_font: Optional[Path] = None, version: Optional[str] = None,
                 press_guard: bool = False) -> None:
        self.handle = ctypes.c_void_p()
        self.frames_per_second = frames_per_second
        self._press_guard = press_guard
        flags = (1 if offline else 0) | (2 if click else 0) | (4 if click_everywhere else 0)
        options = c.PlayerOptions(ctypes.sizeof(c.PlayerOptions), frames_per_second, flags, int(editing),
                                  os.fsencode(sound_font) if sound_font else None, c.encode(version))
        c.check(c.library.tavo_player_open(os.fsencode(path), options, self.handle))
        show = ctypes.c_void_p()
        c.check(c.library.tavo_player_show(self.handle, show))
        self.show: Show = Show._of_player(show)
        """For reading and editing while it is played."""

    def close(self) -> None:
        """Closes the player and its show; twice does no harm."""
        if self.handle:
            handle, self.handle = self.handle, ctypes.c_void_p()
            c.check(c.library.tavo_player_close(handle))

    def __enter__(self) -> "Player":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "handle", None):
            c.library.tavo_player_close(self.handle)

    def do(self, line: str) -> None:
        """Does a command of the operator: "load 12a", "play", "exit", "seek 17:3", "tempo 90%". Raises Refused for what is
        not possible now, BadArgument for what is no command."""
        function = c.library.tavo_player_press if self._press_guard else c.library.tavo_player_command
        c.check(function(self.handle, c.encode(line)))

    def render(self, frames: int) -> Any:
        """The next frames of sound: a NumPy array of shape (frames, 2) in float32 where NumPy is there, otherwise a pair of
        arrays, left and right. Other threads of Python run meanwhile."""
        return self._render(frames, 1)[0]

    @property
    def pairs(self) -> List[str]:
        """Names of the stereo pairs by which the sound leaves: "main", "click", and each output group that has its own."""
        count = ctypes.c_uint32()
        c.check(c.library.tavo_player_pair_count(self.handle, count))
        name = ctypes.c_char_p()
        names: List[str] = []
        for index in range(count.value):
            c.check(c.library.tavo_player_pair_name(self.handle, index, name))
            names.append(c.decode(name.value))
        return names

    def render_pairs(self, frames: int) -> Dict[str, Any]:
        """The next frames of sound by each of `pairs`, as `render` gives those of the main one."""
        names = self.pairs
        return dict(zip(names, self._render(frames, len(names))))

    def _render(self, frames: int, count: int) -> List[Any]:
        if frames < 0 or frames >= c.NO_SONG:
            raise c.BadArgument("the number of frames is out of range")
        pairs = (c.Pair * count)()
        sounds: List[Any] = []
        for pair in pairs:
            if numpy is not None:
                sound = numpy.empty((2, frames), dtype=numpy.float32)
                pair.left, pair.right = (channel.ctypes.data for channel in sound)
                sounds.append(sound.T)
            else:
                left, right = (array.array("f", bytes(4 * frames)) for _ in range(2))
                pair.left, pair.right = left.buffer_info()[0], right.buffer_info()[0]
                sounds.append((left, right))
        # An empty array may have no address.
        if frames > 0:
            c.check(c.library.tavo_player_render_pairs(self.handle, pairs, count, frames))
        return sounds

    def events(self) -> Iterator[Event]:
        """What has happened since the last call, oldest first."""
        info = c.EventInfo()
        while True:
            result = c.library.tavo_player_next_event(self.handle, info)
            if result == c.END:
                return
            c.check(result)
            yield Event(c.library.tavo_event_name(info.kind).decode(), info.frame, info.tick, info.from_tick,
                        info.number, c.decode(info.text), _song(info.song))

    @property
    def status(self) -> Status:
        """Where playback is now."""
        info = c.StatusInfo()
        c.check(c.library.tavo_player_status(self.handle, info))
        return Status(Motion(info.motion), _song(info.song), info.tick, info.frame, info.beats_to_count_in,
                      info.transposition, info.tempo_scale, bool(info.is_vamp_lamp_on), info.limited_frames)

    @property
    def song(self) -> Optional[Song]:
        """The song that is loaded."""
        index = self.status.song
        return None if index is None else Song(self.show, index)

    @property
    def latency(self) -> int:
        """Frames by which the sound is later than the events of it."""
        frames = ctypes.c_uint32()
        c.check(c.library.tavo_player_latency(self.handle, frames))
        return frames.value

    def take_state(self) -> str:
        """All that decides how playback goes on from here, as one line of JSON."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_player_take_state(self.handle, text))
        return c.take_text(text)

    def put_state(self, state: str) -> None:
        """Puts playback where a state was taken; `do("play")` goes on."""
        c.check(c.library.tavo_player_put_state(self.handle, c.encode(state)))

    def left_edits(self) -> List[str]:
        """Edits that an earlier player kept and nobody saved; with Editing.KEPT they come before all others."""
        text = ctypes.c_void_p()
        c.check(c.library.tavo_player_left_edits(self.handle, text))
        return c.take_text(text).splitlines()

    def recover_edits(self) -> None:
        """Makes them again."""
        c.check(c.library.tavo_player_recover_edits(self.handle))

    def discard_edits(self) -> None:
        """Forgets them."""
        c.check(c.library.tavo_player_discard_edits(self.handle))


@dataclass(frozen=True)
class Rendered:
    """What `render_songs` made: the sound as `Player.render` gives it, the lines of the trace, and why it ended early."""

    sound: Any
    trace: List[str]
    remarks: List[str]


def render_songs(path: Path, first: str, last: Optional[str] = None, *, start: Optional[str] = None,
                 end: Optional[str] = None, script: Optional[str] = None, frames_per_second: int = 48000,
                 click: bool = False, sound_font: Optional[Path] = None) -> Rendered:
    """Plays songs with an operator, as `stage render` does and to the same sample; without a script an automatic one."""
    left, right = array.array("f"), array.array("f")
    trace: List[str] = []

    def on_sound(left_samples: Any, right_samples: Any, frames: int, _user: Any) -> int:
        left.frombytes(ctypes.string_at(left_samples, 4 * frames))
        right.frombytes(ctypes.string_at(right_samples, 4 * frames))
        return 0

    def on_trace(line: bytes, _user: Any) -> int:
        trace.append(c.decode(line))
        return 0

    options = c.RenderOptions(ctypes.sizeof(c.RenderOptions), frames_per_second, 2 if click else 0, c.encode(first),
                              c.encode(last), c.encode(start), c.encode(end), c.encode(script),
                              os.fsencode(sound_font) if sound_font else None, c.SoundCallback(on_sound),
                              c.TraceCallback(on_trace), None)
    text = ctypes.c_void_p()
    c.check(c.library.tavo_render(os.fsencode(path), options, text))
    return Rendered(_join(left, right), trace, c.take_text(text).splitlines())


def _join(left: "array.array[float]", right: "array.array[float]") -> Any:
    if numpy is None:
        return left, right
    return numpy.stack([numpy.frombuffer(left, numpy.float32), numpy.frombuffer(right, numpy.float32)], axis=1)


def as_pcm(sound: Any) -> bytes:
    """Sound of `render` as interleaved 16-bit samples, as the module `wave` of the standard library writes them."""
    left, right = _split(sound)
    samples = array.array("h", bytes(4 * len(left)))
    samples[0::2] = array.array("h", (_as_sample(value) for value in left))
    samples[1::2] = array.array("h", (_as_sample(value) for value in right))
    return samples.tobytes()


def _split(sound: Any) -> Tuple[Any, Any]:
    return sound if isinstance(sound, tuple) else (sound[:, 0].tolist(), sound[:, 1].tolist())


def _as_sample(value: float) -> int:
    return max(-32768, min(32767, round(value * 32767)))
