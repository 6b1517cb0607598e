"""A stage for fxsphone: simulated telephones on one side, soft phones of other makers on the other, all in a network of
their own whose packets are kept. What each said and heard is recorded.

Needs root or user namespaces, and a network namespace of its own: own_network() starts the program again in one.
"""
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

no_network_status = 77  # CTest takes it for a test that was skipped
address = "192.0.2.1"  # RFC 5737: documentation, leads nowhere
sip_port, baresip_port, linphone_port = 5060, 5070, 5080
process_port, baresip_control_port = 5500, 4444
patience_s = 20

phone_configuration = """
[process]
port = {process_port}
[sip]
ip = "{address}"
port = {sip_port}
[driver]
ring = "{folder}/ring"
[tones]
set = 3
[dial]
plan = [
    {{ keys = "10x", call = "sip:{{}}@{address}:{sip_port}" }},
    {{ keys = "200", call = "sip:{{}}@{address}:{baresip_port}" }},
    {{ keys = "300", call = "sip:{{}}@{address}:{linphone_port}" }},
]
"""

baresip_configuration = """
sip_listen {address}:{port}
net_interface veth0
audio_source aufile,{says}
audio_player aubridge,ear
audio_alert aubridge,bell
ausrc_srate 8000
auplay_srate 8000
snd_path {folder}
module_path {modules}
module g711.so
module g722.so
module aufile.so
module aubridge.so
module sndfile.so
module srtp.so
module account.so
module_app menu.so
module ctrl_tcp.so
ctrl_tcp_listen 127.0.0.1:{control_port}
"""

linphone_configuration = """
[sip]
sip_port={port}
sip_tcp_port=0
sip_tls_port=0
contact="Dave" <sip:300@{address}:{port}>
guess_hostname=0
default_proxy=-1
media_encryption={encryption}
[video]
enabled=0
[misc]
log_collection=0
"""


def own_network():
    """Runs this program again in a network and a file system tree of its own; returns there."""
    if os.environ.get("FXS_SIP_STAGE") != "inside":
        as_root = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
        alone = ["unshare", *as_root, "--net", "--mount"]
        if subprocess.run([*alone, "true"]).returncode != 0:
            print("this needs root or user namespaces, for a network of its own", file=sys.stderr)
            sys.exit(no_network_status)
        os.environ["FXS_SIP_STAGE"] = "inside"
        os.execvp("unshare", [*alone, sys.executable, *sys.argv])
    for command in ("link set lo up", "link add veth0 type veth peer name veth1", f"addr add {address}/24 dev veth0",
                    "link set veth0 up", "link set veth1 up", "route add default via 192.0.2.2"):
        subprocess.run(["ip", *command.split()], check=True)


def await_true(what, holds, patience=patience_s):
    end = time.monotonic() + patience
    while not (result := holds()):
        if time.monotonic() > end:
            raise TimeoutError(f"{what} did not come")
        time.sleep(0.02)
    return result


class Program:
    """A program with its output in a file; ended with the scene."""

    def __init__(self, log, *command, **more):
        self.log = Path(log)
        with open(log, "w") as out:
            self.process = subprocess.Popen([str(word) for word in command], stdout=out, stderr=subprocess.STDOUT,
                                            stdin=subprocess.DEVNULL, **more)

    def says(self, pattern, times=1):
        """Waits until its output has matched that often; the last match."""
        def found():
            matches = list(re.finditer(pattern, self.log.read_text(errors="replace"), re.M))
            return matches[times - 1] if len(matches) >= times else None
        return await_true(f'"{pattern}" in {self.log}', found)

    def end(self, how=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            self.process.wait(patience_s)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Baresip:
    """Number 200; says its file as soon as a call is up."""
    number, uri = "200", f"sip:200@{address}:{baresip_port}"

    def __init__(self, stage, says, codec="PCMA", encryption=""):
        self.folder = stage.folder / "baresip"
        self.folder.mkdir()
        library = next(Path("/usr/lib").glob("**/baresip/modules"))
        (self.folder / "config").write_text(baresip_configuration.format(
            address=address, port=baresip_port, says=says, folder=self.folder, modules=library,
            control_port=baresip_control_port))
        secure = f";mediaenc={encryption}" if encryption else ""
        (self.folder / "accounts").write_text(
            f"<{self.uri}>;regint=0;answermode=auto;audio_codecs={codec}{secure}\n")
        self.program = Program(stage.log("baresip"), "baresip", "-f", self.folder)
        self.program.says("baresip is ready")
        self.control = socket.create_connection(("127.0.0.1", baresip_control_port))

    def command(self, command, parameters=""):
        text = json.dumps({"command": command, "params": parameters})
        self.control.sendall(f"{len(text)}:{text},".encode())

    def call(self, number):
        self.command("dial", f"sip:{number}@{address}:{sip_port}")

    def press(self, key):
        self.command("sndcode", key)

    def hang_up(self):
        self.command("hangup")

    def heard(self):
        """Its recordings of what came in, a file for each call, the oldest first."""
        return sorted(self.folder.glob("dump-*-dec.wav"))

    def end(self):
        self.control.close()
        self.program.end()


class Linphone:
    """Number 300; answers by itself. Its recording ends with a hold."""
    sip_port = linphone_port
    number, uri = "300", f"sip:300@{address}:{linphone_port}"

    def __init__(self, stage, says, codec="PCMA", encryption="none"):
        self.folder = stage.folder / "linphone"
        self.folder.mkdir()
        self.recording = self.folder / "heard.wav"
        for place in (".config", ".local/share"):
            (self.folder / place / "linphone").mkdir(parents=True)
        configuration = self.folder / "linphonerc"
        codecs = "".join(f"[audio_codec_{i}]\nmime={mime}\nrate=8000\nchannels=1\nenabled={int(mime == codec)}\n"
                         for i, mime in enumerate(("PCMU", "PCMA", "GSM", "G722", "G729")))
        configuration.write_text(linphone_configuration.format(address=address, port=linphone_port,
                                                               encryption=encryption) + codecs)
        self.log = stage.log("linphone")
        self.environment = dict(os.environ, HOME=str(self.folder))
        self.program = Program(stage.log("linphone-output"), "linphonec", "--pipe", "-c", configuration, "-a", "-d", "6",
                               "-l", self.log, env=self.environment)
        await_true("linphone", lambda: self.log.exists() and "Creating listening point" in self.log.read_text())
        await_true("linphone's door", lambda: self.shell("generic", "soundcard use files"))
        self.shell("generic", f"record {self.recording}")
        self.say(says)

    def shell(self, *words):
        """Whether it took the command."""
        answer = subprocess.run(["linphonecsh", *map(str, words)], env=self.environment, capture_output=True, text=True)
        return "ERROR" not in answer.stdout + answer.stderr

    def call(self, number):
        self.shell("dial", f"sip:{number}@{address}:{sip_port}")

    def say(self, wav):
        """From now on, or as soon as a call is up."""
        self.shell("generic", f"play {wav}")

    def press(self, key):
        self.shell("generic", key)

    def hang_up(self):
        self.shell("hangup")

    def heard(self):
        return [self.recording] if self.recording.exists() else []

    def end(self):
        self.shell("exit")
        self.program.end()


class Stage:
    """One scene: `lines` are the keys of [[line]] of telephones 0, 1, ... beside number and user."""

    def __init__(self, files, name, lines=("", ""), build="build", process_options=()):
        self.files, self.name = Path(files), name
        self.folder = (self.files / f".{name}").absolute()
        shutil.rmtree(self.folder, ignore_errors=True)
        (self.folder / "lines").mkdir(parents=True)
        build = Path(build).absolute()
        self.guests = []
        self.packets = self.folder / "packets.pcapng"
        self.capture = Program(self.log("capture"), "tshark", "-i", "lo", "-f", f"udp and not port {process_port}",
                               "-w", self.packets)
        self.capture.says("Capturing on")
        hear = [word for n in range(len(lines)) for side in ("hear", "said")
                for word in (f"--{side}", f"{n}={self.recording(n, 'heard' if side == 'hear' else side)}")]
        self.lines = Program(self.log("lines"), build / "fxsline", self.folder / "lines", "--pipe",
                             self.folder / "fxs", "--ring", self.folder / "ring", *hear)
        self.lines.says("serving")
        self.process = Program(self.log("fxsmedia"), build / "fxsmedia", "--port", process_port, "--tdm",
                               self.folder / "lines" / "sdt", "--pipe", self.folder / "fxs", *process_options)
        configuration = self.folder / "phone.toml"
        configuration.write_text(
            phone_configuration.format(folder=self.folder, **globals())
            + "".join(f'[[line]]\nnumber = {n}\nuser = "10{n}"\n{keys}\n' for n, keys in enumerate(lines)))
        self.phone = Program(self.log("fxsphone"), build / "fxsphone", "-v", configuration)
        self.phone.says("the media process answers")

    def log(self, program):
        return self.files / f"{self.name}-{program}.log"

    def recording(self, line, side):
        return self.files / f"{self.name}-line{line}-{side}.wav"

    def guest(self, kind, *arguments, **more):
        """A soft phone that comes to the scene."""
        self.guests.append(kind(self, *arguments, **more))
        return self.guests[-1]

    def driver(self, word):
        before = self.lines.log.read_text().count(f'says "{word}')
        (self.folder / "lines" / "driver.say").write_text(word + "\n")
        self.lines.says(f'says "{re.escape(word)}', before + 1)
        time.sleep(0.1)  # as fast as a finger

    def lift(self, line):
        self.driver(f"off-hook {line}")

    def replace(self, line):
        self.driver(f"on-hook {line}")

    def flash(self, line):
        self.replace(line)
        self.lift(line)

    def dial(self, line, keys):
        for key in keys:
            self.driver(f"key {line} {key}")

    def rings(self, line, times=1):
        self.lines.says(rf"line {line}  ring device: ring\b", times)

    def speak(self, line, wav):
        """Says the file and waits for its end and for the way to the far ear."""
        ended = len(re.findall(f"line {line}  speech ended", self.lines.log.read_text()))
        (self.folder / "lines" / f"line{line}.say").write_text(f"wav {Path(wav).absolute()}")
        self.lines.says(f"line {line}  speech ended", ended + 1)
        time.sleep(0.5)

    def records(self):
        """fxsphone's lines about the calls that are over."""
        return [json.loads(row) for row in self.phone.log.read_text().splitlines() if row.startswith('{"line"')]

    def end(self):
        """Ends everybody; recordings are whole, the guests' in the scene's files."""
        self.phone.end()
        for guest in self.guests:
            guest.end()
            for i, wav in enumerate(guest.heard()):
                recording = self.files / f"{self.name}-{guest.number}-heard{i or ''}.wav"
                subprocess.run(["sox", "-V1", "-q", wav, "-r", "8000", "-c", "1", recording], check=True)
        self.process.end()
        self.lines.end()
        time.sleep(0.3)  # packets on their way to the capture
        self.capture.end(signal.SIGINT)
        (self.files / f"{self.name}-ladder.json").write_text(json.dumps(self.messages()))

    def dissect(self, which, fields, *more):
        """Rows of the captured packets that match."""
        out = subprocess.run(["tshark", "-r", self.packets, "-Y", which, "-d", f"udp.port=={baresip_port},sip", "-d",
                              f"udp.port=={linphone_port},sip", *more, "-T", "fields", "-E", "separator=/t",
                              *(word for field in fields for word in ("-e", field))],
                             capture_output=True, text=True, check=True).stdout
        return [row.split("\t") for row in out.splitlines()]

    def sent_to(self, guest, wav):
        """Writes what the G.711 A-law packets to its ports say, as the capture has them."""
        ports = {port for port, in self.dissect(f"sdp && udp.srcport == {guest.sip_port}", ["sdp.media.port"])}
        as_rtp = [word for port in ports for word in ("-d", f"udp.port=={port},rtp")]
        speech = "".join(payload.replace(":", "") for port in sorted(ports) for payload, in self.dissect(
            f"rtp.p_type == 8 && udp.dstport == {port}", ["rtp.payload"], *as_rtp))
        subprocess.run(["sox", "-q", "-t", "al", "-r", "8000", "-c", "1", "-", "-b", "16", "-e", "signed", wav],
                       input=bytes.fromhex(speech), check=True)

    def messages(self):
        """The SIP messages of the capture."""
        fields = ("frame.time_relative", "udp.srcport", "udp.dstport", "sip.Method", "sip.Status-Line", "sip.CSeq.method",
                  "sdp.media", "sdp.media_attr", "sip.Refer-To")
        names = {sip_port: "fxsphone", baresip_port: "baresip", linphone_port: "linphone"}
        result = []
        for second, source, to, method, status, of_method, media, attributes, refer_to in self.dissect("sip", fields):
            direction = next((a for a in attributes.split(",") if a in ("sendonly", "recvonly", "inactive")), "")
            if method or status:
                result.append({"second": float(second), "from": names.get(int(source), source),
                               "to": names.get(int(to), to), "text": method or status.removeprefix("SIP/2.0 "),
                               "answers": of_method if not method else "", "sdp": bool(media), "direction": direction,
                               "refer_to": refer_to})
        return result
