"""Clients of the process: Client waits in its calls, AsyncClient in asyncio's loop."""

import asyncio
import collections
import select
import socket
import time
from typing import AsyncIterator, Iterator

from . import _table as table
from ._session import Confirmed, Event, NotConnected, ProcessLost, Session, SessionStarted, TimedOut
from ._wire import Command

ZEROS = bytes(32770)


class Unanswered(TimeoutError):
    """The process did not answer a request in time, or was lost or restarted meanwhile."""


class _Link:
    """A session on a socket of any free port, which never waits."""

    def __init__(self, port: int, host: str, **settings):
        self.remote = (host, port)
        self.socket = self._connected_socket()
        self.session = Session(time.monotonic(), **settings)
        self.flush()

    def _connected_socket(self) -> socket.socket:
        one = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        one.setblocking(False)
        one.connect(self.remote)
        return one

    def serve(self) -> None:
        """Takes what is there and does what is due."""
        while True:
            try:
                self.session.receive(self.socket.recv(65536), time.monotonic())
            except BlockingIOError:
                break
            except ConnectionRefusedError:
                self.session.refuse()
        self.session.pass_time(time.monotonic())
        self.flush()

    def flush(self) -> None:
        outgoing = self.session.outgoing
        while outgoing:
            one = outgoing.popleft()
            if isinstance(one, bytes):
                self._send(self.socket, one)
                continue
            with self._connected_socket() as stranger:
                for begin in range(0, one, len(ZEROS)):
                    self._send(stranger, ZEROS[: one - begin])

    def _send(self, through: socket.socket, datagram: bytes) -> None:
        for _ in range(2):  # the kernel tells with it what became of an earlier one; this one was not sent then
            try:
                through.send(datagram)
                return
            except ConnectionRefusedError:
                if through is self.socket:
                    self.session.refuse()
            except BlockingIOError:
                return

    def send(self, *commands: Command) -> None:
        self.session.send(commands, time.monotonic())
        self.flush()

    def confirm(self, token: int) -> None:
        self.session.confirm(token, time.monotonic())
        self.flush()


def _request_of(event: Event) -> tuple[int, int] | None:
    """Which request an event answers: a tag and the call or token."""
    match event:
        case table.OpenReport():
            return table.OpenCommand.TAG, event.call
        case Confirmed():
            return table.SessionCommand.TAG, event.token
        case TimedOut():
            return event.tag, event.id
    return None


def _open_request(command: table.OpenCommand) -> tuple[int, int]:
    return table.OpenCommand.TAG, command.call if command.call in range(table.CALL_COUNT) else table.NO_CALL


def _unanswered(event: TimedOut) -> Unanswered:
    return Unanswered(f"opening of call {event.id}" if event.tag == table.OpenCommand.TAG else "confirmation")


class Client:
    """Waits in its calls. For one thread.

    >>> with Client(port=1300) as client:
    ...     ports = client.open(OpenCommand(call=0))
    ...     client.send(TdmCommand(call=0, line=0))
    ...     client.confirm()
    ...     for event in client:
    ...         print(event)
    """

    def __init__(self, port: int, host: str = "127.0.0.1", *, wait: float | None = 5.0, **settings):
        """`port`: the process's control port. Waits until it answers, for `wait` seconds (None: for ever); then raises
        NotConnected. Settings: log_level=0, answer_timeout=1.0 (s), resync=True."""
        self._link = _Link(port, host, **settings)
        self._kept: collections.deque[Event] = collections.deque()
        self._tokens = 0
        deadline = None if wait is None else time.monotonic() + wait
        try:
            while not isinstance(event := self._next(deadline), SessionStarted):
                if event is None:
                    raise NotConnected(f"no answer from {host}:{port}")
        except BaseException:
            self.close()
            raise

    def __enter__(self) -> "Client":
        return self

    def __exit__(self, *_) -> None:
        self.close()

    def close(self) -> None:
        """Leaves the calls in the process as they are."""
        self._link.socket.close()

    def fileno(self) -> int:
        """For select(); then ask next_event(0)."""
        return self._link.socket.fileno()

    def send(self, *commands: Command) -> None:
        """In one datagram; only OpenCommand is answered. Raises NotConnected, and ValueError for what cannot be
        written."""
        self._link.send(*commands)

    def open(self, command: table.OpenCommand) -> table.OpenReport:
        """Opens a call and returns its ports; 0 means that none could be bound. Raises NotConnected or Unanswered."""
        self._link.send(command)
        return self._answer(_open_request(command))

    def confirm(self) -> None:
        """Returns when the process has carried out everything sent so far. Raises NotConnected or Unanswered."""
        self._tokens += 1
        self._link.confirm(self._tokens)
        self._answer((table.SessionCommand.TAG, self._tokens))

    def next_event(self, timeout: float | None = None) -> Event | None:
        """What happened next, in order; None after `timeout` seconds (None: waits for ever)."""
        if self._kept:
            return self._kept.popleft()
        return self._next(None if timeout is None else time.monotonic() + timeout)

    def __iter__(self) -> Iterator[Event]:
        """Every event, for ever."""
        while (event := self.next_event()) is not None:
            yield event

    def _answer(self, request: tuple[int, int]):
        while _request_of(event := self._next(None)) != request:
            self._kept.append(event)
        if isinstance(event, TimedOut):
            raise _unanswered(event)
        return event

    def _next(self, deadline: float | None) -> Event | None:
        session = self._link.session
        while not session.events:
            now = time.monotonic()
            until = session.due() if deadline is None else min(session.due(), deadline)
            select.select([self._link.socket], [], [], max(0.0, until - now))
            self._link.serve()
            if deadline is not None and time.monotonic() >= deadline and not session.events:
                return None
        return session.events.popleft()


class AsyncClient:
    """The same for asyncio; for the thread of its loop. Several tasks may wait for answers, one for events.

    >>> async with AsyncClient(port=1300) as client:
    ...     ports = await client.open(OpenCommand(call=0))
    ...     async for event in client:
    ...         print(event)
    """

    def __init__(self, port: int, host: str = "127.0.0.1", *, wait: float | None = 5.0, **settings):
        """As Client; __aenter__ waits."""
        self._where, self._settings, self._wait = (port, host), settings, wait
        self._events: asyncio.Queue[Event] = asyncio.Queue()
        self._waiting: dict[tuple[int, int], asyncio.Future] = {}
        self._timer: asyncio.TimerHandle | None = None
        self._tokens = 0

    async def __aenter__(self) -> "AsyncClient":
        self._link = _Link(*self._where, **self._settings)
        self._loop = asyncio.get_running_loop()
        self._loop.add_reader(self._link.socket, self._serve)
        self._plan()
        try:
            async with asyncio.timeout(self._wait):
                while isinstance(await self._events.get(), ProcessLost):
                    pass
        except BaseException as error:
            self.close()
            if isinstance(error, TimeoutError):
                raise NotConnected(f"no answer from {self._where[1]}:{self._where[0]}") from None
            raise
        return self

    async def __aexit__(self, *_) -> None:
        self.close()

    def close(self) -> None:
        """Leaves the calls in the process as they are."""
        self._loop.remove_reader(self._link.socket)
        self._timer.cancel()
        self._link.socket.close()

    def send(self, *commands: Command) -> None:
        """As Client.send(); does not wait."""
        self._link.send(*commands)
        self._plan()

    async def open(self, command: table.OpenCommand) -> table.OpenReport:
        """As Client.open(); one task at a time for each call."""
        self.send(command)
        return await self._answer(_open_request(command))

    async def confirm(self) -> None:
        """As Client.confirm()."""
        self._tokens += 1
        self._link.confirm(self._tokens)
        self._plan()
        await self._answer((table.SessionCommand.TAG, self._tokens))

    async def next_event(self) -> Event:
        """What happened next, in order."""
        return await self._events.get()

    async def __aiter__(self) -> AsyncIterator[Event]:
        """Every event, for ever."""
        while True:
            yield await self._events.get()

    async def _answer(self, request: tuple[int, int]):
        self._waiting[request] = self._loop.create_future()
        event = await self._waiting[request]
        if isinstance(event, TimedOut):
            raise _unanswered(event)
        return event

    def _serve(self) -> None:
        self._link.serve()
        events = self._link.session.events
        while events:
            event = events.popleft()
            future = self._waiting.pop(_request_of(event), None)
            if future is None:
                self._events.put_nowait(event)
            elif not future.done():
                future.set_result(event)
        self._plan()

    def _plan(self) -> None:
        """Has the loop call when something is due: now, when there are events that nobody has taken."""
        if self._timer is not None:
            self._timer.cancel()
        session = self._link.session
        left = 0.0 if session.events else max(0.0, session.due() - time.monotonic())
        self._timer = self._loop.call_later(left, self._serve)
