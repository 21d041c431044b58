"""When events may be late, or not come at all, for reasons that are not their part's."""
import copy

LATE = 60          # an event may come so much later than its cause
STARTED = 5        # a service that starts has asked for the locations by then
ASKED_AGAIN = 105  # it has asked again by then, and built everything anew
LISTED = 45        # and has a list of its interfaces
BUILT = 30         # from one of the RAID library's lists to the next
LISTS = ("0 3", "1 0", "1 4", "1 13")  # the commands (type, code) that these ask for


class Excuses:
    """When events may be late, or not come at all, for reasons that are not their part's."""

    def __init__(self, played):
        self.asleep, self.slow = [], []
        begun = {}
        pairs = {"rmc lost": "rmc withdraw", "rmc late": "rmc withdraw", "hang ipmi0": "unhang ipmi0"}
        for order in played["orders"]:
            for begin, end in pairs.items():
                if order["do"].startswith(begin):
                    begun[end] = (order["at"], "late" in begin)
                elif order["do"].startswith(end) and end in begun:
                    since, only_late = begun.pop(end)
                    self.slow.append((since, order["done"] + 40))
                    if not only_late:  # a controller that dawdles gets everything
                        self.asleep.append((since - 2, order["done"] + 40))
        self.silent = self.asleep
        self.unlisted = self.without_localcli(played)
        starts = self.starts_without_localcli(played)
        self.unplaced = [(since, until + ASKED_AGAIN) for since, until in starts]
        self.unknown_links = [(since, until + LISTED) for since, until in starts]
        self.unasked = self.library_hanging(played) + self.library_failing(played)
        self.lags = played["lags"] + [[order["at"], order["done"] - order["at"]]
                                      for order in played["orders"]]

    @staticmethod
    def library_hanging(played):
        """When the RAID library does not come back, and what it was asked before is on its way."""
        spans, begun = [], None
        for order in played["orders"]:
            if order["do"].startswith("raid hang"):
                begun = order["at"] if begun is None else begun
            elif order["do"] == "raid resume" and begun is not None:
                spans.append((begun, order["done"]))
                begun = None
        return spans

    @staticmethod
    def library_failing(played):
        """When it fails a list, of which a build wants one."""
        orders = [(order["at"], order["do"].split()) for order in played["orders"]]
        return [(at, at + int(words[-1]) * BUILT) for at, words in orders
                if words[:2] == ["raid", "fail"] and " ".join(words[2:4]) in LISTS]

    def took(self, moment):
        """How long the order of that moment was under way."""
        return sum(lag for at, lag in self.lags if at == moment)

    def answered(self, since, until):
        """For how many seconds of these the library could be asked."""
        return until - since - sum(max(0, min(end, until) - max(begin, since))
                                   for begin, end in self.unasked)

    @staticmethod
    def without_localcli(played):
        """When the host lists neither its PCI functions nor its interfaces."""
        spans, begun = [], {}
        for order in played["orders"]:
            what = order["do"]
            if what in ("fail localcli", "hang localcli"):
                begun[what] = order["at"]
            elif what in ("unfail localcli", "unhang localcli"):
                spans.append((begun.pop(what[2:], order["at"]), order["done"]))
        return spans

    def starts_without_localcli(self, played):
        """A service that starts then knows no location until it has asked again, and no interface
        until it has a list."""
        return [(service["started"], until) for service in played["services"]
                for since, until in self.unlisted
                if since < service["started"] + STARTED and until > service["started"]]

    def of_listed(self):
        """The same for a part whose changes are told by the next list of the host."""
        listed = copy.copy(self)
        listed.slow = self.slow + self.unlisted
        listed.silent = self.silent + self.unknown_links
        return listed

    def of_placed(self):
        """The same for a part that only the kernel knows: without a place it raises no event."""
        placed = copy.copy(self)
        placed.silent = self.silent + self.unplaced
        return placed

    def may_be_unplaced(self, time):
        return any(begin <= time <= end for begin, end in self.unplaced)

    def may_be_untold(self, since, until):
        """Of a change that has been looked at between these moments."""
        return any(begin <= until and since <= end for begin, end in self.silent)

    def lateness(self, time):
        """How late an event may be whose cause was then."""
        late = LATE
        for begin, end in self.slow:
            if begin - LATE <= time <= end:
                late += end - max(begin, time)
        return late + sum(lag for at, lag in self.lags if time <= at <= time + late)
