#!/usr/bin/python3
"""A captured host, replayed, is that host: the same inventory comes of it.

Every described server, and this machine, run with the service while tavctl captures them, once with
their identities and once with stand-ins; then both captures are run.
"""
import gzip
import io
import json
import os
import pathlib
import re
import shutil
import subprocess
import tarfile
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("TAV_BUILD", ROOT / "build/dev")).resolve()
SERVERS = ROOT / "sim/servers"
SERVICE = [BUILD / "tests/sim/tavd_quick", "--fibre-channel", "--generic-storage=any"]
# Captures the host, and goes on as the service.
CAPTURING = """#!/bin/sh
set -e
for way in --keep-identities ''; do tavctl capture $way {folder}/${{way:+kept}}.tar.gz >&2; done
exec "$@"
"""
CONFIGURATION = {"EnableResources": ["All"], "IPMIDoorBellMonitorInterval": "1"}
# What time gives, and no host.
TRANSIENT = {"LastCollection", "TotalFreeSystemMemoryGiB"}


def run(*arguments, record):
    environment = dict(os.environ, TAV_CLOCK_SPEED="20")
    command = [ROOT / "sim/run", "--quiet", "--timeout", "6000", "--record", record,
               "--inject", "doorbell=WriteInventory", "--until", "WriteInventory=2", *arguments]
    done = subprocess.run([str(part) for part in command], env=environment, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
    if done.returncode != 0:
        raise RuntimeError(f"status {done.returncode}\n{done.stdout}")
    return inventory(record)


def inventory(record):
    """The last one of the controller's record, without what time gives. The first one may still lack
    what has not answered in time on a busy machine."""
    lines = [json.loads(line) for line in pathlib.Path(record).read_text().splitlines()]
    assert not [line for line in lines if "violation" in line], lines
    last = [line["payload"] for line in lines if line.get("command") == "WriteInventory"][-1]
    return settled(json.loads(last))


def settled(value):
    if isinstance(value, dict):
        return {key: settled(each) for key, each in value.items() if key not in TRANSIENT}
    return [settled(each) for each in value] if isinstance(value, list) else value


def texts_of(value):
    """All texts and what else is no container, in their order, with the way to each."""
    if isinstance(value, dict):
        return [(f"{key}/{way}", text) for key in value for way, text in texts_of(value[key])]
    if isinstance(value, list):
        return [(f"{n}/{way}", text) for n, each in enumerate(value) for way, text in texts_of(each)]
    return [("", value)]


def shape(text):
    for pattern, kind in (("[0-9]", "9"), ("[a-z]", "a"), ("[A-Z]", "A")):
        text = re.sub(pattern, kind, text)
    return text


IDENTITY = re.compile(r"Serial|MACAddress|WWN|WWPN|HostName|DurableName|IPv4|Identifier")


class Replay(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        (BUILD / "tests/sim").mkdir(parents=True, exist_ok=True)
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=BUILD / "tests/sim", prefix="replay-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.capturing = self.folder / "capturing"
        self.capturing.write_text(CAPTURING.format(folder=self.folder))
        self.capturing.chmod(0o755)

    def run_host(self, *options):
        configuration = self.folder / "fill/etc/config/orn/tav/tav.conf"
        configuration.parent.mkdir(parents=True, exist_ok=True)
        configuration.write_text(json.dumps(CONFIGURATION))
        options = ("--fill", self.folder / "fill", *options)
        return run(*options, BUILD, "--", self.capturing, *SERVICE, record=self.folder / "record")

    def replay(self, archive):
        return run("--server", archive, BUILD, "--", *SERVICE, record=self.folder / "replayed")

    def check(self, original):
        self.assertEqual(self.replay(self.folder / "kept.tar.gz"), original)
        replaced = self.replay(self.folder / ".tar.gz")
        self.assertEqual([way for way, _ in texts_of(replaced)],
                         [way for way, _ in texts_of(original)])
        self.compare_with_stand_ins(original, replaced, self.folder / ".tar.gz")

    def compare_with_stand_ins(self, original, replaced, archive):
        """Equal but for identities, for which the same stand-in stands everywhere."""
        content = gzip.decompress(archive.read_bytes())
        stand_ins = {}
        for (way, before), (_, after) in zip(texts_of(original), texts_of(replaced)):
            if before == after:
                continue
            self.assertIsInstance(before, str, way)
            is_hexadecimal = re.fullmatch("(0x)?[0-9a-fA-F:]+", before)
            if not is_hexadecimal:
                self.assertEqual(shape(after), shape(before), way)
            self.assertEqual(len(after), len(before), way)
            self.assertEqual(stand_ins.setdefault(before, after), after, way)
        for way, before in texts_of(original):
            if not IDENTITY.search(way) or not isinstance(before, str) or len(before) < 6:
                continue
            if before in ("NotAvailable", "Not Available", "127.0.0.1"):
                continue
            self.assertIn(before, stand_ins, way)
            for text in (before, "".join(b + a for a, b in zip(before[::2], before[1::2] + " "))):
                self.assertNotIn(text.encode(), content, way)
                self.assertNotIn(text.encode().hex().encode(), content, way)
        self.assertEqual(len(set(stand_ins.values())), len(stand_ins))

    def test_described_servers(self):
        for server in sorted(SERVERS.glob("*.json")):
            with self.subTest(server.name):
                original = self.run_host("--server", server)
                self.assertIn("Drives", original["HostDataCollection"])
                self.check(original)

    def test_this_machine(self):
        self.check(self.run_host())


if __name__ == "__main__":
    unittest.main()
