"""The protocol as the C++ client and the Python client read and write it: random messages, odd bytes. Also that the Python
table is the table.

usage: protocol_test.py WORDS PRINT_TABLE SOURCE
"""

import dataclasses
import ipaddress
import os
import random
import re
import subprocess
import sys
import tomllib
import unittest

WORDS, PRINT_TABLE, SOURCE = sys.argv[1:4]
sys.path.insert(0, os.path.join(SOURCE, "client/python"))
import fxsmedia  # noqa: E402
from fxsmedia._wire import Kind  # noqa: E402

SEED = int(os.environ.get("FXS_SEED", random.randrange(10**6)))
LONGEST = 300  # bytes of random values


class Words:
    """The program that speaks for the C++ client."""

    def __init__(self):
        self.child = subprocess.Popen([WORDS], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def __call__(self, *words: str) -> str:
        self.child.stdin.write(" ".join(words) + "\n")
        self.child.stdin.flush()
        return self.child.stdout.readline().strip()

    def close(self) -> int:
        self.child.stdin.close()
        self.child.stdout.close()
        return self.child.wait()


def fields_of(message):
    """Name of the protocol, kind and value of every field."""
    for one in dataclasses.fields(message):
        yield one.name.rstrip("_"), one.metadata["kind"], getattr(message, one.name)


def text_of(message) -> str:
    words = [message.NAME]
    for name, kind, value in fields_of(message):
        if value is None or value == ():
            continue
        match kind:
            case Kind.TEXT:
                value = "x" + value.encode(errors="surrogateescape").hex()
            case Kind.DATA | Kind.SECRET:
                value = "x" + (value[-1] if isinstance(value, tuple) else value).hex()
            case Kind.ENDPOINT:
                value = f"x{ipaddress.ip_address(value.ip).packed.hex()}:{value.port}"
            case Kind.CODEC_TO_SEND:
                value = f"{value.codec}/{value.payload_type}"
            case Kind.CODEC_TO_MAP:
                value = ",".join(f"{one.codec}/{one.payload_type}" for one in value)
            case _:
                value = str(int(value[-1] if isinstance(value, tuple) else value))
        words.append(f"{name}={value}")
    return " ".join(words)


def random_value(dice: random.Random, kind: Kind):
    data = dice.randbytes(dice.choice((0, 1, 4, 30, dice.randrange(LONGEST))))
    match kind:
        case Kind.NUMBER:
            return dice.choice((0, 0xFFFF, dice.randrange(0x10000)))
        case Kind.SIGNED_NUMBER:
            return dice.choice((-0x8000, -1, dice.randrange(0x8000)))
        case Kind.FLAG:
            return dice.random() < 0.5
        case Kind.BYTE:
            return dice.choice((0, 0xFF, dice.randrange(0x100)))
        case Kind.SIGNED_LONG:
            return dice.choice((-(2**31), 2**31 - 1, dice.randrange(-5, 5)))
        case Kind.TEXT:
            return data.decode(errors="surrogateescape")
        case Kind.ENDPOINT:
            ip = ipaddress.ip_address(dice.randbytes(dice.choice((4, 16))))
            return fxsmedia.Endpoint(str(ip), dice.randrange(0x10000))
        case Kind.CODEC_TO_SEND | Kind.CODEC_TO_MAP:
            return fxsmedia.Choice(dice.randrange(0x100), dice.randrange(0x100))
    return data


def random_message(dice: random.Random, kinds):
    kind = dice.choice(list(kinds.values()))
    values = {}
    for one in dataclasses.fields(kind):
        drawn = random_value(dice, one.metadata["kind"])
        if one.name == "ssrc" and issubclass(kind, fxsmedia.Report):
            drawn = dice.randbytes(4)
        if one.name == "map":
            values[one.name] = [random_value(dice, Kind.CODEC_TO_MAP) for _ in range(dice.randrange(4))]
        elif one.default is dataclasses.MISSING or dice.random() < 0.6:
            values[one.name] = drawn
    for one in kind.choices()[:1] if issubclass(kind, fxsmedia.Report) else ():
        values.setdefault(one.name, b"")
    return kind(**values)


class Protocol(unittest.TestCase):
    def setUp(self):
        self.words = Words()
        self.addCleanup(lambda: self.assertEqual(self.words.close(), 0))

    def agree_on_command(self, command):
        bytes_of = "x" + command.encode().hex()
        self.assertEqual(fxsmedia.decode(command.encode(), fxsmedia.COMMANDS), [command])
        self.assertEqual(self.words("encode", text_of(command)), bytes_of)

    def agree_on_report(self, report):
        bytes_of = "x" + report.encode().hex()
        self.assertEqual(fxsmedia.decode(report.encode(), fxsmedia.REPORTS), [report])
        self.assertEqual(self.words("decode", bytes_of), text_of(report))

    def test_random_messages(self):
        dice = random.Random(SEED)
        for turn in range(1500):
            with self.subTest(seed=SEED, turn=turn):
                self.agree_on_command(random_message(dice, fxsmedia.COMMANDS))
                self.agree_on_report(random_message(dice, fxsmedia.REPORTS))

    def test_random_bytes(self):
        """Both clients find the same reports in damaged datagrams, and lose no byte of the rest."""
        dice = random.Random(SEED)
        for turn in range(1500):
            datagram = bytearray(b"".join(random_message(dice, fxsmedia.REPORTS).encode() for _ in range(3)))
            for _ in range(dice.randrange(3)):
                datagram[dice.randrange(len(datagram))] = dice.choice((0, 1, 4, dice.randrange(0x100)))
            del datagram[len(datagram) - dice.choice((0, 0, 1, dice.randrange(len(datagram)))) :]
            said = self.words("decode", "x" + datagram.hex())
            expected = []
            for one in fxsmedia.decode(bytes(datagram), fxsmedia.REPORTS):
                is_report = not isinstance(one, fxsmedia.Undecodable)
                expected.append(re.escape(text_of(one)) if is_report else r"fault \d \d+ x" + one.data.hex())
            self.assertRegex(said, f"^{' '.join(expected)}$", f"seed {SEED}, turn {turn}")

    def test_values_that_do_not_fit(self):
        for refused, text in (
            (fxsmedia.OpenCommand(call=-1), "open call=-1"),
            (fxsmedia.OpenCommand(port_max=65536), "open port_max=65536"),
            (fxsmedia.MediaCommand(event_pt=256), "media event_pt=256"),
            (fxsmedia.MediaCommand(map=(256, 0)), "media map=256/0"),
            (fxsmedia.MediaCommand(rtp=("localhost", 1)), "media rtp=x:1"),
            (fxsmedia.SignalCommand(data=bytes(65536)), "signal data=x" + "00" * 65536),
            (fxsmedia.TunnelCommand(rtp_data=bytes(40000), rtcp_data=bytes(40000)),
             f"tunnel rtp_data=x{'00' * 40000} rtcp_data=x{'00' * 40000}"),
        ):
            self.assertRaises(ValueError, refused.encode)
            self.assertEqual(self.words("encode", text), "no")

    def test_table(self):
        with open(os.path.join(SOURCE, "client/python/fxsmedia/_table.py"), encoding="utf-8") as table:
            self.assertEqual(table.read(), subprocess.run([PRINT_TABLE], capture_output=True, text=True).stdout)

    def test_package_has_the_version_of_the_process(self):
        with open(os.path.join(SOURCE, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"project\(fxsmedia VERSION ([\d.]+)", file.read())[1]
        with open(os.path.join(SOURCE, "client/python/pyproject.toml"), "rb") as file:
            self.assertEqual(tomllib.load(file)["project"]["version"], version)

    def test_page_shows_the_examples(self):
        with open(os.path.join(SOURCE, "docs/client.md"), encoding="utf-8") as file:
            page = file.read()
        for example in ("cpp/examples/two_telephones.cpp", "python/examples/two_telephones.py"):
            with open(os.path.join(SOURCE, "client", example), encoding="utf-8") as file:
                self.assertIn(file.read(), page)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
