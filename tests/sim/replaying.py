"""Running hosts and captures of hosts in the simulation, and comparing their inventories."""
import gzip
import json
import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What time gives, and no host.
TRANSIENT = {"LastCollection", "TotalFreeSystemMemoryGiB"}
IDENTITY = re.compile(r"Serial|MACAddress|WWN|WWPN|HostName|DurableName|IPv4|Identifier")
EVERYBODYS = ("NotAvailable", "Not Available", "127.0.0.1")


def run(*arguments, record, speed=1):
    """The inventory of what sim/run makes of these arguments."""
    command = [ROOT / "sim/run", "--quiet", "--timeout", "6000", "--record", record, *arguments]
    done = subprocess.run([str(part) for part in command], text=True, timeout=300,
                          env=dict(os.environ, TAV_CLOCK_SPEED=str(speed)),
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise RuntimeError(f"status {done.returncode}\n{done.stdout}")
    lines = [json.loads(line) for line in pathlib.Path(record).read_text().splitlines()]
    assert not [line for line in lines if "violation" in line], lines
    last = [line["payload"] for line in lines if line.get("command") == "WriteInventory"][-1]
    return settled(json.loads(last))


def settled(value):
    """Without what time gives."""
    if isinstance(value, dict):
        return {key: settled(each) for key, each in value.items() if key not in TRANSIENT}
    return [settled(each) for each in value] if isinstance(value, list) else value


def texts_of(value):
    """All that is no container, in its order, with the way to each."""
    if isinstance(value, dict):
        return [(f"{key}/{way}", text) for key in value for way, text in texts_of(value[key])]
    if isinstance(value, list):
        return [(f"{n}/{way}", text) for n, each in enumerate(value) for way, text in texts_of(each)]
    return [("", value)]


def has_shape(text, original):
    """Digits stand for digits and letters for letters, unless both may be hexadecimal digits."""
    is_number = re.fullmatch("[0-9a-fA-F]{12,}|(..:)+..", original)
    kinds = ["[0-9a-fA-F]"] if is_number else ["[0-9]", "[a-z]", "[A-Z]"]
    pattern = "".join(next((kind for kind in kinds if re.match(kind, c)), re.escape(c))
                      for c in original)
    return re.fullmatch(pattern, text) is not None


def compare_with_stand_ins(test, original, replaced, archive):
    """Equal but for identities, for which the same stand-in stands everywhere, and which stand
    nowhere in the archive."""
    content = gzip.decompress(archive.read_bytes())
    test.assertEqual([way for way, _ in texts_of(replaced)], [way for way, _ in texts_of(original)])
    stand_ins = {}
    for (way, before), (_, after) in zip(texts_of(original), texts_of(replaced)):
        if before != after:
            test.assertTrue(has_shape(after, before), f"{way}: {after} for {before}")
            test.assertEqual(stand_ins.setdefault(before, after), after, way)
    for way, before in texts_of(original):
        if IDENTITY.search(way) and len(before) >= 6 and before not in EVERYBODYS:
            test.assertIn(before, stand_ins, way)
            swapped = "".join(b + a for a, b in zip(before[::2], before[1::2] + " "))
            for text in (before, swapped):
                test.assertNotIn(text.encode(), content, way)
                test.assertNotIn(text.encode().hex().encode(), content, way)
    test.assertEqual(len(set(stand_ins.values())), len(stand_ins))
