"""What the server was, by the orders."""
import copy
import json
from dataclasses import dataclass

import server as servers

NOWHERE = "FFFFFFFFFFFFFFFF"
SATA_FUNCTION = "0000:00:17.0"
RAID_FUNCTION = "0000:65:00.0"


@dataclass
class Condition:
    """A condition of a part, from one moment to another."""
    value: object
    since: float
    until: float
    needs: float  # seconds for which it has to last to be sure to be seen


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
        values, value = [], None
        for time, server in self.moments:
            value = value_of(server, value)
            values.append((time, value))
        return as_conditions(values, self.end, needs_of)


def as_conditions(values, end, needs_of):
    """What a part was from each of these moments on."""
    conditions = []
    for time, value in values:
        if conditions and conditions[-1].value == value:
            continue
        if conditions:
            conditions[-1].until = time
        conditions.append(Condition(value, time, end, needs_of(value)))
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
