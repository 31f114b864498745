"""Things that take time, written as generators: each `yield ms` waits in the main loop."""
from gi.repository import GLib


class Script:
    """Runs a generator; it waits the milliseconds that the generator yields, and may be cancelled at any wait."""

    def __init__(self, steps, first_wait_ms=0):
        self._steps = steps
        self._source = GLib.timeout_add(first_wait_ms, self._advance)

    @property
    def running(self):
        return self._steps is not None

    def cancel(self):
        if self._source:
            GLib.source_remove(self._source)
        self._source = None
        self._steps = None

    def _advance(self):
        self._source = None
        steps = self._steps
        try:
            wait = next(steps)
        except StopIteration:
            if self._steps is steps:
                self._steps = None
            return GLib.SOURCE_REMOVE
        if self._steps is steps:  # not cancelled by what it just did
            self._source = GLib.timeout_add(int(wait), self._advance)
        return GLib.SOURCE_REMOVE
