"""The session with a process, without socket and clock: what is to be sent when, and what happened.

**How a restart is noticed.** A restarted process knows only the peer of its command line, so for this client's socket
it falls silent, and it has forgotten the log level. After 2 s without a heartbeat the session is taken again. Then,
with every confirm() and every 5 s, the session asks: a play command without a call, the log level, the same play
command again, session. The process answers each play command with a log line of level 0, but a restarted one only the
second: two lines before the empty answer say that all is well, one that everything is forgotten, none that somebody
else has taken the session meanwhile. Nobody else sees these lines.

**How a mute process is cured.** A datagram with a wrong length, from anyone, makes the process wait for the bytes that
were promised, while its heartbeats go on. Zeros supply them, from a socket that is not the peer, so that what they
complete is dropped. They do no harm to a process that is only busy. docs/control-protocol.md and client.h say more.
"""

import collections
from dataclasses import dataclass

from . import _table as table
from ._wire import Command, Report, Undecodable, decode

RETRY = 0.25  # s
SILENCE = 2.0  # two heartbeats
CHECK = 5.0
ZERO_RUNS = (65540, 0x1305, 0x1305, 0x1305)  # bytes
ECHO = "No playback channel found"


@dataclass(frozen=True)
class SessionStarted:
    """The process answers for the first time: open the calls."""


@dataclass(frozen=True)
class ProcessLost:
    """The process does not answer, now or from the beginning. Nothing can be sent until one of the two next comes."""

    refused: bool  #: nothing listens on its port: it has ended


@dataclass(frozen=True)
class ProcessResumed:
    """It answers again, or sends to this client again, and has kept its calls. Reports may have been missed."""


@dataclass(frozen=True)
class ProcessRestarted:
    """It has started anew and knows no calls any more: open them again."""


@dataclass(frozen=True)
class Confirmed:
    """The process has carried out everything that was sent before confirm(token)."""

    token: int


@dataclass(frozen=True)
class TimedOut:
    """No answer in time, or the process was lost or restarted meanwhile: to OpenCommand.TAG of call `id`, or to
    SessionCommand.TAG, which is confirm(), with the token `id`."""

    tag: int
    id: int


Event = SessionStarted | ProcessLost | ProcessResumed | ProcessRestarted | Confirmed | TimedOut | Report | Undecodable


class NotConnected(ConnectionError):
    """Nothing can be sent: the process does not answer."""


class Session:
    """Times are seconds of any clock that does not jump. Send what stands in `outgoing`, in order; a number stands for
    so many zeros from a socket of their own. Take the events."""

    def __init__(self, now: float, *, log_level: int = 0, answer_timeout: float = 1.0, resync: bool = True):
        """A process that takes longer than `answer_timeout` counts as lost."""
        self.outgoing: collections.deque[bytes | int] = collections.deque()
        self.events: collections.deque[Event] = collections.deque()
        self.connected = False
        self._log_level = log_level
        self._timeout = answer_timeout
        self._runs = ZERO_RUNS if resync else ()
        self._known = self._told_lost = self._refused = False
        self._echoes = 0
        self._ask_due: float | None = None  # a question is open
        self._tokens: list[int] = []
        self._asked_tokens = 0  # the first so many are in the question that is open
        self._open: dict[int, float] = {}  # call: due
        self._run = self._answers = 0
        self._last_heard = self._last_asked = now
        self._search(now, answer_timeout)

    def send(self, commands: tuple[Command, ...], now: float) -> None:
        """In one datagram. Raises NotConnected, and ValueError for what cannot be written."""
        if not self.connected:
            raise NotConnected("the process does not answer")
        for command in commands:
            if isinstance(command, table.PlayCommand) and command.call not in range(table.CALL_COUNT):
                raise ValueError("PlayCommand.call: would be answered as a question is")  # see _ask
        self.outgoing.append(b"".join(command.encode() for command in commands))
        for command in commands:
            if isinstance(command, table.OpenCommand):
                call = command.call if command.call in range(table.CALL_COUNT) else table.NO_CALL
                self._open[call] = now + self._timeout
            elif isinstance(command, table.LogLevelCommand) and command.level:
                self._log_level = command.level[-1]

    def confirm(self, token: int, now: float) -> None:
        """Raises NotConnected."""
        if not self.connected:
            raise NotConnected("the process does not answer")
        self._tokens.append(token)
        if self._ask_due is None:
            self._ask(now)

    def receive(self, datagram: bytes, now: float) -> None:
        """A datagram has come from the process."""
        self._last_heard = now
        for report in decode(datagram, table.REPORTS):
            match report:
                case table.HeartbeatReport():
                    self._take_answer(now)
                    continue
                case table.LogReport(level=0, text=text) if text == ECHO:
                    self._echoes += 1
                    continue
                case table.OpenReport():
                    self._open.pop(report.call, None)
            if self.connected:
                self.events.append(report)

    def refuse(self) -> None:
        """Nothing listens where a datagram was sent to."""
        self._refused = True

    def due(self) -> float:
        """When to call pass_time()."""
        if self._refused:
            return self._last_heard
        times = [*self._open.values()]
        if self._ask_due is not None:
            times.append(self._ask_due)
        if self._state == "searching":
            times.append(self._next_try)
        elif self._state == "watching":
            times.append(self._last_heard + SILENCE)
        return min(times)

    def pass_time(self, now: float) -> None:
        """Does what is due."""
        for call in [call for call, due in sorted(self._open.items()) if due <= now]:
            del self._open[call]
            self.events.append(TimedOut(table.OpenCommand.TAG, call))
        if self._refused:
            self._refused = False
            if self._state != "searching":
                self._search(now, 0)
            self._run = 0
            self._next_run = now + self._timeout  # while there is no process, there is none to cure
            self._tell_lost(True)
        elif self._ask_due is not None and self._ask_due <= now:
            self._search(now, 0)
        elif self._state == "watching" and self._last_heard + SILENCE <= now:
            self._search(now, self._timeout)
        if self._state == "searching":
            self._search_on(now)

    def _ask(self, now: float) -> None:
        """For all tokens; not while a question is open: no answer tells which one it belongs to."""
        question, level = table.PlayCommand(), table.LogLevelCommand(level=self._log_level)
        self.outgoing.append(b"".join(one.encode() for one in (question, level, question, table.SessionCommand())))
        self._ask_due, self._asked_tokens = now + self._timeout, len(self._tokens)
        self._last_asked = now

    def _take_answer(self, now: float) -> None:
        echoes, self._echoes = self._echoes, 0
        if self._state == "searching":
            self._answers += 1
            if self._answers > 1:
                self._state = "asking"
                self._ask(now)
        elif echoes and self._ask_due is not None:
            self._conclude(now, remembers=echoes > 1)
        elif self._state == "watching" and self._ask_due is None and now - self._last_asked >= CHECK:
            self._ask(now)

    def _conclude(self, now: float, remembers: bool) -> None:
        self._ask_due = None
        if not remembers:
            self._forget_requests()
        if not self._known:
            self.events.append(SessionStarted())
        elif not remembers:
            self.events.append(ProcessRestarted())
        elif self._state == "asking":
            self.events.append(ProcessResumed())
        done, self._tokens = self._tokens[: self._asked_tokens], self._tokens[self._asked_tokens :]
        self.events.extend(Confirmed(token) for token in done)
        if self._tokens:
            self._ask(now)
        self._state = "watching"
        self._known = self.connected = True
        self._told_lost = False
        self._run = 0

    def _search(self, now: float, patience: float) -> None:
        """Without an answer for so long the process is lost."""
        self._forget_requests()
        self.connected = False
        self._state = "searching"
        self._next_try, self._next_run = now, now + patience

    def _search_on(self, now: float) -> None:
        if now >= self._next_run:
            self._tell_lost(False)
        if now < self._next_try:
            return
        if now >= self._next_run and self._run < len(self._runs):
            self.outgoing.append(self._runs[self._run])
            self._run += 1
            self._next_run = now + self._timeout
        self.outgoing.append(table.SessionCommand().encode() * 2)  # two answers at once are no heartbeats
        self._answers = 0
        self._next_try = now + RETRY

    def _tell_lost(self, refused: bool) -> None:
        if not self._told_lost:
            self._told_lost = True
            self.events.append(ProcessLost(refused))

    def _forget_requests(self) -> None:
        for token in self._tokens:
            self.events.append(TimedOut(table.SessionCommand.TAG, token))
        for call in sorted(self._open):
            self.events.append(TimedOut(table.OpenCommand.TAG, call))
        self._ask_due = None
        self._tokens, self._asked_tokens = [], 0
        self._open.clear()
