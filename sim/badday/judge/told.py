"""What the controller was told, by its record."""
import json
from dataclasses import dataclass


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
