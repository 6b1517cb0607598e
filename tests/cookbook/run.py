#!/usr/bin/env python3
"""Runs the recipes of docs/cookbook.md, each on a fresh device, and compares what the telephones hear.

usage: run.py PAGE PROGRAMS [recipe...]     PROGRAMS: the folder of fxsmedia and the tools
A recipe is a section with a block of commands; "Line 0 hears: 700, nothing, 900+1100" says what its telephone must hear
one after the other, each for 300 ms or more, whatever is between. Commands must end with 0.
"""
import math
import os
import re
import signal
import subprocess
import sys
import tempfile
import wave
from array import array
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

tones_hz = (350, 440, 480, 620, 700, 900, 1100, 1300)
window = 800  # samples: 100 ms
least_windows = 3


def strength(samples, hz):
    """Amplitude of one frequency, full scale is 1."""
    turn = [2 * math.pi * hz * i / 8000 for i in range(len(samples))]
    real = sum(s * math.cos(t) for s, t in zip(samples, turn))
    imaginary = sum(s * math.sin(t) for s, t in zip(samples, turn))
    return 2 * math.hypot(real, imaginary) / len(samples) / 32768


def heard(path):
    """What sounds in each stretch of the recording, as the page writes it."""
    with wave.open(str(path)) as sound:
        samples = array("h", sound.readframes(sound.getnframes()))
    if sys.byteorder == "big":
        samples.byteswap()
    stretches = []
    for at in range(0, len(samples) - window + 1, window):
        present = [hz for hz in tones_hz if strength(samples[at:at + window], hz) > 0.01]
        name = "+".join(map(str, present)) or "nothing"
        if stretches and stretches[-1][0] == name:
            stretches[-1][1] += 1
        else:
            stretches.append([name, 1])
    return [name for name, windows in stretches if windows >= least_windows]


def is_among(wanted, got):
    """Whether `wanted` comes in this order among `got`."""
    rest = iter(got)
    return all(any(each == other for other in rest) for each in wanted)


def run(port, setup, commands, programs):
    """Runs one recipe; returns its exit code, its output and line -> what it heard."""
    with tempfile.TemporaryDirectory(prefix="cookbook") as place:
        def placed(text):
            return re.sub(r"/tmp/", place + "/", text).replace("5500", str(port))
        script = f"""set -euo pipefail
            wait_for() {{ for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return; sleep 0.05; done; echo "no: $*"; exit 9; }}
            end() {{ trap - EXIT; kill $(jobs -p) 2>/dev/null; wait; exit $1; }}
            trap 'end $?' EXIT
            {placed(setup[0])}
            wait_for test -e {place}/fxs/sdt0
            {placed(setup[1])}
            wait_for fxsctl --timeout 200 ping
            {placed(setup[2])}
            wait_for grep -q watching {place}/monitor.log
            {placed(commands)}"""
        environment = dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}")
        process = subprocess.Popen(["bash", "-c", script], cwd=place, env=environment, text=True, errors="replace",
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            output, _ = process.communicate(timeout=120)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGTERM)
            output, _ = process.communicate()
        ears = {line: heard(Path(place) / f"heard{line}.wav") for line in range(4)
                if (Path(place) / f"heard{line}.wav").exists()}
        return process.returncode, output, ears


def judge(port, setup, programs, title, body, commands):
    """Whether a recipe does what its section says; prints what it did otherwise."""
    result, output, ears = run(port, setup, commands, programs)
    wanted = {int(line): [part.strip() for part in rest.split(",")]
              for line, rest in re.findall(r"^Line (\d) hears: (.*)$", body, re.M)}
    wrong = [f"line {line} heard {ears.get(line)}, not {what}" for line, what in wanted.items()
             if not is_among(what, ears.get(line, []))]
    if result != 0:
        wrong.append(f"commands ended with {result}")
    print("\n".join([f"FAILED: {title}", *wrong, output] if wrong else [f"ok: {title}"]), flush=True)
    return not wrong


def main(page, programs, only):
    text = Path(page).read_text()
    setup = re.search(r"```setup\n(.*?)```", text, re.S)[1].splitlines()
    stages = ["\n".join(setup[:2]), "\n".join(setup[2:4]), "\n".join(setup[4:])]
    recipes = [(title, body, commands) for title, body in re.findall(r"^## (.*?)\n(.*?)(?=^## |\Z)", text, re.S | re.M)
               if (commands := "\n".join(re.findall(r"```sh\n(.*?)```", body, re.S)))
               and (not only or any(word in title for word in only))]
    with ThreadPoolExecutor(3) as pool:
        good = list(pool.map(lambda numbered: judge(20000 + os.getpid() % 20000 + numbered[0], stages,
                                                    Path(programs).resolve(), *numbered[1]), enumerate(recipes)))
    sys.exit(not all(good))


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], sys.argv[3:])
