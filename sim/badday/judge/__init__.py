"""Holds what the controller was told against what the server was.

For each part the orders give a sequence of conditions, each from one moment to another (truth.py,
parts.py). One that lasted long enough has to have been seen, a shorter one may have been; what was
seen, one after the other, says which events there have to be, and the events of that part (told.py)
have to be exactly those of one such reading (readings.py, notified.py), where nothing excuses
others (excuses.py). In the end the controller has to know what there is (knowledge.py)."""
from judge.verdict import faults_of

__all__ = ["faults_of"]
