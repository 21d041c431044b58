"""Holds what the controller was told against what the server was.

For each part the orders give a sequence of conditions, each from one moment to another. One that
lasted long enough has to have been seen, a shorter one may have been; what was seen, one after the
other, says which events there have to be, and the events of that part have to be exactly those of
one such reading. A service that has been started anew begins with any of the conditions that were
there when it looked first."""
import copy
import dataclasses
import json
import re
from dataclasses import dataclass

import server as servers

POLLED = 50        # seconds: what lasts longer is seen by a poll or a build of its own
TIMED_OUT = 130    # what a disk's silence takes longer: its command has to time out first
REBUILT = 80       # what only a build sees
LATE = 60          # an event may come so much later than its cause
STOP_BOUND = 2.0   # simulated seconds that a stop may take ...
STOP_SLACK = 1.2   # ... and real ones that the machine may
NOWHERE = "FFFFFFFFFFFFFFFF"
SATA_FUNCTION = "0000:00:17.0"
ANSWERED = 120     # a controller that is slow to answer at first has done so by then
STARTED = 5        # a service that starts has asked for the locations by then
ASKED_AGAIN = 105  # it has asked again by then, and built everything anew
LISTED = 45        # and has a list of its interfaces
TOLD = 30          # what the library tells of has been handled by then
BUILT = 30         # from one of its lists to the next
LISTS = ("0 3", "1 0", "1 4", "1 13")
WAITING = 5        # and keeps what it tells of next waiting for so long
BOOTED = 120       # a service that has started has told of the host's boot by then


@dataclass(frozen=True)
class Event:
    """What the controller was told, or has refused to hear."""
    time: float
    id: int
    name: str
    location: str
    text: str
    is_refused: bool = False

    def __str__(self):
        return f"{self.id} {self.name} at {self.time:.0f} s"


@dataclass(frozen=True)
class Wanted:
    """An event that a change has to raise, or may. `text` is a regular expression; an empty
    location is that of none."""
    id: int
    name: str
    location: str = ""
    text: str = ""
    is_due: bool = True

    def fits(self, event):
        return (self.id == event.id and self.name == event.name and
                self.location == event.location and
                re.search(self.text, event.text) is not None)


@dataclass
class Condition:
    """A condition of a part, from one moment to another."""
    value: object
    since: float
    until: float
    needs: float  # seconds for which it has to last to be sure to be seen


# --- the record -------------------------------------------------------------------------------

def name_of(data):
    oem = data.get("Oem", {})
    return (data.get("DurableName") or data.get("WWPN") or oem.get("DeviceName") or
            data.get("SerialNumber") or "")


def location_name(data):
    """Of a controller without a serial number: its function's description."""
    return data.get("Oem", {}).get("Description", "").removeprefix("PCI ").split(" ")[0]


def events_of(record):
    events = []
    for line in record:
        if "MPEventGen" not in (line.get("command"), line.get("refused")) or not line["payload"]:
            continue
        payload = json.loads(line["payload"])
        details = payload.get("VariableData") or {}
        data = details.get("Data", {})
        name = location_name(data) if details.get("Type") == "Controller" else name_of(data)
        events.append(Event(line["time"], payload["ID"], name, payload.get("PhysicalLocation", ""),
                            details.get("EventInfo", ""), "refused" in line))
    return events


def drive_name(data):
    return f"{data['SerialNumber']} {data.get('Model')} {data.get('Revision')}"


def firmware_of(name):
    return f"{name}'s firmware"


def told_by_events(record, kind):
    """What events have told of resources of that kind, and when."""
    told = []
    for line in record:
        details = {}
        if line.get("command") == "MPEventGen" and line["payload"]:
            details = json.loads(line["payload"]).get("VariableData") or {}
        if details.get("Type") == kind:
            told.append((line["time"], details["Data"]))
    return told


def inventories_of(record):
    return [(line["time"], json.loads(line["payload"]).get("HostDataCollection", {}))
            for line in record if line.get("command") == "WriteInventory"]


# --- what was, by the orders ------------------------------------------------------------------

class Truth:
    """The server's description at each moment at which it changed."""

    def __init__(self, played):
        server = servers.described()
        self.moments = [(0.0, copy.deepcopy(server))]
        for order in played["orders"]:
            before = json.dumps(server)
            servers.apply(server, order["do"])
            if json.dumps(server) != before:
                self.moments.append((order["at"], copy.deepcopy(server)))
        self.end = played["length"]

    def conditions(self, value_of, needs_of):
        """Of one part: `value_of(server, value before)` each time it differs."""
        conditions, value = [], None
        for time, server in self.moments:
            fresh = value_of(server, value)
            if conditions and fresh == value:
                continue
            if conditions:
                conditions[-1].until = time
            value = fresh
            conditions.append(Condition(value, time, self.end, 0))
        for condition in conditions:
            condition.needs = needs_of(condition.value)
        return conditions


def location(server, function, slot=None):
    """The code of a disk's place behind a controller, or of the controller or adapter itself."""
    entry = servers.find(server["functions"], function)["slot"]
    rack, height, card = (int(part) for part in (entry[1:4], entry[5:7], entry[8:10]))
    where = f"{rack:02X}{height:02X}"
    if slot is not None:
        return f"FF00{slot:02X}{where}FFFF86" if slot < 4 else NOWHERE
    if card == 0:
        return f"FFFF{int(function[-1]):02X}{where}FFFF88"
    device = function[:-1]
    several = sum(other["address"].startswith(device) for other in server["functions"]) > 1
    return f"{card:04X}00{where}{int(several):02X}0005"


def disk_place(server, disk):
    return location(server, SATA_FUNCTION, int(disk["address"].split(":")[0]))


# --- readings ---------------------------------------------------------------------------------

class Excuses:
    """When events may be late, or not come at all, for reasons that are not their part's."""

    def __init__(self, played):
        self.asleep, self.slow = [], []
        begun = {}
        pairs = {"rmc lost": "rmc withdraw", "rmc late": "rmc withdraw", "hang ipmi0": "unhang ipmi0"}
        for order in played["orders"]:
            for begin, end in pairs.items():
                if order["do"].startswith(begin):
                    begun[end] = (order["at"], "late" in begin)
                elif order["do"].startswith(end) and end in begun:
                    since, only_late = begun.pop(end)
                    self.slow.append((since, order["done"] + 40))
                    if not only_late:  # a controller that dawdles gets everything
                        self.asleep.append((since - 2, order["done"] + 40))
        self.silent = self.asleep
        self.unlisted = self.without_localcli(played)
        starts = self.starts_without_localcli(played)
        self.unplaced = [(since, until + ASKED_AGAIN) for since, until in starts]
        self.unknown_links = [(since, until + LISTED) for since, until in starts]
        self.unasked = self.library_hanging(played) + self.library_failing(played)
        self.lags = played["lags"] + [[order["at"], order["done"] - order["at"]]
                                      for order in played["orders"]]

    @staticmethod
    def library_hanging(played):
        """When the RAID library does not come back, and what it was asked before is on its way."""
        spans, begun = [], None
        for order in played["orders"]:
            if order["do"].startswith("raid hang"):
                begun = order["at"] if begun is None else begun
            elif order["do"] == "raid resume" and begun is not None:
                spans.append((begun, order["done"]))
                begun = None
        return spans

    @staticmethod
    def library_failing(played):
        """When it fails a list, of which a build wants one."""
        orders = [(order["at"], order["do"].split()) for order in played["orders"]]
        return [(at, at + int(words[-1]) * BUILT) for at, words in orders
                if words[:2] == ["raid", "fail"] and " ".join(words[2:4]) in LISTS]

    def took(self, moment):
        """How long the order of that moment was under way."""
        return sum(lag for at, lag in self.lags if at == moment)

    def answered(self, since, until):
        """For how many seconds of these the library could be asked."""
        return until - since - sum(max(0, min(end, until) - max(begin, since))
                                   for begin, end in self.unasked)

    @staticmethod
    def without_localcli(played):
        """When the host lists neither its PCI functions nor its interfaces."""
        spans, begun = [], {}
        for order in played["orders"]:
            what = order["do"]
            if what in ("fail localcli", "hang localcli"):
                begun[what] = order["at"]
            elif what in ("unfail localcli", "unhang localcli"):
                spans.append((begun.pop(what[2:], order["at"]), order["done"]))
        return spans

    def starts_without_localcli(self, played):
        """A service that starts then knows no location until it has asked again, and no interface
        until it has a list."""
        return [(service["started"], until) for service in played["services"]
                for since, until in self.unlisted
                if since < service["started"] + STARTED and until > service["started"]]

    def of_listed(self):
        """The same for a part whose changes are told by the next list of the host."""
        listed = copy.copy(self)
        listed.slow = self.slow + self.unlisted
        listed.silent = self.silent + self.unknown_links
        return listed

    def of_placed(self):
        """The same for a part that only the kernel knows: without a place it raises no event."""
        placed = copy.copy(self)
        placed.silent = self.silent + self.unplaced
        return placed

    def may_be_unplaced(self, time):
        return any(begin <= time <= end for begin, end in self.unplaced)

    def may_be_untold(self, since, until):
        """Of a change that has been looked at between these moments."""
        return any(begin <= until and since <= end for begin, end in self.silent)

    def lateness(self, time):
        """How late an event may be whose cause was then."""
        late = LATE
        for begin, end in self.slow:
            if begin - LATE <= time <= end:
                late += end - max(begin, time)
        return late + sum(lag for at, lag in self.lags if time <= at <= time + late)


def explain(conditions, rule, events, begin, first, end, excuses):
    """Whether some reading of the conditions between `begin` and `end` gives exactly these events.
    What was there before `first` may have been what the service knew from the beginning. Returns
    the values that may have been seen last; none when there is no such reading."""
    seen = [c for c in conditions if c.since < end and c.until > begin]

    def must_be_seen(condition):
        since, until = max(condition.since, first), min(condition.until, end)
        return until - since >= condition.needs + excuses.lateness(since) - LATE

    starts = [i for i, c in enumerate(seen) if c.since <= first + 2]
    for i in range(len(starts) - 1, -1, -1):
        if any(must_be_seen(seen[k]) for k in starts[:i]):
            starts = starts[i:]
            break
    todo = {(i, 0) for i in starts}
    for i in starts:
        # What could not be asked at first is unknown, and new when it answers; so is what was gone.
        if seen[i].value != "Gone" and seen[i].value[1] not in ("failed", "offline"):
            continue
        for j in range(i + 1, len(seen)):
            todo.add((j, 0))
            if must_be_seen(seen[j]):
                break
    done = set(todo)
    while todo:
        i, used = todo.pop()
        if is_repeated(events, used, seen[i], excuses) and (i, used + 1) not in done:
            done.add((i, used + 1))
            todo.add((i, used + 1))
        for j in range(i + 1, len(seen)):
            for reached in emissions(rule(seen[i].value, seen[j].value), events, used, seen[j],
                                     excuses, first, end):
                if (j, reached) not in done:
                    done.add((j, reached))
                    todo.add((j, reached))
            if must_be_seen(seen[j]):
                break
    return {json.dumps(seen[i].value) for i, used in done if used == len(events) and
            not any(must_be_seen(c) for c in seen[i + 1:])}


def is_repeated(events, used, condition, excuses):
    """Whether the next event may be the last once more, while the condition lasts. One that was
    refused has reported nothing."""
    if not 0 < used < len(events) or not events[used - 1].is_refused:
        return False
    refused, following = events[used - 1], events[used]
    return ((refused.id, refused.name) == (following.id, following.name) and
            following.time <= condition.until + excuses.lateness(condition.until))


def emissions(wanted, events, used, condition, excuses, first, end):
    """After how many of the events a reading may be that wants these now. What came before the first
    inventory may have been dropped, each for itself."""
    reached = {used}
    for want in wanted:
        following = set()
        for at in reached:
            earliest, latest = condition.since - 2, condition.since + excuses.lateness(condition.since)
            latest = max(latest, condition.until + LATE / 2) if condition.until - condition.since < \
                condition.needs else latest + condition.needs
            if at < len(events) and want.fits(events[at]) and earliest <= events[at].time <= latest:
                following.add(at + 1)
            if not want.is_due or condition.since < first or condition.since > end - LATE or \
                    excuses.may_be_untold(condition.since,
                                          min(condition.since + condition.needs + 20, end)):
                following.add(at)
        reached = following
    return reached


# --- the parts --------------------------------------------------------------------------------

def serial_shown(disk):
    return disk.get("identifySerial") or disk["serial"]


def disk_value(name):
    def value(server, before):
        disk = servers.find(server["disks"], name)
        known = before[0] if before else None
        if disk.get("gone") == "yes":
            return (known, "offline") if known else (None, "unknown")
        if disk.get("present") == "no":
            return known, "offline"
        serial = serial_shown(disk)
        if disk.get("answers") == "no" or disk.get("hang", "no") != "no":
            return (serial, "failed")
        hot = disk["temperature"] > disk["maximumTemperature"]
        return serial, "predicted" if disk["errors"] > 0 or disk["wear"] >= 95 or hot else "running"
    return value


DISK_EVENTS = {"running": 540, "predicted": 539, "failed": 538, "offline": 538}
DISK_TEXTS = {"running": "^$", "predicted": "SSD Wear percentage", "failed": ".",
              # What is pulled while it is being asked answers nothing first.
              "offline": "not available|Unable to open|offline|serial number|^Failed to read"}
NVME_TEXTS = {"running": "^$", "predicted": r"^\[.*\]$", "failed": ".",
              "offline": "is gone|removed|Unable to open|serial number|^Failed to read"}


def disk_rule(place, is_shared=False, texts=None):
    """Of two that have one place in turns nobody can tell whether the second is new or has taken
    the place of the first, unless he has seen both there."""
    texts = texts or DISK_TEXTS

    def raised(serial, before, now):
        comes = before in ("unknown", "offline") and now not in ("unknown", "offline")
        if before == now or now == "unknown" or before == "unknown" and not (comes and is_shared):
            return []
        if now == "offline" and before == "failed":
            return []
        return [Wanted(DISK_EVENTS[now], serial, place, texts[now],
                       is_due=not (comes and is_shared))]

    def rule(before, now):
        if before[0] == now[0] or before[0] is None or now[0] is None:
            return raised(now[0], before[1], now[1])
        return raised(before[0], before[1], "offline") + raised(now[0], "offline", now[1])
    return rule


def nvme_value(name):
    """The drive of an NVMe controller. What a controller in reset cannot be asked stands."""
    def value(server, before):
        controller = servers.find(server["nvme"], name)
        known = before[0] if before else None
        if controller.get("gone") == "yes":
            return (known, "offline") if known else (None, "unknown")
        serial = controller["serial"]
        if controller["state"] == "resetting" and before:
            return before
        if controller["state"] == "dead":
            return serial, "failed"
        if controller.get("present") == "no":
            return known, "offline"
        if controller.get("answers") == "no" or controller.get("hang", "no") != "no" or \
                controller["criticalWarning"] & 8:
            return serial, "failed"
        sick = controller["criticalWarning"] or controller["mediaErrors"] or \
            controller["used"] >= 95 or controller["spare"] < controller["spareThreshold"] or \
            controller["temperature"] >= controller["warningTemperature"]
        return serial, "predicted" if sick else "running"
    return value


def nvme_controller_value(name):
    def value(server, before):
        controller = servers.find(server["nvme"], name)
        if controller.get("gone") == "yes":
            return "Gone"
        return "Critical" if controller["state"] == "dead" else "OK"
    return value


def nvme_controller_rule(function, place):
    def rule(before, now):
        if (before == "OK") == (now == "OK"):
            return []
        return [Wanted(397, function, place, "live again") if now == "OK" else
                Wanted(398, function, place, "has been removed|is dead")]
    return rule


def disk_needs(value):
    return TIMED_OUT if value[1] == "failed" else POLLED


def link_value(name):
    """How the link is, and how often it has gone down so far: notifications see each time."""
    def value(server, before):
        adapter = servers.find(server["ethernet"], name)
        known, times = before or ("up", 0)
        link = "gone" if adapter.get("gone") == "yes" else adapter["link"]
        return link, times + (link == "down" and known != "down")
    return value


def link_rule(name, place):
    def rule(before, now):
        if now[0] != "up" or before[0] != "down" and before[1] == now[1]:
            return []
        # What becomes of one that is not listed nobody knows, until it is listed again.
        return [Wanted(680, name, place, is_due=before[0] != "gone")]
    return rule


def adapters_of(server):
    return [adapter for adapter in server["ethernet"] if adapter.get("gone") != "yes"]


FC_HEALTH = {"Online": "OK", "Offline": "Warning", "Linkdown": "Critical", "Error": "Critical"}
FC_EVENTS = {"Online": 384, "Offline": 385, "Linkdown": 386, "Error": 388}
FC_TEXTS = {"Online": "^$", "Linkdown": "link down", "Offline": "ffline", "Error": "failed"}


def fc_value(host):
    def value(server, before):
        port = servers.find(server["fibreChannel"], host)
        function = servers.find(server["functions"], port["function"])
        return "gone" if "yes" in (port.get("gone"), function.get("gone")) else port["portState"]
    return value


def fc_rule(name, place):
    def rule(before, now):
        if "gone" in (before, now) or FC_HEALTH[before] == FC_HEALTH[now]:
            return []
        return [Wanted(FC_EVENTS[now], name, place, FC_TEXTS[now])]
    return rule


RECOVERY = 60  # seconds after which a port in recovery counts as such


def sata_conditions(truth):
    """The controller's health by its ports, each of which has been in recovery for some time."""
    begun, moments = {}, {}
    for time, server in truth.moments:
        states = {host["host"]: host["state"] for host in server["scsiHosts"]}
        begun = {host: begun.get(host, time) for host, state in states.items()
                 if state == "recovery"}
        moments = {at: known for at, known in moments.items() if at < time}
        moments[time] = (states, dict(begun))
        for since in begun.values():
            moments.setdefault(since + RECOVERY, (states, dict(begun)))
            if since + RECOVERY > time:
                moments[since + RECOVERY] = (states, dict(begun))
    conditions = []
    for time, (states, since) in sorted(moments.items()):
        broken = sum(state not in ("running", "recovery", "created") for state in states.values())
        recovering = sum(time - at >= RECOVERY for at in since.values())
        value = sata_health(broken, recovering, len(states))
        if conditions and conditions[-1].value == value:
            continue
        if conditions:
            conditions[-1].until = time
        conditions.append(Condition(value, time, truth.end, POLLED))
    return conditions


def sata_health(broken, recovering, ports):
    if broken + recovering == 0:
        return "OK"
    if broken > 0 and broken < ports - 1 or broken == 0 and recovering < ports - 1:
        return "Warning"
    return "Critical" if broken >= ports - 1 or broken == 0 else "Unknown"


def sata_rule(place):
    def rule(before, now):
        if (before, now) == ("Critical", "OK"):
            return [Wanted(397, SATA_FUNCTION, place, "now online")]
        if now == "Critical" and before in ("OK", "Warning"):
            return [Wanted(398, SATA_FUNCTION, place, "gone offline")]
        return []
    return rule


# --- RAID: what notifications say -------------------------------------------------------------

UNTOLD = "Critical, and nobody knows"
GOOD_STATES = (0x00, 0x02, 0x14, 0x18, 0x20, 0x40)
VOLUME_STATES = ("Offline", "Partially degraded", "Degraded", "Optimal")


def fields_of(order):
    return dict(word.split("=", 1) for word in order.split()[3:] if "=" in word)


def notifications(played, kind, number):
    """(when, whether somebody listened, what it makes of the part)"""
    told = []
    for order in played["orders"]:
        if not order["do"].startswith("raid event "):
            continue
        fields = fields_of(order["do"])
        code = int(fields["code"], 0)
        if kind == "drive" and fields.get("drive") == str(number) and code == 0x72:
            good = int(fields["new"], 0) in GOOD_STATES
        elif kind == "drive" and fields.get("drive") == str(number) and code == 0x70:
            good = False  # it has been taken out
        elif kind == "volume" and fields.get("volume") == str(number):
            good = code == 0xF9
        elif kind == "controller" and fields["type"] == "0":
            good = code == 0x0C
        else:
            continue
        told.append((order["at"], order["answer"] == "ok", "OK" if good else "Critical",
                     fields["text"].strip('"').split()[0]))
    return told


def explain_notified(own, told, ids, name_at, place, events, begin, first, end, excuses,
                     is_told_first=lambda time, name, value: False):
    """The same as explain() for a part of which the vendor's library tells. The reported condition
    follows the notifications, and the library's own state when that changes without one: surely
    when it lasts until the next build, perhaps when it is shorter."""
    changes = [(c.since, "own", c.value, c.until - c.since) for c in own
               if begin < c.since < end]
    changes += [(at, "told" if heard else "unheard", value, text)
                for at, heard, value, text in told if begin <= at < end]
    # The library changes first and tells then: that is one change, and it is for the telling to be
    # reported, even if somebody has looked between.
    at_once = {(value, time) for time, kind, value, _ in changes if kind == "told"}
    changes = [change for change in changes if change[1] != "own" or not any(
        value == change[2] and 0 <= time - change[0] < 2 + excuses.took(change[0])
        for value, time in at_once)]
    changes.sort(key=lambda change: change[0])

    def own_at(time):
        return next(c.value for c in reversed(own) if c.since <= time)

    # What was dropped before the first inventory has reported nothing: UNTOLD stands for that until
    # the next change, or until an inventory has surely told it.
    at_first = {c.value for c in own if c.since <= first + 2 and c.until >= begin}
    reported = {(value, 0) for value in at_first}
    for index, (time, kind, value, more) in enumerate(changes):
        if kind == "unheard":
            continue
        following = set()
        if kind == "told" and value == "OK" and time < first + LATE:
            following |= {("OK", used) for before, used in reported if before == UNTOLD}
        reported = {("Critical" if before == UNTOLD else before, used) for before, used in reported}
        if kind == "own":
            later = changes[index + 1][0] if index + 1 < len(changes) else end
            for before, used in reported:
                following.add((value, used))
                if excuses.answered(time, later) < REBUILT and name_at(time) == name_at(time - 1):
                    following.add((before, used))
        else:
            for before, used in reported:
                if before in (value, "gone"):
                    following.add((before, used))
                # A refused event has reported nothing, and a repeat is news.
                if before == "gone" or before == value and not (
                        used > 0 and events[used - 1].is_refused):
                    continue
                # What it was before that is no news then, unless an inventory has told it.
                if used > 0 and events[used - 1].is_refused:
                    following.add((value, used))
                want = Wanted(ids[value], name_at(time), place, more if value == "Critical" else "")
                if used < len(events) and want.fits(events[used]) and \
                        time - 2 <= events[used].time <= time + excuses.lateness(time):
                    # What has been taken out is not there to be failed.
                    following.add(("gone" if own_at(time) == "gone" else value, used + 1))
                if value == "Critical" and time < first + 2:
                    following.add((UNTOLD, used))
                if time < first + 2 or time > end - LATE or \
                        is_told_first(time, name_at(time), value) or excuses.may_be_untold(
                            time, min(time + TOLD + excuses.lateness(time) - LATE, end)):
                    following.add((value, used))
        reported = following
    return {"Critical" if value == UNTOLD else value
            for value, used in reported if used == len(events)}


# --- the verdict ------------------------------------------------------------------------------

def lives_of(played):
    """Of each service: from when, first inventory, until."""
    lives = []
    for service in played["services"]:
        begin, end = service["started"], service.get("stopping", played["length"])
        first = next((time for time, _ in inventories_of(played["record"])
                      if begin < time < service.get("stopped", end)), end)
        lives.append((begin, first + 1, end))
    return lives


class Judge:
    def __init__(self, played):
        self.played = played
        self.truth = Truth(played)
        self.excuses = Excuses(played)
        self.events = events_of(played["record"])
        self.lives = lives_of(played)
        self.faults = []
        self.last = {}    # by part: the values that the last reading may end with
        self.known = {356}
        self.names = set()
        self.has_library = self.library_starts(self.lives[-1][0])

    def known_since(self, function, begin, first):
        """A controller that does not answer in time at first is left out until it does."""
        for time, told in inventories_of(self.played["record"]):
            if time > begin and function in map(location_name, told.get("StorageControllers", [])):
                return time + 1 if first < time + 1 < first + ANSWERED else first
        return first

    def check(self, part, names, ids, place, reading, function=None):
        """`reading(events, begin, first, end)` of each life gives what may have been seen last. The
        part is known once the controller of the function, if any, is."""
        self.names |= {(name, number, place) for name in names for number in ids}
        events = [dataclasses.replace(event, location=place) for event in self.events
                  if event.name in names and event.id in ids and
                  (event.location == place or self.is_unplaced(event))]
        for index, (begin, first, end) in enumerate(self.lives):
            until = self.lives[index + 1][0] if index + 1 < len(self.lives) else float("inf")
            mine = [event for event in events if begin <= event.time < until]
            if function is not None:
                first = self.known_since(function, begin, first)
            last = reading(mine, begin, first, end)
            if not last:
                self.faults.append(f"{part}: no reading gives these events: " +
                                   (", ".join(map(str, mine)) or "none"))
            self.last[part] = last

    def is_unplaced(self, event):
        """Whether it may say that its place is not known yet."""
        return event.location == NOWHERE and self.excuses.may_be_unplaced(event.time)

    def check_conditions(self, part, conditions, rule, names, ids, place, function=None,
                         excuses=None):
        self.check(part, names, ids, place, lambda events, begin, first, end: explain(
            conditions, rule, events, begin, first, end, excuses or self.excuses), function)

    def check_disks(self):
        server = self.truth.moments[0][1]
        for disk in server["disks"]:
            conditions = self.truth.conditions(disk_value(disk["name"]), disk_needs)
            names = {c.value[0] for c in conditions if c.value[0]}
            place = disk_place(server, disk)
            self.check_conditions(disk["name"], conditions,
                                  disk_rule(place, self.is_shared(place)), names,
                                  {538, 539, 540}, place, SATA_FUNCTION, self.excuses.of_placed())

    def is_shared(self, place):
        """Whether several disks have ever been there."""
        names = {disk["name"] for _, server in self.truth.moments for disk in server["disks"]
                 if disk.get("gone") != "yes" and disk_place(server, disk) == place}
        return len(names) > 1

    def check_nvme(self):
        server = self.truth.moments[0][1]
        for controller in server["nvme"]:
            name, function = controller["name"], controller["function"]
            place = location(server, function)
            conditions = self.truth.conditions(nvme_value(name), disk_needs)
            self.check_conditions(name, conditions, disk_rule(place, texts=NVME_TEXTS),
                                  {c.value[0] for c in conditions if c.value[0]}, {538, 539, 540},
                                  place, function, self.excuses.of_placed())
            self.check_conditions(
                f"{name}'s controller",
                self.truth.conditions(nvme_controller_value(name), lambda value: POLLED),
                nvme_controller_rule(function, place), {function}, {397, 398}, place, function,
                self.excuses.of_placed())

    def check_links(self):
        server = self.truth.moments[0][1]
        for adapter in server["ethernet"]:
            name, place = adapter["name"], location(server, adapter["function"])
            conditions = self.truth.conditions(link_value(name), lambda value: REBUILT)
            self.check_conditions(name, conditions, link_rule(name, place), {name}, {680, 678},
                                  place, excuses=self.excuses.of_listed())

    def check_ports(self):
        server = self.truth.moments[0][1]
        for port in server["fibreChannel"]:
            digits = port["wwpn"][2:]
            name = ":".join(digits[i:i + 2] for i in range(0, 16, 2))
            place = location(server, port["function"])
            conditions = self.truth.conditions(fc_value(str(port["host"])), lambda value: POLLED)
            self.check_conditions(f"fc {port['host']}", conditions, fc_rule(name, place), {name},
                                  set(FC_EVENTS.values()), place)
        place = "FFFFFF0101FFFF8E"
        self.check_conditions("SATA controller", sata_conditions(self.truth), sata_rule(place),
                              {SATA_FUNCTION}, {397, 398}, place, SATA_FUNCTION,
                              self.excuses.of_placed())

    def library_starts(self, moment):
        """Whether the RAID library of a service that is started then does: if not, nobody tries again."""
        server = next(server for at, server in reversed(self.truth.moments) if at <= max(moment, 0))
        return not any(failure["type"] == 0 and failure["code"] == 0
                       for failure in server["raid"].get("failures", []))

    def check_raid(self):
        server = self.truth.moments[0][1]
        controller = server["raid"]["controllers"][0]
        for drive in controller["drives"]:
            self.check_notified(
                f"drive {drive['id']}", "drive", drive["id"], {"OK": 540, "Critical": 538},
                "serial", location(server, "0000:65:00.0", drive["slot"]),
                lambda drive: int(str(drive["state"]), 0) in GOOD_STATES)
        for volume in controller["volumes"]:
            self.check_notified(
                f"volume {volume['id']}", "volume", volume["id"], {"OK": 683, "Critical": 681},
                "identifier", "", lambda volume: volume["state"] == 3)
        self.check_notified("RAID controller", "controller", None, {"OK": 397, "Critical": 398},
                            "pci", location(server, "0000:65:00.0"), lambda controller: True)

    def check_notified(self, part, kind, number, ids, identity, place, is_well):
        def value(server, _):
            controller = server["raid"]["controllers"][0]
            one = controller if number is None else servers.find(controller[kind + "s"],
                                                                 str(number))
            is_gone = "yes" in (controller.get("gone"), one.get("gone"))
            return one[identity], "gone" if is_gone else "OK" if is_well(one) else "Critical"

        # Another name is another part, and its condition nobody has reported yet.
        named = self.truth.conditions(value, lambda value: REBUILT)
        own = [Condition(c.value[1], c.since, c.until, c.needs) for c in named]

        def name_at(time):
            return next(c.value[0] for c in reversed(named) if c.since <= max(time, 0))

        told = notifications(self.played, kind, number)
        names = {c.value[0] for c in named}

        def reading(events, begin, first, end):
            if not self.library_starts(begin):
                return set() if events else {"absent"}
            return explain_notified(own, told, ids, name_at, place, events, begin, first, end,
                                    self.excuses, self.is_told_first)

        self.check(part, names, set(ids.values()) | ({539} if kind == "drive" else set()), place,
                   reading)

    def is_told_first(self, time, name, value):
        """Whether a notification waited for another one, whose inventory has told it meanwhile."""
        return any(order["do"].startswith("raid event ") and time - WAITING < order["at"] < time
                   for order in self.played["orders"]) and any(
            time < at < time + TOLD and value == self.health_in(told, name)
            for at, told in inventories_of(self.played["record"]))

    @staticmethod
    def health_in(told, name):
        records = told.get("Drives", []) + told.get("Volumes", [])
        return next((one["Status"]["Health"] for one in records if name == name_of(one)), None)

    def check_boot(self):
        boots = [event for event in self.events if event.id == 356]
        begun, _, end = self.lives[0]
        if len(boots) > 1 or not boots and not self.excuses.may_be_untold(begun, begun + BOOTED):
            self.faults.append(f"the boot was reported {len(boots)} times")
        if boots and boots[0].time > begun + BOOTED and end > begun + BOOTED:
            self.faults.append(f"the boot was reported late: {boots[0]}")

    def check_beginnings(self):
        """Before the first inventory nothing is reported but the host's boot. One that does not
        arrive is no longer awaited."""
        for begin, first, _ in self.lives:
            if not self.excuses.may_be_untold(begin, first):
                self.faults += [f"reported before the first inventory: {event}" for event in self.events
                                if begin <= event.time < first - 1 and event.id != 356]

    def check_strangers(self):
        for event in self.events:
            is_known = (event.name, event.id, event.location) in self.names or \
                self.is_unplaced(event) and (event.name, event.id) in \
                {(name, number) for name, number, _ in self.names}
            if not is_known and event.id != 356:
                self.faults.append(f"nothing can have raised event {event}")

    # --- the last inventory ---

    def check_inventory(self):
        rung = [order for order in self.played["record"] if "doorBell" in order]
        inventories = inventories_of(self.played["record"])
        if not rung or not inventories or inventories[-1][0] < rung[-1]["time"]:
            self.faults.append("the controller has rung for an inventory, and none has come")
            return
        told = inventories[-1][1]
        server = self.truth.moments[-1][1]
        raid = self.raid_controllers(server)
        self.compare("Drives", self.told_drives(told), self.wanted_drives(server))
        self.compare("Volumes", {v["DurableName"]: v["Status"]["State"]
                                 for v in told.get("Volumes", [])},
                     {v["identifier"]: {VOLUME_STATES[v["state"]]}
                      for controller in raid for v in controller["volumes"]
                      if v.get("gone") != "yes"})
        self.compare("EthernetDevices", {a["Oem"]["DeviceName"]: a["Status"]["State"]
                                         for a in told.get("EthernetDevices", [])},
                     {a["name"]: {"Running" if a["link"] == "up" else "Down"}
                      for a in adapters_of(server)})
        self.compare("StorageControllers",
                     {location_name(c): c["Status"]["Health"]
                      for c in told.get("StorageControllers", [])}, self.wanted_controllers())
        self.check_places(told)

    # --- what the controller can know before it rings ---

    EVENT_HEALTH = {397: "OK", 398: "Critical", 538: "Critical", 539: "Warning", 540: "OK",
                    680: "OK", 681: "Critical", 683: "OK"}

    def check_picture(self):
        """Its last inventory and the events since."""
        bell = next((line["time"] for line in reversed(self.played["record"])
                     if "doorBell" in line), None)
        before = [told for told in inventories_of(self.played["record"])
                  if bell is not None and told[0] < bell]
        if not before:
            return
        since, told = before[-1]
        # What has not arrived since then is still to be made good.
        if self.excuses.of_placed().may_be_untold(since, bell) or any(
                "refused" in line and line["time"] > since for line in self.played["record"]):
            return
        named = self.told_drives(told).keys() | {
            drive_name(told_of) for time, told_of in told_by_events(self.played["record"], "Drive")
            if since < time < bell}
        for name, values in self.wanted_drives(self.truth.moments[-1][1]).items():
            if name not in named and None not in values:
                self.faults.append(f"the controller does not know {name}")
        picture = {drive["SerialNumber"]: drive["Status"]["Health"]
                   for drive in told.get("Drives", [])}
        picture.update((volume["DurableName"], volume["Status"]["Health"])
                       for volume in told.get("Volumes", []))
        picture.update((location_name(controller), controller["Status"]["Health"])
                       for controller in told.get("StorageControllers", []))
        for adapter in told.get("EthernetDevices", []):
            name = adapter["Oem"]["DeviceName"]
            picture |= {name: adapter["Status"]["Health"], firmware_of(name): adapter["FirmwareVersion"]}
        for event in self.events:
            if since < event.time < bell and event.id in self.EVENT_HEALTH:
                picture[event.name] = self.EVENT_HEALTH[event.id]
        picture.update((firmware_of(name_of(data)), data["FirmwareVersion"])
                       for time, data in told_by_events(self.played["record"], "EthernetDevice")
                       if since < time < bell)
        for name, values in self.wanted_health().items():
            if picture.get(name) not in values:
                self.faults.append(f"the controller takes {name} for {picture.get(name)}, not "
                                   f"{' or '.join(map(str, sorted(values, key=str)))}")

    def wanted_health(self):
        server = self.truth.moments[-1][1]
        wanted = {name.split()[0]: values for name, values in self.wanted_drives(server).items()}
        for controller in self.raid_controllers(server):
            for volume in controller["volumes"]:
                last = self.last[f"volume {volume['id']}"] or {"OK", "Critical"}
                wanted[volume["identifier"]] = {None if value == "gone" else value for value in last}
        for adapter in server["ethernet"]:
            name, is_gone = adapter["name"], adapter.get("gone") == "yes"
            health = "OK" if adapter["link"] == "up" else "Unknown"
            wanted |= {name: {None if is_gone else health},
                       firmware_of(name): {None if is_gone else adapter["firmware"]}}
        return wanted | self.wanted_controllers()

    def wanted_controllers(self):
        wanted = {SATA_FUNCTION: {json.loads(v) for v in self.last["SATA controller"]} or {"OK"}}
        if self.raid_controllers(self.truth.moments[-1][1]):
            wanted["0000:65:00.0"] = self.last["RAID controller"] or {"OK"}
        for controller in self.truth.moments[-1][1]["nvme"]:
            last = {json.loads(value) for value in self.last[f"{controller['name']}'s controller"]}
            if "Gone" in last:  # what was known of it stands, if anything was
                last = last - {"Gone"} | {"Critical", None}
            wanted[controller["function"]] = last or {"OK"}
        return wanted

    def raid_controllers(self, server):
        return [controller for controller in server["raid"]["controllers"]
                if self.has_library and controller.get("gone") != "yes"]

    def compare(self, section, told, wanted):
        for name, values in wanted.items():
            if told.get(name) not in values:
                self.faults.append(f"the last inventory's {section}: {name} is {told.get(name)}, "
                                   f"not {' or '.join(map(str, sorted(values, key=str)))}")
        for name in told.keys() - wanted.keys():
            self.faults.append(f"the last inventory's {section}: {name} is none")

    def check_places(self, told):
        """Where everything sits that the last inventory tells."""
        names = {"Drives": lambda drive: drive["SerialNumber"],
                 "EthernetDevices": lambda adapter: adapter["Oem"]["DeviceName"],
                 "StorageControllers": location_name}
        for section, name_in in names.items():
            for record in told.get(section, []):
                name, place = name_in(record), record["Oem"]["PhysicalLocation"]
                if place not in {at for known, _, at in self.names if known == name}:
                    self.faults.append(f"the last inventory's {section}: {name} is at {place}")

    @staticmethod
    def told_drives(told):
        drives = {}
        for drive in told.get("Drives", []):
            name = drive_name(drive)
            drives[name] = "twice" if name in drives else drive["Status"]["Health"]
        return drives

    def wanted_drives(self, server):
        drives = {}
        health = {"running": "OK", "predicted": "Warning", "failed": "Critical",
                  "offline": "Critical"}
        devices = [(disk, disk_value(disk["name"]), disk["revision"][:8])
                   for disk in server["disks"]]
        devices += [(controller, nvme_value(controller["name"]), controller["firmware"])
                    for controller in server["nvme"]]
        for disk, value_of, revision in devices:
            value = self.truth.conditions(value_of, disk_needs)[-1].value
            if value[1] == "unknown":
                continue
            wanted = {health[value[1]]}
            # A service that was started after it had gone, or did not look in time, knows nothing.
            if value[1] == "offline":
                wanted.add(None)
            drives[f"{value[0]} {disk['model']} {revision}"] = wanted
        for controller in self.raid_controllers(server):
            for drive in controller["drives"]:
                last = self.last[f"drive {drive['id']}"] or {"OK", "Critical"}
                drives[f"{drive['serial']} {drive['model']} {drive['revision']}"] = {
                    None if value == "gone" else value for value in last}
        return drives

    # --- the process ---

    def check_process(self):
        for service in self.played["services"]:
            if "died" in service:
                self.faults.append(f"the service died at {service['died'][0]:.0f} s with status "
                                   f"{service['died'][1]}")
                continue
            if service.get("status") != 0:
                self.faults.append(f"the service stopped with status {service.get('status')}")
            bound = STOP_BOUND / self.played["speed"] + STOP_SLACK + 3 * self.played["lag"]
            if service.get("stop took", 0) > bound:
                self.faults.append(f"a stop took {service['stop took']:.2f} s "
                                   f"of {bound:.2f} s")
            if service.get("left"):
                self.faults.append(f"left behind: {service['left']}")
        # A service that has not told anything yet is still about to begin.
        samples = [sample for sample in self.played["services"][-1]["samples"]
                   if sample["at"] > self.lives[-1][1]]
        if len(self.played["services"]) == 1 and len(samples) > 1:
            first, last = samples[0], samples[-1]
            for what, allowed in (("threads", 4), ("descriptors", 8), ("kB", 3000)):
                if last[what] > first[what] + allowed:
                    self.faults.append(f"{what}: {first[what]} at first, {last[what]} at last")
        for line in self.played["complaints"]:
            self.faults.append(f"complaint: {line}")
        for line in self.played["record"]:
            if "violation" in line:
                self.faults.append(f"violation: {line['violation']}")

    def verdict(self):
        self.check_process()
        if any("died" in service or service.get("status") == "does not stop"
               for service in self.played["services"]):
            return self.faults  # nothing of what was reported then can be held against it
        self.check_disks()
        self.check_nvme()
        self.check_links()
        self.check_ports()
        self.check_raid()
        self.check_boot()
        self.check_beginnings()
        self.check_strangers()
        self.check_picture()
        self.check_inventory()
        return self.faults


def faults_of(played):
    return Judge(played).verdict()
