"""The demonstration itself: it tells the truth, and leaves nothing behind."""
import os
import pathlib
import re
import signal
import subprocess
import sys

import pytest

from demo import programs
from rig import BUILD, PROJECT

SCENARIO = PROJECT / "tools" / "demo" / "chassis.scenario"


@pytest.fixture
def demo(request, tmp_path):
    """The running demonstration; its parameter, if any, has options."""
    environment = {"PYTHONPATH": str(PROJECT / "tools"), "PYTHONDONTWRITEBYTECODE": "1"}
    options = request.param.split() if hasattr(request, "param") else []
    with open(tmp_path / "shown", "wb") as shown:
        process = programs.start([sys.executable, "-m", "demo", "--bin", BUILD / "bin", *options], environment,
                                 stdout=shown, stderr=shown)
    process.shown = lambda: (tmp_path / "shown").read_text()
    yield process
    programs.stop(process)


def processes_of(folder):
    """Command lines of the processes that know the folder."""
    found = []
    for entry in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            command = entry.read_bytes()
        except OSError:
            continue
        if os.fsencode(folder) in command:
            found.append(command)
    return found


def folder_of(text):
    return re.search(r"Starting a (?:chassis|stack) in (\S+):", text).group(1)


def test_every_card_ends_as_told(demo):
    assert demo.wait(90) == 0, demo.shown()
    shown = demo.shown()
    expected = len(re.findall("^expect ", SCENARIO.read_text(), re.MULTILINE))
    assert len(re.findall(r"^\d+ .* ok$", shown, re.MULTILINE)) == expected > 10
    assert f"{expected} of {expected} expectations held." in shown
    for text in ("ADMITTED", "DENIED", "pulled", "went offline", "power-off requested", "system log: ",
                 "answers PASS", "answers DENY", "admitted by time-out of thermal"):
        assert text in shown
    assert "\x1b" not in shown, "no colours where no terminal is"
    assert not pathlib.Path(folder_of(shown)).exists() and processes_of(folder_of(shown)) == []


@pytest.mark.parametrize("demo, signum, sign", [
    ("", signal.SIGINT, "ADMITTED"), ("", signal.SIGTERM, "ADMITTED"), ("--stack --cards 8", signal.SIGINT, "8 cards a device"),
], indirect=["demo"])
def test_an_interrupt_leaves_nothing_behind(demo, signum, sign):
    programs.wait_until(lambda: sign in demo.shown(), 60, f"it shows {sign}")
    folder = folder_of(demo.shown())
    assert len(processes_of(folder)) > 1
    demo.send_signal(signum)
    assert demo.wait(20) == 1
    assert processes_of(folder) == [] and not pathlib.Path(folder).exists()


@pytest.mark.parametrize("demo", ["--keep"], indirect=True)
def test_a_kept_chassis_can_be_played_with(demo):
    programs.wait_until(lambda: "stops everything" in demo.shown(), 90, "the chassis stays")
    shown = demo.shown()
    environment = dict(re.findall(r"^  export (\w+)=(\S+)$", shown, re.MULTILINE))
    assert set(environment) == {"VX_MOM_ENDPOINT", "SSAT_SOCKET"}
    commands = re.findall(rf"^  ({re.escape(str(BUILD / 'bin' / 'cgctl'))} .*)$", shown, re.MULTILINE)
    assert len(commands) >= 5
    for command in commands:
        if not command.endswith(" watch"):
            subprocess.run(command, shell=True, env={**os.environ, **environment}, check=True, timeout=20,
                           stdout=subprocess.DEVNULL)
    programs.wait_until(lambda: "1/11/0   pulled" in demo.shown(), 10, "what was played is shown")
    demo.terminate()
    assert demo.wait(20) == 0
    assert processes_of(folder_of(shown)) == [] and not pathlib.Path(folder_of(shown)).exists()


@pytest.mark.parametrize("demo", ["--stack --cards 8 --keep"], indirect=True)
def test_the_stack_shows_all_its_points_and_each_device_can_be_played_with(demo):
    programs.wait_until(lambda: "stops everything" in demo.shown(), 180, "the stack stays")
    shown = demo.shown()
    points = len(re.findall(r"^  held ", shown, re.MULTILINE))
    assert f"{points} of {points} points held." in shown and points > 10
    assert re.search(r"^ +no result came into database 28 for \d+\.\d s$", shown, re.MULTILINE)
    for letter in "ABC":
        assert f"  {letter} 2/3    system log: " in shown

    commands = re.findall(rf"^  ({re.escape(str(BUILD / 'bin' / 'cgctl'))} .*)$", shown, re.MULTILINE)
    assert len(commands) >= 5
    devices = re.split(r"^  # [ABC]$", shown, flags=re.MULTILINE)[1:]
    assert len(devices) == 3
    for device in devices:
        environment = dict(re.findall(r"^  export (\w+)=(\S+)$", device, re.MULTILINE))
        assert set(environment) == {"VX_MOM_ENDPOINT", "VX_MOM_ENDPOINT_28", "VX_MOM_ENDPOINT_33", "SSAT_SOCKET"}
        for command in commands:
            if not command.endswith(" watch"):
                subprocess.run(command, shell=True, env={**os.environ, **environment}, check=True, timeout=20,
                               stdout=subprocess.DEVNULL)
    demo.terminate()
    assert demo.wait(30) == 0
    assert processes_of(folder_of(shown)) == [] and not pathlib.Path(folder_of(shown)).exists()


@pytest.mark.parametrize("script", ["run", "test"])
def test_scripts_refuse_what_they_do_not_know(script, tmp_path):
    done = subprocess.run([PROJECT / script, "--fast"], cwd=tmp_path, capture_output=True, text=True, check=False)
    assert done.returncode == 2 and done.stdout == ""
    assert len(done.stderr.splitlines()) == 1 and "--fast" in done.stderr
    assert subprocess.run([PROJECT / script, "--help"], cwd=tmp_path, capture_output=True, check=True).stdout
