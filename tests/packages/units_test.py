#!/usr/bin/env python3
"""What the daemon's unit promises, as far as its numbers can tell without a device."""
import pathlib
import unittest

UNIT = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "systemd" / "app_cg.service"


def settings():
    """The unit's settings; of those that stand there several times, the last one."""
    lines = (line.strip() for line in UNIT.read_text(encoding="utf-8").splitlines())
    return dict(line.split("=", 1) for line in lines if "=" in line and not line.startswith("#"))


class UnitTest(unittest.TestCase):
    def test_a_daemon_that_hangs_each_time_raises_the_alarm(self):
        unit = settings()
        seconds = {name: int(unit[name]) for name in ("WatchdogSec", "TimeoutStartSec", "TimeoutStopSec", "RestartSec")}
        # It may hang before it is up or after, and then not even end when it is told to.
        one_round = (max(seconds["WatchdogSec"], seconds["TimeoutStartSec"]) + seconds["TimeoutStopSec"] +
                     seconds["RestartSec"])
        self.assertGreater(int(unit["StartLimitIntervalSec"]), int(unit["StartLimitBurst"]) * one_round)
        self.assertIn("app_cg-alarm.service", unit["OnFailure"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
