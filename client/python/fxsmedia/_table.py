"""Commands and reports of the control protocol, as lib/protocol.h has them.

docs/control-protocol.md says what they do. Printed by fxs_python_table: do not edit.
"""

from collections.abc import Sequence
from dataclasses import dataclass

from ._wire import Choice, Command, Endpoint, Kind, Report, field

CALL_COUNT = 8
NO_CALL = 8

# Name of each codec: number, usual RTP payload type.
CODECS = {
    "linear": Choice(0, 96),
    "pcmu": Choice(1, 0),
    "pcma": Choice(2, 8),
    "g729": Choice(3, 18),
    "gsm": Choice(4, 3),
    "g722": Choice(5, 9),
    "g726": Choice(6, 102),
    "telephone-event": Choice(7, 101),
}


@dataclass(frozen=True, kw_only=True)
class EndCommand(Command):
    """Command 4, end."""

    TAG = 4
    NAME = "end"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    ignored: int | None = field(21, Kind.NUMBER)  # 0 to 65535; 0 when absent


@dataclass(frozen=True, kw_only=True)
class LogLevelCommand(Command):
    """Command 7, log-level."""

    TAG = 7
    NAME = "log-level"
    level: int | Sequence[int] = field(1, Kind.NUMBER, repeats=True)  # 0 to 9


@dataclass(frozen=True, kw_only=True)
class SignalCommand(Command):
    """Command 8, signal."""

    TAG = 8
    NAME = "signal"
    data: bytes | Sequence[bytes] = field(15, Kind.DATA, repeats=True)


@dataclass(frozen=True, kw_only=True)
class DtmfCommand(Command):
    """Command 10, dtmf."""

    TAG = 10
    NAME = "dtmf"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    digit: int | None = field(19, Kind.NUMBER)  # 0 to 11; 0 when absent


@dataclass(frozen=True, kw_only=True)
class ResetBaseCommand(Command):
    """Command 11, reset-base."""

    TAG = 11
    NAME = "reset-base"
    command: int | None = field(27, Kind.NUMBER)  # 0 to 65535; 0 when absent


@dataclass(frozen=True, kw_only=True)
class PlayCommand(Command):
    """Command 12, play."""

    TAG = 12
    NAME = "play"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    kind: int | None = field(28, Kind.NUMBER)  # 1 to 4; 0 when absent
    set: int | None = field(29, Kind.NUMBER)  # 1 to 16; 0 when absent


@dataclass(frozen=True, kw_only=True)
class NtpOffsetCommand(Command):
    """Command 13, ntp-offset."""

    TAG = 13
    NAME = "ntp-offset"
    seconds: int | None = field(20, Kind.SIGNED_LONG)


@dataclass(frozen=True, kw_only=True)
class TunnelCommand(Command):
    """Command 15, tunnel."""

    TAG = 15
    NAME = "tunnel"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    to: Endpoint | None = field(5, Kind.ENDPOINT)
    rtp_data: bytes | None = field(13, Kind.DATA)
    rtcp_data: bytes | None = field(14, Kind.DATA)
    tcp: bool | None = field(34, Kind.FLAG)


@dataclass(frozen=True, kw_only=True)
class OpenCommand(Command):
    """Command 16, open."""

    TAG = 16
    NAME = "open"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    port_min: int | None = field(11, Kind.NUMBER)  # 0 to 65535; 49152 when absent
    port_max: int | None = field(12, Kind.NUMBER)  # 0 to 65535; 65536 when absent
    call_id: str | None = field(22, Kind.TEXT)
    tos: int | None = field(31, Kind.NUMBER)  # 0 to 255; 160 when absent


@dataclass(frozen=True, kw_only=True)
class MediaCommand(Command):
    """Command 17, media."""

    TAG = 17
    NAME = "media"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    send: Choice | None = field(6, Kind.CODEC_TO_SEND)  # makes its group apply
    map: Choice | Sequence[Choice] = field(16, Kind.CODEC_TO_MAP, repeats=True)  # makes its group apply
    ptime: int | None = field(17, Kind.NUMBER)  # 0 to 65535; 20 when absent; makes its group apply
    event_pt: int | None = field(19, Kind.BYTE)  # 0 to 127; 0 when absent; makes its group apply
    ssrc: bytes | None = field(33, Kind.DATA)
    rtp: Endpoint | None = field(5, Kind.ENDPOINT)  # makes its group apply
    rtcp: Endpoint | None = field(26, Kind.ENDPOINT)  # makes its group apply
    tcp: bool | None = field(34, Kind.FLAG)
    xr: str | None = field(21, Kind.TEXT)  # makes its group apply
    srtp_rx_key: bytes | None = field(23, Kind.SECRET)  # makes its group apply
    srtp_tx_key: bytes | None = field(24, Kind.SECRET)  # makes its group apply
    srtp_tag: int | None = field(25, Kind.BYTE)  # 0 to 20; 0 when absent; makes its group apply
    srtp_mki: bytes | None = field(30, Kind.DATA)  # makes its group apply


@dataclass(frozen=True, kw_only=True)
class TdmCommand(Command):
    """Command 18, tdm."""

    TAG = 18
    NAME = "tdm"
    call: int | None = field(4, Kind.NUMBER)  # 0 to 7; 8 when absent
    line: int | None = field(18, Kind.NUMBER)  # 0 to 3; 4 when absent


@dataclass(frozen=True, kw_only=True)
class SessionCommand(Command):
    """Command 19, session."""

    TAG = 19
    NAME = "session"


@dataclass(frozen=True, kw_only=True)
class DumpCommand(Command):
    """Command 20, dump."""

    TAG = 20
    NAME = "dump"


@dataclass(frozen=True, kw_only=True)
class LoopbackTestCommand(Command):
    """Command 21, loopback-test."""

    TAG = 21
    NAME = "loopback-test"


@dataclass(frozen=True, kw_only=True)
class LedCommand(Command):
    """Command 22, led."""

    TAG = 22
    NAME = "led"
    pattern: int | None = field(27, Kind.NUMBER)  # 0 to 3; 0 when absent


@dataclass(frozen=True, kw_only=True)
class LogReport(Report):
    """Report 2, log."""

    TAG = 2
    NAME = "log"
    level: int = field(1, Kind.NUMBER, required=True)  # 0 to 9
    text: str = field(2, Kind.TEXT, required=True)
    detail: str | None = field(3, Kind.TEXT)


@dataclass(frozen=True, kw_only=True)
class OpenReport(Report):
    """Report 6, open."""

    TAG = 6
    NAME = "open"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7
    rtp_port: int = field(13, Kind.NUMBER, required=True)  # 0 to 65535
    rtcp_port: int = field(14, Kind.NUMBER, required=True)  # 0 to 65535


@dataclass(frozen=True, kw_only=True)
class SignalReport(Report):
    """Report 8, signal."""

    TAG = 8
    NAME = "signal"
    data: bytes = field(2, Kind.DATA, required=True)


@dataclass(frozen=True, kw_only=True)
class ResetBaseReport(Report):
    """Report 11, reset-base."""

    TAG = 11
    NAME = "reset-base"
    command: int = field(27, Kind.NUMBER, required=True)  # 0 to 65535
    result: int = field(15, Kind.SIGNED_NUMBER, required=True)


@dataclass(frozen=True, kw_only=True)
class RtcpReport(Report):
    """Report 14, rtcp."""

    TAG = 14
    NAME = "rtcp"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7
    call_id: str = field(22, Kind.TEXT, required=True)
    received: bytes | None = field(9, Kind.DATA)
    sent: bytes | None = field(10, Kind.DATA)


@dataclass(frozen=True, kw_only=True)
class TunnelReport(Report):
    """Report 15, tunnel."""

    TAG = 15
    NAME = "tunnel"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7
    from_: Endpoint = field(5, Kind.ENDPOINT, required=True)
    rtp_data: bytes | None = field(13, Kind.DATA)
    rtcp_data: bytes | None = field(14, Kind.DATA)
    tcp: bool | None = field(34, Kind.FLAG)


@dataclass(frozen=True, kw_only=True)
class HeartbeatReport(Report):
    """Report 19, heartbeat."""

    TAG = 19
    NAME = "heartbeat"


@dataclass(frozen=True, kw_only=True)
class LoopbackReport(Report):
    """Report 21, loopback."""

    TAG = 21
    NAME = "loopback"
    found: bool = field(9, Kind.FLAG, required=True)


@dataclass(frozen=True, kw_only=True)
class ZrtpReport(Report):
    """Report 23, zrtp."""

    TAG = 23
    NAME = "zrtp"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7
    from_: Endpoint = field(5, Kind.ENDPOINT, required=True)
    data: bytes = field(13, Kind.DATA, required=True)


@dataclass(frozen=True, kw_only=True)
class NewSsrcReport(Report):
    """Report 24, new-ssrc."""

    TAG = 24
    NAME = "new-ssrc"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7
    from_: Endpoint = field(5, Kind.ENDPOINT, required=True)
    ssrc: bytes = field(32, Kind.DATA, required=True)


@dataclass(frozen=True, kw_only=True)
class DriverReport(Report):
    """Report 25, driver."""

    TAG = 25
    NAME = "driver"
    PLAIN_TEXT = True
    text: str = field(0, Kind.TEXT, required=True)


@dataclass(frozen=True, kw_only=True)
class SrtpVerifiedReport(Report):
    """Report 27, srtp-verified."""

    TAG = 27
    NAME = "srtp-verified"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7


@dataclass(frozen=True, kw_only=True)
class PlaybackEmptyReport(Report):
    """Report 28, playback-empty."""

    TAG = 28
    NAME = "playback-empty"
    call: int = field(4, Kind.NUMBER, required=True)  # 0 to 7


COMMANDS = {
    4: EndCommand,
    7: LogLevelCommand,
    8: SignalCommand,
    10: DtmfCommand,
    11: ResetBaseCommand,
    12: PlayCommand,
    13: NtpOffsetCommand,
    15: TunnelCommand,
    16: OpenCommand,
    17: MediaCommand,
    18: TdmCommand,
    19: SessionCommand,
    20: DumpCommand,
    21: LoopbackTestCommand,
    22: LedCommand,
}

REPORTS = {
    2: LogReport,
    6: OpenReport,
    8: SignalReport,
    11: ResetBaseReport,
    14: RtcpReport,
    15: TunnelReport,
    19: HeartbeatReport,
    21: LoopbackReport,
    23: ZrtpReport,
    24: NewSsrcReport,
    25: DriverReport,
    27: SrtpVerifiedReport,
    28: PlaybackEmptyReport,
}

__all__ = ["CALL_COUNT", "NO_CALL", "CODECS", "COMMANDS", "REPORTS"]
__all__ += [message.__name__ for message in (*COMMANDS.values(), *REPORTS.values())]
