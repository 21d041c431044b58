#!/usr/bin/python3
"""A captured host, replayed, is that host: the same inventory comes of it.

Every described server, and this machine, run with the service while tavctl captures them, once with
their identities and once with stand-ins; then both captures are run. Captures of machines that are
not here stand in tests/sim/captures, with the inventories that they have to give.
"""
import json
import os
import pathlib
import shutil
import tempfile
import unittest

import replaying

BUILD = pathlib.Path(os.environ.get("TAV_BUILD", replaying.ROOT / "build/dev")).resolve()
CAPTURES = replaying.ROOT / "tests/sim/captures"
SERVERS = replaying.ROOT / "sim/servers"
SERVICE = [BUILD / "tests/sim/tavd_quick", "--fibre-channel", "--generic-storage=any"]
# Captures the host, and goes on as the service.
CAPTURING = """#!/bin/sh
set -e
tavctl capture --keep-identities {folder}/kept.tar.gz >&2
tavctl capture {folder}/replaced.tar.gz >&2
exec "$@"
"""
CONFIGURATION = {"EnableResources": ["All"], "IPMIDoorBellMonitorInterval": "1"}
# Beside what the servers have.
NVME_FUNCTION = {"address": "0000:c9:00.0", "class": "0x010802", "vendor": "0x8086",
                 "device": "0x0a54", "subVendor": "0x8086", "subDevice": "0x4712", "driver": "nvme",
                 "slot": "r001i04s07"}
NVME = {"name": "nvme7", "function": "0000:c9:00.0", "model": "INTEL SSDPE2KX010T8",
        "serial": "PHLJ7777001Q1P0E", "firmware": "VDV10170", "namespaces": 1, "blocks": 1953525168,
        "temperature": 35, "used": 3}
# The first inventory may still lack what has not answered in time on a busy machine.
SECOND_INVENTORY = ["--inject", "doorbell=WriteInventory", "--until", "WriteInventory=2"]


class Replay(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=BUILD / "tests/sim", prefix="replay-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.capturing = self.folder / "capturing"
        self.capturing.write_text(CAPTURING.format(folder=self.folder))
        self.capturing.chmod(0o755)

    def run_service(self, *arguments):
        return replaying.run(*SECOND_INVENTORY, *arguments, record=self.folder / "record", speed=20)

    def replay(self, archive):
        return self.run_service("--server", archive, BUILD, "--", *SERVICE)

    def check(self, *options):
        configuration = self.folder / "fill/etc/config/orn/tav/tav.conf"
        configuration.parent.mkdir(parents=True, exist_ok=True)
        configuration.write_text(json.dumps(CONFIGURATION))
        original = self.run_service("--fill", self.folder / "fill", *options, BUILD, "--",
                                    self.capturing, *SERVICE)
        self.assertEqual(self.replay(self.folder / "kept.tar.gz"), original)
        replaced = self.folder / "replaced.tar.gz"
        replaying.compare_with_stand_ins(self, original, self.replay(replaced), replaced)
        return original["HostDataCollection"]

    def test_described_servers(self):
        for server in sorted(SERVERS.glob("*.json")):
            with self.subTest(server.name):
                described = json.loads(server.read_text())
                described["functions"].append(NVME_FUNCTION)
                described["nvme"] = described.get("nvme", []) + [NVME]
                own = self.folder / server.name
                own.write_text(json.dumps(described))
                drives = self.check("--server", own)["Drives"]
                self.assertIn(NVME["serial"], [drive["SerialNumber"] for drive in drives])

    def test_this_machine(self):
        self.check()

    def test_machines_that_are_not_here(self):
        for archive in sorted(CAPTURES.glob("*.tar.gz")):
            with self.subTest(archive.name):
                expected = archive.with_name(archive.name.replace(".tar.gz", ".json"))
                self.assertEqual(self.replay(archive), json.loads(expected.read_text()))


if __name__ == "__main__":
    unittest.main()
