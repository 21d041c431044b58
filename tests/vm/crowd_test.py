"""Five hundred disks on the kernel's SCSI layer, healthy and sick as its scsi_debug driver makes them."""
import re
import unittest

import guest
import small_test

DISKS = 500
DRIVER = "/sys/bus/pseudo/drivers/scsi_debug"
FUNCTION = "0000:00:1e.0"
# What its options have a command do.
MEDIUM_ERROR, LOST, ABORTED = 2, 4, 0x10000
SICK_SECTOR = 0x1234


class CrowdOfDisks(small_test.SmallMachine):
    @classmethod
    def setUpClass(cls):
        cls.boot(lambda folder: guest.management_controller(folder), memory=700,
                 append="without=scsi_debug")
        cls.vm.run("modprobe scsi_debug num_tgts=50 max_luns=10 dev_size_mb=8 delay=0")
        cls.vm.run(f"behind-pci $(ls /sys/bus/pseudo/devices/adapter0 | sed -n s/^host//p) {FUNCTION}")
        # As the kernel has them, which the service reads in the same way and which we read in another.
        cls.serials = set(cls.vm.run(
            "for page in /sys/class/scsi_device/*/device/vpd_pg80; do tail -c +5 $page; echo; done"
        ).split())
        cls.serve()

    def inject(self, options, every, delay=0):
        # The driver takes no other delay while commands wait in it.
        self.vm.run(f"cd {DRIVER} && until echo {delay} >delay; do sleep 0.1; done 2>/dev/null && "
                    f"echo {options} >opts && echo {every} >every_nth")

    def states(self, inventory):
        return {drive["SerialNumber"]: drive["Status"]["State"] for drive in inventory["Drives"]}

    def printed(self):
        """What a look of another process finds now: by serial number, the states of those that answer
        in time."""
        lines = self.vm.run("tavd --print --generic-storage=any")
        return re.findall(r'"State" : "(\w[^"]*)"', lines[lines.index('"Drives"'):
                                                         lines.index('"StorageControllers"')])

    def test_1_are_all_reported(self):
        self.assertEqual(len(self.serials), DISKS)
        states = self.states(self.rmc.inventories()[-1])
        self.assertEqual(set(states), self.serials)
        self.assertEqual(set(states.values()), {"Running"})

    def test_2_a_sector_that_cannot_be_read_is_no_failure_of_its_disk(self):
        self.inject(MEDIUM_ERROR, 1)
        disk = self.vm.run(f"ls /sys/class/scsi_device | head -1").strip()
        block = self.vm.run(f"ls /sys/class/scsi_device/{disk}/device/block").strip()
        self.assertNotEqual(self.vm.attempt(
            f"dd if=/dev/{block} of=/dev/null bs=512 skip={SICK_SECTOR} count=1 iflag=direct")[0], 0)
        self.assertEqual(self.printed(), ["Running"] * DISKS)
        self.inject(0, 0)

    def test_3_answers_that_come_late_are_answers(self):
        self.inject(0, 0, delay=5)
        self.assertEqual(self.printed(), ["Running"] * DISKS)
        self.inject(0, 0)

    def test_4_commands_that_are_aborted_or_lost_cost_their_disks_alone(self):
        polls = self.logged(small_test.POLL, small_test.DEBUG_LOG)
        for sickness in (ABORTED, LOST):
            self.inject(sickness, 300, delay=1 if sickness == ABORTED else 0)
            states = self.printed()
            self.assertGreater(states.count("Running"), DISKS * 9 // 10)
        guest.wait_until(lambda: self.logged("CurrState=Failed"), 150, "disk that does not answer")
        self.inject(0, 0)
        self.assertGreater(self.logged(small_test.POLL, small_test.DEBUG_LOG), polls + 3,
                           "the others are looked at meanwhile")
        self.inventory_with(
            lambda one: self.states(one) == dict.fromkeys(self.serials, "Running"), "all well again")

    def test_5_and_all_of_them_may_go(self):
        self.vm.run("umount /sys/class/scsi_device /sys/class/scsi_host && "
                    f"umount /run/adapter/pci0000:00/{FUNCTION}/host* && echo -1 >{DRIVER}/add_host")
        self.inventory_with(
            lambda one: self.states(one) == dict.fromkeys(self.serials, "Offline"), "all gone")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0, "the service goes on")


if __name__ == "__main__":
    unittest.main(verbosity=2)
