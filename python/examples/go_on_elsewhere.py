"""Takes the state of a performance in one player and goes on from it in another: go_on_elsewhere.py SHOW SONG SECONDS"""

import sys

import tavo


def play_on(player: tavo.Player, seconds: float) -> None:
    player.do("play")
    player.render(round(seconds * player.frames_per_second))


def main(path: str, number: str, seconds: str) -> None:
    with tavo.Player(path) as first:
        first.do(f"load {number}")
        play_on(first, float(seconds))
        state = first.take_state()
        print(f"the first is at {first.song.place_of(first.status.tick)}")
    # On another computer, after a crash, tomorrow.
    with tavo.Player(path) as second:
        second.put_state(state)
        play_on(second, 0.1)
        print(f"the second goes on at {second.song.place_of(second.status.tick)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
