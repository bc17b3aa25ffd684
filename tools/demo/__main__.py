"""The demonstration: cards come to a chassis, or to a stack of three, and are admitted or denied while one watches."""
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
from demo.stack import MODULES as STACK_MODULES
from demo.stack import Stack
from demo.stack_show import Show


class Asked(Exception):
    """Somebody wants us to end."""


def _end(signum, _frame):
    # Once is enough: what is being stopped must not be interrupted by the next Ctrl-C.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    raise Asked(signal.Signals(signum).name)


def _say_exports(cgctl, screen):
    for name, value in cgctl.env.items():
        if name != "VX_ZLOG":
            screen.say(f"  export {name}={shlex.quote(value)}")


def _say_commands(cgctl, screen, *commands):
    for command in commands:
        screen.say(f"  {shlex.quote(str(cgctl.program))} {command}")


def _keep_chassis(chassis, screen):
    """Leaves the chassis running until a signal ends it."""
    screen.heading("The chassis stays. In another terminal:")
    _say_exports(chassis.cgctl, screen)
    _say_commands(chassis.cgctl, screen, "list", "card plug 1/11/0 --type 210 --name mine", "show 1/11/0",
                  "card offline 1/11/0", "card pull 1/11/0", "debug dump_node", "watch")
    screen.say(f"Types 210 and 220 are denied; for 230 a module stays silent, and {300 // SPEED} s later the card "
               "is admitted.")
    _stay(screen)


def _keep_stack(stack, screen):
    """Leaves the stack running until a signal ends it."""
    screen.heading("The stack stays. In another terminal, for one of its devices:")
    for member in stack.members:
        screen.say(f"  # {member.letter.upper()}")
        _say_exports(member.cgctl, screen)
    screen.say("and then")
    _say_commands(stack.members[0].cgctl, screen, "list", "card plug 1/90/0 --type 210 --name mine", "show 1/90/0",
                  "card pull 1/90/0", "debug dump_node", "watch")
    screen.say("Type 210 is denied. In a stack the device manager writes each card into the store of each device.")
    _stay(screen)


def _stay(screen):
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
    parser.add_argument("--stack", action="store_true", help="a stack of three devices in place of a chassis")
    parser.add_argument("--cards", type=int, default=64, help="with --stack: cards of each device, under load")
    parser.add_argument("--keep", action="store_true", help="leave what was shown running at the end")
    return parser.parse_args()


@contextlib.contextmanager
def _chassis(arguments, folder, screen):
    """Shows the chassis: whether all came as expected, and what keeps it running."""
    screen.heading(f"Starting a chassis in {folder}: store server, daemon, check modules {', '.join(MODULES)}")
    screen.say(f"The daemon's clock runs {SPEED} times as fast: its 300 s for the modules' answers are over in "
               f"{300 // SPEED} s.")
    with Chassis(arguments.bin, folder, screen) as chassis:
        yield _show(chassis, screen, arguments.keep), lambda: _keep_chassis(chassis, screen)


@contextlib.contextmanager
def _stack(arguments, folder, screen):
    """The same of the stack."""
    screen.heading(f"Starting a stack in {folder}: three devices, A, B and C, each with a store server of its own for "
                   f"database 1, a daemon and the check modules {', '.join(STACK_MODULES)}; and a group of three servers with "
                   "sentinels for databases 28 and 33, one on each device")
    with Stack(arguments.bin, folder) as stack:
        show = Show(stack, screen, arguments.cards)
        yield show.play(), lambda: _keep_stack(stack, screen)


def main():
    """Runs the demonstration; returns the exit status."""
    arguments = _arguments()
    screen = Screen()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _end)
    as_expected = False
    folder = new_folder("app_cg-")
    try:
        with (_stack if arguments.stack else _chassis)(arguments, folder, screen) as (as_expected, keep):
            if arguments.keep:
                keep()
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
