"""What the service's process leaves behind, holds and says."""
STOP_BOUND = 2.0   # simulated seconds that a stop may take ...
STOP_SLACK = 1.2   # ... and real ones that the machine may
MAY_GROW = {"threads": 4, "descriptors": 8, "kB": 3000}


def process_faults(day):
    faults = [fault for service in day.played["services"] for fault in faults_of_end(day, service)]
    faults += growth(day)
    faults += [f"complaint: {line}" for line in day.played["complaints"]]
    faults += [f"violation: {line['violation']}" for line in day.record if "violation" in line]
    return faults


def has_ended_badly(day):
    """Nothing of what was reported then can be held against the service."""
    return any("died" in service or service.get("status") == "does not stop"
               for service in day.played["services"])


def faults_of_end(day, service):
    if "died" in service:
        yield f"the service died at {service['died'][0]:.0f} s with status {service['died'][1]}"
        return
    if service.get("status") != 0:
        yield f"the service stopped with status {service.get('status')}"
    bound = STOP_BOUND / day.played["speed"] + STOP_SLACK + 3 * day.played["lag"]
    if service.get("stop took", 0) > bound:
        yield f"a stop took {service['stop took']:.2f} s of {bound:.2f} s"
    if service.get("left"):
        yield f"left behind: {service['left']}"


def growth(day):
    """Of the only service of a day. One that has not told anything yet is still about to begin."""
    samples = [sample for sample in day.played["services"][-1]["samples"]
               if sample["at"] > day.lives[-1].first]
    if len(day.played["services"]) > 1 or len(samples) < 2:
        return []
    first, last = samples[0], samples[-1]
    return [f"{what}: {first[what]} at first, {last[what]} at last"
            for what, allowed in MAY_GROW.items() if last[what] > first[what] + allowed]
