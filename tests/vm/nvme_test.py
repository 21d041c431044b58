"""NVMe drives on the real driver: two of QEMU's controllers, one with two namespaces. What the
management controller is told of them is compared with what QEMU was told and with what nvme-cli and
lsblk say in the same machine.
"""
import json
import time
import unittest

import guest
import small_test

# Our reader of a log page; without it there is no figure.
LOG_READER = small_test.BUILD / "bench/storage/nvme_log"

MEGABYTE = 1 << 20
# The sizes of their namespaces, and where the host says that they sit.
CONTROLLERS = [
    {"serial": "NVME0001", "sizes": [64 * MEGABYTE], "slot": "r001i01s04",
     "place": "0004000101000005"},
    {"serial": "NVME0002", "sizes": [48 * MEGABYTE, 32 * MEGABYTE], "slot": "r001i02s08",
     "place": "0008000102000005"},
]
EVENT_PATIENCE = 90
REPEATS = 30  # of a program whose time is taken
# What comes while the first inventory is on its way is told by the next one and not by an event.
FIRST_INVENTORY = 5

# The host's own command, which knows where the slots of this machine are.
LOCALCLI = """#!/bin/sh
/usr/bin/localcli.real "$@" | sed {places}
"""


def machine(folder):
    """QEMU's options for the machine described above."""
    arguments = [*guest.management_controller(folder)]
    for n, controller in enumerate(CONTROLLERS):
        arguments += ["-device", f"pcie-root-port,id=slot{n},chassis={n + 1},slot={n + 1}",
                      "-device", controller_option(n)]
        for number, size in enumerate(controller["sizes"], 1):
            name = f"nvme{n}n{number}"
            with open(folder / name, "wb") as file:
                file.truncate(size)
            arguments += ["-blockdev", f"driver=file,node-name={name},filename={folder}/{name}",
                          "-device", f"nvme-ns,drive={name},bus=ssd{n},nsid={number}"]
    return arguments


def controller_option(n):
    return f"nvme,id=ssd{n},bus=slot{n},serial={CONTROLLERS[n]['serial']}"


class Nvme(small_test.SmallMachine):
    """One machine for all cases, which leave it as they found it."""

    @classmethod
    def setUpClass(cls):
        cls.boot(machine, [LOG_READER] if LOG_READER.exists() else [], append="without=scsi_debug")
        guest.wait_until(lambda: cls.vm.attempt("test -e /dev/nvme1n2")[0] == 0, 60, "namespaces")
        cls.names = {cls.vm.run(f"cat /sys/class/nvme/{name}/serial").strip(): name
                     for name in cls.vm.run("ls /sys/class/nvme").split()}
        cls.tell_the_places()
        cls.serve()
        time.sleep(FIRST_INVENTORY)

    @classmethod
    def tell_the_places(cls):
        places = []
        for controller in CONTROLLERS:
            device = cls.vm.run(f"readlink /sys/class/nvme/{cls.names[controller['serial']]}/device")
            address = device.strip().rsplit("/", 1)[-1]
            places.append(f"-e '/Address: {address}/,/Slot Description:/"
                          f"s/Slot Description:.*/Slot Description: {controller['slot']}/'")
        cls.vm.run("mv /usr/bin/localcli /usr/bin/localcli.real")
        text = LOCALCLI.format(places=" ".join(places))
        for line in text.splitlines():
            quoted = line.replace("'", "'\\''")
            cls.vm.run(f"echo '{quoted}' >>/usr/bin/localcli")
        cls.vm.run("chmod +x /usr/bin/localcli")

    def events_from(self, seen, count):
        """As many events as that, from the one of number `seen` on: (ID, serial number, place)."""
        raised = guest.wait_until(lambda: self.rmc.events()[seen:][:count]
                                  if len(self.rmc.events()) >= seen + count else None,
                                  EVENT_PATIENCE, f"{count} events")
        return [(event["ID"], event["VariableData"]["Data"]["SerialNumber"],
                 event["PhysicalLocation"]) for event in raised]

    def tool(self, command):
        return json.loads(self.vm.run(f"nvme {command} -o json"))

    def warn(self, n, bits):
        self.vm.monitor("qom-set", path=f"/machine/peripheral/ssd{n}",
                        property="smart_critical_warning", value=bits)
        said = self.tool(f"smart-log /dev/{self.names[CONTROLLERS[n]['serial']]}")
        told = said["critical_warning"]
        self.assertEqual(told["value"] if isinstance(told, dict) else told, bits)

    def test_controllers_and_namespaces_are_those_that_were_plugged_in(self):
        inventory = self.rmc.inventories()[-1]
        controllers = {one["SerialNumber"]: one for one in inventory["StorageControllers"]
                       if one["Protocol"] == "NVMe"}
        self.assertEqual(set(controllers), {one["serial"] for one in CONTROLLERS})
        blocks = {disk["name"]: disk for disk in json.loads(self.vm.run(
            "lsblk -b -J -d -o NAME,SERIAL,MODEL,SIZE"))["blockdevices"]}
        drives = inventory["Drives"]
        self.assertEqual(len(drives), 3)
        for described in CONTROLLERS:
            serial, name = described["serial"], self.names[described["serial"]]
            identity = self.tool(f"id-ctrl /dev/{name}")
            controller = controllers[serial]
            self.assertEqual(controller["SerialNumber"], identity["sn"].strip())
            self.assertEqual(controller["Model"], identity["mn"].strip())
            self.assertEqual(controller["FirmwareVersion"], identity["fr"].strip())
            self.assertEqual(controller["Protocol"], "NVMe")
            self.assertEqual(controller["Status"], {"State": "Running", "Health": "OK"})
            self.assertEqual(controller["Oem"]["PhysicalLocation"], described["place"])
            own = {drive["Oem"]["Namespace"]: drive for drive in drives
                   if drive["SerialNumber"] == serial}
            self.assertEqual(len(own), len(described["sizes"]))
            for number, size in enumerate(described["sizes"], 1):
                drive, block = own[number], blocks[f"{name}n{number}"]
                self.assertEqual(drive["CapacityBytes"], size)
                self.assertEqual(drive["CapacityBytes"], int(block["size"]))
                self.assertEqual(drive["SerialNumber"], block["serial"].strip())
                self.assertEqual(drive["Model"], block["model"].strip())
                self.assertEqual(drive["Revision"], identity["fr"].strip())
                self.assertEqual((drive["Protocol"], drive["MediaType"]), ("NVMe", "SSD"))
                self.assertEqual(drive["Oem"]["PhysicalLocation"], described["place"])
                self.assertEqual(drive["Status"], {"State": "Running", "Health": "OK"})
            located = self.vm.run(f"tavctl location {described['place']}")
            self.assertIn(described["slot"], located)

    def test_warnings_are_events(self):
        seen = len(self.rmc.events())
        serial, place = CONTROLLERS[0]["serial"], CONTROLLERS[0]["place"]
        steps = [(4, 539), (0, 540), (8, 538), (0, 540), (1, 539), (0, 540)]
        for count, (bits, identifier) in enumerate(steps):
            self.warn(0, bits)
            self.assertEqual(self.events_from(seen + count, 1), [(identifier, serial, place)])
        texts = [event["VariableData"]["EventInfo"] for event in self.rmc.events()[seen:]]
        self.assertEqual(texts[0], "[Media or internal errors have degraded its reliability.]")
        self.assertEqual(texts[1], "")
        self.assertEqual(texts[2], "[The media has become read-only.]")
        told = self.tool(f"smart-log /dev/{self.names[serial]}")
        self.assertEqual(texts[4], f"[Available spare ({told['avail_spare']} %); "
                                   f"Threshold ({told['spare_thresh']} %)]")

    def test_both_namespaces_of_a_controller_share_its_condition(self):
        seen = len(self.rmc.events())
        serial, place = CONTROLLERS[1]["serial"], CONTROLLERS[1]["place"]
        self.warn(1, 4)
        self.assertEqual(self.events_from(seen, 2), [(539, serial, place)] * 2)
        self.warn(1, 0)
        self.assertEqual(self.events_from(seen + 2, 2), [(540, serial, place)] * 2)

    def test_a_drive_that_is_pulled_and_put_back(self):
        seen = len(self.rmc.events())
        serial, place = CONTROLLERS[0]["serial"], CONTROLLERS[0]["place"]
        self.vm.watch_devices()
        self.vm.monitor("device_del", id="ssd0")
        self.assertEqual(sorted(self.events_from(seen, 2)),
                         [(398, serial, place), (538, serial, place)])
        after = self.vm.uptime() - self.vm.told_of(f"/{self.names[serial]}")[-1]
        print(f"both events are there {after:.2f} s after the kernel's word of the drive that goes")
        self.assertLess(after, small_test.TELLS_WITHIN)
        self.inventory_with(lambda one: [
            drive["Status"]["State"] for drive in one["Drives"]
            if drive["SerialNumber"] == serial] == ["Offline"], "the drive gone")
        options = dict(part.split("=", 1) for part in controller_option(0).split(",")[1:])
        # What stood on the controller has gone with it.
        self.vm.monitor("device_add", driver="nvme", drive="nvme0n1", **options)
        self.assertEqual(sorted(self.events_from(seen + 2, 2)),
                         [(397, serial, place), (540, serial, place)])

    @unittest.skipUnless(LOG_READER.exists(), "it has not been built")
    def test_reading_the_log_costs_no_more_than_nvme_cli(self):
        """Whole processes, in turn, the least of some."""
        device = self.names[CONTROLLERS[1]["serial"]]

        def seconds(command):
            said = self.vm.run(f"i=0; read b x </proc/uptime; while [ $i -lt {REPEATS} ]; do "
                               f"{command} >/dev/null || exit 1; i=$((i+1)); done; "
                               "read e x </proc/uptime; echo $b $e").split()
            return (float(said[1]) - float(said[0])) / REPEATS
        ours, theirs = (min(times) for times in zip(
            *((seconds(f"nvme_log {device}"), seconds(f"nvme smart-log /dev/{device}"))
              for _ in range(3))))
        print(f"a log page, whole process: {ours * 1e3:.1f} ms, nvme smart-log {theirs * 1e3:.1f} ms: "
              f"{ours / theirs:.2f} times")
        self.assertLess(ours, theirs)


if __name__ == "__main__":
    unittest.main(verbosity=2, failfast=False)
