"""A management controller that refuses, is slow, dies, or cannot be reached because its driver is not
there: what fails is said once, and what was not delivered is made good.
"""
import re
import unittest

import guest
import small_test

FAILS = "controller has not answered in time\\|controller refuses commands"
ANSWERS_AGAIN = "The controller answers again"
CANNOT_OPEN = "/dev/ipmi0 cannot be opened: No such file or directory"
DRIVER = "ipmi_devintf ipmi_si"
# How long the kernel's driver waits for the controller before it answers in its stead.
DRIVER_PATIENCE = 4


class TroubledController(small_test.SmallMachine):
    """The machine of small_test. The cases leave it as they found it."""

    @classmethod
    def setUpClass(cls):
        cls.boot(small_test.machine, append="without=scsi_debug")
        cls.serve()
        # Until the service knows that its first inventory has arrived, it drops its events.
        guest.wait_until(lambda: re.search("^inventory +acknowledged",
                                           cls.vm.attempt("tavctl status")[1], re.MULTILINE),
                         30, "inventory that has been acknowledged")

    def inventory_after(self, seen):
        guest.wait_until(lambda: len(self.rmc.inventories()) > seen, 180,
                         "inventory that makes good what has got lost")

    def test_the_controller_refuses_and_restarts(self):
        seen = len(self.rmc.inventories())
        self.rmc.order("status=4,command=MPEventGen")
        status, _ = self.vm.attempt("tavctl event 708")
        self.assertEqual(status, 1, "an event that was refused has not been taken")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0)
        self.inventory_after(seen)

    def test_the_controller_is_slow(self):
        """As long as the driver waits for it, it is waited for."""
        self.rmc.order(f"late={(DRIVER_PATIENCE - 2) * 1000},command=MPEventGen")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0)
        seen = len(self.rmc.inventories())
        self.rmc.order(f"late={5 * DRIVER_PATIENCE * 1000},command=MPEventGen")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 1)
        self.assertIn("1 failed since", self.vm.attempt("tavctl status")[1])
        for frame in range(2, 6):
            self.rmc.order(f"late=1000,nth=all,command=WriteInventory,frame={frame}")
        self.inventory_after(seen)
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0)
        self.rmc.order("withdraw=all")

    def test_the_driver_is_unloaded(self):
        """The device is open for as long as an exchange takes: the driver can go in between."""
        def unload():
            guest.wait_until(
                lambda: self.vm.attempt(f"rmmod {DRIVER}; test ! -d /sys/module/ipmi_si")[0] == 0,
                30, "moment without an exchange")
        unload()
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0, "the service loads it")
        failures, returns = self.logged(CANNOT_OPEN), self.logged(ANSWERS_AGAIN)
        files = self.vm.run("ls -d /lib/modules/*/kernel/drivers/char/ipmi").strip()
        self.vm.run(f"mv {files} /run/drivers")
        unload()
        for _ in range(2):
            self.assertEqual(self.vm.attempt("tavctl event 708")[0], 1, "and cannot")
        self.assertEqual(self.logged(CANNOT_OPEN), failures + 1, "why is said once")
        status, text = self.vm.attempt("tavctl status")
        self.assertEqual((status, text.split()[1]), (1, "degraded"))
        self.assertIn(CANNOT_OPEN, text)
        seen = len(self.rmc.inventories())
        self.vm.run(f"mv /run/drivers {files} && modprobe ipmi_si && modprobe ipmi_devintf")
        self.assertEqual(self.vm.attempt("tavctl event 708")[0], 0)
        self.assertEqual(self.logged(ANSWERS_AGAIN), returns + 1)
        self.inventory_after(seen)

    def test_the_controller_is_silent_when_the_service_starts(self):
        self.vm.run("kill $(cat /run/pid); while kill -0 $(cat /run/pid) 2>/dev/null; do "
                    "sleep 0.2; done")
        self.rmc.stop()
        failures, seen = self.logged(FAILS), len(self.rmc.inventories())
        self.serve()
        guest.wait_until(lambda: self.logged(FAILS) > failures, 120, "word of the silence")
        status, text = self.vm.attempt("tavctl status")
        self.assertEqual((status, text.split()[1]), (1, "degraded"))
        self.assertNotRegex(text, "(?m)^inventory +acknowledged")
        self.assertEqual(self.logged(FAILS), failures + 1, "why is said once")
        self.rmc.start()
        self.inventory_after(seen)

    def test_the_controller_dies_and_comes_back(self):
        failures, returns = self.logged(FAILS), self.logged(ANSWERS_AGAIN)
        self.rmc.stop()
        for _ in range(2):
            self.assertEqual(self.vm.attempt("tavctl event 708")[0], 1, "nobody has taken it")
        self.assertEqual(self.logged(FAILS), failures + 1, "why is said once")
        seen = len(self.rmc.inventories())
        self.rmc.start()
        guest.wait_until(lambda: self.vm.attempt("tavctl event 708")[0] == 0, 60,
                         "controller that takes an event")
        self.assertEqual(self.logged(ANSWERS_AGAIN), returns + 1)
        self.inventory_after(seen)


if __name__ == "__main__":
    unittest.main(verbosity=2)
