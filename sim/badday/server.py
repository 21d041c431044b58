"""The server of the bad days: its description, and what an order changes in it."""
import copy
import json
import os

HERE = os.path.dirname(os.path.abspath(__file__))
REFRESH = 30  # seconds between two inventories, but for Fibre Channel's


def described():
    """The four-socket server, with a second device for one of its ATA ports that is not there yet."""
    with open(os.path.join(HERE, "..", "servers", "four-socket.json")) as file:
        server = json.load(file)
    second = copy.deepcopy(next(d for d in server["disks"] if d["name"] == "sg3"))
    second.update(name="sg4", block="sde", address="2:0:1:0", serial="S4700004", gone="yes")
    server["disks"].append(second)
    return server


def value_of(text):
    return int(text) if text.isdigit() else text


def find(entries, key):
    for entry in entries:
        if key in (str(entry.get(name)) for name in ("name", "address", "host", "id")):
            return entry
    raise KeyError(key)


def write(server, path):
    with open(path + ".new", "w", encoding="utf-8") as file:
        json.dump(server, file)
    os.rename(path + ".new", path)


def change(server, section, key, assignments):
    entry = find(server[section], key)
    for assignment in assignments:
        name, value = assignment.split("=", 1)
        entry[name] = value_of(value)


def apply(server, order):
    """Changes the description as the order changes the server; other orders leave it alone."""
    words = order.split()
    if words[0] == "change":
        change(server, words[1], words[2], words[3:])
    elif words[0] == "raid" and words[1] == "controller":
        change(server["raid"], "controllers", words[2], words[3:])
    elif words[0] == "raid" and words[1] in ("drive", "volume"):
        controller = find(server["raid"]["controllers"], words[2])
        change(controller, words[1] + "s", words[3], words[4:])
    elif order == "first none":
        server["raid"].pop("failures", None)
    elif words[0] == "first":
        kind, code, status, times = (int(word, 0) for word in words[1:])
        server["raid"].setdefault("failures", []).append(
            {"type": kind, "code": code, "status": status, "times": times})
