"""Runs a story's day in a private root of its own."""
import json
import os
import shutil
import subprocess
import tempfile

import server as servers

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
LENGTH = 620  # seconds of the simulated clock


class NotPlayed(Exception):
    """The stage could not be set: this says nothing about the service."""


def inside(common, build, program, *arguments, timeout):
    """Runs a program of this folder in a private root on the bad days' server; the directory `common`
    is its /run/sim/common."""
    with tempfile.TemporaryDirectory(prefix="bad-day.") as scratch:
        root = f"{scratch}/root"
        os.makedirs(f"{root}/var/log")
        with open(f"{scratch}/server.json", "w") as file:
            json.dump(servers.described(), file)
        history = subprocess.run([f"{build}/sim/hostcmds/bin/vmksummary"], capture_output=True,
                                 text=True, check=True).stdout
        with open(f"{root}/var/log/vmksummary.log", "w") as file:
            file.write([line for line in history.splitlines() if line.endswith("booted")][-1] + "\n")
        subprocess.run([f"{build}/sim/server/tav-sim-server", "build", f"{scratch}/server.json",
                        root], check=True)
        return subprocess.run(
            [f"{PROJECT}/sim/enter", "--fill", root, "--bind", build, "--bind-as", common,
             "/run/sim/common", "--net-admin", "--program", f"{PROJECT}/sim/hostcmds/mdadm",
             "/usr/sbin/mdadm", "--", "python3", "-B", f"{HERE}/{program}", *map(str, arguments)],
            capture_output=True, text=True, check=False, timeout=timeout)


def day(orders, build, speed, length=LENGTH):
    """What has come of the orders: see play.py."""
    with tempfile.TemporaryDirectory(prefix="bad-day.") as common:
        with open(f"{common}/story", "w") as file:
            json.dump(orders, file)
        played = inside(common, build, "play.py", "/run/sim/common/story", build, speed, length,
                        timeout=length / speed + 150)
        if played.returncode != 0 or not os.path.exists(f"{common}/story.played"):
            raise NotPlayed((played.stderr + played.stdout).strip()[-2000:])
        with open(f"{common}/story.played") as file:
            return json.load(file)


def is_built(build):
    return all(shutil.which(f"{build}/{program}") for program in (
        "bench/service/tavd_fast", "sim/server/tav-sim-server", "sim/rmc/tav-sim-rmc"))
