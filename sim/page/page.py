"""Puts the page together: one file, which loads nothing and runs nothing but its own script."""
import base64
import hashlib
import json
import os

HERE = os.path.dirname(os.path.abspath(__file__))


def part(name):
    with open(os.path.join(HERE, name), encoding="utf-8") as file:
        return file.read()


def embedded(value):
    """JSON that may stand in a <script>: ASCII alone, and nothing in it that HTML looks at."""
    text = json.dumps(value, ensure_ascii=True, separators=(",", ":"))
    return text.replace("<", "\\u003c").replace(">", "\\u003e").replace("&", "\\u0026")


def fingerprint(text):
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"


def of(day):
    style, script = part("page.css"), part("page.js")
    policy = ("default-src 'none'; img-src data:; base-uri 'none'; form-action 'none'; "
              f"style-src {fingerprint(style)}; script-src {fingerprint(script)}")
    page = part("page.html")
    for mark, text in (("POLICY", policy), ("STYLE", style), ("SCRIPT", script), ("DAY", embedded(day))):
        before, _, after = page.partition("{{" + mark + "}}")
        page = before + text + after
    return page
