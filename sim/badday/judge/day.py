"""A day that has been played: what was, what was told, and the lives of the service."""
from judge.excuses import Excuses
from judge.readings import Life
from judge.told import events_of, inventories_of
from judge.truth import Truth


class Day:
    def __init__(self, played):
        self.played, self.record = played, played["record"]
        self.truth = Truth(played)
        self.excuses = Excuses(played)
        self.events = events_of(self.record)
        self.inventories = inventories_of(self.record)
        self.lives = [self.life_of(service) for service in played["services"]]
        self.has_library = self.library_starts(self.lives[-1].begin)

    def life_of(self, service):
        begin, end = service["started"], service.get("stopping", self.played["length"])
        first = next((time for time, _ in self.inventories
                      if begin < time < service.get("stopped", end)), end)
        return Life(begin, first + 1, end)

    def library_starts(self, moment):
        """Whether the RAID library of a service that is started then does: if not, nobody tries again."""
        server = next(server for at, server in reversed(self.truth.moments) if at <= max(moment, 0))
        return not any(failure["type"] == 0 and failure["code"] == 0
                       for failure in server["raid"].get("failures", []))

    def first_server(self):
        return self.truth.moments[0][1]

    def last_server(self):
        return self.truth.moments[-1][1]

    def last_bell(self):
        """When the controller has rung for an inventory; None when it has not."""
        return next((line["time"] for line in reversed(self.record) if "doorBell" in line), None)
