#!/usr/bin/env python3
"""Runs the whole appliance under load while one thing after the other goes wrong, and counts what became of each request.

Usage: soak.py BUILD_DIRECTORY [--minutes N] [--seed S] [--keep]

The load is `kestroctl bench`, whose ledger gives every request exactly one outcome. A fault is chosen from the table
below again and again, in an order that the seed fixes, and looked at whether it came about. The last table printed says
whether the appliance held: no request lost or mixed up, every client answered or closed within 20 s, memory and
descriptors as at the start, the database sound. The exit status is 0 only then.
"""

import argparse
import collections
import contextlib
import ctypes
import ctypes.util
import json
import os
import random
import resource
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time
from pathlib import Path

PATIENCE = 20.0  # the longest that a client may wait for an answer or the end of its connection
METHOD_TIMEOUT = 10  # what the router waits for a service in this run
MEMORY_GROWTH = 0.05  # of what is resident after the warm-up; so much may a process gather
WARM_UP = 10.0
REST = 3.0
TMPFS_SIZE = "64m"
MORTAL = 2 / 3  # of the time; in the rest nobody is killed, so that what a process gathers by and by is seen

REPLY_CHANNEL = "2524546b-ca99-4868-a062-359cefacff7c"
CONFIG_CHANNEL = "3a6f8f51-502f-4238-9638-29764ff1a8a4"
DEFAULT_CHANNEL = "30e493d7-9e02-41b6-97f5-21f2cc9cbbb3"

# What the clients ask for: method, parameters, clients at once.
LOAD = [
    ("ports.Get", {"port_id": "c1-1"}, 4),
    ("ports.Get", {"port_id": "c2"}, 2),
    ("oec.List", {}, 2),
    ("ports.SetVlanAccess", {"port_id": "c1-2", "vlan_id": 20}, 2),
    ("ports.SetVlanTrunk", {"port_id": "c2-1", "vlan_ids": [10, 20, 30]}, 2),
    ("ports.SetEnabled", {"port_id": "c1-3", "enabled": False}, 2),
    ("ports.poe.GetInstantPower", {"port_id": "c1"}, 2),
    ("emac.service.CoreSwitchGetTemps", {}, 4),
    (
        "dhcp.SetService",
        {"service_name": "office", "address_range": "10.0.0.0/24", "dhcp_range": "10.0.0.10-10.0.0.20", "static_leases": []},
        2,
    ),
    ("dhcp.SetService", {"service_name": "refused", "address_range": "10.0.0.0/8", "dhcp_range": "", "static_leases": []}, 1),
    ("clock.Get", {}, 1),  # nobody's method
]


def say(text):
    print(f"[{time.strftime('%H:%M:%S', time.gmtime())}] {text}", flush=True)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


# In KiB. What is not a process's own are pages of program files, which come with the code that runs for the first time.
Memory = collections.namedtuple("Memory", "resident own")


class Daemon:
    """One process of the appliance; started again after it was killed."""

    def __init__(self, name, command, environment, log):
        self.name, self.command, self.environment, self.log = name, command, environment, log
        self.process = None
        self.pids = []
        self.unexpected_ends = 0
        self.start()

    def start(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=self.environment
            )
        self.pids.append(self.pid)

    @property
    def pid(self):
        return self.process.pid

    def alive(self):
        return self.process.poll() is None

    def kill(self):
        self.process.kill()
        self.process.wait()

    def stop(self):
        self.process.terminate()
        try:
            return self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.kill()
            return None

    def memory(self):
        lines = (line.split() for line in Path(f"/proc/{self.pid}/status").read_text().splitlines())
        kib = {line[0]: int(line[1]) for line in lines if line[0] in ("VmRSS:", "RssFile:")}
        return Memory(resident=kib["VmRSS:"], own=kib["VmRSS:"] - kib["RssFile:"])

    def open_files(self):
        for descriptor in Path(f"/proc/{self.pid}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):  # closed since the directory was read
                yield os.readlink(descriptor)

    def descriptors(self):
        """Its own. faketime has two more, or none where a dead process of the same number left its names."""
        return sum(not file.startswith("/dev/shm/faketime_shm_") for file in self.open_files())


class Publisher:
    """A party on the bus that should not be there, on the bus library itself."""

    NN_PUB, AF_SP = 32, 1

    def __init__(self, address):
        self.nn = ctypes.CDLL(ctypes.util.find_library("nanomsg"))
        self.nn.nn_send.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int]
        self.socket = self.nn.nn_socket(self.AF_SP, self.NN_PUB)
        if self.nn.nn_bind(self.socket, address.encode()) < 0:
            raise RuntimeError(f"cannot publish at {address}")

    def publish(self, frame):
        return self.nn.nn_send(self.socket, frame, len(frame), 1) == len(frame)


class Appliance:
    def __init__(self, build, work):
        self.build, self.work = build, work
        self.socket = work / "router.sock"
        self.disk = work / "disk"
        self.clock = work / "clock"
        self.database = self.disk / "vtr_h9.db"
        self.stats = f"/kestro-soak-{os.getpid()}"
        self.callers = []
        self.left_waiting = 0  # strange clients that were neither answered nor closed in time
        address = {name: f"tcp://127.0.0.1:{free_port()}" for name in ("simd", "configd", "router", "stranger")}
        self.stranger = Publisher(address["stranger"])
        self.clock.write_text("+0")
        daemons = build / "daemons"
        environment = self.environment()

        def subscribe(*names):
            return [part for name in names for part in ("--bus-subscribe", address[name])]

        (self.disk / "update").mkdir()
        self.daemons = {
            "simd": Daemon(
                "simd",
                [daemons / "simd/kestro-simd", "--bus-publish", address["simd"], *subscribe("router", "configd", "stranger")],
                environment,
                work / "simd.log",
            ),
            "configd": Daemon(
                "configd",
                [daemons / "configd/kestro-configd", "--init", "--database", self.database]
                + ["--update-dir", self.disk / "update", "--hardware-timeout", "2"]
                + ["--bus-publish", address["configd"], *subscribe("router", "simd", "stranger")],
                environment,
                work / "configd.log",
            ),
            "router": Daemon(
                "router",
                [daemons / "routerd/kestro-routerd", "--listen-unix", self.socket, "--stats-name", self.stats]
                + [part for method, _, _ in LOAD for part in ("--timeout", f"{method}={METHOD_TIMEOUT}")]
                + ["--bus-publish", address["router"], *subscribe("simd", "configd", "stranger")],
                environment,
                work / "router.log",
            ),
        }

    def environment(self):
        environment = dict(os.environ)
        library = next(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"), None)
        self.clock_moves = library is not None
        if self.clock_moves:
            steady_timers = self.work / "steady_timers.so"
            if not steady_timers.exists():
                source = Path(__file__).with_name("steady_timers.c")
                subprocess.run(["cc", "-shared", "-fPIC", "-o", steady_timers, source], check=True)
            environment |= {
                "LD_PRELOAD": f"{steady_timers} {library}",
                "FAKETIME_TIMESTAMP_FILE": str(self.clock),
                "FAKETIME_CACHE_DURATION": "1",
                "FAKETIME_DONT_FAKE_MONOTONIC": "1",
                "DONT_FAKE_MONOTONIC": "1",
            }
        return environment

    def kestroctl(self, *arguments, **options):
        command = [self.build / "tools/kestroctl/kestroctl", "--socket", self.socket, *arguments]
        self.callers = [caller for caller in self.callers if caller.poll() is None]
        self.callers.append(
            subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)
        )
        return self.callers[-1]

    def call(self, method, params, patience=PATIENCE):
        process = self.kestroctl("call", method, json.dumps(params), "--timeout", str(patience))
        out, err = process.communicate()
        return process.returncode, out or err

    def counters(self):
        return json.loads(Path("/dev/shm" + self.stats).read_bytes().split(b"\0")[0])

    def stop(self):
        for caller in self.callers:
            caller.terminate()  # those that still run, where the soak was ended before its time
        return {name: daemon.stop() for name, daemon in self.daemons.items()}

    def clean_up(self):
        """Removes the shared memory that killed processes leave behind."""
        pids = [pid for daemon in self.daemons.values() for pid in daemon.pids]
        names = [self.stats] + [f"/{name}_{pid}" for pid in pids for name in ("faketime_shm", "sem.faketime_sem")]
        for name in names:
            Path("/dev/shm" + name).unlink(missing_ok=True)


# ---- What goes wrong; each says whether it did ----


def kill(appliance, chance, name):
    appliance.daemons[name].kill()
    time.sleep(chance.uniform(0.1, 2))
    appliance.daemons[name].start()
    return True


def stop_and_continue(appliance, chance, name):
    os.kill(appliance.daemons[name].pid, signal.SIGSTOP)
    time.sleep(chance.uniform(0.5, 5))
    os.kill(appliance.daemons[name].pid, signal.SIGCONT)
    return True


def lock_database(appliance, chance):
    connection = sqlite3.connect(appliance.database, timeout=5, isolation_level=None)
    with contextlib.closing(connection), contextlib.suppress(sqlite3.OperationalError):
        connection.execute("BEGIN EXCLUSIVE")
        time.sleep(chance.uniform(0.5, 4))
        connection.execute("ROLLBACK")
        return True
    return False


def fill_disk(appliance, chance):
    ballast = appliance.disk / "ballast"
    with open(ballast, "wb", buffering=0) as file, contextlib.suppress(OSError):
        while file.write(bytes(65536)) == 65536:
            pass
    full = os.statvfs(appliance.disk).f_bavail == 0
    time.sleep(chance.uniform(1, 4))
    ballast.unlink()
    return full


def exhaust_descriptors(appliance, chance, name):
    daemon = appliance.daemons[name]
    usual = resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, (len(list(daemon.open_files())), usual[1]))
    time.sleep(chance.uniform(1, 4))
    resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, usual)
    return True


def flood_bus(appliance, chance):
    strange_answer = '{"jsonrpc":"2.0","id":"ports.Get","result":[],"transaction_id":%d}'
    frames = [
        f"{REPLY_CHANNEL}|no json",
        f"{REPLY_CHANNEL}|" + strange_answer % 7,
        f"{REPLY_CHANNEL}|" + "[" * 5000,
        f"{CONFIG_CHANNEL}|" + '{"jsonrpc":"2.0","method":"nobody.Knows","params":{}}',
        f"{CONFIG_CHANNEL}|" + '{"jsonrpc":"2.0","method":"ports.Get","params":[],"id":{}}',
        f"{DEFAULT_CHANNEL}|" + '{"jsonrpc":"1.0"}',
        f"{DEFAULT_CHANNEL}|" + "x" * 100_000,
    ]
    end = time.monotonic() + chance.uniform(1, 3)
    sent = 0
    while time.monotonic() < end:
        sent += sum(appliance.stranger.publish(frame.encode()) for frame in frames)
        time.sleep(0.001)
    return sent > 0


def is_closed(client, deadline):
    """Reads what comes until the router closes the connection."""
    while (left := deadline - time.monotonic()) > 0:
        client.settimeout(left)
        try:
            if not client.recv(65536):
                return True
        except TimeoutError:
            return False
        except OSError:
            return True
    return False


def open_strange_clients(appliance, chance):
    """Some say nothing, some a byte now and then, some ask and read the answer long after."""
    clients = []
    question = b'{"jsonrpc":"2.0","method":"ports.Get","params":{"port_id":"all"},"id":1}\n'
    deadline = time.monotonic() + PATIENCE
    for number in range(60):
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(PATIENCE)
        with contextlib.suppress(OSError):
            client.connect(str(appliance.socket))
            clients.append(client)
            if number % 3 == 2:
                client.sendall(question)
    for _ in range(chance.randrange(4, 12)):
        for client in clients[1::3]:
            with contextlib.suppress(OSError):
                client.send(b" ")
        time.sleep(0.5)
    appliance.left_waiting += sum(not is_closed(client, deadline) for client in clients)
    for client in clients:
        client.close()
    return len(clients) > 0


def move_clock(appliance, chance):
    offset = chance.choice(["+86400", "-86400", "+1800", "-7"])
    appliance.clock.write_text(offset)
    time.sleep(2)
    shown = subprocess.run(["date", "+%s"], env=appliance.environment(), capture_output=True, text=True).stdout
    return abs(int(shown) - time.time() - int(offset)) < 5


def silence_hardware(appliance, chance):
    fault = chance.choice([{"fault": "silent"}, {"fault": "late", "milliseconds": 2500}, {"fault": "offline", "oec_id": "c1"}])
    status, _ = appliance.call("sim.SetFault", fault)
    time.sleep(chance.uniform(1, 5))
    for all_is_well in ({"fault": "none"}, {"fault": "none", "oec_id": "c1"}):
        if appliance.call("sim.SetFault", all_is_well)[0] != 0:
            say("the hardware did not hear that all is well again")
    return status == 0


def faults(appliance):
    for name in appliance.daemons:
        yield f"SIGKILL {name}", lambda a, c, name=name: kill(a, c, name)
        yield f"SIGSTOP {name}", lambda a, c, name=name: stop_and_continue(a, c, name)
        yield f"no descriptors for {name}", lambda a, c, name=name: exhaust_descriptors(a, c, name)
    yield "database locked by another process", lock_database
    if os.path.ismount(appliance.disk):
        yield "disk full", fill_disk
    else:
        say("not root: no file system to fill, that fault is left out")
    yield "flood on the bus", flood_bus
    yield "slow and silent clients", open_strange_clients
    yield "hardware silent, late or offline", silence_hardware
    if appliance.clock_moves:
        yield "clock jumps", move_clock
    else:
        say("no faketime installed: the clock stays as it is")


# ---- The load, its ledger and the verdict ----


class Load:
    """One `kestroctl bench` for each row of LOAD, for a time."""

    def __init__(self, appliance, seconds):
        self.rows = [
            (
                method,
                appliance.kestroctl(
                    *("bench", "--method", method, "--params", json.dumps(params), "--clients", str(clients)),
                    *("--duration", str(seconds), "--timeout", str(PATIENCE), "--json"),
                ),
            )
            for method, params, clients in LOAD
        ]

    def ledgers(self):
        for method, process in self.rows:
            out, err = process.communicate()
            try:
                yield method, json.loads(out)
            except ValueError:
                sys.exit(f"soak: kestroctl bench of {method} ended with {process.returncode}: {err}")


OUTCOMES = ("answered", "timed_out", "busy", "closed", "not_connected", "lost", "mixed_up")


def add_up(ledgers):
    """One ledger of many. `kestroctl bench` gives up on a client after PATIENCE and calls its request lost."""
    total = dict.fromkeys(OUTCOMES, 0) | {"requests": 0, "errors": {}, "worst": 0.0}
    for _, ledger in ledgers:
        for key in ("requests", *OUTCOMES):
            total[key] += ledger[key]
        for code, count in ledger["errors"].items():
            total["errors"][code] = total["errors"].get(code, 0) + count
        total["worst"] = max(total["worst"], ledger["latency_ms"]["max"] / 1000)
    return total


def prepare(appliance):
    deadline = time.monotonic() + 20
    while appliance.call("oec.List", {}, 2)[0] != 0:
        if time.monotonic() > deadline:
            sys.exit("soak: the appliance does not answer; its logs are in " + str(appliance.work))
        time.sleep(0.1)
    for number, model in ((1, "VTR-E30p"), (2, "VTR-E6301p")):
        switch = {"oec_id": f"c{number}", "model": model, "mac_address": f"02:00:00:00:00:0{number}"}
        status, text = appliance.call("oec.Register", switch)
        if status != 0:
            sys.exit(f"soak: oec.Register: {text}")


def measure(appliance, chance):
    """Memory and descriptors at rest, after a load with a crowd and a flood in it: what buffers grow for, they keep.

    With the ledgers of that load.
    """
    load = Load(appliance, WARM_UP)
    open_strange_clients(appliance, chance)
    flood_bus(appliance, chance)
    ledgers = list(load.ledgers())
    time.sleep(REST)
    return {name: (daemon.memory(), daemon.descriptors()) for name, daemon in appliance.daemons.items()}, ledgers


def run_faults(appliance, chance, seconds):
    """How often each fault was tried, and how often it came about."""
    tried, applied = collections.Counter(), collections.Counter()
    begin = time.monotonic()
    table = list(faults(appliance))
    while True:
        chance.shuffle(table)
        for what, action in table:
            passed = time.monotonic() - begin
            if passed > seconds:
                return tried, applied
            if what.startswith("SIGKILL") and tried[what] > 0 and passed > seconds * MORTAL:
                continue
            say(what)
            tried[what] += 1
            applied[what] += action(appliance, chance)
            for daemon in appliance.daemons.values():
                if not daemon.alive():
                    say(f"{daemon.name} ended by itself: {daemon.process.returncode}")
                    daemon.unexpected_ends += 1
                    daemon.start()
            time.sleep(chance.uniform(0.2, 1.5))


def check_database(path):
    with contextlib.closing(sqlite3.connect(path)) as connection:
        integrity = connection.execute("PRAGMA integrity_check").fetchall()
        foreign = connection.execute("PRAGMA foreign_key_check").fetchall()
        return integrity == [("ok",)] and not foreign, f"{integrity[0][0]}, {len(foreign)} broken references"


def verdict(total, before, after, appliance, strangers, ends, database):
    sound, database_text = database
    rows = [("requests", total["requests"], None), ("answered", total["answered"], total["answered"] > 0)]
    rows += [(f"error {code}", count, None) for code, count in sorted(total["errors"].items())]
    rows += [(name.replace("_", " "), total[name], None) for name in ("timed_out", "busy", "closed", "not_connected")]
    rows += [(name.replace("_", " "), total[name], total[name] == 0) for name in ("lost", "mixed_up")]
    outcomes = sum(total["errors"].values()) + sum(total[name] for name in OUTCOMES)
    rows.append(("outcomes", outcomes, outcomes == total["requests"]))
    rows.append(("worst time to answer", f"{total['worst']:.2f} s", total["worst"] <= PATIENCE))
    rows.append(("strange clients left waiting", appliance.left_waiting, appliance.left_waiting == 0))
    rows.append(("frames of strangers met", strangers, strangers > 0))
    for name in before:
        (memory, descriptors), (memory_after, descriptors_after) = before[name], after[name]
        grown = memory_after.own - memory.own
        rows.append((f"resident memory of {name}", f"{memory.resident} -> {memory_after.resident} KiB", None))
        rows.append(("of it its own", f"{memory.own} -> {memory_after.own} KiB", grown <= memory.resident * MEMORY_GROWTH))
        rows.append((f"descriptors of {name}", f"{descriptors} -> {descriptors_after}", descriptors_after <= descriptors))
        unexpected = appliance.daemons[name].unexpected_ends
        rows.append((f"unexpected ends of {name}", unexpected, unexpected == 0))
        rows.append((f"exit status of {name}", ends[name], ends[name] == 0))
    rows.append(("integrity_check", database_text, sound))
    print()
    for what, value, good in rows:
        print(f"  {what:30} {value!s:>24}  {'' if good is None else 'ok' if good else 'NOT MET'}")
    return all(good is not False for _, _, good in rows)


def soak(build, minutes, seed, work):
    chance = random.Random(seed)
    appliance = Appliance(build, work)
    try:
        prepare(appliance)
        say(f"warming up for {WARM_UP:.0f} s")
        before, ledgers = measure(appliance, chance)
        seconds = minutes * 60
        load = Load(appliance, seconds)
        tried, applied = run_faults(appliance, chance, seconds - 2)
        ledgers += load.ledgers()
        appliance.clock.write_text("+0")
        after, last_ledgers = measure(appliance, chance)
        counters = appliance.counters()
    finally:
        ends = appliance.stop()
        appliance.clean_up()
    print(f"\nfaults: {tried.total()}, seed {seed}")
    for what in sorted(tried):
        missed = tried[what] - applied[what]
        print(f"  {what:40} {applied[what]:6}{f'  ({missed} more did not come about)' if missed else ''}")
    total = add_up(ledgers + last_ledgers)
    strangers = counters["foreign"] + counters["garbage"]
    held = verdict(total, before, after, appliance, strangers, ends, check_database(appliance.database))
    never = [what for what in tried if applied[what] == 0]
    if never:
        print("\nnever came about: " + ", ".join(never))
    return held and not never


def on_own_disk(action, work):
    """As root, the database stands on a small file system of its own, which can be filled."""
    disk = work / "disk"
    disk.mkdir()
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={TMPFS_SIZE}", "none", disk], capture_output=True).returncode == 0
    try:
        return action()
    finally:
        if mounted:
            subprocess.run(["umount", disk], check=False)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=lambda path: Path(path).resolve())
    parser.add_argument("--minutes", type=float, default=2)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--keep", action="store_true", help="keep the logs and the database")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("soak: ended by a signal"))  # and the daemons with it
    work = Path(tempfile.mkdtemp(prefix="kestro-soak-"))
    good = False
    try:
        good = on_own_disk(lambda: soak(options.build, options.minutes, options.seed, work), work)
    finally:
        if good and not options.keep:
            shutil.rmtree(work)
        else:
            print(f"\nlogs: {work}")
    print("\nsoak:", "held" if good else "DID NOT HOLD")
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
