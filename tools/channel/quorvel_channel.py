"""Talk to a running Quorvel Workbench over its message channel.

A program started with ``-l 1`` listens at ``<dir>/<pid>.sock``; with
``-s N`` it sends its event messages to ``<dir>/<N>.sock``. A message is a
4-byte little-endian length and that many bytes of UTF-8; the receiver
answers each with a 4-byte little-endian signed result, 0 when taken.

    from quorvel_channel import Listener
    with Listener() as events:
        pid = events.start_program(["/path/to/quorvel"], cwd="/path/to/bin")
        events.send(pid, "ensureOpen('x.db')")
        events.send(pid, "selectNids([3])")
        print(events.next(timeout=10))   # OnNodeSelectionChanged([3])
"""

import os
import queue
import socket
import stat
import struct
import subprocess
import threading

MAX_MESSAGE = 16 << 20


def channel_folder():
    runtime = os.environ.get("XDG_RUNTIME_DIR")
    if runtime:
        return os.path.join(runtime, "quorvel")
    return "/tmp/quorvel-%d" % os.getuid()


def check_folder(folder):
    """Refuses, as the program does, a folder of sockets that another user
    owns or that others may enter: raises PermissionError."""
    st = os.lstat(folder)
    if not stat.S_ISDIR(st.st_mode):
        raise PermissionError("%s is not a folder" % folder)
    if st.st_uid != os.getuid():
        raise PermissionError("%s belongs to another user" % folder)
    if stat.S_IMODE(st.st_mode) & 0o077:
        raise PermissionError("%s is open to other users" % folder)


def socket_path(number):
    return os.path.join(channel_folder(), "%d.sock" % number)


def _read_exactly(conn, n):
    data = b""
    while len(data) < n:
        part = conn.recv(n - len(data))
        if not part:
            return None
        data += part
    return data


def send(number, message, timeout=5.0):
    """Sends one message to the end listening under `number` and gives its
    result; raises OSError when nobody listens there or nobody answers."""
    data = message.encode("utf-8")
    check_folder(channel_folder())
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
        s.settimeout(timeout)
        s.connect(socket_path(number))
        s.sendall(struct.pack("<I", len(data)) + data)
        answer = _read_exactly(s, 4)
        if answer is None:
            raise OSError("connection closed before the answer")
        return struct.unpack("<i", answer)[0]


class Listener:
    """Listens under its own number (its process id unless given) and keeps
    what arrives, in order, for `next` and iteration."""

    def __init__(self, number=None):
        self.number = os.getpid() if number is None else number
        folder = channel_folder()
        os.makedirs(folder, mode=0o700, exist_ok=True)
        check_folder(folder)
        self.path = socket_path(self.number)
        if os.path.exists(self.path):
            os.unlink(self.path)
        self._server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._server.bind(self.path)
        os.chmod(self.path, 0o600)
        self._server.listen(socket.SOMAXCONN)
        self._messages = queue.Queue()
        self._closed = False
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()
        self.process = None

    def _serve(self):
        while not self._closed:
            try:
                conn, _ = self._server.accept()
            except OSError:
                return
            threading.Thread(target=self._converse, args=(conn,), daemon=True).start()

    def _converse(self, conn):
        with conn:
            while True:
                head = _read_exactly(conn, 4)
                if head is None:
                    return
                (n,) = struct.unpack("<I", head)
                if n > MAX_MESSAGE:
                    return
                data = _read_exactly(conn, n) if n else b""
                if data is None:
                    return
                self._messages.put(data.decode("utf-8", "replace"))
                conn.sendall(struct.pack("<i", 0))

    def start_program(self, command, cwd=None, env=None, timeout=30.0):
        """Starts the program (a list: executable and arguments) listening
        and talking to this listener; gives its number from the started
        message."""
        self.process = subprocess.Popen(list(command) + ["-l", "1", "-s", str(self.number)], cwd=cwd, env=env)
        while True:
            message = self.next(timeout=timeout)
            if message.startswith("OnQuorvelStarted(") and message.endswith(")"):
                return int(message[len("OnQuorvelStarted("):-1])

    def send(self, number, message, timeout=5.0):
        result = send(number, message, timeout)
        if result != 0:
            raise OSError("message '%s' to %d: result %d" % (message, number, result))

    def next(self, timeout=None):
        """The next message; raises queue.Empty after `timeout` seconds."""
        return self._messages.get(timeout=timeout)

    def __iter__(self):
        while True:
            yield self.next()

    def close(self):
        self._closed = True
        try:
            self._server.close()
        finally:
            if os.path.exists(self.path):
                os.unlink(self.path)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
