"""Reads what has been kept of a day into the moments that the page shows.

A moment is a dictionary with "kind", "at" (seconds of the simulated clock, None where a record does
not say) and, by kind:

  told, change, order, struck, bell, violation, service, unreadable   "text"; a change also "part"
  report    "command", "payload", "frames", "took", "meaning", "health", "refused", "unanswered"

Nothing that stands in a record is trusted: a line that is not what it should be is shown as it is."""
import json
import os
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "badday"))
import judge  # noqa: E402
import server as servers  # noqa: E402

IDENTITIES = ("identifier", "wwpn", "serial", "name", "address")  # the first that a part has names it
TEXTS = {"told": "told", "change": "change", "order": "order", "struck": "struck", "doorBell": "bell",
         "violation": "violation"}


class Unreadable(Exception):
    """There is no day in what was given."""


def number(value):
    is_number = isinstance(value, (int, float)) and not isinstance(value, bool)
    return value if is_number and abs(value) < 1e15 else None


def text(value):
    return value if isinstance(value, str) else json.dumps(value, ensure_ascii=False)


def report(line, command):
    moment = {"kind": "report", "command": text(command), "payload": text(line.get("payload", "")),
              "frames": number(line.get("frames")), "took": number(line.get("took")),
              "refused": "refused" in line, "unanswered": bool(line.get("unanswered"))}
    for name in ("meaning", "health"):
        if name in line:
            moment[name] = text(line[name])
    return moment


def moment_of(line):
    """What a line of a controller's record says."""
    for name in ("command", "refused"):
        if name in line:
            return report(line, line[name])
    for name, kind in TEXTS.items():
        if name in line:
            moment = {"kind": kind, "text": text(line[name])}
            if "part" in line:
                moment["part"] = text(line["part"])
            return moment
    return {"kind": "unreadable", "text": text(line)}


def moments_of(lines):
    for line in lines:
        if not isinstance(line, dict):
            yield {"kind": "unreadable", "at": None, "text": text(line)}
            continue
        yield {"at": number(line.get("time")), **moment_of(line)}


def parsed(lines):
    """A line that is no JSON stays text: a record may have been cut short."""
    for line in lines:
        try:
            yield json.loads(line)
        except (ValueError, RecursionError):
            yield line


def verdict(result, faults, expected):
    return {"result": text(result), "faults": [text(fault) for fault in faults],
            "expected": [text(event) for event in expected]}


def of_a_record(lines):
    """One JSON line each, as the simulated controller writes them."""
    told, judged = [], None
    for line in parsed(lines):
        if isinstance(line, dict) and "verdict" in line:
            faults, expected = line.get("faults"), line.get("expected")
            judged = verdict(line["verdict"], faults if isinstance(faults, list) else [],
                             expected if isinstance(expected, list) else [])
        else:
            told.append(line)
    return {"moments": list(moments_of(told)), "verdict": judged}


def set_off(played):
    """The seconds by which the controller's clock began after that of whoever gave the orders, which both
    have noted."""
    noted = {line["order"]: line["time"] for line in reversed(played["record"]) if "order" in line}
    given = {order["do"].removeprefix("rmc "): order["at"] for order in reversed(played["orders"])}
    return max((given[order] - time for order, time in noted.items() if order in given), default=0)


def changes_of(played):
    """With the name under which each part is reported then."""
    server = servers.described()
    for order in played["orders"]:
        verb, _, rest = order["do"].partition(" ")
        if verb == "rmc":
            continue  # stands in the controller's record
        moment = {"kind": "change", "at": order["at"], "text": rest if verb == "change" else order["do"]}
        servers.apply(server, order["do"])
        words = order["do"].split()
        part = None
        if verb == "change":
            part = servers.find(server[words[1]], words[2])
        elif verb == "raid" and words[1] in ("drive", "volume"):
            controller = servers.find(server["raid"]["controllers"], words[2])
            part = servers.find(controller[words[1] + "s"], words[3])
        names = [part[name] for name in IDENTITIES if name in part] if part else []
        yield dict(moment, part=names[0]) if names else moment


def of_a_bad_day(kept):
    """What scripts/bad-days keeps of a day: the story, and what has come of it."""
    played = kept["played"]
    later = set_off(played)
    moments = [moment if moment["at"] is None else dict(moment, at=moment["at"] + later)
               for moment in moments_of(played["record"])]
    for episode in kept["story"]["episodes"]:
        moments.append({"kind": "told", "at": episode["orders"][0]["at"], "text": episode["name"]})
    moments += changes_of(played)
    for service in played["services"]:
        for moment, says in (("started", "The service starts."), ("stopping", "The service is asked "
                             "to stop."), ("stopped", "The service has stopped.")):
            if moment in service:
                moments.append({"kind": "service", "at": service[moment], "text": says})
    moments.sort(key=lambda moment: moment["at"] or 0)
    if played.get("restless"):  # a machine that is too busy to play a day says nothing about the service
        return {"moments": moments, "verdict": None}
    faults = judge.faults_of(played)
    return {"moments": moments, "verdict": verdict("failed" if faults else "passed", faults, [])}


def read(path):
    """The day in a file: {"moments", "verdict" (None where nobody judged)}."""
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            content = file.read()
    except OSError as fault:
        raise Unreadable(f"{path}: {fault.strerror}") from fault
    lines = [line for line in content.split("\n") if line.strip()]
    if not lines:
        raise Unreadable(f"{path}: an empty record")
    first = next(parsed(lines[:1]))
    if isinstance(first, dict) and {"story", "played"} <= first.keys():
        try:
            return of_a_bad_day(first)
        except (KeyError, TypeError, IndexError, AttributeError, ValueError) as fault:
            raise Unreadable(f"{path}: not a day that was played: {fault!r}") from fault
    day = of_a_record(lines)
    if all(moment["kind"] == "unreadable" for moment in day["moments"]):
        raise Unreadable(f"{path}: no line of it is one of a record")
    return day
