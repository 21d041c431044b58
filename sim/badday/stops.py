#!/usr/bin/python3
"""Starts and stops the service again and again inside a private root, each time at a random moment
while up to five random things hang, and writes how long each stop took.

  stops.py RESULT BUILD SPEED COUNT SEED

RESULT is a file that gets one JSON object a line. With a SPEED of 1 the service is tavd itself; else
tavd_fast, which lives SPEED times as fast and, when it is told to stop, at the ordinary speed again: a
stop has to take no longer than it may in real seconds."""
import json
import os
import random
import signal
import socket
import subprocess
import sys
import time

import play

LONGEST_LIFE = 90  # seconds of the service's clock
YOUNG = 20
DISKS = ("sg0", "sg1", "sg2", "sg3")
COMMANDS = ("0 1", "0 3", "1 0", "1 4", "1 5", "1 11", "1 13", "2 0", "3 0", "3 11", "6 3", "7 0")
EVENT = 'event 0 code=0x72 class=0 locale=2 type=15 drive=8 previous=0x18 new=0x11 text="PD 08"'


def random_troubles(dice):
    """Up to five, no two of one part: (what hangs, how it is ordered, how it is taken back)."""
    disks = [(f"{disk} in {where}", f"change disks {disk} hang={where}", f"change disks {disk} hang=no")
             for disk in DISKS for where in (dice.choice(("command", "open")),)]
    command = dice.choice(COMMANDS)
    parts = disks + [
        (f"the RAID library in {command}", f"raid hang {command}", "raid resume"),
        ("the RAID library's end", "raid hang 0 2", "raid resume"),
        ("localcli", "hang localcli", "unhang localcli"),
        ("esxtop", "hang esxtop", "unhang esxtop"),
        ("the driver", "hang ipmi0", "unhang ipmi0"),
        ("the controller", "rmc lost,nth=all", "rmc withdraw=all"),
        ("the controller in a transfer", "rmc lost,frame=2,nth=all", "rmc withdraw=all"),
        ("the system log", "deaf log", "undeaf log"),
        ("a client", "client", "no client"),
    ]
    return dice.sample(parts, dice.randrange(6))


class Stops(play.Stage):
    def __init__(self, build, speed, seed):
        super().__init__(build, speed)
        self.dice = random.Random(seed)
        self.client = None
        self.log = None
        signal.signal(signal.SIGUSR1, signal.SIG_IGN)  # and so it is to a service that just begins

    def do(self, order):
        if order == "client":
            self.client = subprocess.Popen([f"{self.build}/tools/tavctl", "event", "708"],
                                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        elif order == "no client":
            self.client.kill()
            self.client.wait()
        elif order == "deaf log":
            self.log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            self.log.bind("/dev/log")
        elif order == "undeaf log":
            self.log.close()
            os.unlink("/dev/log")
        else:
            return super().do(order)
        return "ok"

    def start_service(self):
        if self.speed != 1:
            super().start_service()
            return
        self.errors = open("/run/sim/service.err", "ab")
        self.process = subprocess.Popen(
            [f"{self.build}/service/tavd", "--generic-storage", "--fibre-channel"],
            env=self.environment, stdin=subprocess.DEVNULL, stdout=self.errors, stderr=self.errors)
        self.services.append({"started": self.now(), "samples": []})

    def one(self):
        """One life of the service; how it ended."""
        troubles = random_troubles(self.dice)
        life = self.dice.uniform(0, LONGEST_LIFE)
        begins = sorted(self.dice.uniform(0, life) for _ in troubles)
        self.start_service()
        born = self.now()
        for begin, (_, order, _) in zip(begins, troubles):
            self.sleep_until(born + begin)
            answer = self.do(order)
            if answer not in ("ok", "", None) and "unreachable" not in answer:
                print(f"{order}: {answer}", file=sys.stderr)
            if self.dice.random() < 0.5:
                play.ask(play.LIBRARY, EVENT)
        self.sleep_until(born + life)
        if self.speed != 1:
            self.process.send_signal(signal.SIGUSR1)
        self.stop_service()
        service = self.services.pop()
        for _, _, back in troubles:
            self.do(back)
        left = service["left"]
        patience = time.monotonic() + 2  # what has been killed dies when the machine lets it
        while left and time.monotonic() < patience:
            time.sleep(0.05)
            left = self.orphans()
        # Before it has made anything its own, a signal ends it as any other program.
        has_ended = service["status"] == 0 or life < YOUNG and service["status"] == -signal.SIGTERM
        return {"life": round(life, 1), "hanging": [what for what, _, _ in troubles],
                "took": round(service["stop took"], 3), "status": service["status"],
                "is clean": has_ended and not left, "left": left}


def main():
    result, build, speed, count, seed = sys.argv[1], sys.argv[2], *map(int, sys.argv[3:])
    stage = Stops(build, speed, seed)
    with open(result, "w", encoding="utf-8") as file:
        for _ in range(count):
            print(json.dumps(stage.one()), file=file, flush=True)
    stage.rmc.terminate()
    stage.rmc.wait()


if __name__ == "__main__":
    main()
