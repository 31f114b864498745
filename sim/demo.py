"""Demo mode: every few seconds something in the simulated gateway changes by itself."""
import random

from .nm_wifi import AccessPoint
from .script import Script


class Demo:
    """Changes the world at intervals. With a seed the course is the same each time."""

    def __init__(self, world, interval_s=4.0, seed=None):
        self.world = world
        self.random = random.Random(seed)
        self.interval_ms = int(interval_s * 1000)
        self.visitor = None  # the access point that comes and goes
        self.on_data_flow = []  # called with (interface, received bytes, sent bytes) while the modem is connected
        self._script = Script(self._course(), self.interval_ms)

    def stop(self):
        self._script.cancel()

    def _course(self):
        events = (self._wander, self._wander, self._modem_signal, self._visitor, self._data_flow, self._technology)
        turn = 0
        while True:
            turn += 1
            if turn % 12 == 5:
                self._cable(False)
            elif turn % 12 == 7:
                self._cable(True)
            else:
                self.random.choice(events)()
            yield self.interval_ms

    def _devices(self, kind):
        return [d for d in self.world.nm.devices if d.kind == kind and d.bus]

    def _wander(self):
        """Signal strengths drift."""
        for wifi in self._devices("wifi"):
            for point in wifi.access_points:
                step = self.random.randint(-6, 6)
                point.set(Strength=min(100, max(5, int(point.get("Strength")) + step)))

    def _visitor(self):
        """A phone's hotspot appears, or leaves again."""
        for wifi in self._devices("wifi")[:1]:
            if self.visitor in wifi.access_points:
                wifi.remove_points([self.visitor])
            else:
                self.visitor = AccessPoint("Visitor's phone", security="wpa2", strength=self.random.randint(30, 90))
                wifi.add_points([self.visitor])

    def _cable(self, plugged):
        for wired in self._devices("wired")[:1]:
            wired.set_carrier(plugged)

    def _modem_signal(self):
        for modem in self._devices("modem"):
            modem.modem.set_signal(min(100, max(5, modem.modem.signal + self.random.randint(-12, 12))))

    def _technology(self):
        for modem in self._devices("modem"):
            modem.modem.set_technologies(self.random.choice((["lte"], ["umts", "hspa-plus"], ["gsm", "edge"])))

    def _data_flow(self):
        """Traffic over the modem: the kernel's counters are not ours to move, so this is only told to whoever asks."""
        for modem in self._devices("modem"):
            if modem.modem.bearer and modem.modem.bearer.get("Connected"):
                for callback in self.on_data_flow:
                    callback(modem.modem.data_interface, self.random.randint(10_000, 2_000_000),
                             self.random.randint(1_000, 200_000))
