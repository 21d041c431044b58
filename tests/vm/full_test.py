"""The packages on a fresh Debian with systemd: installed, configured or not, restarted, stopped, sick,
removed; and the boots of the machine, told once each.
"""
import json
import os
import pathlib
import re
import shutil
import tempfile
import unittest

import guest
import image
from small_test import BUILD, CACHE

# A server gets the library and the service; nobody builds on it.
PACKAGES = sorted(path for path in pathlib.Path(os.environ["TAV_PACKAGES"]).glob("*.deb")
                  if not path.name.startswith("libtav-dev"))
# From the service's start to the first inventory: the waits that have to be, on an emulated machine.
START_PATIENCE = 120
UNIT = "tavd.service"


def documented_configuration():
    text = (image.ROOT / "docs/operating.md").read_text()
    return json.dumps(json.loads(re.search(r"```json\n(.*?)```", text, re.DOTALL).group(1)))


class FreshDebian(unittest.TestCase):
    """One machine; the cases run in the order of their names and build on each other."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="tav-vm-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        kernel, initramfs, disk = image.make_full(PACKAGES, CACHE, cls.folder)
        cls.rmc = guest.Controller(BUILD, cls.folder)
        cls.addClassCleanup(cls.rmc.stop)
        cls.vm = guest.Guest(kernel, initramfs, [
            *guest.management_controller(cls.folder),
            "-drive", f"file={disk},format=raw,if=virtio",
            "-device", "e1000e,mac=52:54:00:12:34:01"], cls.folder, append="root=/dev/vda rw")
        cls.addClassCleanup(cls.vm.stop)

    def tearDown(self):
        self.assertEqual(self.rmc.violations(), [], "every frame is as the controller demands")

    def next_inventory(self, seen, what):
        guest.wait_until(lambda: len(self.rmc.inventories()) > seen, START_PATIENCE,
                         f"inventory {what}")

    def state(self):
        return self.vm.attempt(f"systemctl is-active {UNIT}")[1].strip()

    def journal(self):
        return self.vm.run(f"journalctl --no-pager -b -u {UNIT}")

    def boots(self):
        return [event["ID"] for event in self.rmc.events() if event["ID"] in (356, 359, 360)]

    def test_1_works_as_soon_as_it_is_installed(self):
        self.vm.run("dpkg -i /root/packages/*.deb && systemctl start " + UNIT, 300)
        self.next_inventory(0, "of a host that nobody has configured")
        self.assertEqual(self.state(), "active", self.journal())
        self.assertEqual(self.boots(), [356])
        self.assertNotIn("annot", self.journal(), "nothing that the service could not do")

    def test_2_a_restart_tells_no_boot_again(self):
        seen = len(self.rmc.inventories())
        self.vm.run(f"systemctl restart {UNIT}")
        self.next_inventory(seen, "after a restart")
        self.assertEqual(self.boots(), [356])

    def test_2_the_documentations_example_where_its_directories_are_missing(self):
        seen = len(self.rmc.inventories())
        self.vm.run(f"systemctl stop {UNIT} && rm -rf /scratch /opt/orn/tav/log && "
                    f"echo '{documented_configuration()}' >/etc/config/orn/tav/tav.conf")
        self.vm.run(f"systemctl start {UNIT}")
        self.next_inventory(seen, "with the documentation's configuration")
        self.vm.run("test -s /scratch/log/orn/tav/tav.log && test -L /opt/orn/tav/log/tav.log")

    def test_3_a_reboot_and_a_crash_are_told_once_each(self):
        for reset, shutdown in ((self.vm.reboot, 359), (self.vm.crash, 360)):
            known, seen = self.boots(), len(self.rmc.inventories())
            reset()
            self.next_inventory(seen, "after a boot")
            self.assertEqual(self.boots(), known + [shutdown, 356])

    def test_4_a_hung_service_is_restarted(self):
        # Its patience is three minutes, and one more for the end: shorter here.
        settings = f"/run/systemd/system/{UNIT}.d"
        quick = "[Service]\\nWatchdogSec=30\\nTimeoutAbortSec=5\\n"
        self.vm.run(f"mkdir -p {settings} && printf '{quick}' >{settings}/quick.conf && "
                    "systemctl daemon-reload")
        seen = len(self.rmc.inventories())
        self.vm.run(f"systemctl restart {UNIT}")
        self.next_inventory(seen, "after a restart")
        seen = len(self.rmc.inventories())
        self.vm.run(f"systemctl kill --signal=STOP --kill-who=main {UNIT}")
        self.next_inventory(seen, "after the watchdog's restart")
        self.assertIn("atchdog", self.journal())

    def test_4b_an_upgrade_gets_rid_of_a_service_that_hangs(self):
        seen = len(self.rmc.inventories())
        # Whoever wakes it lets it run for a moment only: nothing but SIGKILL ends it.
        hung = self.vm.run(f"systemctl show --value -p MainPID {UNIT}").strip()
        self.vm.run(f"echo 'while kill -STOP {hung}; do sleep 0.01; done' >/run/hold && "
                    "setsid sh /run/hold >/dev/null 2>&1 </dev/null &")
        settings = f"/run/systemd/system/{UNIT}.d"
        self.vm.run(f"mkdir -p {settings} && printf '[Service]\\nTimeoutStopSec=5\\n' "
                    f">{settings}/quick.conf && systemctl daemon-reload")
        self.vm.run("dpkg -i /root/packages/*.deb", 300)
        self.next_inventory(seen, "of the upgraded service")
        self.assertNotEqual(self.vm.run(f"systemctl show --value -p MainPID {UNIT}").strip(), hung)
        self.assertEqual(self.state(), "active", self.journal())

    def test_5_the_driver_goes_and_comes_back(self):
        seen = len(self.rmc.inventories())
        self.vm.run("cd /sys/bus/platform/drivers/ipmi_si && device=$(ls -d *:* *.* | head -1) && "
                    "echo $device >unbind && test ! -e /dev/ipmi0 && echo $device >bind")
        self.vm.run("udevadm settle && test -c /dev/ipmi0")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0, self.journal())
        guest.wait_until(lambda: self.vm.attempt("rmmod ipmi_devintf")[0] == 0, 30,
                         "moment without an exchange")
        self.vm.run("test ! -e /dev/ipmi0")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0, "the service loads it: " +
                         self.journal())
        self.vm.run(f"systemctl restart {UNIT}")
        self.next_inventory(seen, "after the driver's return")

    def test_6_a_stop_in_the_middle_of_a_transfer(self):
        seen = len(self.rmc.inventories())
        slow = [f"late=500,nth=all,command=WriteInventory,frame={frame}" for frame in range(1, 20)]
        for order in slow:
            self.rmc.order(order)
        self.vm.run(f"systemctl restart {UNIT}")
        guest.wait_until(lambda: self.rmc.has_struck(slow[1]), START_PATIENCE,
                         "transfer that moves")
        self.vm.run(f"timeout 35 systemctl stop {UNIT}")
        self.assertEqual(self.state(), "inactive")
        self.assertEqual(len(self.rmc.inventories()), seen + 1, "what moves is finished")
        self.rmc.order("withdraw=all")

    def test_7_removed_and_purged_as_one_expects(self):
        self.vm.run(f"echo '{json.dumps({'EnableResources': ['All'], 'LoggingLevel': 'Info'})}' "
                    ">/etc/config/orn/tav/tav.conf")
        self.vm.run("dpkg -r $(dpkg-query -W -f '${Package} ' 'tavd*' 'libtav*')")
        self.vm.run("test -e /etc/config/orn/tav/tav.conf")
        self.assertNotEqual(self.vm.attempt("test -e /usr/sbin/tavd")[0], 0)
        self.vm.run("dpkg -P $(dpkg-query -W -f '${Package} ' 'tavd*' 'libtav*')")
        left = self.vm.attempt("find / -xdev -iname '*tav*' -not -path '/root/*' "
                               "-not -path '/proc/*' -not -path '/var/log/journal/*'")[1]
        self.assertEqual([path for path in left.splitlines() if "orn" in path or "tavd" in path], [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
