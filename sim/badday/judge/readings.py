"""Which events a part's conditions give, one after the other."""
import json
import re
from dataclasses import dataclass

from judge.excuses import LATE


@dataclass(frozen=True)
class Life:
    """Of a service: when it was started, when it had told its first inventory, when it was stopped."""
    begin: float
    first: float
    end: float


@dataclass(frozen=True)
class Wanted:
    """An event that a change has to raise, or may. `text` is a regular expression; an empty
    location is that of none."""
    id: int
    name: str
    location: str = ""
    text: str = ""
    is_due: bool = True

    def fits(self, event):
        return (self.id == event.id and self.name == event.name and
                self.location == event.location and
                re.search(self.text, event.text) is not None)


def explain(conditions, rule, events, life, excuses):
    """Whether some reading of the conditions during that life gives exactly these events. Returns
    the values that may have been seen last; none when there is no such reading."""
    return Reading(conditions, rule, events, life, excuses).last_values()


class Reading:
    """All readings at once: as many pairs (which condition was seen last, how many of the events
    have been explained) as there may be."""

    def __init__(self, conditions, rule, events, life, excuses):
        self.seen = [c for c in conditions if c.since < life.end and c.until > life.begin]
        self.rule, self.events, self.life, self.excuses = rule, events, life, excuses

    def last_values(self):
        todo = {(i, 0) for i in self.beginnings()}
        done = set(todo)
        while todo:
            following = set(self.steps(*todo.pop())) - done
            done |= following
            todo |= following
        return {json.dumps(self.seen[i].value) for i, used in done if used == len(self.events) and
                not any(map(self.must_be_seen, self.seen[i + 1:]))}

    def must_be_seen(self, condition):
        since = max(condition.since, self.life.first)
        until = min(condition.until, self.life.end)
        return until - since >= condition.needs + self.excuses.lateness(since) - LATE

    def after(self, i):
        """The conditions of which each may be the next that is seen after that one."""
        for j in range(i + 1, len(self.seen)):
            yield j
            if self.must_be_seen(self.seen[j]):
                break

    def beginnings(self):
        """What was there before the first inventory may be what the service knew from the beginning."""
        starts = [i for i, c in enumerate(self.seen) if c.since <= self.life.first + 2]
        for i in range(len(starts) - 1, -1, -1):
            if any(self.must_be_seen(self.seen[k]) for k in starts[:i]):
                starts = starts[i:]
                break
        for i in starts:
            yield i
            # What could not be asked at first is unknown, and new when it answers; so is what was gone.
            value = self.seen[i].value
            if value == "Gone" or value[1] in ("failed", "offline"):
                yield from self.after(i)

    def steps(self, i, used):
        if self.is_repeated(used, self.seen[i]):
            yield i, used + 1
        for j in self.after(i):
            wanted = self.rule(self.seen[i].value, self.seen[j].value)
            for reached in self.emissions(wanted, used, self.seen[j]):
                yield j, reached

    def is_repeated(self, used, condition):
        """Whether the next event may be the last once more, while the condition lasts. One that was
        refused has reported nothing."""
        if not 0 < used < len(self.events) or not self.events[used - 1].is_refused:
            return False
        refused, following = self.events[used - 1], self.events[used]
        return ((refused.id, refused.name) == (following.id, following.name) and
                following.time <= condition.until + self.excuses.lateness(condition.until))

    def emissions(self, wanted, used, condition):
        """After how many of the events a reading may be that wants these now. What came before the
        first inventory may have been dropped, each for itself."""
        reached = {used}
        for want in wanted:
            told = {at + 1 for at in reached if at < len(self.events) and
                    want.fits(self.events[at]) and self.is_in_time(self.events[at], condition)}
            reached = told | (reached if self.may_be_missing(want, condition) else set())
        return reached

    def is_in_time(self, event, condition):
        latest = condition.since + self.excuses.lateness(condition.since)
        if condition.until - condition.since < condition.needs:
            latest = max(latest, condition.until + LATE / 2)
        else:
            latest += condition.needs
        return condition.since - 2 <= event.time <= latest

    def may_be_missing(self, want, condition):
        looked_at = min(condition.since + condition.needs + 20, self.life.end)
        return (not want.is_due or condition.since < self.life.first or
                condition.since > self.life.end - LATE or
                self.excuses.may_be_untold(condition.since, looked_at))
