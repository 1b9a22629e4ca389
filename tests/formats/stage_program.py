"""The host program, run for tests."""

import json
import os
import pathlib
import queue
import subprocess
import threading
import time

STAGE = os.environ.get('STAGE', 'build/release/bin/stage')
# Events come when they are heard; a machine that has other work to do is late.
PATIENCE = 60


def run(*words, stdin='', code=0):
    """What the program prints. Fails where it ends with another code."""
    ended = subprocess.run([STAGE, *map(str, words)], input=stdin, capture_output=True, text=True, timeout=PATIENCE)
    if ended.returncode != code:
        raise AssertionError(f'stage {" ".join(map(str, words))}: {ended.returncode}\n{ended.stdout}{ended.stderr}')
    return ended.stdout


def run_json(*words, code=0):
    return json.loads(run(*words, code=code))


class Headless:
    """`stage play --headless`, with all that it has printed."""

    def __init__(self, *words):
        self.child = subprocess.Popen([STAGE, 'play', *map(str, words), '--headless', '--beats'], text=True,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.events = []
        self.arrived = queue.Queue()
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.child.stdout:
            self.arrived.put(json.loads(line))
        self.arrived.put(None)

    def press(self, line):
        self.child.stdin.write(line + '\n')
        self.child.stdin.flush()

    def wait_for(self, event, **members):
        """The next event of this name with these members."""
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                found = self.arrived.get(timeout=max(0, deadline - time.monotonic()))
            except queue.Empty:
                found = None
            if found is None:
                last = '\n'.join(map(str, self.events[-20:]))
                raise AssertionError(f'{event} {members} did not come; the last were\n{last}')
            self.events.append(found)
            if found['event'] == event and all(found.get(name) == value for name, value in members.items()):
                return found

    def quit(self):
        self.press('quit')
        self.wait_for('end')
        self.end()

    def end(self):
        """Whatever state it is in."""
        if self.child.poll() is None:
            try:
                self.child.wait(PATIENCE if self.events and self.events[-1]['event'] == 'end' else 0)
            except subprocess.TimeoutExpired:
                self.child.kill()
                self.child.wait()
        self.reader.join()
        self.child.stdin.close()
        self.child.stdout.close()


def first_path(directory, pattern):
    return next(iter(sorted(pathlib.Path(directory).glob(pattern))))
