"""The parts of the server: their conditions, and the events that a change has to raise."""
import server as servers
from judge.readings import Wanted
from judge.truth import SATA_FUNCTION, as_conditions

POLLED = 50        # seconds: what lasts longer is seen by a poll or a build of its own
TIMED_OUT = 130    # what a disk's silence takes longer: its command has to time out first
REBUILT = 80       # what only a build sees
RECOVERY = 60      # after which a port in recovery counts as such

GOOD_STATES = (0x00, 0x02, 0x14, 0x18, 0x20, 0x40)  # of a RAID drive


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
    values = []
    for time, (states, since) in sorted(moments.items()):
        broken = sum(state not in ("running", "recovery", "created") for state in states.values())
        recovering = sum(time - at >= RECOVERY for at in since.values())
        values.append((time, sata_health(broken, recovering, len(states))))
    return as_conditions(values, truth.end, lambda value: POLLED)


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
