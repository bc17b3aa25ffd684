"""Starting and stopping programs so that none is left behind.

Every program runs in a session of its own: Ctrl-C on the terminal reaches only us, and we stop the others in
the order we want. Should we be killed, the kernel ends them (setpriv's parent-death signal). Waiting for
things to happen is done here too: with a deadline, on a condition.
"""
import os
import signal
import subprocess
import time


class NotInTime(Exception):
    """What was waited for did not happen before the deadline."""


def wait_until(condition, seconds, what):
    """Returns the first true value of condition(); raises NotInTime, naming `what`, after `seconds`."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise NotInTime(f"not within {seconds} s: {what}")
        time.sleep(0.01)


def start(argv, env=None, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **more):
    """Starts a program; its environment is ours with `env` added. Returns the Popen."""
    return subprocess.Popen(
        ["setpriv", "--pdeathsig", "KILL", *map(str, argv)],
        env={**os.environ, **(env or {})}, stdin=subprocess.DEVNULL, stdout=stdout, stderr=stderr,
        start_new_session=True, **more)


def stop(program, seconds=10):
    """Ends a program that start() returned: politely, and after `seconds` by force. Ended ones are fine."""
    if program is None or program.poll() is not None:
        return
    program.terminate()
    try:
        program.wait(seconds)
    except subprocess.TimeoutExpired:
        stop_group(program, signal.SIGKILL)
        program.wait()


def stop_group(program, signum):
    """Signals a program and what it started in its session."""
    try:
        os.killpg(program.pid, signum)
    except ProcessLookupError:
        pass
