"""The examples of both clients against a real process with simulated telephones: a call that survives what can become
of the process, and the Python client that waits.

usage: call_test.py PROCESS FXSLINE SOURCE CPP_EXAMPLE
"""

import cmath
import contextlib
import os
import queue
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest
import wave

PROCESS, FXSLINE, SOURCE, CPP_EXAMPLE = sys.argv[1:5]
PROCESS = os.environ.get("FXSMEDIA_PROCESS", PROCESS)
PYTHON = os.path.join(SOURCE, "client/python")
sys.path.insert(0, PYTHON)
import fxsmedia  # noqa: E402

PATIENCE = 60  # s


def free_port() -> int:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


class Program:
    """Runs until its owner ends; its lines can be waited for."""

    def __init__(self, owner: contextlib.ExitStack, *arguments: str, ends_with: int = signal.SIGKILL):
        environment = os.environ | {"PYTHONPATH": PYTHON}
        self.child = subprocess.Popen(arguments, stdout=subprocess.PIPE, text=True, env=environment)
        self.lines: queue.Queue[str] = queue.Queue()
        self.reader = threading.Thread(target=self._read)
        self.reader.start()
        owner.callback(self.end, ends_with)

    def _read(self) -> None:
        with self.child.stdout as out:
            for line in out:
                self.lines.put(line.rstrip("\n"))

    def expect(self, *wanted: str) -> None:
        """Waits for these lines, in any order; others may come between them."""
        missing, seen = set(wanted), []
        while missing:
            try:
                seen.append(self.lines.get(timeout=PATIENCE))
            except queue.Empty:
                raise AssertionError(f"{missing} is missing among {seen}") from None
            missing.discard(seen[-1])

    def end(self, number: int) -> int:
        if self.child.returncode is None:
            self.child.send_signal(number)
            self.child.wait()
            self.reader.join()
        return self.child.returncode


class Telephones:
    """Two simulated lines whose telephones each say a tone."""

    TONES = (440, 1000)

    def __init__(self, owner: contextlib.ExitStack):
        self.folder = owner.enter_context(tempfile.TemporaryDirectory())
        mount = os.path.join(self.folder, "lines")
        os.mkdir(mount)
        options = []
        for line, hertz in enumerate(self.TONES):
            options += ["--tone", f"{line}={hertz},-20", "--hear", f"{line}={self.folder}/{line}.wav"]
        self.program = Program(owner, FXSLINE, mount, *options, ends_with=signal.SIGTERM)
        self.path = os.path.join(mount, "sdt")
        while not os.path.exists(self.path + "0"):
            assert self.program.child.poll() is None

    def heard(self, line: int) -> list[int]:
        """Complete after the end of the program: blocks of 100 ms in which it heard the other's tone."""
        with wave.open(f"{self.folder}/{line}.wav") as file:
            data = file.readframes(file.getnframes())
        pcm = struct.unpack(f"<{len(data) // 2}h", data)
        turn = -2j * cmath.pi * self.TONES[1 - line] / 8000
        blocks = [pcm[at : at + 800] for at in range(0, len(pcm) - 799, 800)]
        levels = [abs(sum(x * cmath.exp(turn * n) for n, x in enumerate(block))) / 400 for block in blocks]
        return [at for at, level in enumerate(levels) if level > 1000]


class Examples(unittest.TestCase):
    def setUp(self):
        self.owner = self.enterContext(contextlib.ExitStack())
        self.port = free_port()

    def start_process(self, telephones: Telephones) -> Program:
        return Program(self.owner, PROCESS, "--debug", "--port", str(self.port), "--tdm", telephones.path)

    def stranger_sends(self, data: bytes) -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
            stranger.sendto(data, ("127.0.0.1", self.port))

    def keeps_a_call(self, *example: str) -> None:
        telephones = Telephones(self.owner)
        call_control = Program(self.owner, *example, str(self.port))
        process = self.start_process(telephones)
        audio = ("connected", "audio to line 0", "audio to line 1")
        call_control.expect("started", *audio)

        self.stranger_sends(bytes.fromhex("0000ffff"))  # promises 65535 bytes
        call_control.expect("lost")
        call_control.expect("resumed")
        self.stranger_sends(bytes.fromhex("00130000"))  # takes the session
        call_control.expect("resumed")
        process.child.send_signal(signal.SIGSTOP)
        call_control.expect("lost")
        process.child.send_signal(signal.SIGCONT)
        call_control.expect("resumed")

        process.end(signal.SIGKILL)  # and back before anybody misses a heartbeat
        process = self.start_process(telephones)
        call_control.expect("restarted", *audio)
        process.end(signal.SIGKILL)
        call_control.expect("lost, it has ended")
        process = self.start_process(telephones)
        call_control.expect("restarted", *audio)

        self.assertEqual(call_control.end(signal.SIGTERM), 0)
        telephones.program.end(signal.SIGTERM)
        self.assertIsNone(process.child.poll())
        for line in (0, 1):
            self.assertGreater(len(telephones.heard(line)), 20)

    def test_cpp(self):
        self.keeps_a_call(CPP_EXAMPLE)

    def test_asyncio(self):
        self.keeps_a_call(sys.executable, os.path.join(PYTHON, "examples/two_telephones.py"))

    def test_calls_that_wait(self):
        telephones = Telephones(self.owner)
        process = self.start_process(telephones)
        with fxsmedia.Client(self.port, wait=PATIENCE) as client:
            self.assertGreater(client.open(fxsmedia.OpenCommand(call=3)).rtp_port, 0)
            self.assertEqual(client.open(fxsmedia.OpenCommand(call=4, port_min=1, port_max=1)).rtp_port, 0)
            with self.assertRaises(fxsmedia.Unanswered):
                client.open(fxsmedia.OpenCommand(call=9))
            client.send(fxsmedia.LogLevelCommand(level=7), fxsmedia.TdmCommand(call=3, line=2))
            client.confirm()
            said = [client.next_event(0).text for _ in range(2)]
            self.assertEqual(said, [f"Open {telephones.path}2", "Set channel 3 for call 4"])
            process.end(signal.SIGKILL)
            with self.assertRaises(fxsmedia.Unanswered):
                client.confirm()
            while (lost := client.next_event(PATIENCE)) != fxsmedia.ProcessLost(refused=True):
                self.assertIsInstance(lost, fxsmedia.LogReport)
            with self.assertRaises(fxsmedia.NotConnected):
                client.confirm()
            process = self.start_process(telephones)
            self.assertEqual(client.next_event(PATIENCE), fxsmedia.ProcessRestarted())
            client.confirm()  # the log level is 7 again
            client.send(fxsmedia.TdmCommand(call=3))
            while client.next_event(PATIENCE).text != "Reset channel for call 4":
                pass


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
