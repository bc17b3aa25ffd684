"""How a run ends, whenever it does: everything stopped, nothing left in /tmp.

Each measurement stops what it has started. But a signal may come between a start and what would stop it, and programs
that measure have children of their own. So all processes that are left become ours when their parents end, and are
ended when a measurement has failed and when the run is over; and all folders of a run lie in one.
"""
import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import tempfile

from demo.private_view import new_folder

from .place import Failed

_PR_SET_CHILD_SUBREAPER = 36
_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Asked(BaseException):
    """Somebody wants the run to end. No Exception, so that nothing takes it for a measurement's failure."""

    def __init__(self, signum):
        super().__init__(signal.Signals(signum).name)
        self.status = 128 + signum


def _end(signum, _frame):
    # Once is enough: what is being stopped must not be interrupted by the next Ctrl-C.
    for number in _SIGNALS:
        signal.signal(number, signal.SIG_IGN)
    raise Asked(signum)


def _parent(stat):
    """The parent's id in the text of /proc/PID/stat; a program's name may have spaces and parentheses."""
    return int(stat.rpartition(")")[2].split()[1])


def _children():
    """All processes whose parent we are."""
    for path in pathlib.Path("/proc").glob("[0-9]*/stat"):
        with contextlib.suppress(OSError):  # one that has ended meanwhile
            if _parent(path.read_text()) == os.getpid():
                yield int(path.parent.name)


def end_children():
    """Ends by force what is left; theirs become ours, and are next."""
    while children := list(_children()):
        for child in children:
            os.kill(child, signal.SIGKILL)
        for child in children:
            with contextlib.suppress(ChildProcessError):
                os.waitpid(child, 0)


@contextlib.contextmanager
def clean():
    """Signals end what runs inside by raising Asked; afterwards nothing of it is left. Folders are made in one."""
    ctypes.CDLL(None).prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    usual, folder = tempfile.tempdir, new_folder("cgb-")
    tempfile.tempdir = str(folder)
    before = [signal.getsignal(number) for number in _SIGNALS]
    try:
        for number in _SIGNALS:
            signal.signal(number, _end)
        yield
    finally:
        for number in _SIGNALS:
            signal.signal(number, signal.SIG_IGN)
        tempfile.tempdir = usual
        end_children()
        shutil.rmtree(folder, ignore_errors=True)
        for number, handler in zip(_SIGNALS, before):
            signal.signal(number, handler)


@contextlib.contextmanager
def within(seconds):
    """What takes longer has failed."""
    def late(_signum, _frame):
        raise Failed(f"not done within {seconds} s")

    before = signal.signal(signal.SIGALRM, late)
    signal.setitimer(signal.ITIMER_REAL, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
