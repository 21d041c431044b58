"""A random bad day, told by a seed: always the same orders at the same moments.

A story is a list of episodes. An episode is a name and its orders, each with the second of the
simulated clock at which it is given. Episodes of one part follow each other; those of different
parts overlap. Every episode ends with its part well again, or as something that lasts."""
import random

BEGIN = 70     # the first inventory has been delivered
END = 430      # then all is calm
SETTLED = 60   # a new disk has been identified by then
ORDINARY = (8, 25, 50, 90, 120)  # how long something lasts; some of it too short to be seen


class Teller:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.free = {}      # when a part may have its next episode
        self.fresh = 0      # of serial numbers

    def serial(self, prefix):
        self.fresh += 1
        return f"{prefix}{self.fresh:03d}"

    def other(self):
        """Another disk, which does not contradict itself."""
        return f"serial={self.serial('NEW')} identifySerial="

    def lasting(self):
        return self.random.choice(ORDINARY) + self.random.randrange(10)

    # --- episodes: (name, part, [(seconds after the begin, order)]) --------------------------

    def toggled(self, name, part, target, on, off):
        return name, part, [(0, f"change {target} {on}"), (self.lasting(), f"change {target} {off}")]

    def disk(self):
        name = self.random.choice(("sg0", "sg1", "sg2", "sg3"))
        disk = f"disks {name}"
        kinds = [
            ("worn", "errors=3", "errors=0"),
            ("hot", "temperature=75", "temperature=33"),
            ("pulled", "present=no", "present=yes"),
            ("unplugged", "gone=yes", "gone=no"),
            ("replaced", "present=no", "present=yes " + self.other()),
            ("exchanged", "gone=yes", "gone=no " + self.other()),
            ("silent", "answers=no", "answers=yes"),
            ("hanging", "hang=command", "hang=no"),
            ("hanging in open", "hang=open", "hang=no"),
            ("serial unreadable", "serialUnreadable=yes", "serialUnreadable=no"),
            ("identify of ones", "identify=ones", "identify=no"),
            ("identify of zeros", "identify=zeros", "identify=no"),
            ("identify too short", "identify=short", "identify=no"),
        ]
        kind, on, off = self.random.choice(kinds)
        return self.toggled(f"{name} {kind}", name, disk, on, off)

    def swapped_at_once(self):
        name = self.random.choice(("sg0", "sg2", "sg3"))
        return f"{name} swapped at once", name, [
            (0, f"change disks {name} {self.other()}")]

    def contradicting(self):
        """Its IDENTIFY tells another serial number than page 80h."""
        name = self.random.choice(("sg0", "sg2", "sg3"))
        serial = self.serial("NEW")
        return f"{name} replaced by one that contradicts itself", name, [
            (0, f"change disks {name} gone=yes"),
            (self.lasting(), f"change disks {name} gone=no serial={serial} identifySerial={serial}X")]

    def predicted_and_silent(self):
        name = self.random.choice(("sg0", "sg2", "sg3"))
        first, second = self.lasting(), self.lasting()
        return f"{name} predicted to fail, then silent", name, [
            (0, f"change disks {name} errors=3"),
            (first, f"change disks {name} answers=no"),
            (first + second, f"change disks {name} answers=yes"),
            (first + second + 60, f"change disks {name} errors=0")]

    def second_device(self):
        return self.toggled("a second device below one ATA port", "sg4", "disks sg4", "gone=no",
                            "gone=yes")

    def sata_port(self):
        host = self.random.randrange(4)
        state = self.random.choice(("recovery", "recovery", "offline", "blocked"))
        return self.toggled(f"host {host} in {state}", f"host {host}", f"scsiHosts {host}",
                            f"state={state}", "state=running")

    def all_sata_ports(self):
        last = self.lasting() + 30
        return "all ports of the controller offline", "host 0", [
            (0, f"change scsiHosts {host} state=offline") for host in range(4)] + [
            (last, f"change scsiHosts {host} state=running") for host in range(4)]

    def fibre_channel(self):
        host = self.random.choice((8, 9, 10))
        state = self.random.choice(("Linkdown", "Offline", "Error"))
        return self.toggled(f"fc {host} {state}", f"fc {host}", f"fibreChannel {host}",
                            f"portState={state}", "portState=Online")

    def link(self):
        name = self.random.choice(("vmnic0", "vmnic2", "vmnic3", "vmnic4"))
        return self.toggled(f"{name} down", name, f"ethernet {name}", "link=down", "link=up")

    def drive(self):
        """A drive of a RAID controller fails and recovers; some notifications are lost."""
        number = self.random.choice((8, 9, 10, 11, 12))
        last = self.lasting()
        orders = [(0, f"raid drive 0 {number} state=17"), (last, f"raid drive 0 {number} state=24")]
        for at, previous, new in ((0, "0x18", "0x11"), (last, "0x11", "0x18")):
            for _ in range(self.random.choice((0, 1, 1, 1, 3))):
                orders.append((at, f"raid event 0 code=0x72 class=0 locale=2 type=15 drive={number} "
                                   f"previous={previous} new={new} text=\"PD {number:02d}\""))
        return f"drive {number} fails and recovers", f"drive {number}", sorted(
            orders, key=lambda order: order[0])

    def drive_taken_out(self):
        """... and put back, or another one in its place; some notifications are lost."""
        number = self.random.choice((8, 9, 10, 11, 12, 13))
        last = self.lasting()
        told = f"class=0 locale=2 type=12 drive={number} text=\"PD {number:02d}\""
        back = self.random.choice(("gone=no", f"gone=no serial={self.serial('RAID')}"))
        orders = [(0, f"raid drive 0 {number} gone=yes"), (0, f"raid event 0 code=0x70 {told}"),
                  (last, f"raid drive 0 {number} {back}"), (last, f"raid event 0 code=0x5B {told}")]
        lost = self.random.choice(((), (), (1,), (3,), (1, 3)))
        return f"drive {number} taken out", f"drive {number}", [
            order for index, order in enumerate(orders) if index not in lost]

    def raid_controller(self):
        return "the RAID controller vanishes", "raid controller", [
            (0, "raid controller 0 gone=yes"), (self.lasting(), "raid controller 0 gone=no")]

    def volume(self):
        number = self.random.choice((0, 1))
        last = self.lasting()
        orders = [(0, f"raid volume 0 {number} state=2"), (last, f"raid volume 0 {number} state=3")]
        for at, code, grade in ((0, "0xFB", 2), (last, "0xF9", 0)):
            for _ in range(self.random.choice((0, 1, 1, 1, 2))):
                orders.append((at, f"raid event 0 code={code} class={grade} locale=1 type=3 "
                                   f"volume={number} text=\"VD {number:02d}\""))
        return f"volume {number} degrades and heals", f"volume {number}", sorted(
            orders, key=lambda order: order[0])

    def firmware(self):
        return "the RAID controller's firmware stops", "raid controller", [
            (0, 'raid event 0 code=0x0F class=3 locale=0x20 type=0 text="Fatal firmware error"'),
            (self.lasting(), 'raid event 0 code=0x0C class=0 locale=0x20 type=0 text="Initialized"')]

    def library(self):
        command = self.random.choice(("1 4", "1 13", "2 0", "3 0", "1 0", "0 3"))
        kind = self.random.randrange(3)
        if kind == 0:
            times = self.random.choice((1, 2, 5))
            return f"the RAID library fails {command}", "library", [(0, f"raid fail {command} 0x8009 {times}")]
        if kind == 1:
            return "the RAID library dawdles", "library", [
                (0, "raid slow 300"), (self.lasting(), "raid slow 0")]
        return f"the RAID library hangs in {command}", "library", [
            (0, f"raid hang {command}"), (self.lasting(), "raid resume")]

    def controller_asleep(self):
        return "the RMC sleeps", "rmc", [
            (0, "rmc lost,nth=all"), (self.random.choice((10, 40, 70)), "rmc withdraw=all")]

    def controller_refuses(self):
        number = self.random.choice((1, 2, 3))
        return "the RMC refuses", "rmc", [
            (at, "rmc status=4,frame=last,command=MPEventGen") for at in range(number)]

    def controller_late(self):
        return "the RMC dawdles", "rmc", [
            (0, "rmc late=1500,nth=all"), (self.lasting(), "rmc withdraw=all")]

    def commands(self):
        what = self.random.choice(("hang", "fail"))
        return f"localcli {what}s", "localcli", [
            (0, f"{what} localcli"), (self.lasting(), f"un{what} localcli")]

    def restart(self):
        return "the service restarts", "service", [(0, "restart")]

    def clock(self):
        """Somebody sets the clock, forward or back, and perhaps right again."""
        by = self.random.choice((-7200, -600, -100, 100, 7200))
        return f"the clock is set by {by} s", "clock", [
            (0, f"clock {by}"), (self.lasting(), f"clock {self.random.choice((0, by))}")]

    def hang_up(self):
        return "SIGHUP", "service", [(0, "hup")]

    def function(self):
        return "the Fibre Channel adapter vanishes", "fc 8", [
            (0, "change functions 0000:86:00.0 gone=yes"),
            (self.lasting(), "change functions 0000:86:00.0 gone=no")]

    def nvme(self):
        name = self.random.choice(("nvme0", "nvme1"))
        kind, on, off = self.random.choice([
            ("worn", "used=97", "used=3"),
            ("hot", "temperature=92", "temperature=36"),
            ("out of spare", "spare=4", "spare=100"),
            ("unreliable", "criticalWarning=4", "criticalWarning=0"),
            ("read-only", "criticalWarning=8", "criticalWarning=0"),
            ("with media errors", "mediaErrors=2", "mediaErrors=0"),
            ("unplugged", "gone=yes", "gone=no"),
            ("exchanged", "gone=yes", "gone=no serial=" + self.serial("NVM")),
            ("absent", "present=no", "present=yes"),
            ("silent", "answers=no", "answers=yes"),
            ("hanging", "hang=command", "hang=no"),
            ("dead", "state=dead", "state=live"),
            ("with a log of ones", "healthLog=ones", "healthLog=no"),
            ("that does not identify itself", "identify=zeros", "identify=no"),
        ])
        return self.toggled(f"{name} {kind}", name, f"nvme {name}", on, off)

    def nvme_reset(self):
        """A reset that is over in a moment, as far as anybody needs to know."""
        name = self.random.choice(("nvme0", "nvme1"))
        return f"{name} resets", name, [
            (0, f"change nvme {name} state=resetting"),
            (self.random.randrange(3, 30), f"change nvme {name} state=live")]

    # What no event tells, and what is there when the service starts.

    def disk_firmware(self):
        name = self.random.choice(("sg0", "sg1", "sg2", "sg3"))
        return f"{name} gets new firmware", name, [
            (0, f"change disks {name} revision=FW{self.random.randrange(10, 100)}")]

    def nvme_firmware(self):
        name = self.random.choice(("nvme0", "nvme1"))
        return f"{name} gets new firmware", name, [
            (0, f"change nvme {name} firmware=FW{self.random.randrange(10, 100)}")]

    def start_without_locations(self):
        what = self.random.choice(("hang", "fail", "fail"))
        return f"localcli {what}s while the service restarts", "localcli", [
            (0, f"{what} localcli"), (1, "restart"), (self.lasting() + 2, f"un{what} localcli")]

    def door_bell(self):
        return "the RMC rings for an inventory", "bell", [(0, "rmc doorbell=WriteInventory")]

    def interface(self):
        """What no event tells of an interface."""
        name = self.random.choice(("vmnic0", "vmnic2", "vmnic3"))
        if self.random.randrange(3) == 0:
            return f"{name} gets new firmware", name, [
                (0, f"change ethernet {name} firmware={self.random.randrange(10, 100)}.0.1")]
        return self.toggled(f"{name} leaves the list", name, f"ethernet {name}", "gone=yes",
                            self.random.choice(("gone=no", f"gone=no firmware={self.serial('1.')}")))

    NVME_TOPICS = ((nvme, 5), (nvme_reset, 1))
    INTERFACE_TOPICS = ((interface, 1),)
    LATER_TOPICS = ((disk_firmware, 2), (nvme_firmware, 1), (start_without_locations, 1), (door_bell, 1))
    TOPICS = ((disk, 10), (swapped_at_once, 2), (contradicting, 2), (predicted_and_silent, 2),
              (second_device, 2), (sata_port, 3), (all_sata_ports, 1), (fibre_channel, 3), (link, 6),
              (drive, 5), (drive_taken_out, 2), (raid_controller, 1), (volume, 4), (firmware, 1),
              (library, 3), (controller_asleep, 1), (controller_refuses, 2), (controller_late, 1),
              (commands, 2), (restart, 1), (hang_up, 1), (function, 1), (clock, 2))

    def episode(self, topics=TOPICS):
        topics, weights = zip(*topics)
        name, part, orders = self.random.choices(topics, weights)[0](self)
        length = orders[-1][0]
        begin = max(self.random.randrange(BEGIN, END - 60), self.free.get(part, 0))
        if begin + length > END:
            return None
        # Two episodes of a part may follow each other too quickly for both to be seen.
        self.free[part] = begin + length + self.random.choice((5, 20, 80, 120))
        # By what the one is known hangs on who has answered first; a drive that nobody has met
        # before its controller's reset is told by an inventory alone.
        if "contradicts itself" in name or part.startswith("nvme") and "gone=no" in orders[-1][1]:
            self.free[part] += SETTLED
        return {"name": name, "part": part,
                "orders": [{"at": begin + after, "do": order} for after, order in orders]}


def tell(seed):
    teller = Teller(seed)
    wanted = teller.random.randrange(5, 16)
    episodes = [teller.episode() for _ in range(wanted)]
    # Drawn apart, so that a seed goes on telling what it told before there were these topics.
    nvme_teller = Teller(f"nvme {seed}")
    episodes += [nvme_teller.episode(Teller.NVME_TOPICS)
                 for _ in range(nvme_teller.random.randrange(4))]
    later = Teller(f"later {seed}")
    later.free = teller.free | nvme_teller.free
    episodes += [later.episode(Teller.LATER_TOPICS) for _ in range(later.random.randrange(3))]
    interfaces = Teller(f"interfaces {seed}")
    interfaces.free = later.free
    episodes += [interfaces.episode(Teller.INTERFACE_TOPICS) for _ in range(interfaces.random.randrange(2))]
    episodes = [episode for episode in episodes if episode is not None]
    return {"seed": seed, "episodes": sorted(episodes, key=lambda e: e["orders"][0]["at"])}


def orders(story):
    """All orders in their sequence."""
    listed = [order for episode in story["episodes"] for order in episode["orders"]]
    return sorted(listed, key=lambda order: order["at"])


def text(story):
    lines = []
    for episode in story["episodes"]:
        lines.append(f"  {episode['name']}:")
        lines += [f"    {order['at']:4} s  {order['do']}" for order in episode["orders"]]
    return "\n".join(lines)
