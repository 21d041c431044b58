#!/usr/bin/python3 -B
"""The page that sim/report makes, in a real browser.

  tests/sim/page_test.py [TAVCTL]

TAVCTL is the client that knows the words of location codes (default: the newest that has been built).
Ends with 77 where no Chromium is installed."""
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
sys.path[:0] = [HERE, f"{PROJECT}/sim/page"]
import browser  # noqa: E402
import places  # noqa: E402

SKIPPED = 77
TAVCTL = places.client()

with open(f"{HERE}/clean-day.json", encoding="utf-8") as file:
    CLEAN = json.load(file)
CHANGES = [order for order in CLEAN["orders"] if order["do"].split()[0] in ("change", "raid")]
EVENTS = [line for line in CLEAN["record"] if line.get("command") == "MPEventGen"]
INVENTORIES = [line for line in CLEAN["record"] if line.get("command") == "WriteInventory"]

LONG = "ab" * 2000
HOSTILE = [  # a text, and how it has to be seen
    ("<img src=x onerror='window.struck=1'>", "<img src=x onerror='window.struck=1'>"),
    ("</script><script>window.struck=2</script><!--<script>", "</script><script>window.struck=2</script>"
     "<!--<script>"),
    ("left\u202egnp.exe\u2066\u200f", "left⟨U+202E⟩gnp.exe⟨U+2066⟩⟨U+200F⟩"),
    ("bell\x07 escape\x1b[31m nul\x00 line\u2028", "bell⟨U+0007⟩ escape⟨U+001B⟩[31m nul⟨U+0000⟩ "
     "line⟨U+2028⟩"),
    ("&lt;b&gt; \\u003c {{DAY}} ${1} {{SCRIPT}}", "&lt;b&gt; \\u003c {{DAY}} ${1} {{SCRIPT}}"),
    ("__proto__", "__proto__"), ("constructor", "constructor"), ("\ud800 half", "⟨U+D800⟩ half"),
    (LONG, LONG)]


def record_of_a_story():
    """The clean day as sim/run would have kept it."""
    lines = list(CLEAN["record"])
    lines += [{"time": order["at"], "change": order["do"].removeprefix("change "), "part": "PHDV0001"}
              for order in CHANGES]
    lines += [{"time": 79, "told": "Things go wrong."}]
    lines.sort(key=lambda line: line["time"])
    return lines + [{"verdict": "passed", "faults": [], "expected": ["356"] * len(EVENTS)}]


def hostile(text):
    """A record with that text wherever somebody else's text can stand."""
    place = "FF00010101FFFF86"
    drive = {"SerialNumber": text, "Model": text, "Revision": text, "Protocol": text, "MediaType": text,
             "PartNumber": text, "CapacityBytes": text, "Oem": {"PhysicalLocation": place, "Slot": text}}
    status = {"Health": text, "State": text}
    event = {"ID": text, "HostName": text, "Source": text, "EventTime": text, "PhysicalLocation": text,
             "VariableData": {"Type": text, "EventInfo": text, "Data": drive}}
    first = {"HostDataCollection": {"Drives": [dict(drive, Status=status), {"Status": text}, text, 7],
                                    "Volumes": [dict(drive, DurableName=text, Drives=[text])],
                                    "EthernetDevices": text, text: [{"SerialNumber": text}],
                                    "Oem": {"HostOSInfo": {"HostName": text, text: text}}}}
    second = {"HostDataCollection": {"Drives": [dict(drive, SerialNumber="other", Model="m" + text,
                                                     Status=dict(status, Health="OK"))]}}
    return [{"time": 1, "told": text}, {"time": 2, "change": text, "part": text}, {"time": 3, "order": text},
            {"time": 4, "struck": text}, {"time": 5, "doorBell": text}, {"time": 6, "violation": text},
            {"time": text, "other": text},
            {"time": 7, "command": "MPEventGen", "payload": json.dumps(event), "frames": text,
             "took": text, "meaning": text, "health": text, "unanswered": text},
            {"time": 8, "command": text, "payload": text, "frames": 3},
            {"time": 9, "refused": "MPEventGen", "payload": text, "frames": 1},
            {"time": 10, "command": "WriteInventory", "payload": json.dumps(first), "frames": 3},
            {"time": 11, "command": "WriteInventory", "payload": json.dumps(second), "frames": 3},
            {"time": 12, "command": "WriteInventory", "payload": '{"HostDataCollection": [' + "[" * 9000,
             "frames": 3},
            {"verdict": "failed", "faults": [text], "expected": [text]}]


# Whatever text can be seen with less than 4.5 : 1 (3 : 1 where it is large), by WCAG 2.
CONTRAST = """(() => {
  const parse = (color) => { const [r, g, b, a = 1] = color.match(/[\\d.]+/g).map(Number); return [r, g, b, a]; };
  const over = ([r, g, b, a], below) => [r, g, b].map((one, i) => one * a + below[i] * (1 - a));
  const light = (rgb) => rgb.map((one) => (one /= 255) <= .04045 ? one / 12.92 : ((one + .055) / 1.055) ** 2.4)
    .reduce((sum, one, i) => sum + one * [.2126, .7152, .0722][i], 0);
  const below = (element) => element === null ? parse(getComputedStyle(document.body).backgroundColor) :
    over(parse(getComputedStyle(element).backgroundColor), below(element.parentElement));
  const faults = [];
  const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  let seen = 0;
  while (walker.nextNode()) {
    const element = walker.currentNode.parentElement;
    if (!walker.currentNode.data.trim() || !element.checkVisibility({visibilityProperty: true}) ||
        element.closest("script, style, option, .skip, .visually-hidden")) continue;
    ++seen;
    const style = getComputedStyle(element), back = below(element);
    const [a, b] = [light(over(parse(style.color), back)), light(back)].sort((x, y) => y - x);
    const size = parseFloat(style.fontSize);
    const large = size >= 24 || size >= 18.66 && style.fontWeight >= 700;
    if ((a + .05) / (b + .05) < (large ? 3 : 4.5))
      faults.push(`${((a + .05) / (b + .05)).toFixed(2)}: ${walker.currentNode.data.slice(0, 40)}`);
  }
  return {seen, faults: [...new Set(faults)]};
})()"""

RAW = r"/[\u0000-\u0009\u000b-\u001f\u007f-\u009f\u200b-\u200f\u2028-\u202e\u2066-\u2069]/"
FITS = "document.documentElement.scrollWidth <= document.documentElement.clientWidth"


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory(prefix="page-test.")
        cls.browser = browser.Browser()
        cls.story = cls.page_of(record_of_a_story())

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.scratch.cleanup()

    @classmethod
    def report(cls, content, *options):
        """sim/report's exit status and complaint, and the page."""
        record, page = f"{cls.scratch.name}/record", f"{cls.scratch.name}/page.html"
        with open(record, "wb") as file:
            file.write(content)
        if os.path.exists(page):
            os.unlink(page)
        done = subprocess.run([f"{PROJECT}/sim/report", record, "-o", page, *(options or
                              ("--tavctl", TAVCTL or "none"))], capture_output=True, text=True, check=False)
        return done.returncode, done.stderr, page

    @classmethod
    def page_of(cls, lines, *options):
        """The path of the page of a record."""
        status, complaint, page = cls.report("\n".join(map(json.dumps, lines)).encode(), *options)
        if status != 0:
            raise AssertionError(complaint)
        kept = f"{cls.scratch.name}/{len(os.listdir(cls.scratch.name))}.html"
        os.rename(page, kept)
        return kept

    def setUp(self):
        self.addCleanup(self.assert_silent)

    def assert_silent(self):
        """Nothing in the console, and nothing wanted from a network."""
        complaints, self.browser.complaints = self.browser.complaints, []
        self.assertEqual(complaints, [])

    def opened(self, page, **how):
        self.assert_silent()
        self.browser.open(page, **how)
        self.assertTrue(self.run_("document.documentElement.classList.contains('ready')"),
                        self.browser.complaints)

    def run_(self, script):
        return self.browser.run(script)

    def count(self, selector):
        return self.run_(f"document.querySelectorAll({json.dumps(selector)}).length")

    def shown(self, selector="#line > li"):
        return self.run_(f"[...document.querySelectorAll({json.dumps(selector)})]"
                         ".filter((one) => one.checkVisibility()).length")

    def text(self, selector):
        return self.run_(f"document.querySelector({json.dumps(selector)}).innerText")

    def unfold(self):
        self.run_("""for (const fold of document.querySelectorAll("details")) fold.open = true""")
        self.settle()

    def settle(self):
        """The browser tells the page of what has been folded when it finds the time."""
        self.run_("new Promise((done) => setTimeout(done, 50))")

    def focus(self, selector):
        self.run_(f"document.querySelector({json.dumps(selector)}).focus()")

    # --- what it shows --------------------------------------------------------------------------

    def test_the_page_shows_what_the_record_holds(self):
        self.opened(self.story)
        self.assertEqual(self.count("#line > .change"), len(CHANGES))
        self.assertEqual(self.count("#line > .event"), len(EVENTS))
        self.assertEqual(self.count("#line > .inventory"), len(INVENTORIES))
        self.assertEqual(self.count("#line > .told"), 1)
        self.assertEqual(self.count(".mark.event"), len(EVENTS))
        self.assertEqual(self.count("#wire tbody tr"), len(EVENTS) + len(INVENTORIES))
        self.assertIn("Passed", self.text("#verdict"))
        frames = sum(line["frames"] for line in EVENTS + INVENTORIES)
        self.assertIn(f"{frames:,}".replace(",", "\u202f") + " frames", self.text("#figures").replace("\n", " "))
        self.assertEqual(self.count("#which option"), len(INVENTORIES))
        for width in (1400, 400):
            self.browser.look(width)
            self.assertTrue(self.run_(FITS), f"{width} wide: it has to be scrolled sideways")

    def test_each_part_of_an_inventory_stands_at_its_place(self):
        self.opened(self.story)
        told = json.loads(INVENTORIES[-1]["payload"])["HostDataCollection"]
        names = [drive["SerialNumber"] for drive in told["Drives"]]
        self.assertEqual([name for name in names if name not in self.text("#racks")], [])
        if TAVCTL is None:
            self.skipTest("no tavctl has been built")
        for drive in told["Drives"]:
            words = places.words(TAVCTL, drive["Oem"]["PhysicalLocation"])
            _, unit, *_, slot = (words["long"].split("/") if words else (None, None, None))
            where = self.run_(
                f"""(() => {{ const bay = [...document.querySelectorAll("#racks .bay")].find((one) =>
                    one.innerText.includes({json.dumps(drive["SerialNumber"])}));
                  return [bay.closest(".unit")?.querySelector(".u").innerText,
                    bay.querySelector(".number")?.innerText]; }})()""")
            wanted = ["U" + unit.removeprefix("chassis_u"), re.sub(r"^\D+", "", slot)] if words else \
                [None, None]
            self.assertEqual(where, wanted, drive["SerialNumber"])

    def test_what_changed_between_two_inventories(self):
        self.opened(self.story)
        first, last = (json.loads(INVENTORIES[at]["payload"])["HostDataCollection"]["Drives"] for at in (0, -1))
        old, new = ({drive["SerialNumber"] for drive in drives} for drives in (first, last))
        rows = self.run_("""[...document.querySelectorAll("#changes tbody tr")].map((row) =>
            [...row.cells].map((cell) => cell.innerText))""")
        self.assertEqual({row[0].split()[-1] for row in rows if row[0].startswith("Drive") and
                          row[1] == "is gone"}, old - new)
        self.assertEqual({row[0].split()[-1] for row in rows if row[0].startswith("Drive") and
                          row[1] == "is new"}, new - old)
        drives = [{drive["SerialNumber"]: drive for drive in json.loads(line["payload"])
                   ["HostDataCollection"].get("Drives", [])} for line in INVENTORIES]
        marks = 0
        for at in range(1, len(drives)):
            marked = self.run_(f"""(() => {{ document.getElementById("which").value = {at};
                document.getElementById("which").dispatchEvent(new Event("change"));
                return [...document.querySelectorAll(".bay:has(.chip) .who")].map((who) => who.innerText); }})()""")
            changed = {name for name, drive in drives[at].items() if drives[at - 1].get(name) != drive}
            self.assertEqual(set(marked) & drives[at].keys(), changed, at)
            marks += len(changed)
        self.assertGreater(marks, 5)
        self.run_("""document.getElementById("to").value = "0";
                     document.getElementById("to").dispatchEvent(new Event("change"))""")
        self.assertIn("both tell the same", self.text("#changes"))

    def test_a_day_that_bad_days_kept(self):
        story = {"seed": 1, "episodes": [{"name": "sg0 worn", "orders": [{"at": 80, "do": "-"}]}]}
        bell = next(order for order in CLEAN["orders"] if order["do"] == "rmc doorbell=WriteInventory")
        noted = {"order": "doorbell=WriteInventory", "time": bell["at"] - 1.5}  # by the controller's clock
        record = [line for line in CLEAN["record"] if "order" not in line] + [noted]
        self.opened(self.page_of([{"story": story, "played": dict(CLEAN, record=record)}]))
        self.assertEqual(self.count("#line > .event"), len(EVENTS))
        self.assertEqual(self.text("#line > .order .time"), f"{bell['at']:.1f} s")
        self.run_("document.querySelectorAll('#line > .event summary')[1].click()")
        self.settle()
        self.assertIn("disks sg0 errors=3, ", self.text("#line > .event:has([open])"))
        self.assertEqual(self.count("#line > .change"), len([
            order for order in CLEAN["orders"] if not order["do"].startswith("rmc ")]))
        self.assertIn("sg0 worn", self.text(".told"))
        self.assertIn("Passed", self.text("#verdict"))
        broken = dict(CLEAN, record=[line for line in CLEAN["record"] if line is not EVENTS[3]])
        for played, says in ((broken, "Failed"), (dict(broken, restless=True), "Nobody has judged")):
            self.opened(self.page_of([{"story": story, "played": played}]))
            self.assertIn(says, self.text("#verdict"))

    def test_without_a_client_the_codes_stand_alone(self):
        self.opened(self.page_of(record_of_a_story(), "--tavctl", "/nowhere/tavctl"))
        self.assertEqual(self.count(".rack"), 0)
        self.assertGreater(self.count("#racks .bay"), 10)
        self.run_("document.querySelector('#racks .bay').click()")
        self.assertRegex(self.text("#details"), "[0-9A-F]{16}")

    # --- how it is used -------------------------------------------------------------------------

    def test_filter(self):
        self.opened(self.story)
        everything = self.shown()
        self.focus("input[name=Events]")
        self.browser.press(" ")
        self.assertEqual(self.shown(), everything - len(EVENTS))
        self.assertEqual(self.shown("#line > .event"), 0)
        self.browser.press(" ")
        self.focus("#text")
        self.browser.write("wfk00002")
        wanted = [line for line in EVENTS + INVENTORIES if "WFK00002" in line["payload"]]
        self.assertEqual(self.shown("#line > .event, #line > .inventory"), len(wanted))
        self.assertIn(f" of {everything} lines", self.text("#shown"))
        # A link to what the filter hides shows it.
        self.run_("document.querySelector('#wire a').click()")
        self.assertEqual(self.shown(), everything)
        self.run_("""document.getElementById("part").value = "phdv0001";
                     document.getElementById("part").dispatchEvent(new Event("change"))""")
        self.assertEqual(self.shown("#line > .change"), len(CHANGES))
        self.assertEqual(self.shown("#line > .event"), len([
            line for line in EVENTS if '"SerialNumber":"PHDV0001"' in line["payload"]]))

    def test_without_a_mouse(self):
        self.opened(self.story)
        seen, unseen = [], []
        for _ in range(200):
            self.browser.press("Tab")
            what, outlined = self.run_("""(() => { const one = document.activeElement, style = getComputedStyle(one);
                return [one.tagName + " " + (one.id || one.className || one.innerText.slice(0, 20)),
                        style.outlineStyle !== "none" && parseFloat(style.outlineWidth) >= 2]; })()""")
            if what.startswith("BODY"):
                break
            seen.append(what)
            if not outlined:
                unseen.append(what)
        self.assertEqual(unseen, [], "focus cannot be seen")
        self.assertTrue(seen[0].startswith("A skip"), seen[0])
        reached = len([one for one in seen if one.startswith("SUMMARY")])
        self.assertEqual(reached, self.shown("summary"))
        self.assertEqual(len([one for one in seen if "bay" in one]), self.count("button.bay"))

        self.focus("#line .event summary")
        self.browser.press("Enter")
        self.settle()
        self.assertTrue(self.run_("document.activeElement.parentElement.open"))
        self.assertIn('"EventTime"', self.text("#line .event pre"))
        self.browser.press(" ")
        self.assertFalse(self.run_("document.activeElement.parentElement.open"))
        self.focus("#unfold")
        self.browser.press("Enter")
        self.assertEqual(self.count("#line details:not([open])"), 0)

        self.focus("button.bay")
        first = self.run_("document.activeElement.innerText")
        self.browser.press("ArrowDown")
        self.assertTrue(self.run_("document.activeElement.matches('button.bay')"))
        self.assertNotEqual(self.run_("document.activeElement.innerText"), first)
        self.browser.press("Enter")
        self.assertEqual(self.run_("document.activeElement.getAttribute('aria-pressed')"), "true")
        self.assertGreater(self.count("#details dd"), 3)

    def test_everything_that_can_be_used_has_a_name(self):
        self.opened(self.story)
        nodes = self.browser.ask("Accessibility.getFullAXTree")["nodes"]
        roles = [(node["role"]["value"], node.get("name", {}).get("value", "")) for node in nodes
                 if not node["ignored"]]
        used = [one for one in roles if one[0] in ("button", "link", "checkbox", "combobox", "searchbox",
                                                   "DisclosureTriangle", "image", "region", "table")]
        self.assertGreater(len(used), 50)
        self.assertEqual([one for one in used if not one[1].strip()], [])
        self.assertEqual([name for role, name in roles if role == "banner"], [""])
        self.assertEqual(len([1 for role, _ in roles if role == "main"]), 1)

    def test_contrast_in_dark_and_light(self):
        backgrounds = set()
        failed = self.page_of(record_of_a_story()[:-1] + [{"time": 600, "violation": "a rule"}, {"verdict": "failed",
                              "faults": ["a fault"], "expected": ["1"]}])
        for page, scheme in ((self.story, "light"), (self.story, "dark"), (failed, "light"), (failed, "dark")):
            self.opened(page, scheme=scheme)
            self.unfold()
            self.run_("document.querySelectorAll('button.bay')[1].click()")
            found = self.run_(CONTRAST)
            self.assertGreater(found["seen"], 500)
            self.assertEqual(found["faults"], [], scheme)
            backgrounds.add(self.run_("getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(backgrounds), 2)

    def test_print(self):
        self.opened(self.story, scheme="dark")
        self.assertTrue(self.browser.printed().startswith(b"%PDF-"))
        self.browser.look(800, "dark", "print")
        self.assertEqual(self.run_("getComputedStyle(document.body).backgroundColor"), "rgb(255, 255, 255)")
        self.assertEqual(self.shown("#filter, nav"), 0)
        self.assertEqual(self.shown("#line > .event"), len(EVENTS))
        self.assertEqual(self.run_(CONTRAST)["faults"], [])

    # --- bad input ------------------------------------------------------------------------------

    def test_hostile_texts_stay_texts(self):
        self.opened(self.story)
        self.unfold()
        ours = self.run_("[...new Set([...document.querySelectorAll('*')].map((one) => one.tagName))]")
        for text, wanted in HOSTILE:
            with self.subTest(text=text[:40]):
                self.opened(self.page_of(hostile(text)))
                self.unfold()
                self.run_("""for (const bay of document.querySelectorAll("button.bay")) bay.click();
                             for (const more of document.querySelectorAll(".more")) more.click()""")
                self.assertIsNone(self.run_("window.struck ?? null"))
                self.assertEqual(self.count("script"), 2)
                tags = self.run_("[...document.querySelectorAll('*')].map((one) => one.tagName)")
                self.assertEqual(set(tags) - set(ours) - {"BUTTON", "ARTICLE", "H4"}, set())
                for where in ("#verdict", ".told", "#line .change", "#line .order", "#line .struck",
                              "#line .bell", "#line .violation", "#line .event", "#details"):
                    self.assertIn(wanted, self.run_(
                        f"document.querySelector({json.dumps(where)}).textContent"), where)
                self.assertEqual(self.run_(f"document.querySelector('main').textContent.match({RAW}g)"), None)
                for width in (1400, 400):
                    self.browser.look(width)
                    self.assertTrue(self.run_(FITS), f"{width} wide: it has to be scrolled sideways")

    def test_the_page_runs_and_loads_nothing_but_itself(self):
        self.opened(self.story)
        self.run_("""(() => { const script = document.createElement("script");
            script.textContent = "window.struck = 1";
            document.body.append(script);
            const image = document.createElement("img");
            image.src = "http://192.0.2.1/x.png";
            document.body.append(image); })()""")
        self.settle()
        self.assertIsNone(self.run_("window.struck ?? null"))
        refused = [one for one in self.browser.complaints if "Content Security Policy" in one]
        self.browser.complaints.clear()
        self.assertEqual(len(refused), 2, refused)

    def test_records_that_are_none(self):
        cut = json.dumps(record_of_a_story()[3])[:-20].encode()
        for content, status, says in (
                (b"", 1, "an empty record"), (b"\n \n", 1, "an empty record"),
                (bytes(range(256)), 1, "no line of it"), (b"[1, 2]\n7\n", 1, "no line of it"),
                (b'{"story": 1, "played": {}}', 1, "not a day that was played"),
                (b"[" * 100000, 1, "no line of it"),
                (b'{"time": NaN, "told": "x"}\n' + cut, 0, ""), (b'{"time": 1e999, "told": "\xff"}', 0, "")):
            with self.subTest(content=content[:40]):
                got, complaint, page = self.report(content)
                self.assertEqual(got, status, complaint)
                self.assertIn(says, complaint)
                self.assertEqual(os.path.exists(page), status == 0)
                if status == 0:
                    self.opened(page)
                    self.assertEqual(self.shown("#line > .told"), 1)
        self.assertEqual(subprocess.run([f"{PROJECT}/sim/report"], capture_output=True, check=False).returncode, 2)
        done = subprocess.run([f"{PROJECT}/sim/report", "/nowhere/record"], capture_output=True, text=True,
                              check=False)
        self.assertEqual((done.returncode, done.stderr), (1, "report: /nowhere/record: No such file or directory\n"))


if __name__ == "__main__":
    if len(sys.argv) > 1 and os.path.exists(sys.argv[1]):
        TAVCTL = sys.argv.pop(1)
    if browser.program() is None:
        print("SKIPPED: no Chromium is installed; scripts/install-dependencies --checks does that")
        sys.exit(SKIPPED)
    unittest.main()
