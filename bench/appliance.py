#!/usr/bin/env python3
"""Measures the whole appliance: how calls grow with the number of edge switches, and what its daemons take of memory.

Usage: bench/appliance.py BUILD [--brief]

Starts simulated hardware, configuration service and router as a unit has them, and calls through the router with
`kestroctl bench`, one client, one request per connection. Prints two tables and writes BUILD/appliance.json and
BUILD/curves/appliance_switches.tsv. --brief does little of everything: that it works is seen, what it costs is not.
"""

import argparse
import contextlib
import itertools
import json
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
MEMORY = "/dev/shm"  # for the database: the wait for a disk that others use as well would hide everything else
PATIENCE = 60  # seconds for the hardware to be told of new switches

# The switch asked is the one in the middle, so that a search from either end would show.
CALLS = (
    ("oec.Get", "oec.Get", {"oec_id": "c{middle}"}),
    ("ports.Get of one port", "ports.Get", {"port_id": "c{middle}-1"}),
    ("ports.SetVlanAccess", "ports.SetVlanAccess", {"port_id": "c{middle}-1", "vlan_id": 20}),
    ("oec.List", "oec.List", {}),
    ("ports.Get of all", "ports.Get", {"port_id": "all"}),
)

# What is called, and the daemons whose footprint is looked at before and after it.
FOOTPRINTS = (
    ("oec.Get", {"oec_id": "c1"}, ("kestro-routerd", "kestro-configd")),
    ("emac.service.CoreSwitchGetTemps", {}, ("kestro-simd",)),
)

# Keeps an appliance until its standard input ends.
HOLDER = """
set -euo pipefail
. "$1/scripts/appliance.sh"
trap appliance_stop EXIT
appliance_start "$2"
echo "socket $KESTRO_SOCKET"
for program in "${!appliance_pids[@]}"; do echo "$program ${appliance_pids[$program]}"; done
echo
read -r _ || true
"""


class Appliance:
    def __init__(self, build):
        self.ctl = build / "tools/kestroctl/kestroctl"
        command = ["bash", "-c", HOLDER, "appliance", ROOT, build]
        place = {"TMPDIR": MEMORY} if os.path.isdir(MEMORY) else {}
        self.holder = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                       env={**os.environ, **place})  # fmt: skip
        told = dict(line.split() for line in itertools.takewhile(str.strip, self.holder.stdout))
        if "socket" not in told:
            raise RuntimeError("the appliance did not start")
        self.socket = told.pop("socket")
        self.pids = {name: int(pid) for name, pid in told.items()}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.holder.stdin.close()
        self.holder.wait()

    def call(self, method, params):
        request = {"jsonrpc": "2.0", "method": method, "params": params, "id": "bench", "transaction_id": 1}
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(self.socket)
            connection.sendall(json.dumps(request).encode() + b"\n")
            answer = json.loads(b"".join(iter(lambda: connection.recv(1 << 16), b"")))
        if "result" not in answer:
            raise RuntimeError(f"{method}: {answer}")
        return answer["result"]

    def load(self, method, params, clients=1, **limit):
        """One ledger of many calls. Figures of calls that failed would be worth nothing."""
        ((name, value),) = limit.items()
        command = [self.ctl, "--socket", self.socket, "bench", "--json", "--clients", clients, f"--{name}", value,
                   "--method", method, "--params", json.dumps(params)]  # fmt: skip
        done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, text=True, check=True)
        ledger = json.loads(done.stdout)
        if ledger["answered"] != ledger["requests"]:
            raise RuntimeError(f"{method}: not every call was answered: {ledger}")
        return ledger

    def register(self, number):
        high, low = divmod(number, 256)
        self.call("oec.Register", {"oec_id": f"c{number}", "model": "VTR-E30p",
                                   "mac_address": f"02:00:00:00:{high:02X}:{low:02X}"})  # fmt: skip

    def settle(self):
        """Until the hardware was told of every switch: that work is not to be seen in what comes next."""
        end = time.monotonic() + PATIENCE
        while any(row["cfg_pending"] for row in self.call("oec.List", {})):
            if time.monotonic() > end:
                raise RuntimeError("the hardware was not told of all switches")
            time.sleep(0.2)

    def processor_us(self):
        """Of all daemons so far, as the scheduler counts it."""
        tasks = (task for pid in self.pids.values() for task in pathlib.Path(f"/proc/{pid}/task").iterdir())
        return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1000

    def footprint(self, program):
        lines = pathlib.Path(f"/proc/{self.pids[program]}/status").read_text().splitlines()
        fields = dict(line.split(":", 1) for line in lines)
        return {"resident_kib": int(fields["VmRSS"].split()[0]), "threads": int(fields["Threads"])}


def fill(params, switches):
    """The parameters of a call for that many switches."""
    middle = str((switches + 1) // 2)
    return json.loads(json.dumps(params).replace("{middle}", middle))


def sample(appliance, switches, method, params, seconds):
    before = appliance.processor_us()
    ledger = appliance.load(method, fill(params, switches), duration=seconds)
    spent = (appliance.processor_us() - before) / ledger["answered"]
    return {"median_us": ledger["latency_ms"]["p50"] * 1000, "processor_us": spent}


def measure_growth(build, counts, rounds, seconds):
    """One appliance for each number of switches, asked by turns: what else the machine does meets all alike."""
    samples = {}
    with contextlib.ExitStack() as stack:
        appliances = {switches: stack.enter_context(Appliance(build)) for switches in counts}
        for switches, appliance in appliances.items():
            for number in range(1, switches + 1):
                appliance.register(number)
            appliance.settle()
        for _ in range(rounds):
            for name, method, params in CALLS:
                for switches, appliance in appliances.items():
                    found = sample(appliance, switches, method, params, seconds)
                    samples.setdefault((switches, name), []).append(found)
    return [row_of(switches, samples) for switches in counts]


def row_of(switches, samples):
    """What the calls cost with that many switches: medians over the rounds."""
    row = {"switches": switches}
    for name, _, _ in CALLS:
        found = samples[switches, name]
        row[name] = {figure: round(statistics.median(each[figure] for each in found), 1) for figure in found[0]}
    return row


def measure_footprints(build, requests):
    rows = []
    with Appliance(build) as appliance:
        appliance.register(1)
        appliance.settle()
        for method, params, programs in FOOTPRINTS:
            idle = {program: appliance.footprint(program) for program in programs}
            appliance.load(method, params, clients=8, requests=requests)
            for program in programs:
                rows.append({"program": program, "method": method, "requests": requests, "idle": idle[program],
                             "after": appliance.footprint(program)})  # fmt: skip
    return rows


def print_growth(rows):
    names = [name for name, _, _ in CALLS]
    for figure, text in (("median_us", "median us"), ("processor_us", "processor us")):
        print(f"\n{text + ', switches':22}" + "".join(f"{row['switches']:>10}" for row in rows))
        for name in names:
            print(f"{name:22}" + "".join(f"{row[name][figure]:10.0f}" for row in rows))


def print_footprints(rows):
    print(f"\n{'daemon':16} {'idle KiB':>9} {'threads':>8} {'after KiB':>10} {'threads':>8}  requests")
    for row in rows:
        idle, after = row["idle"], row["after"]
        print(f"{row['program']:16} {idle['resident_kib']:9} {idle['threads']:8} {after['resident_kib']:10} "
              f"{after['threads']:8}  {row['requests']} of {row['method']}")  # fmt: skip


def write_curve(path, rows):
    lines = [["edge switches", *(f"{name}, us" for name, _, _ in CALLS)]]
    lines += [[row["switches"], *(row[name]["median_us"] for name, _, _ in CALLS)] for row in rows]
    path.parent.mkdir(exist_ok=True)
    path.write_text("".join("\t".join(map(str, line)) + "\n" for line in lines))


def main():
    parser = argparse.ArgumentParser(description="Measures the whole appliance.")
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--brief", action="store_true", help="little of everything")
    arguments = parser.parse_args()
    build = arguments.build.resolve()

    # What a unit in service logs, where this build reads its levels from a file of its own.
    levels = build / "run/kestro_lsyslog.conf"
    levels.parent.mkdir(exist_ok=True)
    levels.write_text("[logging_levels]\nrouter=info\nconfigd=info\nsimd=info\n")

    if arguments.brief:
        growth = measure_growth(build, (2,), rounds=1, seconds=0.05)
        footprints = measure_footprints(build, 200)
    else:
        growth = measure_growth(build, (1, 8, 64, 256, 512), rounds=5, seconds=0.3)
        footprints = measure_footprints(build, 100_000)
    print_growth(growth)
    print_footprints(footprints)
    write_curve(build / "curves/appliance_switches.tsv", growth)
    report = {"switches": growth, "footprint": footprints}
    (build / "appliance.json").write_text(json.dumps(report, indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
