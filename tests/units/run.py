#!/usr/bin/env python3
"""Starts the daemons as their units say, all at once, and looks whether the sandbox leaves them what they need.

There is no service manager here: each runs as an ordinary user without privileges, with the unit's umask, limit of
descriptors and environment, its directories and ports moved. What the kernel would refuse is found in a trace of its
system calls: calls outside of SystemCallFilter, address families, memory that is written and executed. The trace tells
also whether each descriptor is opened close-on-exec.

Usage: run.py SOURCE_DIRECTORY BUILD_DIRECTORY
"""

import contextlib
import os
import pathlib
import re
import resource
import select
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

NOBODY = 65534
PATIENCE = 60

findings = []


class Unit:
    """A unit file as systemd reads it: settings by name, each a list in the order of the file."""

    def __init__(self, path):
        self.name = path.stem
        text = re.sub(r"\\\n\s*", " ", path.read_text())
        self.settings = {}
        for line in text.splitlines():
            if re.match(r"[A-Za-z]+=", line):
                key, value = line.split("=", 1)
                self.settings.setdefault(key, []).append(value)

    def one(self, key):
        return self.settings[key][-1]

    def environment(self):
        return dict(line.split("=", 1) for line in self.settings.get("Environment", []))

    def command(self, environment):
        words = []
        for word in shlex.split(self.one("ExecStart")):
            if re.fullmatch(r"\$\w+", word):
                words += shlex.split(environment[word[1:]])
            else:
                words.append(re.sub(r"\$\{(\w+)\}", lambda match: environment[match[1]], word))
        return words


def syscalls_of(name, known={}):
    """The system calls of a set such as @basic-io, or of a plain name."""
    if not name.startswith("@"):
        return {name}
    if name not in known:
        listing = subprocess.run(["systemd-analyze", "syscall-filter", name], capture_output=True, text=True, check=True)
        members = [line.strip() for line in listing.stdout.splitlines()[1:] if not line.strip().startswith("#")]
        known[name] = set().union(*(syscalls_of(member) for member in members if member))
    return known[name]


def allowed_syscalls(unit):
    allowed = syscalls_of("@default")
    for line in unit.settings["SystemCallFilter"]:
        named = set().union(*(syscalls_of(name) for name in line.lstrip("~").split()))
        allowed = allowed - named if line.startswith("~") else allowed | named
    return allowed


def free_address():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return "tcp://127.0.0.1:%d" % probe.getsockname()[1]


class Daemon:
    """A started unit. Its directories lie below `work`."""

    def __init__(self, unit, program, work, environment):
        self.unit = unit
        self.trace = work / (unit.name + ".trace")
        self.log = work / (unit.name + ".log")
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        notify = work / (unit.name + ".notify")
        self.manager.bind(str(notify))
        notify.chmod(0o666)
        self.heard = ""
        self.pid = 0

        moved = {"/run/kestro/": str(work) + "/", "/var/lib/kestro-configd/": str(work) + "/"}
        words = unit.command(environment)
        for old, new in moved.items():
            words = [word.replace(old, new) for word in words]
        tracer = ["strace", "-f", "-qq", "-e", "signal=none", "-o", str(self.trace), str(program)]
        setpriv = ["setpriv", "--no-new-privs", "--inh-caps=-all"]
        if os.geteuid() == 0:
            setpriv += [f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", "--bounding-set=-all"]
        self.process = subprocess.Popen(setpriv + tracer + words[1:], stderr=self.log.open("w"), cwd="/",
                                        env={"PATH": "/usr/bin:/bin", "NOTIFY_SOCKET": str(notify)},
                                        preexec_fn=self.limit, start_new_session=True)

    def limit(self):
        os.umask(int(self.unit.one("UMask"), 8))
        files = int(self.unit.one("LimitNOFILE"))
        resource.setrlimit(resource.RLIMIT_NOFILE, (files, files))

    def hears(self, text):
        deadline = time.monotonic() + PATIENCE
        while text not in self.heard and time.monotonic() < deadline and self.process.poll() is None:
            if select.select([self.manager], [], [], 0.1)[0]:
                message, ancillary, _, _ = self.manager.recvmsg(4096, socket.CMSG_SPACE(12))
                self.heard += message.decode() + "\n"
                self.pid = struct.unpack("iii", ancillary[0][2])[0]
        return text in self.heard

    def end(self):
        with contextlib.suppress(ProcessLookupError):  # it may have ended by itself
            if self.pid:
                os.kill(self.pid, signal.SIGTERM)
            else:
                os.killpg(self.process.pid, signal.SIGKILL)
        try:
            status = self.process.wait(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)
            status = f"{self.process.wait()}, for SIGTERM does not end it"
        if status != 0:
            findings.append(f"{self.unit.name}: ended with {status}; its log:\n{self.log.read_text()}")


OPENING = ("open", "openat", "socket", "socketpair", "accept", "accept4", "epoll_create", "epoll_create1", "eventfd",
           "eventfd2", "pipe", "pipe2", "timerfd_create", "signalfd4", "memfd_create", "inotify_init1", "dup", "dup3")


class Descriptors:
    """Those that a child would inherit, by number: what opened each."""

    def __init__(self):
        self.inheritable = {}

    def note(self, name, rest):
        result = re.search(r"= (\d+)", rest)
        if name in OPENING and result and "CLOEXEC" not in rest:
            pair = re.search(r"\[(\d+), (\d+)\]", rest)
            for number in pair.groups() if pair else (result[1],):
                self.inheritable[number] = f"{name}({rest}"
        closed = re.match(r"(\d+) *\)", rest) if name == "close" else None
        marked = re.match(r"(\d+), F_SETFD, FD_CLOEXEC", rest) if name == "fcntl" else None
        if closed or marked:
            self.inheritable.pop((closed or marked)[1], None)


def refusals(unit, allowed, name, rest):
    """Why the sandbox of the unit would refuse a system call; nothing for most."""
    if allowed is not None and name not in allowed:
        yield f"calls {name}, which SystemCallFilter refuses"
    family = re.match(r"AF_\w+", rest) if name == "socket" else None
    if family and family[0] not in unit.one("RestrictAddressFamilies").split():
        yield f"opens a socket of {family[0]}, which RestrictAddressFamilies refuses"
    executable = name in ("mmap", "mprotect", "pkey_mprotect") and "PROT_EXEC" in rest
    if executable and (name != "mmap" or "PROT_WRITE" in rest):
        yield f"makes memory executable, which MemoryDenyWriteExecute refuses: {name}({rest}"


def check_trace(daemon):
    allowed = allowed_syscalls(daemon.unit) if shutil.which("systemd-analyze") else None
    found = set()
    descriptors = Descriptors()
    calls = []
    halves = {}
    for line in daemon.trace.read_text().splitlines():
        thread, text = line.split(maxsplit=1)
        if "<unfinished ...>" in text:
            halves[thread] = text.replace("<unfinished ...>", "")
            continue
        text = re.sub(r"<\.\.\. \w+ resumed>", lambda _: halves.pop(thread), text)
        if call := re.match(r"(\w+)\((.*)", text):
            calls.append(call.groups())
    for name, rest in calls[1:]:  # the first starts the program
        found.update(refusals(daemon.unit, allowed, name, rest))
        descriptors.note(name, rest)
    found.update("opens what a child would inherit: " + call for call in descriptors.inheritable.values())
    if len(calls) < 2:
        found.add("left no trace")
    findings.extend(f"{daemon.unit.name}: {finding}" for finding in sorted(found))


def call_router(work):
    with socket.socket(socket.AF_UNIX) as client:
        client.settimeout(PATIENCE)
        client.connect(str(work / "router.sock"))
        client.sendall(b'{"jsonrpc":"2.0","method":"rpc.discover","params":{},"id":1}')
        client.shutdown(socket.SHUT_WR)
        while client.recv(65536):
            pass


def look_at(daemons, work):
    for daemon in daemons:
        if not daemon.hears("READY=1"):
            findings.append(f"{daemon.unit.name}: did not become ready; its log:\n{daemon.log.read_text()}")
    if findings:
        return
    call_router(work)
    for daemon in daemons:
        if not daemon.hears("WATCHDOG=1"):
            findings.append(f"{daemon.unit.name}: does not say that it is alive")
    mode = os.stat(f"/dev/shm/kestro-units-{os.getpid()}").st_mode & 0o777
    if mode != 0o644:
        findings.append(f"kestro-routerd: its counters have mode {mode:o}")


def main():
    source, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    units = [Unit(path) for path in sorted((source / "daemons").glob("*.service"))]
    programs = {unit.name: build / "daemons" / unit.name.removeprefix("kestro-") / unit.name for unit in units}
    built = [unit for unit in units if programs[unit.name].exists()]
    if not built:
        sys.exit("no daemon is built")

    environment = {}
    for unit in units:
        environment.update(unit.environment())
    environment.update({name: free_address() for name in environment if name.startswith("KESTRO_BUS_")})
    environment["KESTRO_ROUTERD_OPTIONS"] = f"--stats-name /kestro-units-{os.getpid()} --timeout rpc.discover=1"

    with tempfile.TemporaryDirectory(prefix="kestro-units-") as directory:
        work = pathlib.Path(directory)
        (work / "update").mkdir()
        if os.geteuid() == 0:
            for path in (work, work / "update"):
                os.chown(path, NOBODY, NOBODY)
        daemons = []
        for unit in built:
            program = work / unit.name
            shutil.copy(programs[unit.name], program)
            program.chmod(0o755)
            daemons.append(Daemon(unit, program, work, environment))
        try:
            look_at(daemons, work)
        finally:
            for daemon in daemons:
                daemon.end()
        for daemon in daemons:
            check_trace(daemon)

    for finding in findings:
        print(finding, file=sys.stderr)
    print(f"{len(built)} of {len(units)} units started: " + " ".join(unit.name for unit in built))
    sys.exit(1 if findings else 0)


main()
