"""What the controller knows in the end: by the inventory for which it has rung, and before that by
its last inventory and the events since."""
import json

from judge import parts
from judge.told import drive_name, location_name, name_of, told_by_events
from judge.truth import RAID_FUNCTION, SATA_FUNCTION

EVENT_HEALTH = {397: "OK", 398: "Critical", 538: "Critical", 539: "Warning", 540: "OK",
                680: "OK", 681: "Critical", 683: "OK"}
DRIVE_HEALTH = {"running": "OK", "predicted": "Warning", "failed": "Critical",
                "offline": "Critical"}
VOLUME_STATES = ("Offline", "Partially degraded", "Degraded", "Optimal")


def raid_part(kind, number):
    return "RAID controller" if number is None else f"{kind} {number}"


def firmware_of(name):
    return f"{name}'s firmware"


class Knowledge:
    """`last` are the values that each part may have been seen with last, `names` the places of all."""

    def __init__(self, day, last, names):
        self.day, self.last, self.names = day, last, names
        self.server = day.last_server()
        self.found = []

    def faults(self):
        self.check_picture()
        self.check_last_inventory()
        return self.found

    # --- the last inventory ---

    def check_last_inventory(self):
        bell = self.day.last_bell()
        if bell is None or not self.day.inventories or self.day.inventories[-1][0] < bell:
            self.found.append("the controller has rung for an inventory, and none has come")
            return
        told = self.day.inventories[-1][1]
        self.compare("Drives", told_drives(told), self.wanted_drives())
        self.compare("Volumes", {volume["DurableName"]: volume["Status"]["State"]
                                 for volume in told.get("Volumes", [])}, self.wanted_volumes())
        self.compare("EthernetDevices", {adapter["Oem"]["DeviceName"]: adapter["Status"]["State"]
                                         for adapter in told.get("EthernetDevices", [])},
                     {adapter["name"]: {"Running" if adapter["link"] == "up" else "Down"}
                      for adapter in self.server["ethernet"] if not is_gone(adapter)})
        self.compare("StorageControllers",
                     {location_name(controller): controller["Status"]["Health"]
                      for controller in told.get("StorageControllers", [])},
                     self.wanted_controllers())
        self.check_places(told)

    def compare(self, section, told, wanted):
        for name, values in wanted.items():
            if told.get(name) not in values:
                self.found.append(f"the last inventory's {section}: {name} is {told.get(name)}, "
                                  f"not {any_of(values)}")
        for name in told.keys() - wanted.keys():
            self.found.append(f"the last inventory's {section}: {name} is none")

    def check_places(self, told):
        """Where everything sits that the last inventory tells."""
        names = {"Drives": lambda drive: drive["SerialNumber"],
                 "EthernetDevices": lambda adapter: adapter["Oem"]["DeviceName"],
                 "StorageControllers": location_name}
        for section, name_in in names.items():
            for record in told.get(section, []):
                name, place = name_in(record), record["Oem"]["PhysicalLocation"]
                if place not in {at for known, _, at in self.names if known == name}:
                    self.found.append(f"the last inventory's {section}: {name} is at {place}")

    # --- before it rings ---

    def check_picture(self):
        """Its last inventory and the events since."""
        bell = self.day.last_bell()
        before = [told for told in self.day.inventories if bell is not None and told[0] < bell]
        if not before:
            return
        since, told = before[-1]
        # What has not arrived since then is still to be made good.
        if self.day.excuses.of_placed().may_be_untold(since, bell) or any(
                "refused" in line and line["time"] > since for line in self.day.record):
            return
        self.check_drives_known(told, since, bell)
        picture = self.picture(told, since, bell)
        for name, values in self.wanted_health().items():
            if picture.get(name) not in values:
                self.found.append(f"the controller takes {name} for {picture.get(name)}, not "
                                  f"{any_of(values)}")

    def check_drives_known(self, told, since, bell):
        named = told_drives(told).keys() | {
            drive_name(data) for data in self.told_between("Drive", since, bell)}
        for name, values in self.wanted_drives().items():
            if name not in named and None not in values:
                self.found.append(f"the controller does not know {name}")

    def told_between(self, kind, since, bell):
        return [data for time, data in told_by_events(self.day.record, kind) if since < time < bell]

    def picture(self, told, since, bell):
        health = {drive["SerialNumber"]: drive["Status"]["Health"]
                  for drive in told.get("Drives", [])}
        health.update((volume["DurableName"], volume["Status"]["Health"])
                      for volume in told.get("Volumes", []))
        health.update((location_name(controller), controller["Status"]["Health"])
                      for controller in told.get("StorageControllers", []))
        health.update((adapter["Oem"]["DeviceName"], adapter["Status"]["Health"])
                      for adapter in told.get("EthernetDevices", []))
        health.update((event.name, EVENT_HEALTH[event.id]) for event in self.day.events
                      if since < event.time < bell and event.id in EVENT_HEALTH)
        adapters = told.get("EthernetDevices", []) + self.told_between("EthernetDevice", since, bell)
        return health | {firmware_of(name_of(data)): data["FirmwareVersion"] for data in adapters}

    # --- what it should know: by name, any of these, None for nothing ---

    def wanted_health(self):
        wanted = {name.split()[0]: values for name, values in self.wanted_drives().items()}
        for volume in self.raid_resources("volumes"):
            wanted[volume["identifier"]] = self.last_of_raid("volume", volume["id"])
        for adapter in self.server["ethernet"]:
            health = "OK" if adapter["link"] == "up" else "Unknown"
            wanted |= {adapter["name"]: {None if is_gone(adapter) else health},
                       firmware_of(adapter["name"]): {None if is_gone(adapter) else
                                                      adapter["firmware"]}}
        return wanted | self.wanted_controllers()

    def wanted_controllers(self):
        wanted = {SATA_FUNCTION: self.last_of("SATA controller") or {"OK"}}
        if self.raid_controllers():
            wanted[RAID_FUNCTION] = self.last[raid_part("controller", None)] or {"OK"}
        for controller in self.server["nvme"]:
            last = self.last_of(f"{controller['name']}'s controller")
            if "Gone" in last:  # what was known of it stands, if anything was
                last = last - {"Gone"} | {"Critical", None}
            wanted[controller["function"]] = last or {"OK"}
        return wanted

    def wanted_volumes(self):
        return {volume["identifier"]: {VOLUME_STATES[volume["state"]]}
                for volume in self.raid_resources("volumes") if not is_gone(volume)}

    def wanted_drives(self):
        drives = {}
        devices = [(disk, parts.disk_value(disk["name"]), disk["revision"][:8])
                   for disk in self.server["disks"]]
        devices += [(controller, parts.nvme_value(controller["name"]), controller["firmware"])
                    for controller in self.server["nvme"]]
        for disk, value_of, revision in devices:
            serial, value = self.day.truth.conditions(value_of, parts.disk_needs)[-1].value
            if value == "unknown":
                continue
            # A service that was started after it had gone, or did not look in time, knows nothing.
            drives[f"{serial} {disk['model']} {revision}"] = \
                {DRIVE_HEALTH[value]} | ({None} if value == "offline" else set())
        for drive in self.raid_resources("drives"):
            drives[f"{drive['serial']} {drive['model']} {drive['revision']}"] = \
                self.last_of_raid("drive", drive["id"])
        return drives

    def last_of(self, part):
        return {json.loads(value) for value in self.last[part]}

    def last_of_raid(self, kind, number):
        last = self.last[raid_part(kind, number)] or {"OK", "Critical"}
        return {None if value == "gone" else value for value in last}

    def raid_controllers(self):
        return [controller for controller in self.server["raid"]["controllers"]
                if self.day.has_library and not is_gone(controller)]

    def raid_resources(self, kind):
        return [one for controller in self.raid_controllers() for one in controller[kind]]


def is_gone(one):
    return one.get("gone") == "yes"


def any_of(values):
    return " or ".join(map(str, sorted(values, key=str)))


def told_drives(told):
    drives = {}
    for drive in told.get("Drives", []):
        name = drive_name(drive)
        drives[name] = "twice" if name in drives else drive["Status"]["Health"]
    return drives
