#!/usr/bin/python3
"""Plays one story inside a private root and leaves beside it what has come of it.

  play.py STORY BUILD SPEED LENGTH

Runs the simulated management controller and the service on a clock SPEED times as fast as the real
one, gives the orders of STORY (a file) at their moments, lets the controller ring for an inventory
when all has been calm, and writes STORY.played: when each order was given, when the service started
and stopped, what it held, the record. All times are seconds of the simulated clock."""
import contextlib
import ctypes
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import threading
import time

import server as servers

RECORD = "/run/sim/record"
ORDERS = "/run/sim/rmc.orders"
LIBRARY = "/run/sim/storelib"
DESCRIPTION = "/run/sim/server.json"
CLOCK = "/run/sim/clock"  # seconds by which the service's clock is set off, 8 bytes
CALM = 105  # before the end: the controller rings
STOP_PATIENCE = 10  # real seconds
LOOKS = 10, 25, 0.02  # at what the service holds: at first and later, real seconds between two


def ask(path, line):
    """Gives an order on a socket; its answer, or the reason why there is none."""
    try:
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(2)
            client.connect(path)
            client.sendall(line.encode() + b"\n")
            return client.recv(4096).decode().strip()
    except OSError as fault:
        return f"unreachable: {fault}"


class Stage:
    def __init__(self, build, speed):
        self.build, self.speed = build, speed
        self.server = servers.described()
        self.given, self.services = [], []
        self.process = self.rmc = None
        self.lag, self.lags, self.ended = 0.0, [], False
        environment = dict(os.environ, TAV_CLOCK_SPEED=str(speed))
        self.environment = dict(environment, TAV_SIM_RMC="/run/sim/rmc",
                                LD_PRELOAD=f"{build}/sim/device/libtav-sim-preload.so",
                                LD_LIBRARY_PATH=f"{build}/sim/storelib")
        for program in os.listdir(f"{build}/sim/hostcmds/bin"):
            os.symlink(f"{build}/sim/hostcmds/bin/{program}", f"/run/sim/bin/{program}")
        os.symlink(f"{build}/sim/server/tav-sim-server", "/run/sim/bin/tav-sim-server")
        for directory in ("hang", "fail"):
            os.makedirs(f"/run/sim/{directory}", exist_ok=True)
        with open(CLOCK, "wb") as file:
            file.write(bytes(8))
        subprocess.run(["tav-sim-server", "links"], check=True)
        # What loses its parent becomes ours, so that nobody can leave a child behind unseen.
        ctypes.CDLL(None).prctl(36, 1, 0, 0, 0)
        self.rmc = subprocess.Popen(
            [f"{build}/sim/rmc/tav-sim-rmc", "--socket", "/run/sim/rmc", "--control", ORDERS,
             "--record", RECORD, "--quiet"], env=environment)
        while not os.path.exists(ORDERS):
            time.sleep(0.001)
        # The controller's clock has begun: what it has recorded is never older than its cause.
        self.start = time.monotonic()
        threading.Thread(target=self.watch_the_machine, daemon=True).start()

    def now(self):
        return (time.monotonic() - self.start) * self.speed

    def sleep_until(self, moment):
        time.sleep(max(0.0, self.start + moment / self.speed - time.monotonic()))

    def watch_the_machine(self):
        """How late the machine itself lets somebody run who wants to: no fault of the service."""
        while not self.ended:
            before = time.monotonic()
            time.sleep(0.005)
            late = time.monotonic() - before - 0.005
            self.lag = max(self.lag, late)
            if late > 0.02:
                self.lags.append([self.now(), late * self.speed])

    # --- the service ------------------------------------------------------------------------------

    def start_service(self):
        self.errors = open("/run/sim/service.err", "ab")
        self.process = subprocess.Popen(
            [f"{self.build}/bench/service/tavd_fast", "--generic-storage", "--fibre-channel"],
            env=self.environment, stdin=subprocess.DEVNULL, stdout=self.errors, stderr=self.errors)
        self.services.append({"started": self.now(), "samples": []})

    def stop_service(self):
        service = self.services[-1]
        self.wait_until_it_hears(signal.SIGTERM)
        service["stopping"] = self.now()
        before = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        try:
            service["status"] = self.process.wait(STOP_PATIENCE)
        except subprocess.TimeoutExpired:
            service["status"] = "does not stop"
            self.process.kill()
            self.process.wait()
        service["stop took"] = time.monotonic() - before
        service["stopped"] = self.now()
        for _ in range(10):  # what has been killed may still be in the kernel
            time.sleep(0.2)
            service["left"] = self.orphans()
            if not service["left"]:
                break

    @staticmethod
    def orphans():
        """What the service has left running; what has ended only waits for us."""
        listed = subprocess.run(["ps", "-o", "stat=,comm=", "--ppid", str(os.getpid())],
                                capture_output=True, text=True, check=False).stdout
        return [line for line in listed.splitlines()
                if not line.startswith("Z") and line.split()[1] not in ("ps", "tav-sim-rmc")]

    def sample(self):
        """What the service holds between two rounds, in which it needs more."""
        looks, samples = [], self.services[-1]["samples"]
        for _ in range(LOOKS[1] if samples else LOOKS[0]):
            if self.process.poll() is not None:
                self.services[-1].setdefault("died", [self.now(), self.process.returncode])
                return
            try:
                looks.append(self.held())
            except (OSError, KeyError):
                continue  # it has just ended
            if samples and all(looks[-1][what] <= samples[0][what]
                               for what in ("threads", "descriptors")):
                break
            time.sleep(LOOKS[2])
        if not looks:
            return
        least = {what: min(look[what] for look in looks) for what in looks[0]}
        samples.append({"at": self.now(), **least})

    def held(self):
        proc = f"/proc/{self.process.pid}"
        with open(f"{proc}/status") as file:
            facts = dict(line.split(":", 1) for line in file)
        return {"threads": int(facts["Threads"]), "descriptors": len(os.listdir(f"{proc}/fd")),
                "kB": int(facts["VmRSS"].split()[0])}

    def wait_until_it_hears(self, number):
        """Before its program has been loaded a process can do nothing about a signal."""
        for _ in range(1000):
            with open(f"/proc/{self.process.pid}/status") as file:
                facts = dict(line.split(":", 1) for line in file)
            if any(int(facts[mask], 16) >> (number - 1) & 1
                   for mask in ("SigBlk", "SigIgn", "SigCgt")):
                return
            time.sleep(0.001)

    def wait_for_link(self, name):
        """The kernel takes its time to tell that a link is up or down."""
        wanted = servers.find(self.server["ethernet"], name)["link"] == "up"
        for _ in range(1000):
            state = subprocess.run(["ip", "-br", "link", "show", name], capture_output=True,
                                   text=True, check=False).stdout
            if ("LOWER_UP" in state and " UP " in state) == wanted:
                return
            time.sleep(0.002)

    # --- orders -----------------------------------------------------------------------------------

    def do(self, order):
        words = order.split()
        verb, rest = words[0], order.partition(" ")[2]
        if verb == "change":
            servers.apply(self.server, order)
            done = subprocess.run(["tav-sim-server", *words], capture_output=True, text=True,
                                  check=False)
            if done.returncode != 0:  # the truth would be another one than the server
                sys.exit(f"{order}: {done.stderr.strip()}")
            if words[1] == "ethernet":
                self.wait_for_link(words[2])
            return "ok"
        if verb == "raid":
            if words[1] in ("controller", "drive", "volume"):
                servers.apply(self.server, order)
                servers.write(self.server, DESCRIPTION)
            answer = ask(LIBRARY, rest)
            if answer.startswith("no such command"):
                sys.exit(f"{order}: {answer}")
            return answer
        if verb == "first":
            servers.apply(self.server, order)
            servers.write(self.server, DESCRIPTION)
            return "ok"
        if verb == "clock":
            with open(CLOCK, "r+b", buffering=0) as file:
                file.write(struct.pack("q", int(words[1])))
            return "ok"
        if verb == "rmc":
            return ask(ORDERS, rest)
        if verb in ("hang", "fail"):
            open(f"/run/sim/{verb}/{words[1]}", "w").close()
        elif verb in ("unhang", "unfail"):
            with contextlib.suppress(FileNotFoundError):  # a shorter story lacks the order before
                os.unlink(f"/run/sim/{verb[2:]}/{words[1]}")
        elif verb == "restart":
            self.stop_service()
            if self.services[-1]["status"] != "does not stop":
                self.start_service()
        elif verb == "hup":
            self.wait_until_it_hears(signal.SIGHUP)
            self.process.send_signal(signal.SIGHUP)
        else:
            return "no such order"
        return "ok"

    def give(self, order):
        given = {"planned": order["at"], "at": self.now(), "do": order["do"]}
        given["answer"] = self.do(order["do"])
        given["done"] = self.now()
        self.given.append(given)

    def end(self):
        """Whatever has happened: who is left would keep the one waiting who reads our output."""
        for process in (self.process, self.rmc):
            if process is not None and process.poll() is None:
                process.kill()
                process.wait()

    def play(self, orders, length):
        for adapter in self.server["ethernet"]:
            self.wait_for_link(adapter["name"])
        for order in orders:
            if order["at"] < 0:
                self.give(order)
        orders = [order for order in orders if order["at"] >= 0]
        self.start_service()
        pending = sorted(orders + [{"at": 55, "do": "sample"}, {"at": length - CALM, "do": "sample"},
                                   {"at": length - CALM, "do": "rmc doorbell=WriteInventory"}],
                         key=lambda order: order["at"])
        for order in pending:
            if self.services[-1].get("status") == "does not stop":
                break
            self.sleep_until(order["at"])
            if order["do"] == "sample":
                self.sample()
                continue
            self.give(order)
        else:
            self.sleep_until(length)
            self.sample()
            self.stop_service()
        self.rmc.terminate()
        self.rmc.wait()
        self.ended = True

    def played(self, length):
        with open(RECORD) as file:
            record = [json.loads(line) for line in file]
        complaints = ""
        for path in ("/run/sim/storelib.violations", "/run/sim/service.err"):
            if os.path.exists(path):
                with open(path, errors="replace") as file:
                    complaints += file.read()
        return {"speed": self.speed, "length": length, "lag": self.lag, "lags": self.lags,
                "orders": self.given, "services": self.services, "record": record,
                "complaints": complaints.splitlines()}


def main():
    path, build, speed, length = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
    with open(path) as file:
        orders = json.load(file)
    stage = Stage(build, speed)
    try:
        stage.play(orders, length)
    finally:
        stage.end()
    with open(path + ".played", "w") as file:
        json.dump(stage.played(length), file)


if __name__ == "__main__":
    main()
