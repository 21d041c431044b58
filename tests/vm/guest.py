"""A virtual machine with a real kernel, the simulated management controller beside it, and what each
of them can be asked to do.

The machine is described once, by what QEMU is told; the tests compare with that description.
"""
import contextlib
import json
import pathlib
import socket
import subprocess
import time

BOOT_SECONDS = 240
COMMAND_SECONDS = 120


def wait_until(holds, seconds, what):
    """Waits until `holds()` is true and returns its value."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = holds()
        if value:
            return value
        time.sleep(0.1)
    raise TimeoutError(f"after {seconds} s there is still no {what}")


def connect(path, seconds):
    """A connection to the Unix socket of a program that may still be starting."""
    def attempt():
        connection = socket.socket(socket.AF_UNIX)
        try:
            connection.connect(str(path))
            return connection
        except OSError:
            connection.close()
            return None
    return wait_until(attempt, seconds, f"answer on {path}")


def management_controller(folder):
    """QEMU's options for the simulated controller behind the machine's keyboard-style interface."""
    return ["-chardev", f"socket,id=rmc,path={folder}/rmc,reconnect=1",
            "-device", "ipmi-bmc-extern,id=bmc,chardev=rmc", "-device", "isa-ipmi-kcs,bmc=bmc"]


class Controller:
    """The simulated management controller, as the machine's external one."""

    def __init__(self, build, folder):
        self._build = build
        self._folder = folder
        self.socket = folder / "rmc"
        self.orders = folder / "rmc-orders"
        self._records = []
        self.start()

    def start(self):
        """Also after a stop: what it was told before it knows no more, but we do."""
        self._records.append(self._folder / f"record{len(self._records)}")
        self._records[-1].touch()
        self._process = subprocess.Popen(
            [self._build / "sim/rmc/tav-sim-rmc", "--socket", self.socket, "--control", self.orders,
             "--record", self._records[-1], "--quiet"])
        connect(self.orders, 10).close()

    def order(self, text):
        with connect(self.orders, 10) as connection:
            connection.sendall(text.encode() + b"\n")
            connection.settimeout(5)
            with contextlib.suppress(OSError):
                connection.recv(4096)

    def lines(self):
        return [json.loads(line) for record in self._records
                for line in record.read_text().splitlines() if line.endswith("}")]

    def commands(self, name):
        return [json.loads(line["payload"]) for line in self.lines() if line.get("command") == name]

    def events(self, identifier=None):
        return [event for event in self.commands("MPEventGen")
                if identifier is None or event["ID"] == identifier]

    def inventories(self):
        return [document["HostDataCollection"] for document in self.commands("WriteInventory")
                if "HostDataCollection" in document]  # not the ballast of a measurement

    def has_struck(self, order):
        return any(line.get("struck") == order for line in self.lines())

    def violations(self):
        return [line["violation"] for line in self.lines() if "violation" in line]

    def stop(self):
        self._process.terminate()
        self._process.wait()


class Guest:
    """The machine. Its shell and QEMU's monitor are spoken to one command at a time."""

    def __init__(self, kernel, initramfs, arguments, folder, memory=512, cpus=2, append=""):
        self._folder = folder
        self.console = folder / "console"
        command = ["qemu-system-x86_64", "-machine", "q35", "-accel", "tcg,thread=multi",
                   "-m", str(memory), "-smp", str(cpus), "-nodefaults", "-no-user-config",
                   "-display", "none", "-kernel", kernel,
                   "-append", f"console=ttyS0 quiet panic=-1 {append}",
                   "-chardev", f"file,id=console,path={self.console}",
                   "-serial", "chardev:console",
                   "-chardev", f"socket,id=shell,path={folder}/shell,server=on,wait=off",
                   "-serial", "chardev:shell",
                   "-qmp", f"unix:{folder}/qmp,server=on,wait=off", *arguments]
        if initramfs:
            command += ["-initrd", initramfs]
        with open(folder / "qemu", "wb") as log:
            self._process = subprocess.Popen([str(part) for part in command], stdout=log,
                                             stderr=subprocess.STDOUT)
        try:
            self._shell = connect(folder / "shell", 20)
            self._monitor = connect(folder / "qmp", 20)
        except TimeoutError as failure:
            self.stop()
            raise RuntimeError((folder / "qemu").read_text()) from failure
        self._answers = self._monitor.makefile()
        self._answers.readline()  # the greeting
        self.monitor("qmp_capabilities")
        self._wait_for_shell()

    def _wait_for_shell(self):
        self._shell.settimeout(BOOT_SECONDS)
        seen = b""
        while b"\nREADY\n" not in seen:
            part = self._shell.recv(4096)
            if not part:
                raise RuntimeError("the machine has ended: " + (self._folder / "qemu").read_text())
            seen += part

    def monitor(self, command, **arguments):
        self._monitor.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
        while True:
            answer = json.loads(self._answers.readline())
            if "error" in answer:
                raise RuntimeError(f"{command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def attempt(self, command, seconds=COMMAND_SECONDS):
        """Exit status and output of a shell command of one line."""
        self._shell.settimeout(seconds)
        self._shell.sendall(command.encode() + b"\n")
        received = b""
        while b"\n" not in received:
            received += self._shell.recv(65536)
        head, _, output = received.partition(b"\n")
        status, size = map(int, head.split())
        while len(output) < size:
            output += self._shell.recv(65536)
        return status, output.decode(errors="replace")

    def run(self, command, seconds=COMMAND_SECONDS):
        status, output = self.attempt(command, seconds)
        if status != 0:
            raise RuntimeError(f"{command}: status {status}\n{output}")
        return output

    def watch_devices(self):
        """From now on, and forgetting what has been, the kernel's words of devices are kept."""
        self.run("rm -f /run/devices; touch /run/devices; [ -e /run/watcher ] || { "
                 "uevent /bin/note-device >/dev/null 2>&1 </dev/null & echo $! >/run/watcher; }")

    def uptime(self):
        return float(self.run("cut -d' ' -f1 /proc/uptime"))

    def told_of(self, device):
        """When the kernel spoke of devices that are called so, in seconds since it was booted."""
        return [float(line.split()[0]) for line in self.run("cat /run/devices").splitlines()
                if device in line]

    def reboot(self):
        """As an operator does it."""
        self._shell.sendall(b"systemctl --no-block reboot\n")
        self._wait_for_shell()

    def crash(self):
        """As if somebody pressed the reset button."""
        self.monitor("system_reset")
        self._wait_for_shell()

    def stop(self):
        self._process.kill()
        self._process.wait()
