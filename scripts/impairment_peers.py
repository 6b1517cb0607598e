"""Other players of RTP on the networks of build/bench/impairment --write: what each plays, as raw samples from the
beginning of the call, for build/bench/impairment --judge.

GStreamer runs in a time of its own (build/bench/impairment_gstreamer). baresip and mediastream are programs that run in
real time: their clocks are slowed down (libfaketime), so that what else the machine does is ten times shorter to them.
What they play they hand out at the pace of a sound device, as RTP or into a file.

usage: scripts/impairment_peers.py FOLDER [PLAYER...]
"""
import array
import heapq
import json
import os
import re
import selectors
import socket
import struct
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

root = Path(__file__).resolve().parent.parent
packet_samples, rate, seconds = 160, 8000, 60
slowness = 10
settle_s = 1  # of the players' time, after their first packet
ports = iter(range(20000, 30000, 2))
sounds = ("speech", "sine")


def clock():
    """The players' time, seconds."""
    return time.monotonic() / slowness


def swapped(samples):
    """Between the host's byte order and that of L16 (RFC 3551 section 4.5.11)."""
    words = array.array("h", samples)
    if sys.byteorder == "little":
        words.byteswap()
    return words.tobytes()


def udp_socket():
    one = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    one.bind(("127.0.0.1", 0))
    one.setblocking(False)
    return one


def free_port():
    """An even port with a free odd one, for RTP and RTCP, below those that the system gives away by itself."""
    for port in ports:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as rtp, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as rtcp:
            try:
                rtp.bind(("127.0.0.1", port))
                rtcp.bind(("127.0.0.1", port + 1))
            except OSError:
                continue
            return port
    sys.exit("no ports are free")


class Ear:
    """A sound device that plays what it is handed, and silence when it has nothing."""
    lull_s, jitter_s = 2, 0.015

    def __init__(self):
        self.pcm, self.handed = bytearray(), []  # (when a sample was handed out, its position in seconds)

    def take(self, data, now, known=0):
        """`known`: bytes of the data that had been handed out before."""
        self.handed.append((now, (len(self.pcm) + known) / 2 / rate))
        self.pcm += data

    def heard(self, began):
        """PCM of the call. A block that is handed out late was delayed on its way, unless all that follow are as late."""
        played = bytearray(2 * rate * seconds)
        lead = float("-inf")
        for i, (now, position) in enumerate(self.handed):
            following = (at - there for at, there in self.handed[i:i + 150] if at < now + self.lull_s)
            if (least := min(following)) > lead + self.jitter_s:
                lead = least
            end = self.handed[i + 1][1] if i + 1 < len(self.handed) else len(self.pcm) / 2 / rate
            self.place(played, position, end, lead - began)
        return bytes(played)

    def place(self, played, position, end, lead):
        first, last, to = round(position * rate), round(end * rate), round((position + lead) * rate)
        skipped = max(0, -to)
        piece = self.pcm[2 * (first + skipped):2 * last]
        to = 2 * (to + skipped)
        piece = piece[:max(0, len(played) - to)]
        played[to:to + len(piece)] = piece


class Player:
    """One player of one network. Subclasses start it, tell where it listens and what it handed out."""
    watched = None  # what becomes readable when there is something to take; None: look now and then

    def __init__(self, folder):
        self.folder, self.port, self.socket, self.ear = folder, free_port(), udp_socket(), Ear()
        folder.mkdir(parents=True, exist_ok=True)

    def run(self, *command):
        library = next(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
        slow = {**os.environ, "LD_PRELOAD": str(library), "FAKETIME": f"+0 x{1 / slowness:g}"}
        with open(self.folder / "log", "wb") as log:
            self.process = subprocess.Popen([str(word) for word in command], cwd=self.folder, env=slow, stdout=log,
                                            stderr=log, stdin=subprocess.DEVNULL)

    def await_packet(self):
        """Returns when the player runs: it has sent something."""
        self.socket.settimeout(120)
        self.socket.recv(2048)
        self.socket.setblocking(False)

    def end(self):
        self.process.kill()
        self.process.wait()
        self.socket.close()


class Mediastream(Player):
    """mediastreamer2's test program as it comes: adaptive jitter buffer, concealment. It plays into a file, 10 ms at a
    time, which is written in larger pieces."""
    payload_type, header, block_bytes = 114, 44, 160

    def start(self):
        size = 2 * rate
        (self.folder / "silence.wav").write_bytes(
            b"RIFF" + struct.pack("<I", 36 + size) + b"WAVEfmt " +
            struct.pack("<IHHIIHH", 16, 1, 1, rate, 2 * rate, 2, 16) + b"data" + struct.pack("<I", size) + bytes(size))
        self.output = self.folder / "played.wav"
        self.output.unlink(missing_ok=True)
        self.run("mediastream", "--local", self.port, "--remote", f"127.0.0.1:{self.socket.getsockname()[1]}",
                 "--payload", "audio/L16/8000/1", "--bitrate", 200000, "--infile", "silence.wav", "--outfile",
                 self.output.name, "--no-rtcp", "--no-avpf")

    def take(self, now):
        done = self.header + len(self.ear.pcm)
        if self.output.exists() and self.output.stat().st_size > done:
            with open(self.output, "rb") as played:
                played.seek(done)
                data = played.read()
            self.ear.take(data, now, max(0, len(data) - self.block_bytes))


class Baresip(Player):
    """baresip with the jitter buffer of its own example configuration and its module plc. What it plays is its
    microphone (module aubridge), so it comes back as RTP."""
    configuration = """
sip_listen 127.0.0.1:0
net_interface 127.0.0.1
audio_source aubridge,ear
audio_player aubridge,ear
audio_alert aubridge,bell
ausrc_srate 8000
auplay_srate 8000
audio_buffer 20-160
jitter_buffer_type fixed
jitter_buffer_delay 5-10
module_path {modules}
module l16.so
module plc.so
module aubridge.so
module account.so
module_app menu.so
"""

    def start(self):
        self.sip, self.watched = udp_socket(), self.socket
        modules = next(Path("/usr/lib").glob("**/baresip/modules"))
        (self.folder / "config").write_text(self.configuration.format(modules=modules))
        (self.folder / "accounts").write_text("<sip:player@127.0.0.1>;regint=0;audio_codecs=L16/8000/1\n")
        (self.folder / "contacts").touch()
        self.run("baresip", "-f", ".", "-e", f"/dial sip:judge@127.0.0.1:{self.sip.getsockname()[1]}")
        self.sip.settimeout(20 * slowness)
        invitation, source = self.sip.recvfrom(65536)
        self.accept(invitation.decode(), source)

    def accept(self, invitation, source):
        self.port = int(re.search(r"m=audio (\d+)", invitation)[1])
        self.payload_type = int(re.search(r"a=rtpmap:(\d+) L16/8000", invitation)[1])
        body = (f"v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
                f"m=audio {self.socket.getsockname()[1]} RTP/AVP {self.payload_type}\r\n"
                f"a=rtpmap:{self.payload_type} L16/8000\r\na=ptime:20\r\n")
        kept = "".join(f"{line}\r\n" for line in invitation.split("\r\n")
                       if re.match(r"(Via|From|Call-ID|CSeq):", line, re.I))
        to = re.search(r"^To:.*?(?=\r)", invitation, re.I | re.M)[0]
        self.sip.sendto((f"SIP/2.0 200 OK\r\n{kept}{to};tag=judge\r\nContact: <sip:127.0.0.1:"
                         f"{self.sip.getsockname()[1]}>\r\nContent-Type: application/sdp\r\n"
                         f"Content-Length: {len(body)}\r\n\r\n{body}").encode(), source)

    def take(self, now):
        self.ear.take(swapped(self.socket.recv(2048)[12:]), now)

    def end(self):
        super().end()
        self.sip.close()


def send(player, number, payload):
    header = struct.pack(">BBHII", 0x80, player.payload_type, number + 1, number * packet_samples, 0xFA12E9D)
    samples = payload[2 * packet_samples * number:2 * packet_samples * (number + 1)]
    player.socket.sendto(header + samples, ("127.0.0.1", player.port))


def replay(running, queue, until):
    """Sends what is due (time, stream, packet number) and takes what the players hand out."""
    selector = selectors.DefaultSelector()
    for player, _ in running:
        if player.watched:
            selector.register(player.watched, selectors.EVENT_READ, player)
    unwatched = [player for player, _ in running if not player.watched]
    while (now := clock()) < until:
        while queue and queue[0][0] <= now:
            _, stream, number = heapq.heappop(queue)
            send(running[stream][0], number, running[stream][1])
        for player in unwatched:
            player.take(clock())
        wait = min(queue[0][0] - now if queue else 1, 0.002)
        for key, _ in selector.select(max(0, wait) * slowness):
            key.data.take(clock())
    selector.close()


def run_slowly(make, folder, name, networks):
    """All networks with all sounds at once."""
    said = {kind: swapped((folder / f"{kind}.raw").read_bytes()) for kind in sounds}
    streams = [(number, kind) for number in range(len(networks)) for kind in sounds]
    running = [(make(folder / name / f"{number}.{kind}.run"), said[kind]) for number, kind in streams]
    try:
        for player, _ in running:
            player.start()
        for player, _ in running:
            player.await_packet()
        began = clock() + settle_s
        queue = [(began + at / 1e6, stream, i) for stream, (number, _) in enumerate(streams)
                 for i, at in enumerate(networks[number]["arrivals_us"]) if at >= 0]
        heapq.heapify(queue)
        replay(running, queue, began + seconds + 1)
    finally:
        for player, _ in running:
            if hasattr(player, "process"):
                player.end()
    for (number, kind), (player, _) in zip(streams, running):
        (folder / name / f"{number}.{kind}").write_bytes(player.ear.heard(began))


def run_gstreamer(latency_ms, folder, name, networks):
    (folder / name).mkdir(exist_ok=True)

    def one(stream):
        number, kind = stream
        subprocess.run([root / "build/bench/impairment_gstreamer", str(latency_ms), folder / f"{kind}.raw",
                        folder / name / f"{number}.{kind}"], check=True, text=True,
                       input=" ".join(map(str, networks[number]["arrivals_us"])))

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(one, ((number, kind) for number in range(len(networks)) for kind in sounds)))


players = {
    "gstreamer": lambda *where: run_gstreamer(200, *where),
    "gstreamer-80": lambda *where: run_gstreamer(80, *where),
    "baresip": lambda *where: run_slowly(Baresip, *where),
    "mediastream": lambda *where: run_slowly(Mediastream, *where),
}


def main():
    folder = Path(sys.argv[1]).resolve()
    networks = [json.loads(line) for line in (folder / "networks").read_text().splitlines()]
    for name in sys.argv[2:] or players:
        players[name](folder, name, networks)


if __name__ == "__main__":
    main()
