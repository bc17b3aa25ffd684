"""What every check module does, whatever it examines: takes requests, answers each once, survives the store.

A module gives `serve` a function that says what it thinks of a card. One thread, no locks: an examination that
takes long answers None, and is asked again later.
"""
import argparse
import dataclasses
import logging
import os
import secrets
import signal
import sys
import time

from connection import Lost, Refused
from records import Malformed, key, number, numbers_in_key, text, unpack
from settings import Mistake, parse_endpoint, read_credentials, setting
from store import Store, Watch

DATABASE = 1
REQUEST = "p_libpub.app_cg_card_check_info"
ANSWER = "p_libpub.app_cg_card_check_ack"
CARD = "p_dev.card_info"

LONGEST_NAME = 15  # bytes; the daemon cuts what is longer, and then waits for somebody else
TURN_S = 0.2  # how long a signal may wait to be obeyed
FIRST_PAUSE_S, LONGEST_PAUSE_S = 0.05, 2.0  # before connecting again
LATER_S = 1.0  # before an answer that was refused, or an examination that failed, is tried again

log = logging.getLogger("module")


@dataclasses.dataclass(frozen=True)
class Request:
    """The daemon asks for a card to be examined."""

    devid: int
    slotid: int
    sslotid: int
    type: int
    node_type: int
    card_nodeid: int
    revision: int

    def __str__(self):
        return f"{self.devid}/{self.slotid}/{self.sslotid}"


@dataclasses.dataclass(frozen=True)
class Verdict:
    """Whether a card may start; the reason of a denial; and how long the answer is kept back."""

    passed: bool
    reason: str = ""
    after_s: float = 0.0


@dataclasses.dataclass
class _Job:
    request: Request
    mark: bytes  # who answers, and to which change of which record
    due: float
    verdict: Verdict = None


def request_of(change):
    """The request that a change of its record makes."""
    _, devid, slotid, sslotid = numbers_in_key(change.key)
    return Request(devid, slotid, sslotid, number(change.fields, b"6"), number(change.fields, b"7"),
                   number(change.fields, b"8"), change.revision)


class CheckModule:
    """Answers under one name; see the head of the file."""

    def __init__(self, name, examine, store):
        self._name, self._examine, self._store = name, examine, store
        self._watch = Watch(store, REQUEST)
        self._jobs = {}  # key of the request: what is still to be answered
        self._writer, self._writes = secrets.token_hex(4), 0
        self._stopping = False
        self._told = None

    def stop(self, *_):
        """Ends run() soon; for signals."""
        self._stopping = True

    def run(self):
        """Serves until stop()."""
        pause = FIRST_PAUSE_S
        while not self._stopping:
            try:
                self._watch.synchronise(not self._store.connect())
                self._tell_once(None)
                log.info("watching; %s answers what is asked", self._name)
                pause = FIRST_PAUSE_S
                self._serve()
            except (Lost, Refused, Malformed, ValueError) as problem:
                self._tell_once(str(problem))
                self._pause(pause)
                pause = min(2 * pause, LONGEST_PAUSE_S)
            finally:
                self._store.close()

    def card(self, request):
        """What the device manager knows of a card: its name, and the packed description of its type.

        {} when the card is gone by now.
        """
        fields = self._store.read(key(CARD, 0, request.devid, request.slotid, request.sslotid))
        if not fields:
            return {}
        static = unpack(fields.get(b"14", b""))
        return {"name": text(fields, b"12"), "is_online": number(fields, b"7") == 1,
                "type_name": static[8].decode("utf-8", "replace") if isinstance(static.get(8), bytes) else ""}

    def _serve(self):
        while not self._stopping:
            while self._watch.changes:
                self._take(self._watch.changes.popleft())
            self._answer_what_is_due()
            self._watch.listen(self._until_due())

    def _take(self, change):
        self._jobs.pop(change.key, None)
        if change.is_deleted:
            return  # whatever became of the card, nobody waits for an answer now
        try:
            request = request_of(change)
        except ValueError as problem:
            log.error("request %r is none: %s", change.key, problem)
            return
        self._writes += 1
        self._jobs[change.key] = _Job(request, f"{self._writer}.{self._writes} {change.revision} ".encode() + change.key, time.monotonic())

    def _until_due(self):
        due = min((job.due for job in self._jobs.values()), default=float("inf"))
        return min(max(due - time.monotonic(), 0.0), TURN_S)

    def _answer_what_is_due(self):
        for record_key, job in list(self._jobs.items()):
            if time.monotonic() >= job.due and self._advance(record_key, job):
                del self._jobs[record_key]

    def _advance(self, record_key, job):
        """Examines, or answers; returns whether nothing is left to do."""
        if job.verdict is None:
            job.verdict = self._examined(job.request)
            job.due = time.monotonic() + (LATER_S if job.verdict is None else job.verdict.after_s)
            if job.verdict is None or job.verdict.after_s > 0:
                return False
        try:
            return self._answered(record_key, job)
        except Refused as problem:
            self._tell_once(f"{job.request} is not answered yet: {problem}")
            job.due = time.monotonic() + LATER_S
            return False

    def _examined(self, request):
        """A check that cannot be made is no verdict: it is tried again until the daemon waits no more."""
        try:
            return self._examine(request, self.card)
        except Lost:
            raise
        except Exception as problem:  # pylint: disable=broad-except
            self._tell_once(f"{request} is not examined yet: {type(problem).__name__}: {problem}")
            return None

    def _answered(self, record_key, job):
        """Answers, unless the request is gone: an answer to nobody would meet the card's next request."""
        request, verdict = job.request, job.verdict
        standing = self._store.read(record_key)
        if not standing or standing.get(b"rev", b"0") != b"%d" % request.revision:
            log.info("%s: the request is gone", request)
            return True  # the watch tells what became of it
        fields = {b"6": b"1", b"7": verdict.reason.replace("\0", " ").encode("utf-8", "replace")}
        fields = {} if verdict.passed else {name: value for name, value in fields.items() if value}
        answer = key(ANSWER, request.devid, request.slotid, request.sslotid, os.fsencode(self._name))
        self._store.set(ANSWER, answer, fields, job.mark)
        self._told = None
        log.info("%s %s", request, "PASS" if verdict.passed else f"DENY {verdict.reason!r}")
        return True

    def _tell_once(self, problem):
        if problem is not None and problem != self._told:
            log.warning("%s", problem)
        self._told = problem

    def _pause(self, seconds):
        end = time.monotonic() + seconds
        while not self._stopping and time.monotonic() < end:
            time.sleep(min(TURN_S, seconds))


def arguments(description):
    """A parser of what every module is told; a module adds its own."""
    parser = argparse.ArgumentParser(
        description=description,
        epilog="Settings: VX_MOM_ENDPOINT (unix:/path, tcp:host:port, sentinel:NAME@host:port,...; default "
               "tcp:127.0.0.1:6379) and VX_MOM_AUTH_FILE, from the environment or /etc/app_cg/platform.conf; "
               f"with _{DATABASE} after its name, a setting counts first.")
    parser.add_argument("name", help="the name that the module is registered by in /etc/app_cg/deny_check, "
                                     f"at most {LONGEST_NAME} bytes")
    return parser


def serve(name, examine):
    """Runs a module until SIGTERM or SIGINT; returns the exit status.

    examine(request, card) returns a Verdict, or None to be asked again; card(request) tells of the card.
    """
    logging.basicConfig(stream=sys.stderr, level=logging.INFO, format=f"%(levelname)s {name}: %(message)s")
    try:
        if not name or len(os.fsencode(name)) > LONGEST_NAME or "/" in name:
            raise Mistake(f"'{name}' is no name of a module: 1 to {LONGEST_NAME} bytes, none of them '/'")
        endpoint = parse_endpoint(setting("VX_MOM_ENDPOINT", "tcp:127.0.0.1:6379", DATABASE))
        credentials = read_credentials(setting("VX_MOM_AUTH_FILE", database=DATABASE))
    except Mistake as mistake:
        print(mistake, file=sys.stderr)
        return 2
    # The server takes no other characters in the name of a client.
    client_name = "".join(character if "!" <= character <= "~" else "_" for character in name)
    module = CheckModule(name, examine, Store(endpoint, credentials, DATABASE, client_name))
    for signal_number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(signal_number, module.stop)
    module.run()
    return 0
