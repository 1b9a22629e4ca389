"""A client of the page's server, over its WebSocket and plain HTTP."""

import json
import queue
import threading
import time
import urllib.error
import urllib.request

import websocket

from stage_program import PATIENCE


class PageClient:
    def __init__(self, url):
        self.url = url
        self.socket = websocket.create_connection(url.replace('http', 'ws') + '/ws', timeout=PATIENCE)
        self.sent = []
        self.messages = []
        self.since = 0
        self.arrived = queue.Queue()
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        try:
            while text := self.socket.recv():
                self.arrived.put(json.loads(text))
        except (OSError, websocket.WebSocketException):
            pass
        self.arrived.put(None)

    def send(self, **message):
        self.sent.append(message)
        self.since = len(self.messages)
        self.socket.send(json.dumps(message))

    def wait_for(self, **members):
        """The first message with these members since the last one that was sent. Of what a press causes nothing comes
        first for certain."""
        fits = lambda message: all(message.get(name) == value for name, value in members.items())
        deadline = time.monotonic() + PATIENCE
        while True:
            if found := next(filter(fits, self.messages[self.since:]), None):
                return found
            try:
                message = self.arrived.get(timeout=max(0, deadline - time.monotonic()))
            except queue.Empty:
                message = None
            if message is None:
                raise AssertionError(f'no message {members}; the last were {self.messages[-10:]}')
            self.messages.append(message)

    def end(self):
        self.socket.close()
        self.reader.join()
        while not self.arrived.empty():
            if message := self.arrived.get():
                self.messages.append(message)

    def ask(self, path, body=None):
        """Status and answer of a GET, or of a POST where there is a body."""
        request = urllib.request.Request(self.url + path, None if body is None else json.dumps(body).encode(),
                                         {'Content-Type': 'application/json'})
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
                return answer.status, json.load(answer)
        except urllib.error.HTTPError as refusal:
            with refusal:
                return refusal.code, json.load(refusal)
