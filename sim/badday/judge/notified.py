"""Which events the parts give of which the vendor's library tells: what notifications say, and what
the library's own lists do."""
from collections.abc import Callable
from dataclasses import dataclass

from judge.excuses import LATE
from judge.parts import GOOD_STATES, REBUILT
from judge.readings import Wanted

TOLD = 30  # seconds after which what the library tells of has been handled
UNTOLD = "Critical, and nobody knows"


@dataclass(frozen=True)
class Notification:
    """`is_heard` tells whether somebody listened, `value` what it makes of the part."""
    time: float
    is_heard: bool
    value: str
    text: str


@dataclass(frozen=True)
class NotifiedPart:
    """`own` are its conditions in the library's lists, whatever its name; `ids` the events by the
    condition that they report."""
    own: list
    notifications: list
    ids: dict
    place: str
    name_at: Callable
    is_told_first: Callable = lambda time, name, value: False

    def own_at(self, time):
        return next(c.value for c in reversed(self.own) if c.since <= time)


@dataclass(frozen=True)
class Change:
    """Of the part, by a notification or without one."""
    time: float
    value: str
    is_notified: bool
    text: str = ""


def fields_of(order):
    return dict(word.split("=", 1) for word in order.split()[3:] if "=" in word)


def notifications(played, kind, number):
    """Those about that drive, volume or controller."""
    told = []
    for order in played["orders"]:
        if not order["do"].startswith("raid event "):
            continue
        fields = fields_of(order["do"])
        is_good = what_it_says(fields, kind, number)
        if is_good is not None:
            told.append(Notification(order["at"], order["answer"] == "ok",
                                     "OK" if is_good else "Critical",
                                     fields["text"].strip('"').split()[0]))
    return told


def what_it_says(fields, kind, number):
    """Whether it makes the part a good one; None when it does not speak of it."""
    code = int(fields["code"], 0)
    if kind == "controller":
        return code == 0x0C if fields["type"] == "0" else None
    if fields.get(kind) != str(number):
        return None
    if kind == "volume":
        return code == 0xF9
    if code == 0x70:  # it has been taken out
        return False
    return int(fields["new"], 0) in GOOD_STATES if code == 0x72 else None


def explain_notified(part, events, life, excuses):
    """The same as explain() for such a part. The reported condition follows the notifications, and
    the library's own lists when these change without one: surely when that lasts until the next
    build, perhaps when it is shorter."""
    return NotifiedReading(part, events, life, excuses).last_values()


class NotifiedReading:
    """All readings at once: as many pairs (what has been reported, how many of the events have been
    explained) as there may be."""

    def __init__(self, part, events, life, excuses):
        self.part, self.events, self.life, self.excuses = part, events, life, excuses

    def last_values(self):
        first = self.life.first
        reported = {(c.value, 0) for c in self.part.own
                    if c.since <= first + 2 and c.until >= self.life.begin}
        changes = self.changes()
        for change, until in zip(changes, [c.time for c in changes[1:]] + [self.life.end]):
            reported = {then for before in reported for then in self.steps(change, until, *before)}
        return {"Critical" if value == UNTOLD else value
                for value, used in reported if used == len(self.events)}

    def changes(self):
        """What somebody has heard of, and what happened without a notification. The library changes
        first and tells then: that is one change, and it is for the telling to be reported, even if
        somebody has looked between."""
        heard = [Change(n.time, n.value, True, n.text) for n in self.part.notifications
                 if n.is_heard and self.life.begin <= n.time < self.life.end]
        silent = [Change(c.since, c.value, False) for c in self.part.own
                  if self.life.begin < c.since < self.life.end and not any(
                      told.value == c.value and
                      0 <= told.time - c.since < 2 + self.excuses.took(c.since) for told in heard)]
        return sorted(silent + heard, key=lambda change: change.time)

    def steps(self, change, until, before, used):
        # What was dropped before the first inventory has reported nothing: UNTOLD stands for that
        # until the next change, or until an inventory has surely told it.
        if before == UNTOLD:
            before = "Critical"
            if change.is_notified and change.value == "OK" and change.time < self.life.first + LATE:
                yield "OK", used
        if before == "gone" or not change.is_notified:
            yield from self.after_look(change, until, before, used)
        else:
            yield from self.after_notification(change, before, used)

    def after_look(self, change, until, before, used):
        """Somebody may have looked. Who has gone is back by that alone."""
        yield self.part.own_at(change.time), used
        is_same_part = self.part.name_at(change.time) == self.part.name_at(change.time - 1)
        if is_same_part and self.excuses.answered(change.time, until) < REBUILT:
            yield before, used

    def after_notification(self, change, before, used):
        was_refused = used > 0 and self.events[used - 1].is_refused
        if before == change.value:
            yield before, used
            # A refused event has reported nothing, and a repeat is news.
            if not was_refused:
                return
        # What it was before that is no news then, unless an inventory has told it.
        if was_refused:
            yield change.value, used
        if used < len(self.events) and self.is_reported_by(self.events[used], change):
            # What has been taken out is not there to be failed.
            is_gone = self.part.own_at(change.time) == "gone"
            yield "gone" if is_gone else change.value, used + 1
        if change.value == "Critical" and change.time < self.life.first + 2:
            yield UNTOLD, used
        if self.may_be_unreported(change):
            yield change.value, used

    def is_reported_by(self, event, change):
        want = Wanted(self.part.ids[change.value], self.part.name_at(change.time), self.part.place,
                      change.text if change.value == "Critical" else "")
        latest = change.time + self.excuses.lateness(change.time)
        return want.fits(event) and change.time - 2 <= event.time <= latest

    def may_be_unreported(self, change):
        time = change.time
        handled = time + TOLD + self.excuses.lateness(time) - LATE
        return (time < self.life.first + 2 or time > self.life.end - LATE or
                self.part.is_told_first(time, self.part.name_at(time), change.value) or
                self.excuses.may_be_untold(time, min(handled, self.life.end)))
