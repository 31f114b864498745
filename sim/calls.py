"""What is known of the method calls received: a log for tests that count requests, and faults on request."""
import dataclasses
import json
import time


@dataclasses.dataclass
class Rule:
    """Treats matching calls specially; error, delay_ms or (neither given) silence."""

    member: str  # interface.method; "*" at the end matches any rest
    path: str = ""  # object path, empty for any
    times: int = -1  # how many more calls, -1 for all
    error: tuple = None  # D-Bus error name and text
    delay_ms: int = None

    def matches(self, member, path):
        name = self.member
        fits = member.startswith(name[:-1]) if name.endswith("*") else member == name
        return self.times != 0 and fits and self.path in ("", path)


def plain(value):
    """Turns D-Bus values into what JSON can hold: bytes become text if they are ASCII, else a list of numbers."""
    if isinstance(value, bytes):
        return value.decode() if all(32 <= b < 127 for b in value) else list(value)
    if isinstance(value, dict):
        return {str(k): plain(v) for k, v in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(v) for v in value]
    if isinstance(value, str):
        return str(value)
    if isinstance(value, float):
        return float(value)
    if type(value).__name__ == "Boolean":
        return bool(value)
    return int(value)


class Calls:
    """Log of all method calls and the list of fault rules, shared by all services of the simulation."""

    LIMIT = 100000  # entries kept; counts stay exact beyond

    def __init__(self):
        self.rules = []
        self.reset()

    def reset(self):
        self.log = []
        self.counts = {}

    def received(self, interface, member, path, args):
        """Notes one call; returns the rule that applies to it, or None."""
        name = f"{interface}.{member}"
        self.counts[name] = self.counts.get(name, 0) + 1
        if len(self.log) < self.LIMIT:
            self.log.append((time.monotonic_ns(), name, path, args))
        for rule in self.rules:
            if rule.matches(name, path):
                rule.times -= rule.times > 0
                return rule
        return None

    def count(self, member, path=""):
        if path:
            return sum(1 for _, name, where, _ in self.log if name == member and where == path)
        if member.endswith("*"):
            return sum(n for name, n in self.counts.items() if name.startswith(member[:-1]))
        return self.counts.get(member, 0)

    def as_json(self, prefix=""):
        """The log as JSON: a list of {"ms", "member", "path", "args"}, members that start with prefix only."""
        return json.dumps([{"ms": ns // 1000000, "member": name, "path": path, "args": plain(args)}
                           for ns, name, path, args in self.log if name.startswith(prefix)])
