"""Shows that follow the stage: read, edited, played and rendered from Python.

    import tavo

    with tavo.Player("myshow") as player:
        player.do("load 3")
        player.do("play")
        sound = player.render(48000)
        for event in player.events():
            print(event.name, event.tick)

It stands on libtavo (docs/c-api.md), which is found where the system finds libraries, or by TAVO_LIBRARY.
"""

from ._library import BadArgument, Busy, Closed, NotFound, Refused, TavoError, library as _c
from .player import Editing, Event, Motion, Player, Rendered, Status, as_pcm, render_songs
from .show import Bar, Edit, Show, Song, Version

__version__: str = _c.tavo_version().decode()

__all__ = [
    "BadArgument", "Bar", "Busy", "Closed", "Edit", "Editing", "Event", "Motion", "NotFound", "Player", "Refused",
    "Rendered", "Show", "Song", "Status", "TavoError", "Version", "as_pcm", "render_songs",
]
