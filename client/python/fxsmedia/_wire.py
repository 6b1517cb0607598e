"""The bytes of the control protocol, for any message whose sub-fields are dataclass fields made by field().

A datagram is a sequence of elements: 2 bytes tag, 2 bytes length, value. The value of a message is such a sequence
again. Integers are big-endian.
"""

import dataclasses
import enum
import ipaddress
import struct
from typing import Any, ClassVar, Iterator, NamedTuple


class Kind(enum.Enum):
    """How the value of a sub-field is written."""

    NUMBER = ">H"
    SIGNED_NUMBER = ">h"
    FLAG = ">?"
    BYTE = ">B"
    SIGNED_LONG = ">i"
    TEXT = "text"
    DATA = "data"
    SECRET = "secret"
    ENDPOINT = "endpoint"
    CODEC_TO_SEND = "payload type, codec"
    CODEC_TO_MAP = "codec, payload type"


class Endpoint(NamedTuple):
    """An IP address, "192.0.2.1" or "2001:db8::1", and a port. No host names: the protocol carries none."""

    ip: str
    port: int


class Choice(NamedTuple):
    """A codec (see CODECS) and the RTP payload type that stands for it."""

    codec: int
    payload_type: int


def pack(kind: Kind, value: Any) -> bytes:
    """Raises ValueError for a value that does not fit into a sub-field of this kind."""
    try:
        match kind:
            case Kind.FLAG:
                return struct.pack(">H", bool(value))
            case Kind.TEXT:
                return value.encode(errors="surrogateescape")
            case Kind.DATA | Kind.SECRET:
                return bytes(value)
            case Kind.ENDPOINT:
                return struct.pack(">H", value[1]) + ipaddress.ip_address(value[0]).packed
            case Kind.CODEC_TO_SEND:
                return bytes((value[1], value[0]))
            case Kind.CODEC_TO_MAP:
                return bytes((value[0], value[1]))
            case _:
                return struct.pack(kind.value, value)
    except struct.error as error:
        raise ValueError(f"{value!r}: {error}") from None


def unpack(kind: Kind, data: bytes) -> Any:
    """Raises ValueError for bytes that no value of this kind has."""
    match kind:
        case Kind.TEXT:
            return data.decode(errors="surrogateescape")
        case Kind.DATA | Kind.SECRET:
            return data
        case Kind.ENDPOINT if len(data) in (6, 18):
            return Endpoint(str(ipaddress.ip_address(data[2:])), int.from_bytes(data[:2], "big"))
        case Kind.CODEC_TO_SEND if len(data) == 2:
            return Choice(data[1], data[0])
        case Kind.CODEC_TO_MAP if len(data) == 2:
            return Choice(data[0], data[1])
        case Kind.FLAG if len(data) == 2:
            return data != b"\0\0"
        case Kind.NUMBER | Kind.SIGNED_NUMBER | Kind.BYTE | Kind.SIGNED_LONG if len(data) == struct.calcsize(kind.value):
            return struct.unpack(kind.value, data)[0]
    raise ValueError("is malformed")


def element(tag: int, value: bytes) -> bytes:
    """One element. Raises ValueError for more than 65535 bytes."""
    if len(value) > 0xFFFF:
        raise ValueError(f"{len(value)} bytes are more than an element holds")
    return struct.pack(">HH", tag, len(value)) + value


def elements(data: bytes) -> Iterator[tuple[int | None, bytes]]:
    """Tag and value of each element; at last, when something is cut off, None and those bytes."""
    while len(data) >= 4:
        tag, length = struct.unpack_from(">HH", data)
        if len(data) < 4 + length:
            break
        yield tag, data[4 : 4 + length]
        data = data[4 + length :]
    if data:
        yield None, data


def field(tag: int, kind: Kind, *, repeats: bool = False, required: bool = False) -> Any:
    """Declares a sub-field of a message. What repeats is a tuple; a single value may be given, too."""
    default = {} if required else {"default": () if repeats else None}
    metadata = {"tag": tag, "kind": kind, "repeats": repeats}
    return dataclasses.field(**default, repr=kind is not Kind.SECRET, metadata=metadata)


@dataclasses.dataclass(frozen=True, kw_only=True)
class Message:
    """What commands and reports have in common."""

    TAG: ClassVar[int]
    NAME: ClassVar[str]
    PLAIN_TEXT: ClassVar[bool] = False

    def __post_init__(self) -> None:
        for one in dataclasses.fields(self):
            value = getattr(self, one.name)
            if one.metadata["repeats"]:
                single = isinstance(value, (int, bytes, Choice))
                object.__setattr__(self, one.name, (value,) if single else tuple(value))

    def encode(self) -> bytes:
        """The message as bytes. Raises ValueError, naming the field, for what cannot be written."""
        if self.PLAIN_TEXT:
            return element(self.TAG, pack(Kind.TEXT, self.text))
        value = b""
        for one in dataclasses.fields(self):
            given = getattr(self, one.name)
            for part in given if one.metadata["repeats"] else () if given is None else (given,):
                try:
                    value += element(one.metadata["tag"], pack(one.metadata["kind"], part))
                except (ValueError, TypeError) as error:
                    raise ValueError(f"{type(self).__name__}.{one.name}: {error}") from None
        return element(self.TAG, value)

    @classmethod
    def decode(cls, value: bytes) -> "Message":
        """Reads a value, without its header. Sub-fields of other tags are passed over; of one that stands twice and
        does not repeat the later counts. Raises ValueError."""
        if cls.PLAIN_TEXT:
            return cls(text=unpack(Kind.TEXT, value))
        known = dataclasses.fields(cls)
        if value and not known:
            raise ValueError("it has no sub-fields")
        given: dict[int, list[bytes]] = {}
        for tag, data in elements(value):
            if tag is None:
                raise ValueError("a sub-field is cut off")
            given.setdefault(tag, []).append(data)
        values = {}
        for one in known:
            tag, kind = one.metadata["tag"], one.metadata["kind"]
            try:
                if one.metadata["repeats"]:
                    values[one.name] = tuple(unpack(kind, data) for data in given.get(tag, ()))
                elif tag in given:
                    values[one.name] = unpack(kind, given[tag][-1])
                elif one.default is dataclasses.MISSING:
                    raise ValueError("is missing")
            except ValueError as error:
                raise ValueError(f"sub-field {tag} {error}") from None
        return cls(**values)


class Command(Message):
    """From call control to the process. What is None is not sent; the process then takes its default."""


class Report(Message):
    """From the process to call control."""

    @classmethod
    def decode(cls, value: bytes) -> "Report":
        """Of the sub-fields that hold bytes and may be absent there is one; an SSRC has 4 bytes."""
        report = super().decode(value)
        choices = cls.choices()
        if choices and all(getattr(report, one.name) is None for one in choices):
            raise ValueError(f"sub-field {choices[0].metadata['tag']} is missing")
        if len(getattr(report, "ssrc", bytes(4))) != 4:
            raise ValueError("the SSRC has not 4 bytes")
        return report

    @classmethod
    def choices(cls) -> list[dataclasses.Field]:
        return [
            one
            for one in dataclasses.fields(cls)
            if one.metadata["kind"] is Kind.DATA and one.default is not dataclasses.MISSING
        ]


@dataclasses.dataclass(frozen=True)
class Undecodable:
    """Received bytes that are no message."""

    reason: str
    data: bytes


def decode(datagram: bytes, messages: dict[int, type[Message]]) -> list[Message | Undecodable]:
    """Every message in a datagram, in order."""
    decoded: list[Message | Undecodable] = []
    for tag, value in elements(datagram):
        if tag is None:
            decoded.append(Undecodable("it is cut off", value))
        elif tag not in messages:
            decoded.append(Undecodable(f"no message has tag {tag}", element(tag, value)))
        else:
            try:
                decoded.append(messages[tag].decode(value))
            except ValueError as error:
                decoded.append(Undecodable(str(error), element(tag, value)))
    return decoded or [Undecodable("empty datagram", b"")]
