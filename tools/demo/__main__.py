"""The demonstration: cards come to a chassis and are admitted or denied before the user's eyes."""
import argparse
import contextlib
import pathlib
import re
import shlex
import shutil
import signal
import sys

from demo.command import CommandFailed
from demo.chassis import MODULES, SPEED, Chassis
from demo.private_view import new_folder
from demo.programs import NotInTime
from demo.screen import Screen


class Asked(Exception):
    """Somebody wants us to end."""


def _end(signum, _frame):
    # Once is enough: what is being stopped must not be interrupted by the next Ctrl-C.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    raise Asked(signal.Signals(signum).name)


def _keep(chassis, screen):
    """Leaves the chassis running until a signal ends it."""
    screen.heading("The chassis stays. In another terminal:")
    for name, value in chassis.cgctl.env.items():
        if name != "VX_ZLOG":
            screen.say(f"  export {name}={shlex.quote(value)}")
    program = shlex.quote(str(chassis.cgctl.program))
    for command in ("list", "card plug 1/11/0 --type 210 --name mine", "show 1/11/0", "card offline 1/11/0",
                    "card pull 1/11/0", "debug dump_node", "watch"):
        screen.say(f"  {program} {command}")
    screen.say(f"Types 210 and 220 are denied; for 230 a module stays silent, and {300 // SPEED} s later the card "
               "is admitted.")
    screen.say("Ctrl-C here (or SIGTERM) stops everything.")
    while True:
        signal.pause()


def _show(chassis, screen, stay):
    """Plays the scenario; returns whether all came as expected."""
    screen.heading("Cards come and go")
    player = chassis.play(stay)
    for line in player.stdout:
        line = line.rstrip("\n")
        screen.say(line, "bad" if line.endswith("MISSED") else "")
        held = re.match(r"(\d+) of (\d+) expectations held", line)
        if held and stay:
            return held.group(1) == held.group(2)
    return player.wait() == 0


def _arguments():
    parser = argparse.ArgumentParser(prog="demo", description=__doc__)
    parser.add_argument("--bin", required=True, type=pathlib.Path, help="folder of app_cg and cg_sim, and of cgctl for --keep")
    parser.add_argument("--keep", action="store_true", help="leave the chassis running at the end")
    return parser.parse_args()


def main():
    """Runs the demonstration; returns the exit status."""
    arguments = _arguments()
    screen = Screen()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _end)
    as_expected = False
    folder = new_folder("app_cg-")
    try:
        screen.heading(f"Starting a chassis in {folder}: store server, daemon, check modules {', '.join(MODULES)}")
        screen.say(f"The daemon's clock runs {SPEED} times as fast: its 300 s for the modules' answers are over in "
                   f"{300 // SPEED} s.")
        with Chassis(arguments.bin, folder, screen) as chassis:
            as_expected = _show(chassis, screen, arguments.keep)
            if arguments.keep:
                _keep(chassis, screen)
    except Asked as why:
        screen.say(f"Stopping ({why}).")
        as_expected = as_expected and arguments.keep
    except (CommandFailed, NotInTime, RuntimeError, OSError) as problem:
        print(f"run: {problem}", file=sys.stderr)
    finally:
        with contextlib.suppress(OSError):
            shutil.rmtree(folder)
    return 0 if as_expected else 1


if __name__ == "__main__":
    sys.exit(main())
