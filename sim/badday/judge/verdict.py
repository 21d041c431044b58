"""The verdict on a day: part by part, and on the whole."""
import dataclasses

import server as servers
from judge import knowledge, parts, process
from judge.day import Day
from judge.notified import TOLD, NotifiedPart, explain_notified, notifications
from judge.readings import explain
from judge.told import location_name, name_of
from judge.truth import NOWHERE, RAID_FUNCTION, SATA_FUNCTION, Condition, disk_place, location

ANSWERED = 120     # a controller that is slow to answer at first has done so by then
BOOT = 356
BOOTED = 120       # a service that has started has told of the host's boot by then
PCH = "FFFFFF0101FFFF8E"
WAITING = 5        # for so long the service keeps a notification waiting for what comes next


def faults_of(played):
    day = Day(played)
    faults = process.process_faults(day)
    if process.has_ended_badly(day):
        return faults
    judge = PartsJudge(day)
    faults += judge.verdict()
    return faults + knowledge.Knowledge(day, judge.last, judge.names).faults()


class PartsJudge:
    """Holds each part's events against its conditions."""

    def __init__(self, day):
        self.day, self.excuses = day, day.excuses
        self.faults = []
        self.last = {}      # by part: the values that the last reading may end with
        self.names = set()  # (name, event, location) of everything that any event can be of

    def verdict(self):
        self.check_disks()
        self.check_nvme()
        self.check_links()
        self.check_ports()
        self.check_sata_controller()
        self.check_raid()
        self.check_boot()
        self.check_beginnings()
        self.check_strangers()
        return self.faults

    def check(self, part, names, ids, place, reading, function=None):
        """`reading(events, life)` of each life gives what may have been seen last. The part is known
        once the controller of the function, if any, is."""
        self.names |= {(name, number, place) for name in names for number in ids}
        events = [dataclasses.replace(event, location=place) for event in self.day.events
                  if event.name in names and event.id in ids and
                  (event.location == place or self.is_unplaced(event))]
        following = [life.begin for life in self.day.lives[1:]] + [float("inf")]
        for life, until in zip(self.day.lives, following):
            mine = [event for event in events if life.begin <= event.time < until]
            last = reading(mine, self.known_in(life, function))
            if not last:
                self.faults.append(f"{part}: no reading gives these events: " +
                                   (", ".join(map(str, mine)) or "none"))
            self.last[part] = last

    def known_in(self, life, function):
        """A controller that does not answer in time at first is left out until it does."""
        for time, told in self.day.inventories if function is not None else []:
            if time > life.begin and \
                    function in map(location_name, told.get("StorageControllers", [])):
                is_late = life.first < time + 1 < life.first + ANSWERED
                return dataclasses.replace(life, first=time + 1) if is_late else life
        return life

    def is_unplaced(self, event):
        """Whether it may say that its place is not known yet."""
        return event.location == NOWHERE and self.excuses.may_be_unplaced(event.time)

    def check_conditions(self, part, conditions, rule, names, ids, place, function=None,
                         excuses=None):
        self.check(part, names, ids, place, lambda events, life: explain(
            conditions, rule, events, life, excuses or self.excuses), function)

    # --- what the kernel tells ---

    def check_disks(self):
        server = self.day.first_server()
        for disk in server["disks"]:
            place = disk_place(server, disk)
            self.check_drive(disk["name"], parts.disk_value(disk["name"]),
                             parts.disk_rule(place, self.is_shared(place)), place, SATA_FUNCTION)

    def check_drive(self, name, value_of, rule, place, function):
        conditions = self.day.truth.conditions(value_of, parts.disk_needs)
        names = {c.value[0] for c in conditions if c.value[0]}
        self.check_conditions(name, conditions, rule, names, {538, 539, 540}, place, function,
                              self.excuses.of_placed())

    def is_shared(self, place):
        """Whether several disks have ever been there."""
        names = {disk["name"] for _, server in self.day.truth.moments for disk in server["disks"]
                 if disk.get("gone") != "yes" and disk_place(server, disk) == place}
        return len(names) > 1

    def check_nvme(self):
        server = self.day.first_server()
        for controller in server["nvme"]:
            name, function = controller["name"], controller["function"]
            place = location(server, function)
            self.check_drive(name, parts.nvme_value(name),
                             parts.disk_rule(place, texts=parts.NVME_TEXTS), place, function)
            conditions = self.day.truth.conditions(parts.nvme_controller_value(name),
                                                   lambda value: parts.POLLED)
            self.check_conditions(f"{name}'s controller", conditions,
                                  parts.nvme_controller_rule(function, place), {function},
                                  {397, 398}, place, function, self.excuses.of_placed())

    def check_links(self):
        server = self.day.first_server()
        for adapter in server["ethernet"]:
            name, place = adapter["name"], location(server, adapter["function"])
            conditions = self.day.truth.conditions(parts.link_value(name),
                                                   lambda value: parts.REBUILT)
            self.check_conditions(name, conditions, parts.link_rule(name, place), {name},
                                  {680, 678}, place, excuses=self.excuses.of_listed())

    def check_ports(self):
        server = self.day.first_server()
        for port in server["fibreChannel"]:
            digits = port["wwpn"][2:]
            name = ":".join(digits[i:i + 2] for i in range(0, 16, 2))
            place = location(server, port["function"])
            conditions = self.day.truth.conditions(parts.fc_value(str(port["host"])),
                                                   lambda value: parts.POLLED)
            self.check_conditions(f"fc {port['host']}", conditions, parts.fc_rule(name, place),
                                  {name}, set(parts.FC_EVENTS.values()), place)

    def check_sata_controller(self):
        self.check_conditions("SATA controller", parts.sata_conditions(self.day.truth),
                              parts.sata_rule(PCH), {SATA_FUNCTION}, {397, 398}, PCH,
                              SATA_FUNCTION, self.excuses.of_placed())

    # --- what the RAID library tells ---

    def check_raid(self):
        server = self.day.first_server()
        controller = server["raid"]["controllers"][0]
        for drive in controller["drives"]:
            self.check_notified(
                "drive", drive["id"], {"OK": 540, "Critical": 538}, "serial",
                location(server, RAID_FUNCTION, drive["slot"]),
                lambda drive: int(str(drive["state"]), 0) in parts.GOOD_STATES, extra={539})
        for volume in controller["volumes"]:
            self.check_notified("volume", volume["id"], {"OK": 683, "Critical": 681}, "identifier",
                                "", lambda volume: volume["state"] == 3)
        self.check_notified("controller", None, {"OK": 397, "Critical": 398}, "pci",
                            location(server, RAID_FUNCTION), lambda controller: True)

    def check_notified(self, kind, number, ids, identity, place, is_well, extra=frozenset()):
        """`extra` are events of the part that nothing raises here."""
        def value(server, _):
            controller = server["raid"]["controllers"][0]
            one = controller if number is None else servers.find(controller[kind + "s"],
                                                                 str(number))
            is_gone = "yes" in (controller.get("gone"), one.get("gone"))
            return one[identity], "gone" if is_gone else "OK" if is_well(one) else "Critical"

        # Another name is another part, and its condition nobody has reported yet.
        named = self.day.truth.conditions(value, lambda value: parts.REBUILT)
        part = NotifiedPart(
            own=[Condition(c.value[1], c.since, c.until, c.needs) for c in named],
            notifications=notifications(self.day.played, kind, number), ids=ids, place=place,
            name_at=lambda time: next(c.value[0] for c in reversed(named)
                                      if c.since <= max(time, 0)),
            is_told_first=self.is_told_first)

        def reading(events, life):
            if not self.day.library_starts(life.begin):
                return set() if events else {"absent"}
            return explain_notified(part, events, life, self.excuses)

        self.check(knowledge.raid_part(kind, number), {c.value[0] for c in named},
                   set(ids.values()) | extra, place, reading)

    def is_told_first(self, time, name, value):
        """Whether a notification waited for another one, whose inventory has told it meanwhile."""
        is_one_waiting = any(
            order["do"].startswith("raid event ") and time - WAITING < order["at"] < time
            for order in self.day.played["orders"])
        return is_one_waiting and any(time < at < time + TOLD and value == health_in(told, name)
                                      for at, told in self.day.inventories)

    # --- what no part's reading sees ---

    def check_boot(self):
        boots = [event for event in self.day.events if event.id == BOOT]
        life = self.day.lives[0]
        booted = life.begin + BOOTED
        if len(boots) > 1 or not boots and not self.excuses.may_be_untold(life.begin, booted):
            self.faults.append(f"the boot was reported {len(boots)} times")
        if boots and boots[0].time > booted and life.end > booted:
            self.faults.append(f"the boot was reported late: {boots[0]}")

    def check_beginnings(self):
        """Before the first inventory nothing is reported but the host's boot. One that does not
        arrive is no longer awaited."""
        for life in self.day.lives:
            if not self.excuses.may_be_untold(life.begin, life.first):
                self.faults += [f"reported before the first inventory: {event}"
                                for event in self.day.events
                                if life.begin <= event.time < life.first - 1 and event.id != BOOT]

    def check_strangers(self):
        anywhere = {(name, number) for name, number, _ in self.names}
        for event in self.day.events:
            is_known = (event.name, event.id, event.location) in self.names or \
                self.is_unplaced(event) and (event.name, event.id) in anywhere
            if not is_known and event.id != BOOT:
                self.faults.append(f"nothing can have raised event {event}")


def health_in(told, name):
    records = told.get("Drives", []) + told.get("Volumes", [])
    return next((one["Status"]["Health"] for one in records if name == name_of(one)), None)
