"""A machine with one processor and 256 MB: what the service costs it, and what it does when the
directories that it writes to are full, read-only or somewhere else.
"""
import collections
import json
import re
import time
import unittest

import guest
import small_test

TRANSFER = small_test.BUILD / "bench/rmc/transport_bench"
DOCUMENT = 200_000  # twelve times, in turn with a bare loop
# Of a bare exchange's time. On hardware an exchange takes a millisecond and nothing of the transport is
# seen; a machine that emulates its processor takes some 13 us for the transport's 0.3.
LEAST_SHARE = 0.75
# Of whole transfers, which those who run beside this machine disturb.
LEAST_SHARE_OF_TRANSFERS = 0.5
MOST_RESIDENT = 8 << 10  # kB
IDLE_SECONDS = 60
FLOOR_SECONDS = 20
EVERYTHING = "--generic-storage=any --fibre-channel"
# One line a thread: name, wake-ups, clock ticks; then the time of the process's children, its memory, and
# what the whole machine has done: ticks, switches, and the processes and threads that it has made.
SAMPLE = ("[ -e /run/pid ] && { for task in /proc/$(cat /run/pid)/task/*; do "
          "echo thread $(cat $task/comm) $(sed -n s/^voluntary_ctxt_switches:.//p $task/status) "
          "$(cut -d' ' -f14,15 $task/stat); done; "
          "echo children $(cut -d' ' -f16,17 /proc/$(cat /run/pid)/stat); "
          "echo resident $(sed -n 's/^VmRSS:[^0-9]*//p' /proc/$(cat /run/pid)/status); }; "
          "echo busy $(sed -n 's/^cpu  //p' /proc/stat | cut -d' ' -f1-3,6,7); "
          "echo switches $(sed -n 's/^ctxt //p' /proc/stat); "
          "echo made $(sed -n s/^processes.//p /proc/stat)")
TRACE = "/sys/kernel/tracing"
# Directories of its own for a service that is to have no trouble with them.
ELSEWHERE = "for d in /opt /scratch; do mount -t tmpfs x $d; done; mkdir -p /opt/orn/tav/data"
PER_MACHINE = {"busy": 10, "switches": 1, "made": 1}  # ticks are told in milliseconds


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


def watch(vm, seconds):
    """What a minute costs, seen for so many seconds: by thread (wake-ups, milliseconds), the rest by name,
    and how often each program was started."""
    overhead = -sample(vm)[1]["made"]
    threads, values = sample(vm)
    overhead += values["made"]
    vm.run(f"echo >{TRACE}/trace; echo 1 >{TRACE}/events/sched/sched_process_exec/enable")
    time.sleep(seconds)
    vm.run(f"echo 0 >{TRACE}/events/sched/sched_process_exec/enable")
    threads_after, after = sample(vm)
    minutes = seconds / 60
    cost = {name: ((wakeups - threads.get(name, (0, 0))[0]) / minutes,
                   (ticks - threads.get(name, (0, 0))[1]) * 10 / minutes)
            for name, (wakeups, ticks) in threads_after.items()}
    after["made"] -= overhead + 4  # the shell's own, above
    values = {name: (value - values.get(name, 0)) / minutes for name, value in after.items()}
    programs = collections.Counter(re.findall(r"sched_process_exec: filename=(?:\S*/)?(\S+)",
                                              vm.run(f"cat {TRACE}/trace")))
    programs["sh"] -= 1  # the shell's own
    return cost, values, {name: count / minutes for name, count in programs.items() if count > 0}


class SparseMachine(small_test.SmallMachine):
    @classmethod
    def setUpClass(cls):
        cls.boot(small_test.machine, [TRANSFER], memory=256, cpus=1, append="without=scsi_debug")

    def test_1_a_transfer_takes_as_long_as_its_exchanges(self):
        _, figures = self.vm.attempt(f"transport_bench {DOCUMENT}", 300)
        print(figures.strip())
        whole, exchange = (float(re.search(pattern, figures).group(1))
                           for pattern in (r"same calls: ([0-9.]+)", r"a bare one .*: ([0-9.]+)"))
        self.assertGreaterEqual(whole, LEAST_SHARE_OF_TRANSFERS)
        self.assertGreaterEqual(exchange, LEAST_SHARE)

    def test_2_idle_with_everything_enabled(self):
        configuration = {**small_test.CONFIGURATION, "PushInventoryFrequencyInMinutes": "1440",
                         "LoggingLevel": "Warning", "EnableDebugLog": "false"}
        self.vm.run(f"echo '{json.dumps(configuration)}' >/etc/config/orn/tav/tav.conf; "
                    f"mount -t tracefs trace {TRACE}")
        _, floor, started = watch(self.vm, FLOOR_SECONDS)
        seen = len(self.rmc.inventories())
        self.vm.run(f"/usr/bin/tavd {EVERYTHING} >/var/log/tavd 2>&1 </dev/null & echo $! >/run/pid")
        guest.wait_until(lambda: len(self.rmc.inventories()) > seen, 180, "inventory")
        time.sleep(15)  # no condition to wait for: nothing is to happen any more
        threads, values, programs = watch(self.vm, IDLE_SECONDS)
        print(f"\n{'':<18}{'wake-ups':>9}{'CPU ms':>8}   a minute")
        for name, (wakeups, milliseconds) in sorted(threads.items()):
            print(f"{name:<18}{wakeups:>9.1f}{milliseconds:>8.0f}")
        print(f"{'children':<27}{values['children'] * 10:>8.0f}")
        print(f"programs: {programs}, without the service {started}")
        for name, unit in PER_MACHINE.items():
            print(f"whole machine, {name}: {values[name] * unit:.0f}, "
                  f"without the service {floor[name] * unit:.0f}")
        _, after = sample(self.vm)
        print(f"resident: {after['resident']} kB")
        self.assertLessEqual(after["resident"], MOST_RESIDENT)
        self.vm.run("kill $(cat /run/pid); while kill -0 $(cat /run/pid) 2>/dev/null; do "
                    "sleep 0.2; done")

    def test_3_where_it_cannot_write_it_says_so_and_goes_on_or_ends(self):
        """Each in a namespace of its own, which has a lock of its own: one after the other, since two
        services would mix their frames."""
        roots = {
            "full": "for d in /opt /scratch; do mount -t tmpfs -o size=4k,nr_inodes=64 x $d; done; "
                    "mkdir -p /opt/orn/tav/data /opt/orn/tav/log; "
                    "dd if=/dev/zero of=/opt/fill 2>/dev/null; dd if=/dev/zero of=/scratch/fill "
                    "2>/dev/null",
            "read-only": "for d in /opt /scratch; do mount -t tmpfs -o ro x $d; done",
            "linked": "mkdir -p /run/there/opt /run/there/scratch; for d in opt scratch; do "
                      "mount -t tmpfs x /$d; done; mkdir -p /run/there/orn; "
                      "ln -s /run/there/orn /opt/orn; ln -s /run/there/orn /scratch/log",
            "run-full": f"{ELSEWHERE}; mount -o remount,size=4k,nr_inodes=3 /run; "
                        "dd if=/dev/zero of=/run/fill 2>/dev/null",
            "run-read-only": f"{ELSEWHERE}; mount -o remount,ro /run",
        }
        document = {**small_test.CONFIGURATION, "TAVLogLocation": "/scratch/log/orn/tav/tav.log",
                    "EnableDebugLog": "false"}
        self.vm.run(f"mkdir -p /opt /scratch && "
                    f"echo '{json.dumps(document)}' >/etc/config/orn/tav/tav.conf")
        for name, prepare in roots.items():
            with self.subTest(root=name):
                seen = len(self.rmc.inventories())
                self.serve_in(name, prepare)
                # A log whose directory cannot be made ends the service; all else does not.
                if name != "read-only":
                    guest.wait_until(lambda: len(self.rmc.inventories()) > seen, 180, "inventory")
                    self.vm.run(f"kill $(cat /var/log/{name}.pid)")
                status = 246 if name == "read-only" else 0
                guest.wait_until(lambda: f"status {status}" in self.vm.attempt(
                    f"cat /var/log/{name}")[1], 60, f"status {status}")

    def serve_in(self, name, prepare):
        """The service in a namespace made so; its words and its status go to a file of that name."""
        script = (f"mount -t tmpfs x /run; {prepare}; /usr/bin/tavd >/var/log/{name} 2>&1 & "
                  f"echo $! >/var/log/{name}.pid; wait $!; echo status $? >>/var/log/{name}")
        self.vm.run(f"echo '{script}' >/bin/{name}; unshare -m sh /bin/{name} "
                    ">/dev/null 2>&1 </dev/null &")


if __name__ == "__main__":
    unittest.main(verbosity=2)
