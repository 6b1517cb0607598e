"""Call control of the media process fxsmedia, on the Python standard library.

docs/client.md shows whole programs, docs/control-protocol.md says what each command does.
"""

from ._session import (
    Confirmed,
    Event,
    NotConnected,
    ProcessLost,
    ProcessRestarted,
    ProcessResumed,
    SessionStarted,
    TimedOut,
)
from ._table import *
from ._wire import Choice, Command, Endpoint, Report, Undecodable, decode
from .client import AsyncClient, Client, Unanswered
