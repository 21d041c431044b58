#!/usr/bin/python3 -B
"""The judge of the bad days, held against the record of a clean one (clean-day.json), and the teller
of the stories."""
import argparse
import copy
import importlib.machinery
import importlib.util
import json
import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, f"{PROJECT}/sim/badday")
import judge  # noqa: E402
import story  # noqa: E402
from judge.excuses import Excuses  # noqa: E402
from judge.notified import Notification, NotifiedPart, explain_notified  # noqa: E402
from judge.parts import POLLED, REBUILT, disk_rule, link_rule  # noqa: E402
from judge.readings import Life, explain  # noqa: E402
from judge.told import Event, drive_name, events_of, location_name, name_of, told_by_events  # noqa: E402
from judge.truth import NOWHERE, SATA_FUNCTION, Condition  # noqa: E402


def script(name):
    loader = importlib.machinery.SourceFileLoader(name.replace("-", "_"), f"{PROJECT}/scripts/{name}")
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


with open(f"{HERE}/clean-day.json", encoding="utf-8") as file:
    CLEAN = json.load(file)
EVENTS = [index for index, line in enumerate(CLEAN["record"]) if line.get("command") == "MPEventGen"]


def changed(index, change):
    """The day with one line of its record changed."""
    day = copy.deepcopy(CLEAN)
    payload = json.loads(day["record"][index]["payload"])
    change(payload)
    day["record"][index]["payload"] = json.dumps(payload)
    return day


def moved(index, seconds):
    day = copy.deepcopy(CLEAN)
    day["record"][index]["time"] += seconds
    day["record"].sort(key=lambda line: line["time"])
    return day


def removed(index):
    day = copy.deepcopy(CLEAN)
    del day["record"][index]
    return day


def doubled(index):
    day = copy.deepcopy(CLEAN)
    day["record"].insert(index, copy.deepcopy(day["record"][index]))
    return day


def renamed(payload):
    data = payload["VariableData"]["Data"]
    for key in ("SerialNumber", "DurableName", "WWPN"):
        if key in data:
            data[key] = "OTHER"
    data.setdefault("Oem", {}).update(DeviceName="OTHER", Description="OTHER")


def moved_elsewhere(payload):
    payload["PhysicalLocation"] = "FF00050101FFFF86"


def told_as(number):
    return lambda payload: payload.update(ID=number)


def reworded(payload):
    payload["VariableData"]["EventInfo"] = "something else"


class Judging(unittest.TestCase):
    def assertNoticed(self, day, what):
        self.assertTrue(judge.faults_of(day), f"not noticed: {what}")

    def test_a_clean_day_has_no_faults(self):
        self.assertEqual(judge.faults_of(CLEAN), [])
        self.assertGreater(len(EVENTS), 18)

    def test_every_event_that_is_not_as_it_was_is_noticed(self):
        for index in EVENTS:
            payload = json.loads(CLEAN["record"][index]["payload"])
            what = f"{payload['ID']} at {CLEAN['record'][index]['time']:.0f} s"
            self.assertNoticed(removed(index), f"{what} removed")
            self.assertNoticed(doubled(index), f"{what} doubled")
            for other in (356, 384, 397, 538, 539, 540, 680, 681, 683, 777):
                if other != payload["ID"]:
                    self.assertNoticed(changed(index, told_as(other)), f"{what} as {other}")
            if payload["ID"] == 356:
                continue
            self.assertNoticed(changed(index, renamed), f"{what} of another part")
            self.assertNoticed(changed(index, moved_elsewhere), f"{what} at another place")
            self.assertNoticed(moved(index, -70), f"{what} before its cause")
            self.assertNoticed(moved(index, 250), f"{what} much too late")
            if payload["ID"] in (538, 539, 540, 384, 386) and payload["VariableData"]["EventInfo"]:
                self.assertNoticed(changed(index, reworded), f"{what} in other words")

    def test_every_wrong_line_of_the_inventory_is_noticed(self):
        last = max(i for i, line in enumerate(CLEAN["record"]) if line.get("command") == "WriteInventory")
        told = json.loads(CLEAN["record"][last]["payload"])["HostDataCollection"]
        for section in ("Drives", "Volumes", "EthernetDevices", "StorageControllers"):
            for number in range(len(told[section])):
                def with_section(change, section=section, number=number):
                    return changed(last, lambda payload: change(
                        payload["HostDataCollection"][section], number))
                what = f"{section} {number}"
                self.assertNoticed(with_section(lambda list_, at: list_.pop(at)), f"{what} missing")
                self.assertNoticed(with_section(lambda list_, at: list_[at]["Status"].update(
                    Health="Ill", State="Odd")), f"{what} in another condition")
                if section != "Volumes":
                    self.assertNoticed(with_section(lambda list_, at: list_[at]["Oem"].update(
                        PhysicalLocation="FF00050101FFFF86")), f"{what} at another place")
        for number in range(len(told["Drives"])):
            self.assertNoticed(changed(last, lambda payload, at=number: payload[
                "HostDataCollection"]["Drives"].append(payload["HostDataCollection"]["Drives"][at])),
                f"drive {number} twice")
            self.assertNoticed(changed(last, lambda payload, at=number: payload[
                "HostDataCollection"]["Drives"][at].update(Model="")), f"drive {number} nameless")

    def test_what_the_inventory_before_the_bell_has_wrong_is_noticed(self):
        before = [i for i, line in enumerate(CLEAN["record"])
                  if line.get("command") == "WriteInventory"][-2]
        told_of = {drive_name(drive) for _, drive in told_by_events(CLEAN["record"], "Drive")}
        drives = json.loads(CLEAN["record"][before]["payload"])["HostDataCollection"]["Drives"]
        quiet = [at for at, drive in enumerate(drives) if drive_name(drive) not in told_of]
        self.assertGreater(len(quiet), 3)
        for number in quiet:
            self.assertNoticed(changed(before, lambda payload, at=number: payload[
                "HostDataCollection"]["Drives"][at].update(Revision="OLD")), f"firmware of drive {number}")

    def test_what_that_inventory_has_wrong_of_interfaces_is_noticed(self):
        before = [i for i, line in enumerate(CLEAN["record"])
                  if line.get("command") == "WriteInventory"][-2]
        told_of = {name_of(data)
                   for _, data in told_by_events(CLEAN["record"], "EthernetDevice")}
        adapters = json.loads(CLEAN["record"][before]["payload"])["HostDataCollection"]["EthernetDevices"]
        quiet = [at for at, adapter in enumerate(adapters) if name_of(adapter) not in told_of]
        self.assertGreater(len(quiet), 2)
        for number in quiet:
            for change in (lambda list_, at: list_.pop(at),
                           lambda list_, at: list_[at].update(FirmwareVersion="OLD"),
                           lambda list_, at: list_[at]["Status"].update(Health="Critical")):
                self.assertNoticed(changed(before, lambda payload, at=number, do=change: do(
                    payload["HostDataCollection"]["EthernetDevices"], at)), f"interface {number}")

    def test_the_process_is_judged_too(self):
        for change in ({"stop took": 9}, {"status": 1}, {"left": ["S localcli"]}, {"died": [90, -11]}):
            day = copy.deepcopy(CLEAN)
            day["services"][-1].update(change)
            self.assertNoticed(day, str(change))
        for what in ("threads", "descriptors", "kB"):
            day = copy.deepcopy(CLEAN)
            day["services"][-1]["samples"][-1][what] += 5000
            self.assertNoticed(day, what)


class Excusing(unittest.TestCase):
    """An excuse covers what it is for, and nothing else of the same part or time."""

    KERNELS_OWN = ("S4", "NEW", "PHLJ", SATA_FUNCTION, "0000:d8:00.0")

    def assertExcused(self, day, may_be_missing, may_be_unplaced):
        """`day` makes of a record one to which the excuse applies; the rest says of which events."""
        def is_noticed(changed_day):
            return bool(judge.faults_of(day(changed_day)))

        self.assertFalse(is_noticed(CLEAN))
        for index in EVENTS:
            event = events_of([CLEAN["record"][index]])[0]
            if event.id == 356:
                continue
            with self.subTest(event=str(event)):
                self.assertEqual(is_noticed(removed(index)), not may_be_missing(event), "removed")
                self.assertEqual(is_noticed(changed(index, lambda payload: payload.update(
                    PhysicalLocation=NOWHERE))), not may_be_unplaced(event), "without a place")
                if may_be_missing(event) or may_be_unplaced(event):
                    for what in (doubled(index), changed(index, renamed), moved(index, -70),
                                 changed(index, moved_elsewhere), changed(index, told_as(777))):
                        self.assertTrue(is_noticed(what))

    def test_a_start_without_locations(self):
        def day(played):
            orders = [{"at": at, "done": at, "do": do} for at, do in
                      ((-1, "fail localcli"), (130, "unfail localcli"))]
            return dict(played, orders=orders + played["orders"])

        known = 235  # it has asked again by then, and built everything anew
        self.assertExcused(
            day, lambda event: event.time < known and event.name.startswith(self.KERNELS_OWN),
            lambda event: event.time < known)

    def test_locations_that_fail_later(self):
        def day(played):
            orders = [{"at": at, "done": at, "do": do} for at, do in
                      ((30, "fail localcli"), (130, "unfail localcli"))]
            return dict(played, orders=orders + played["orders"])

        self.assertExcused(day, lambda event: False, lambda event: False)

    def test_a_controller_that_answers_late(self):
        """Its disks' conditions of before are no news then; who answers after 120 s has no excuse."""
        def without(until):
            def day(played):
                played = copy.deepcopy(played)
                for line in played["record"]:
                    if line.get("command") == "WriteInventory" and line["time"] < until:
                        payload = json.loads(line["payload"])
                        told = payload["HostDataCollection"]
                        told["StorageControllers"] = [
                            controller for controller in told["StorageControllers"]
                            if location_name(controller) != SATA_FUNCTION]
                        line["payload"] = json.dumps(payload)
                return played
            return day

        for until, excused in ((120, {"S4700001", "S4700002"}), (200, set())):
            self.assertExcused(
                without(until),
                lambda event, until=until, names=excused: event.time < until and event.name in names,
                lambda event: False)

    def test_a_notification_that_waits_for_another_may_be_told_by_its_inventory(self):
        index, event = next((index, event) for index in EVENTS
                            for event in events_of([CLEAN["record"][index]])
                            if (event.id, event.name) == (538, "WFK00002"))
        told = next(order["at"] for order in CLEAN["orders"] if "drive=9" in order["do"])
        for before, is_told, is_noticed in ((2, True, False), (10, True, True), (2, False, True)):
            other = {"at": told - before, "done": told - before, "answer": "ok",
                     "do": 'raid event 0 code=0x72 class=0 locale=2 type=15 drive=12 '
                           'previous=0x18 new=0x18 text="PD 12"'}
            day = dict(removed(index), orders=sorted(CLEAN["orders"] + [other],
                                                     key=lambda order: order["at"]))
            day["record"] = [line for line in day["record"]
                             if is_told or line.get("command") != "WriteInventory" or
                             not event.time < line["time"] < told + 200]
            with self.subTest(before=before, is_told=is_told):
                self.assertEqual(bool(judge.faults_of(day)), is_noticed)

    def test_an_event_before_the_first_inventory_is_noticed(self):
        day = copy.deepcopy(CLEAN)
        day["record"] = [line for line in day["record"]
                         if line.get("command") != "WriteInventory" or line["time"] > 120]
        self.assertTrue(any("before the first inventory: 539 S4700001" in fault
                            for fault in judge.faults_of(day)))

    def test_a_controller_that_sleeps_later_excuses_no_boot(self):
        boot = next(index for index in EVENTS
                    if events_of([CLEAN["record"][index]])[0].id == 356)
        self.assertTrue(judge.faults_of(moved(boot, 250)))
        for since, is_noticed in ((20, False), (300, True)):
            orders = [{"at": at, "done": at, "do": do} for at, do in
                      ((since, "rmc lost,nth=all"), (since + 10, "rmc withdraw=all"))]
            day = dict(removed(boot), orders=orders + CLEAN["orders"])
            self.assertEqual(bool(judge.faults_of(day)), is_noticed)


WELL_AND_WORN = [Condition(["S1", value], since, until, POLLED) for value, since, until in
                 (("running", 0, 100), ("predicted", 100, 200), ("running", 200, 400))]


def excuses_of(orders):
    """Each order is one as a record has it, or when it was given and done at once, and what."""
    orders = [order if isinstance(order, dict) else
              {"at": order[0], "done": order[0], "do": order[1]} for order in orders]
    return Excuses({"orders": orders, "lags": [], "services": []})


class Reading(unittest.TestCase):
    """What may be missed: a condition that did not last."""

    def read(self, lengths, *told, orders=()):
        """A disk that is well and failing in turns; whether events of these ids, a few seconds after
        each change, can be explained."""
        conditions, since = [], 0
        for number, length in enumerate(lengths):
            value = ["S1", "predicted" if number % 2 else "running"]
            conditions.append(Condition(value, since, since + length, POLLED))
            since += length
        events = [Event(time, number, "S1", "PLACE", "SSD Wear percentage" if number == 539 else "")
                  for number, time in told]
        return self.explains(conditions, disk_rule("PLACE"), events, orders)

    def test_readings(self):
        for lengths, told, explained in (
                ((100, 100, 200), [(539, 105), (540, 205)], True),
                ((100, 100, 200), [], False),
                ((100, 100, 200), [(539, 105)], False),
                ((100, 100, 200), [(540, 205)], False),
                ((100, 100, 200), [(540, 205), (539, 206)], False),
                ((100, 100, 200), [(539, 105), (540, 205), (539, 206), (540, 207)], False),
                ((100, 10, 200), [], True),
                ((100, 10, 200), [(539, 105), (540, 115)], True),
                ((100, 10, 200), [(539, 105)], False),
                ((100, 10, 10, 10, 200), [(539, 105), (540, 135)], True),
                ((20, 300), [], True),
                ((20, 300), [(539, 33)], True),
                ((100, 300), [], False)):
            with self.subTest(lengths=lengths, told=told):
                self.assertEqual(self.read(lengths, *told), explained)

    def test_only_a_controller_that_sleeps_loses_events(self):
        span = lambda kind: [(90, f"rmc {kind},nth=all"), (160, "rmc withdraw=all")]  # noqa: E731
        self.assertTrue(self.read((100, 100, 400), (540, 205), orders=span("lost")))
        self.assertFalse(self.read((100, 100, 400), (540, 205), orders=span("late=1500")))
        self.assertTrue(self.read((100, 100, 400), (539, 160), (540, 205), orders=span("late=1500")))

    def test_a_refused_event_may_come_again_while_its_condition_lasts(self):
        for again, refused, explained in ((150, True, True), (190, True, True), (150, False, False),
                                          (300, True, False)):
            with self.subTest(again=again, refused=refused):
                events = [Event(105, 539, "S1", "PLACE", "SSD Wear percentage", refused),
                          Event(again, 539, "S1", "PLACE", "SSD Wear percentage"),
                          Event(max(again, 205), 540, "S1", "PLACE", "")]
                self.assertEqual(self.explains(WELL_AND_WORN, disk_rule("PLACE"), events),
                                 explained)

    def test_a_link_that_only_the_list_tells_waits_for_it(self):
        link = [Condition(value, since, until, REBUILT) for value, since, until in
                ((("up", 0), 0, 200), (("down", 1), 200, 300), (("up", 1), 300, 700))]
        for hang, told, explained in (((310, 480), 485, True), ((310, 480), None, False),
                                      (None, 485, False), ((500, 600), 485, False),
                                      ((310, 480), 290, False), ((310, 480), 640, False)):
            with self.subTest(hang=hang, told=told):
                orders = zip(hang or (), ("hang localcli", "unhang localcli"))
                events = [Event(told, 680, "vmnic0", "PLACE", "")] if told else []
                self.assertEqual(self.explains(link, link_rule("vmnic0", "PLACE"), events,
                                               orders), explained)

    def test_of_a_swap_before_the_first_inventory_either_event_may_have_been_dropped(self):
        for since, told, explained in ((20, (540,), True), (20, (538, 540), True), (20, (), True),
                                       (40, (540,), False), (40, (538, 540), True)):
            with self.subTest(since=since, told=told):
                swapped = [Condition([name, "running"], begin, end, POLLED) for
                           name, begin, end in (("S1", 0, since), ("S2", since, 400))]
                events = [Event(since + 12, number, {538: "S1", 540: "S2"}[number], "PLACE",
                                "serial number" if number == 538 else "") for number in told]
                self.assertEqual(self.explains(swapped, disk_rule("PLACE"), events), explained)

    @staticmethod
    def explains(conditions, rule, events, orders=()):
        return bool(explain(conditions, rule, events, Life(0, 30, conditions[-1].until),
                            excuses_of(orders).of_listed()))


class Notified(unittest.TestCase):
    """Of a volume, of which the library may tell."""

    HEALS = (("OK", 0, 200), ("Critical", 200, 300), ("OK", 300, 600))

    @staticmethod
    def last_values(own, notified, told, orders=()):
        """`notified`: when the library told which condition; `told`: which events came then."""
        part = NotifiedPart(
            own=[Condition(value, since, until, REBUILT) for value, since, until in own],
            notifications=[Notification(time, True, value, "VD") for time, value in notified],
            ids={"OK": 683, "Critical": 681}, place="", name_at=lambda time: "V")
        events = [Event(time, number, "V", "", "VD 00") for number, time in told]
        return explain_notified(part, events, Life(0, 30, 600), excuses_of(orders))

    def assertRead(self, explained, *of):
        self.assertEqual(bool(self.last_values(*of)), explained)

    def test_what_the_library_could_not_be_asked_may_be_missed(self):
        hangs = [(230, "raid hang 0 3"), (290, "raid resume")]
        for hung, told, explained in (
                ([], [(683, 305)], True),
                ([], [], False),
                (hangs, [(683, 305)], True),
                (hangs, [], True),
                (hangs, [(681, 205), (683, 305)], False),
                (hangs, [(683, 305), (683, 306)], False),
                (hangs, [(683, 290)], False),
                ([(400, "raid hang 0 3"), (500, "raid resume")], [], False),
                ([(210, "raid fail 1 13 0x8009 5")], [], True),
                ([(210, "raid fail 1 13 0x8009 5")], [(681, 205), (683, 305)], False),
                ([(210, "raid fail 2 0 0x8009 5")], [], False),
                ([(40, "raid fail 1 13 0x8009 5")], [], False)):
            with self.subTest(hung=hung, told=told):
                self.assertRead(explained, self.HEALS, [(300.5, "OK")], told, hung)

    def test_what_was_dropped_before_the_first_inventory_is_told_by_it(self):
        for recovers, told, explained in (
                (60, [], True),
                (60, [(683, 62)], True),
                (200, [(683, 202)], True),
                (200, [], False),
                (60, [(681, 62)], False)):
            with self.subTest(recovers=recovers, told=told):
                self.assertRead(explained, [("OK", 0, 600)], [(20, "Critical"), (recovers, "OK")],
                                told)

    def test_a_change_and_what_tells_it_are_one(self):
        own = (("OK", 0, 200), ("Critical", 200, 600))
        for done, explained in ((203, False), (200, True)):  # there was time for a look between
            order = {"at": 200, "done": done, "do": "raid volume 0 0 state=2"}
            self.assertRead(explained, own, [(203.5, "Critical")], [], [order])

    def test_who_comes_back_while_nobody_can_look_is_in_a_later_list(self):
        """What the library tells meanwhile is about one whom nobody knows."""
        gone = (("OK", 0, 100), ("gone", 100, 600))
        back = (*gone[:1], ("gone", 100, 319), ("OK", 319, 339), ("Critical", 339, 350), ("OK", 350, 600))
        notified = ((100, "Critical"), (339, "Critical"), (350, "OK"))
        hung = ((200, "raid hang 1 0"), (400, "raid resume"))
        for own, orders, told, last in (
                (back, hung, [(681, 101)], {"OK"}),
                (back, (), [(681, 101), (681, 340), (683, 351)], {"OK"}),
                (gone, hung, [(681, 101)], {"gone"})):
            with self.subTest(own=own, orders=orders):
                self.assertEqual(self.last_values(own, notified, told, orders), last)


class Telling(unittest.TestCase):
    def test_a_seed_always_tells_the_same_story(self):
        told = [story.tell(seed) for seed in range(200)]
        self.assertEqual(told, [story.tell(seed) for seed in range(200)])
        self.assertGreater(len({json.dumps(one["episodes"]) for one in told}), 190)
        names = {episode["name"].split()[-1] for one in told for episode in one["episodes"]}
        self.assertGreater(len(names), 25, "of all kinds")
        for one in told:
            for order in story.orders(one):
                self.assertTrue(story.BEGIN <= order["at"] <= story.END + 5, order)

    def test_a_day_that_the_machine_holds_up_is_played_more_slowly(self):
        bad_days = script("bad-days")
        for lag, took, judged_at in ((0.01, 0.1, 100), (0.06, 0.1, 50), (0.01, 0.3, 50), (0.01, 9, None)):
            days = bad_days.Days(argparse.Namespace(speed=100, within=None))
            days.play_at = lambda told, speed, lag=lag, took=took: {
                "lag": lag, "speed": speed, "record": [],
                "orders": [{"do": "change disks sg0 errors=3", "at": 0, "done": took * speed}]}
            played = days.play(story.tell(1))
            self.assertEqual(None if played["restless"] else played["speed"], judged_at)

    def test_the_shortest_story_that_still_fails_is_found(self):
        days = script("bad-days").Days(None)
        told = story.tell(7)
        guilty = {told["episodes"][0]["orders"][0]["do"], told["episodes"][-1]["orders"][0]["do"]}
        days.faults = lambda trial: guilty <= {order["do"] for order in story.orders(trial)}
        self.assertEqual({order["do"] for order in story.orders(days.shrink(told))}, guilty)


if __name__ == "__main__":
    unittest.main()
