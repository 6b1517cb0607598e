"""Both clients with a model of the process, under a clock of their own: the same random course of lost, late and stolen
answers, restarts and broken datagrams. They must send the same and tell the same, and what they tell must be true.

usage: session_test.py WORDS SOURCE
"""

import collections
import os
import random
import sys
import unittest

WORDS, SOURCE = sys.argv[1:3]
sys.path.insert(0, os.path.join(SOURCE, "client/python"))
sys.argv[1:] = [WORDS, "", SOURCE]  # as protocol_test takes them
import fxsmedia  # noqa: E402
from fxsmedia._session import Session  # noqa: E402
from protocol_test import SEED, Words, text_of  # noqa: E402

STEP = 125  # ms; exact in binary fractions of a second


class Process:
    """What the real one does with commands, as far as a session sees it."""

    def __init__(self):
        self.inbox = collections.deque()
        self.outbox = collections.deque()
        self.next_beat = 0
        self.mute = False
        self.restart()

    def restart(self) -> None:
        self.has_log = self.has_peer = False
        self.inbox.clear()
        self.handled = set()  # calls opened since the start

    def work(self, now: int) -> None:
        """Takes one datagram, and sends the heartbeat that is due."""
        if self.inbox and not self.mute:
            for command in fxsmedia.decode(self.inbox.popleft(), fxsmedia.COMMANDS):
                self.carry_out(command)
        elif self.inbox:
            self.inbox.popleft()
        if now >= self.next_beat:
            self.next_beat = now + 1000
            self.report(fxsmedia.HeartbeatReport())

    def carry_out(self, command) -> None:
        if isinstance(command, fxsmedia.SessionCommand):
            self.has_peer = True
            self.report(fxsmedia.HeartbeatReport())
        elif self.has_peer:
            match command:
                case fxsmedia.LogLevelCommand():
                    self.has_log = True
                case fxsmedia.PlayCommand(call=None) if self.has_log:
                    self.report(fxsmedia.LogReport(level=0, text="No playback channel found"))
                case fxsmedia.OpenCommand(call=call) if call < 8:
                    self.handled.add(call)
                    self.report(fxsmedia.OpenReport(call=call, rtp_port=2, rtcp_port=3))

    def report(self, report) -> None:
        if self.has_peer:
            self.outbox.append(report.encode())


class PythonClient:
    """The session of the Python client, driven as scripted_client.h drives the one in C++."""

    def __init__(self):
        self.now, self.refused, self.listening = 0, False, True
        self.session = Session(0.0)
        self.told = []

    def act(self, verb: str, argument: str = "") -> tuple[list[str], str]:
        """What was sent, and everything as the C++ client prints it."""
        session, seconds, said, self.told = self.session, self.now / 1000, "", []
        try:
            match verb:
                case "pass":
                    self.now += int(argument)
                    seconds = self.now / 1000
                case "open":
                    session.send((fxsmedia.OpenCommand(call=int(argument)),), seconds)
                case "confirm":
                    session.confirm(int(argument), seconds)
                case "answer":
                    session.receive(bytes.fromhex(argument[1:]), seconds)
                case "close" | "listen":
                    self.listening = verb == "listen"
        except fxsmedia.NotConnected:
            said = "refused "
        sent = self.flush()
        if verb not in ("close", "listen"):
            if self.refused:
                self.refused = False
                session.refuse()
            session.pass_time(seconds)
            sent += self.flush()
        while session.events:
            self.told.append(session.events.popleft())
            said += self.text(self.told[-1]) + " "
        said += "".join(f"{one} " for one in sent if self.listening)
        return sent if self.listening else [], said + f"due {max(0, round((session.due() - seconds) * 1000))}"

    def flush(self) -> list[str]:
        sent = []
        while self.session.outgoing:
            one = self.session.outgoing.popleft()
            if isinstance(one, int):
                sent += ["z32770"] * (one // 32770) + [f"z{one % 32770}"] * (one % 32770 > 0)
            else:
                sent.append("x" + one.hex())
                self.refused = self.refused or not self.listening
        return sent

    @staticmethod
    def text(event) -> str:
        match event:
            case fxsmedia.SessionStarted():
                return "started"
            case fxsmedia.ProcessLost(refused):
                return f"lost {int(refused)}"
            case fxsmedia.ProcessResumed():
                return "resumed"
            case fxsmedia.ProcessRestarted():
                return "restarted"
            case fxsmedia.Confirmed(token):
                return f"confirmed {token}"
            case fxsmedia.TimedOut(tag, id):
                return f"timed_out {tag} {id}"
        return text_of(event)


class Course:
    """One random course."""

    def __init__(self, dice: random.Random, words: Words):
        self.dice, self.words = dice, words
        self.process, self.client = Process(), PythonClient()
        self.forgotten = False  # the process has restarted and nobody has told
        self.opened = set()  # calls that must be open when a confirmation comes
        self.waiting = {}  # token: those opened before
        self.act("start")

    def act(self, *verb: str) -> None:
        sent, expected = self.client.act(*verb)
        told = self.words("client", *verb)
        assert told == expected, f"{verb}: C++ {told!r}, Python {expected!r}"
        for one in sent:
            if one.startswith("x"):
                self.process.inbox.append(bytes.fromhex(one[1:]))
            else:
                self.process.mute = False
        for event in self.client.told:
            self.check(event)

    def check(self, event) -> None:
        match event:
            case fxsmedia.SessionStarted() | fxsmedia.ProcessRestarted():
                assert self.forgotten or isinstance(event, fxsmedia.SessionStarted)
                self.forgotten = False
            case fxsmedia.ProcessResumed():
                assert not self.forgotten, "resumed after a restart"
            case fxsmedia.Confirmed(token):
                assert self.waiting.pop(token) <= self.process.handled, "confirmed too early"
            case fxsmedia.OpenReport(call=call) | fxsmedia.TimedOut(tag=16, id=call):
                self.opened.discard(call)
            case fxsmedia.TimedOut(tag=19, id=token):
                del self.waiting[token]
            case fxsmedia.LogReport():
                raise AssertionError("a question was shown")

    def ask(self) -> None:
        connected, number = self.client.session.connected, self.dice.randrange(1000)
        if self.dice.random() < 0.5:
            call = self.dice.randrange(8)
            self.act("open", str(call))
            if connected and call in self.client.session._open:
                self.opened.add(call)
        elif number not in self.waiting:
            if connected:
                self.waiting[number] = set(self.opened)
            self.act("confirm", str(number))

    def disturb(self) -> None:
        match self.dice.randrange(6):
            case 0:
                self.process.mute = self.process.has_peer
            case 1:
                self.process.has_peer = False  # somebody else has the session
            case 2 | 3:
                self.restart()
            case 4 if self.client.listening:
                self.act("close")
                self.restart()
            case _:
                self.run(self.dice.randrange(30), works=False)

    def restart(self) -> None:
        self.process.restart()
        self.process.mute = False
        self.forgotten = True

    def run(self, steps: int, works: bool = True) -> None:
        for _ in range(steps):
            for _ in range(20 if works and self.client.listening else 0):
                self.process.work(self.client.now)
                while self.process.outbox:
                    self.act("answer", "x" + self.process.outbox.popleft().hex())
            self.act("pass", str(STEP))


class Sessions(unittest.TestCase):
    def test_random_courses(self):
        words = Words()
        self.addCleanup(lambda: self.assertEqual(words.close(), 0))
        dice = random.Random(SEED)
        for number in range(60):
            course = Course(dice, words)
            with self.subTest(seed=SEED, course=number):
                for _ in range(40):
                    dice.choice((course.ask, course.ask, course.disturb, lambda: course.run(dice.randrange(12))))()
                if not course.client.listening:
                    course.act("listen")
                course.process.mute = dice.random() < 0.3
                course.run(15 * 8)
                self.assertTrue(course.client.session.connected)
                self.assertFalse(course.forgotten, "the restart was not noticed")
                self.assertFalse(course.waiting, "questions without an answer")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
