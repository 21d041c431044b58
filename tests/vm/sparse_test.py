"""A machine with one processor and 256 MB: what the service costs it, and what it does when the
directories that it writes to are full, read-only or somewhere else.
"""
import json
import re
import time
import unittest

import guest
import small_test

TRANSFER = small_test.BUILD / "bench/rmc/transport_bench"
DOCUMENT = 200_000  # twenty times, in turn with a bare loop
# The program's own bound is for a machine that does nothing else. Here others run beside it.
LEAST_SHARE = 0.5
MOST_RESIDENT = 8 << 10  # kB
IDLE_SECONDS = 60
EVERYTHING = "--generic-storage=any --fibre-channel"
# One line a thread: name, wake-ups, clock ticks; then the time of the process's children, and how many
# processes and threads have been made on the machine.
SAMPLE = ("for task in /proc/$(cat /run/pid)/task/*; do "
          "echo thread $(cat $task/comm) $(sed -n s/^voluntary_ctxt_switches:.//p $task/status) "
          "$(cut -d' ' -f14,15 $task/stat); done; "
          "echo children $(cut -d' ' -f16,17 /proc/$(cat /run/pid)/stat); "
          "echo forks $(sed -n s/^processes.//p /proc/stat); "
          "echo resident $(sed -n 's/^VmRSS:[^0-9]*//p' /proc/$(cat /run/pid)/status)")


def sample(vm):
    threads, values = {}, {}
    for line in vm.run(SAMPLE).splitlines():
        kind, *words = line.split()
        if kind == "thread":
            name, wakeups, *ticks = words
            before = threads.get(name, (0, 0))
            threads[name] = (before[0] + int(wakeups), before[1] + sum(map(int, ticks)))
        else:
            values[kind] = sum(int(word) for word in words if word.isdigit())
    return threads, values


class SparseMachine(small_test.SmallMachine):
    @classmethod
    def setUpClass(cls):
        cls.boot(small_test.machine, [TRANSFER], memory=256, cpus=1, append="without=scsi_debug")

    def test_1_a_transfer_takes_as_long_as_its_exchanges(self):
        _, figures = self.vm.attempt(f"transport_bench {DOCUMENT}", 300)
        print(figures.strip())
        share = re.search(r"same calls: ([0-9.]+)", figures)
        self.assertGreaterEqual(float(share.group(1)), LEAST_SHARE)

    def test_2_idle_with_everything_enabled(self):
        configuration = {**small_test.CONFIGURATION, "PushInventoryFrequencyInMinutes": "1440",
                         "LoggingLevel": "Warning", "EnableDebugLog": "false"}
        self.vm.run(f"echo '{json.dumps(configuration)}' >/etc/config/orn/tav/tav.conf")
        seen = len(self.rmc.inventories())
        self.vm.run(f"/usr/bin/tavd {EVERYTHING} >/var/log/tavd 2>&1 </dev/null & echo $! >/run/pid")
        guest.wait_until(lambda: len(self.rmc.inventories()) > seen, 180, "inventory")
        time.sleep(15)  # no condition to wait for: nothing is to happen any more
        overhead = -sample(self.vm)[1]["forks"]
        threads, before = sample(self.vm)
        overhead += before["forks"]
        time.sleep(IDLE_SECONDS)
        after_threads, after = sample(self.vm)
        minutes = IDLE_SECONDS / 60
        print(f"\n{'':<18}{'wake-ups':>9}{'CPU ms':>8}   a minute")
        for name in sorted(after_threads):
            wakeups, ticks = (now - was for now, was in
                              zip(after_threads[name], threads.get(name, (0, 0))))
            print(f"{name:<18}{wakeups / minutes:>9.1f}{ticks * 10 / minutes:>8.0f}")
        made = (after["forks"] - before["forks"] - overhead) / minutes
        print(f"{'made, and children':<18}{made:>9.0f}"
              f"{(after['children'] - before['children']) * 10 / minutes:>8.0f}")
        print(f"resident: {after['resident']} kB")
        self.assertLessEqual(after["resident"], MOST_RESIDENT)
        self.vm.run("kill $(cat /run/pid); while kill -0 $(cat /run/pid) 2>/dev/null; do "
                    "sleep 0.2; done")

    def test_3_where_it_cannot_write_it_says_so_and_goes_on_or_ends(self):
        """Each in a namespace of its own, all at once."""
        roots = {
            "full": "for d in /opt /scratch; do mount -t tmpfs -o size=4k,nr_inodes=64 x $d; done; "
                    "mkdir -p /opt/orn/tav/data /opt/orn/tav/log; "
                    "dd if=/dev/zero of=/opt/fill 2>/dev/null; dd if=/dev/zero of=/scratch/fill "
                    "2>/dev/null",
            "read-only": "for d in /opt /scratch; do mount -t tmpfs -o ro x $d; done",
            "linked": "mkdir -p /run/there/opt /run/there/scratch; for d in opt scratch; do "
                      "mount -t tmpfs x /$d; done; mkdir -p /run/there/orn; "
                      "ln -s /run/there/orn /opt/orn; ln -s /run/there/orn /scratch/log",
        }
        document = {**small_test.CONFIGURATION, "TAVLogLocation": "/scratch/log/orn/tav/tav.log",
                    "EnableDebugLog": "false"}
        self.vm.run(f"mkdir -p /opt /scratch && "
                    f"echo '{json.dumps(document)}' >/etc/config/orn/tav/tav.conf")
        seen = len(self.rmc.inventories())
        for name, prepare in roots.items():
            script = (f"mount -t tmpfs x /run; {prepare}; /usr/bin/tavd >/var/log/{name} 2>&1 & "
                      f"echo $! >/var/log/{name}.pid; wait $!; echo status $? >>/var/log/{name}")
            self.vm.run(f"echo '{script}' >/bin/{name}; unshare -m sh /bin/{name} "
                        ">/dev/null 2>&1 </dev/null &")
        # A log whose directory cannot be made ends the service; all else does not.
        guest.wait_until(lambda: re.findall("status 246", self.vm.attempt(
            "cat /var/log/read-only")[1]), 60, "end where no log can be made")
        guest.wait_until(lambda: len(self.rmc.inventories()) >= seen + 2, 180,
                         "inventories of the services that go on")
        self.vm.run("kill $(cat /var/log/full.pid /var/log/linked.pid)")
        for name in ("full", "linked"):
            guest.wait_until(lambda name=name: "status 0" in self.vm.attempt(
                f"cat /var/log/{name}")[1], 60, f"end of the service that was asked to ({name})")


if __name__ == "__main__":
    unittest.main(verbosity=2)
