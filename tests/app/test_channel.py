"""The program driven over its message channel by the shipped client: the
started message, commands in, selection events out, frames that are too
long or not UTF-8, a folder open to others, and a dead listener."""

import os
import shutil
import socket
import stat
import struct
import subprocess
import tempfile
import time
import unittest

import quorvel_channel

EXE = os.environ["QUORVEL_EXE"]
SOURCE = os.environ["QUORVEL_SOURCE_DIR"]
BIN = os.path.dirname(EXE)


class ChannelTest(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp(prefix="channel-")
        for name in ("library", "logo.bmp", "Tarnwick.ico"):
            shutil.copy(os.path.join(BIN, name), self.work)
        shutil.copytree(os.path.join(BIN, "icons"), os.path.join(self.work, "icons"))
        shutil.copy(os.path.join(SOURCE, "samples", "orbit", "orbit.db"), self.work)
        self.runtime = os.path.join(self.work, "runtime")
        os.mkdir(self.runtime, 0o700)
        os.environ["XDG_RUNTIME_DIR"] = self.runtime
        self.env = dict(os.environ, QUORVEL_POPUPS="log")

    def tearDown(self):
        shutil.rmtree(self.work, ignore_errors=True)

    def log(self):
        with open(os.path.join(self.work, "Quorvel.log"), encoding="utf-8", errors="replace") as f:
            return f.read()

    def frame(self, pid, data):
        """Sends raw bytes and tells whether the program closed the
        connection instead of answering."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
            s.settimeout(10)
            s.connect(quorvel_channel.socket_path(pid))
            s.sendall(data)
            s.shutdown(socket.SHUT_WR)
            return s.recv(4) == b""

    def test_a_listener_starts_the_program_sends_commands_and_hears_the_selection(self):
        with quorvel_channel.Listener() as events:
            pid = events.start_program([EXE], cwd=self.work, env=self.env)
            self.assertEqual(pid, events.process.pid)
            path = quorvel_channel.socket_path(pid)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            self.assertEqual(stat.S_IMODE(os.stat(os.path.dirname(path)).st_mode), 0o700)
            events.send(pid, "ensureOpen('orbit.db')")
            events.send(pid, "enableEvents(True)")
            events.send(pid, "selectNids([3])")
            heard = []
            deadline = time.time() + 30
            while "OnNodeSelectionChanged([3])" not in heard and time.time() < deadline:
                heard.append(events.next(timeout=30))
            self.assertIn("OnNodeSelectionChanged([3])", heard)

            # Bad frames close their connection; the program goes on.
            self.assertTrue(self.frame(pid, struct.pack("<I", 17 << 20)))
            self.assertTrue(self.frame(pid, struct.pack("<I", 10) + b"short"))
            self.assertTrue(self.frame(pid, struct.pack("<I", 2) + b"\xff\xfe"))
            self.assertEqual(quorvel_channel.send(pid, ""), 0)
            events.send(pid, "exit()")
            self.assertEqual(events.process.wait(timeout=60), 0)
            self.assertFalse(os.path.exists(path), "the socket goes with the program")
        log = self.log()
        self.assertIn("Listening to incoming messages", log)
        self.assertIn("Recv command: 'selectNids([3])'", log)
        self.assertIn("is too long", log)
        self.assertIn("ended early", log)
        self.assertIn("not UTF-8", log)
        self.assertIn("No such command", log)

    def test_no_peer_can_stall_the_channel(self):
        with quorvel_channel.Listener() as events:
            pid = events.start_program([EXE], cwd=self.work, env=self.env)
            path = quorvel_channel.socket_path(pid)
            silent = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            silent.connect(path)
            half = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            half.connect(path)
            half.sendall(struct.pack("<I", 100) + b"only a part")
            # While both hold their connections, another peer is served at once.
            started = time.time()
            self.assertEqual(quorvel_channel.send(pid, "enableEvents(True)", timeout=5), 0)
            self.assertLess(time.time() - started, 1.0)

            # 200 idle peers do not keep a new one out.
            idle = []
            for _ in range(200):
                s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
                s.settimeout(5)
                s.connect(path)
                idle.append(s)
            started = time.time()
            self.assertEqual(quorvel_channel.send(pid, "ensureOpen('orbit.db')", timeout=5), 0)
            self.assertLess(time.time() - started, 1.0)

            # The half frame is given up within its 5 s, and its command never runs.
            half.settimeout(10)
            self.assertEqual(half.recv(4), b"", "the program closes a frame that does not come whole")
            for s in idle + [silent, half]:
                s.close()
            events.send(pid, "selectNids([3])")
            deadline = time.time() + 30
            heard = []
            while "OnNodeSelectionChanged([3])" not in heard and time.time() < deadline:
                heard.append(events.next(timeout=30))
            self.assertIn("OnNodeSelectionChanged([3])", heard)
            events.send(pid, "exit()")
            self.assertEqual(events.process.wait(timeout=60), 0)
        self.assertNotIn("Recv command: 'only a part", self.log())

    def test_a_listener_that_never_accepts_does_not_hold_up_the_start(self):
        # A listener whose queue is full: connect would wait for ever.
        folder = quorvel_channel.channel_folder()
        os.makedirs(folder, mode=0o700, exist_ok=True)
        deaf = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        deaf.bind(quorvel_channel.socket_path(7))
        deaf.listen(0)
        fillers = []
        for _ in range(4):
            s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            s.setblocking(False)
            try:
                s.connect(quorvel_channel.socket_path(7))
            except OSError:
                s.close()
                break
            fillers.append(s)
        script = os.path.join(self.work, "quit.qvscript")
        with open(script, "w") as f:
            f.write("exit()\n")
        started = time.time()
        r = subprocess.run([EXE, "-l", "1", "-s", "7", "-r", script], cwd=self.work, env=self.env, timeout=120)
        self.assertEqual(r.returncode, 0)
        self.assertLess(time.time() - started, 60)
        self.assertIn("Error while sending message 'OnQuorvelStarted(", self.log())
        for s in fillers + [deaf]:
            s.close()

    def test_the_client_refuses_a_folder_open_to_others(self):
        folder = quorvel_channel.channel_folder()
        os.makedirs(folder, mode=0o700, exist_ok=True)
        os.chmod(folder, 0o755)
        with self.assertRaises(PermissionError):
            quorvel_channel.send(1, "exit()")
        with self.assertRaises(PermissionError):
            quorvel_channel.Listener()

    def test_a_dead_listener_and_a_folder_open_to_others_are_logged_and_the_program_goes_on(self):
        script = os.path.join(self.work, "quit.qvscript")
        with open(script, "w") as f:
            f.write("exit()\n")
        # Nobody listens under 1: the started message fails with its cause.
        r = subprocess.run([EXE, "-l", "1", "-s", "1", "-r", script], cwd=self.work, env=self.env, timeout=120)
        self.assertEqual(r.returncode, 0)
        self.assertIn("Error while sending message 'OnQuorvelStarted(", self.log())
        self.assertIn("to 1: no listener", self.log())

        os.chmod(os.path.join(self.runtime, "quorvel"), 0o755)
        r = subprocess.run([EXE, "-l", "1", "-r", script], cwd=self.work, env=self.env, timeout=120)
        self.assertEqual(r.returncode, 0)
        self.assertIn("Could not start listening server: '", self.log())
        self.assertIn("is open to other users", self.log())

        # The command line tells a missing listener apart.
        send = subprocess.run([os.path.join(BIN, "quorvel-send"), "1", "exit()"], capture_output=True, text=True)
        self.assertEqual(send.returncode, 1)
        self.assertIn("quorvel-send:", send.stderr)


if __name__ == "__main__":
    unittest.main()
