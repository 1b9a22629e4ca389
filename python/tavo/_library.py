"""The functions of libtavo as ctypes sees them; include/tavo/tavo.h says what they do."""

import ctypes
import ctypes.util
import os
import pathlib
from ctypes import (CFUNCTYPE, POINTER, Structure, c_char_p, c_double, c_float, c_int, c_int32, c_int64, c_size_t,
                    c_uint32, c_uint64, c_void_p)
from typing import Iterator, List, Optional

OK, END, REFUSED, FAILED, BAD_HANDLE, BAD_ARGUMENT, NOT_FOUND, BUSY, NO_MEMORY, INTERNAL = range(10)
NO_SONG = 0xFFFFFFFF


class ShowOptions(Structure):
    _fields_ = [("size", c_size_t), ("access", c_uint32), ("version", c_char_p)]


class SongInfo(Structure):
    _fields_ = [("number", c_char_p), ("title", c_char_p), ("start_tick", c_uint32), ("end_tick", c_uint32),
                ("ticks_per_quarter", c_uint32), ("bar_count", c_uint32), ("seconds", c_double),
                ("attacca", c_uint32)]


class BarInfo(Structure):
    _fields_ = [("label", c_char_p), ("start_tick", c_uint32), ("end_tick", c_uint32), ("seconds", c_double),
                ("meter_numerator", c_uint32), ("meter_denominator", c_uint32), ("quarters_per_minute", c_double)]


class EditInfo(Structure):
    _fields_ = [("id", c_uint32), ("start_tick", c_uint32), ("end_tick", c_uint32), ("kind", c_char_p),
                ("place", c_char_p), ("value", c_char_p)]


class VersionInfo(Structure):
    _fields_ = [("version", c_char_p), ("file", c_char_p), ("by", c_char_p), ("comment", c_char_p),
                ("problem", c_char_p), ("saved_at", c_int64), ("edit_count", c_uint32), ("unsaved_count", c_uint32),
                ("is_in_use", c_uint32)]


class PlayerOptions(Structure):
    _fields_ = [("size", c_size_t), ("frames_per_second", c_uint32), ("flags", c_uint32), ("editing", c_uint32),
                ("sound_font", c_char_p), ("version", c_char_p)]


class Pair(Structure):
    _fields_ = [("left", c_void_p), ("right", c_void_p)]


class StatusInfo(Structure):
    _fields_ = [("motion", c_uint32), ("song", c_uint32), ("tick", c_uint32), ("beats_to_count_in", c_uint32),
                ("frame", c_int64), ("transposition", c_int32), ("is_vamp_lamp_on", c_uint32),
                ("tempo_scale", c_double), ("limited_frames", c_uint64)]


class EventInfo(Structure):
    _fields_ = [("kind", c_uint32), ("tick", c_uint32), ("frame", c_int64), ("from_tick", c_uint32),
                ("number", c_int32), ("song", c_uint32), ("text", c_char_p)]


SoundCallback = CFUNCTYPE(c_int, POINTER(c_float), POINTER(c_float), c_uint32, c_void_p)
TraceCallback = CFUNCTYPE(c_int, c_char_p, c_void_p)


class RenderOptions(Structure):
    _fields_ = [("size", c_size_t), ("frames_per_second", c_uint32), ("flags", c_uint32), ("first_song", c_char_p),
                ("last_song", c_char_p), ("from_", c_char_p), ("to", c_char_p), ("script", c_char_p),
                ("sound_font", c_char_p), ("on_sound", SoundCallback), ("on_trace", TraceCallback),
                ("user", c_void_p)]


_HANDLE = c_void_p
_TEXT = POINTER(c_void_p)  # text that tavo_free frees: c_char_p would lose its address

_FUNCTIONS = {
    "tavo_show_open": (c_char_p, POINTER(ShowOptions), POINTER(_HANDLE)),
    "tavo_show_close": (_HANDLE,),
    "tavo_show_title": (_HANDLE, POINTER(c_char_p)),
    "tavo_show_song_count": (_HANDLE, POINTER(c_uint32)),
    "tavo_show_song": (_HANDLE, c_uint32, POINTER(SongInfo)),
    "tavo_show_find_song": (_HANDLE, c_char_p, POINTER(c_uint32)),
    "tavo_show_bar": (_HANDLE, c_uint32, c_uint32, POINTER(BarInfo)),
    "tavo_show_find_place": (_HANDLE, c_uint32, c_char_p, POINTER(c_uint32)),
    "tavo_show_describe_tick": (_HANDLE, c_uint32, c_uint32, _TEXT),
    "tavo_show_seconds": (_HANDLE, c_uint32, c_uint32, POINTER(c_double)),
    "tavo_show_list_edits": (_HANDLE, c_uint32, POINTER(c_uint32)),
    "tavo_show_edit_at": (_HANDLE, c_uint32, POINTER(EditInfo)),
    "tavo_show_warnings": (_HANDLE, _TEXT),
    "tavo_show_do_edit": (_HANDLE, c_char_p),
    "tavo_show_undo": (_HANDLE, _TEXT),
    "tavo_show_redo": (_HANDLE, _TEXT),
    "tavo_show_save": (_HANDLE, c_uint32, c_char_p, _TEXT),
    "tavo_show_list_versions": (_HANDLE, POINTER(c_uint32)),
    "tavo_show_version_at": (_HANDLE, c_uint32, POINTER(VersionInfo)),
    "tavo_show_compare": (_HANDLE, c_char_p, c_char_p, _TEXT),
    "tavo_show_roll_back": (_HANDLE, c_char_p),
    "tavo_player_open": (c_char_p, POINTER(PlayerOptions), POINTER(_HANDLE)),
    "tavo_player_close": (_HANDLE,),
    "tavo_player_show": (_HANDLE, POINTER(_HANDLE)),
    "tavo_player_command": (_HANDLE, c_char_p),
    "tavo_player_press": (_HANDLE, c_char_p),
    "tavo_player_pair_count": (_HANDLE, POINTER(c_uint32)),
    "tavo_player_pair_name": (_HANDLE, c_uint32, POINTER(c_char_p)),
    "tavo_player_render_pairs": (_HANDLE, POINTER(Pair), c_uint32, c_uint32),
    "tavo_player_latency": (_HANDLE, POINTER(c_uint32)),
    "tavo_player_status": (_HANDLE, POINTER(StatusInfo)),
    "tavo_player_next_event": (_HANDLE, POINTER(EventInfo)),
    "tavo_player_take_state": (_HANDLE, _TEXT),
    "tavo_player_put_state": (_HANDLE, c_char_p),
    "tavo_player_left_edits": (_HANDLE, _TEXT),
    "tavo_player_recover_edits": (_HANDLE,),
    "tavo_player_discard_edits": (_HANDLE,),
    "tavo_render": (c_char_p, POINTER(RenderOptions), _TEXT),
}


def _places() -> Iterator[str]:
    """Where the library may be: what TAVO_LIBRARY says, beside the package, where the system finds libraries."""
    if chosen := os.environ.get("TAVO_LIBRARY"):
        yield chosen
        return
    yield from (str(path) for path in sorted(pathlib.Path(__file__).parent.glob("libtavo.so*")))
    if found := ctypes.util.find_library("tavo"):
        yield found
    yield "libtavo.so.0"


def _load() -> ctypes.CDLL:
    problems: List[str] = []
    for place in _places():
        try:
            library = ctypes.CDLL(place)
        except OSError as problem:
            problems.append(str(problem))
            continue
        for name, arguments in _FUNCTIONS.items():
            function = getattr(library, name)
            function.argtypes = arguments
            function.restype = c_int32
        library.tavo_version.restype = c_char_p
        library.tavo_last_error.restype = c_char_p
        library.tavo_result_name.restype = c_char_p
        library.tavo_result_name.argtypes = (c_int32,)
        library.tavo_event_name.restype = c_char_p
        library.tavo_event_name.argtypes = (c_uint32,)
        library.tavo_free.restype = None
        library.tavo_free.argtypes = (c_void_p,)
        return library
    raise ImportError("libtavo cannot be loaded: install it, or set TAVO_LIBRARY to its path: " + "; ".join(problems))


library = _load()


class TavoError(Exception):
    """What the library refuses or cannot do, in one sentence."""


class Refused(TavoError):
    """A command that is not possible at this moment: nothing was done."""


class NotFound(TavoError, LookupError):
    """There is no such song, bar, place, version or file."""


class Busy(TavoError):
    """In use by another call, another player or another program."""


class BadArgument(TavoError, ValueError):
    """A number out of its range, or words that mean nothing."""


class Closed(TavoError):
    """The show or player was closed before."""


_ERRORS = {REFUSED: Refused, NOT_FOUND: NotFound, BUSY: Busy, BAD_ARGUMENT: BadArgument, BAD_HANDLE: Closed}


def check(result: int) -> None:
    """Raises the error of a call that failed."""
    if result == OK:
        return
    if result == NO_MEMORY:
        raise MemoryError
    raise _ERRORS.get(result, TavoError)(library.tavo_last_error().decode())


def encode(text: Optional[str]) -> Optional[bytes]:
    """For a parameter in UTF-8; a null byte would end it early."""
    if text is None:
        return None
    if "\0" in text:
        raise BadArgument("text for the library must not have a null character in it")
    return text.encode()


def decode(text: Optional[bytes]) -> str:
    """Text of a show; what is no UTF-8 in it is marked."""
    return (text or b"").decode(errors="replace")


def take_text(pointer: c_void_p) -> str:
    """Text that was given to the caller, which is freed."""
    try:
        return decode(ctypes.cast(pointer, c_char_p).value)
    finally:
        library.tavo_free(pointer)
