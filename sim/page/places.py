"""The words of location codes, as the client tells them."""
import concurrent.futures
import glob
import json
import os
import re
import shutil
import subprocess

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CODE = re.compile(r"[0-9A-F]{16}")
PATIENCE = 10  # seconds


def client():
    """The newest tavctl that has been built here, else the installed one; None where there is none."""
    built = glob.glob(f"{PROJECT}/build/*/tools/tavctl")
    return max(built, key=os.path.getmtime) if built else shutil.which("tavctl")


def codes_in(value):
    """All that stands as "PhysicalLocation" anywhere in a document."""
    todo, found = [value], set()
    while todo:
        one = todo.pop()
        if isinstance(one, dict):
            code = one.get("PhysicalLocation")
            if isinstance(code, str) and CODE.fullmatch(code):
                found.add(code)
            todo += one.values()
        elif isinstance(one, list):
            todo += one
    return found


def codes_of(moments):
    found = set()
    for moment in moments:
        if moment["kind"] != "report":
            continue
        try:
            found |= codes_in(json.loads(moment["payload"]))
        except (ValueError, RecursionError):
            pass  # the page shows such a payload as text
    return sorted(found)


def words(tavctl, code):
    """{"long": ..., "prefix": ...}; empty for a code that names no place."""
    try:
        told = subprocess.run([tavctl, "location", code], capture_output=True, text=True, check=False,
                              timeout=PATIENCE)
    except (OSError, subprocess.TimeoutExpired):
        return {}
    if told.returncode != 0:
        return {}
    return dict(line.split(None, 1) for line in told.stdout.splitlines() if len(line.split(None, 1)) == 2)


def of(moments, tavctl):
    """The words of each code that the reports name; none without a client to ask."""
    if tavctl is None:
        return {}
    codes = codes_of(moments)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        told = dict(zip(codes, pool.map(lambda code: words(tavctl, code), codes)))
    return {code: forms for code, forms in told.items() if forms}
