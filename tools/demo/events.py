"""Turns what is seen of the store and of the logs into lines for people.

Nothing here knows what should happen: a line is made of a record that was written or deleted, or of a line
that the daemon logged.
"""
import json
import re
import threading

_NODE_TYPES = {"DM_TYPE_UNKNOWN": 0, "DM_TYPE_BOX": 1, "DM_TYPE_MB": 2, "DM_TYPE_LC": 3, "DM_TYPE_SUB_LC": 4,
               "DM_TYPE_SFC": 5, "DM_TYPE_MSC": 6, "DM_TYPE_HPSC": 7}
_NODE_NAMES = {1: "box", 2: "board card", 3: "line card", 4: "sub-card", 5: "fabric card", 6: "service card"}
_ROLES = {0: "none", 1: "master", 2: "slave", 3: "candidate"}
_TIMED_OUT = re.compile(rb"devid\[(-?\d+)\] slotid\[(-?\d+)\] sslotid\[(-?\d+)\] wait_obj_bmp\[([0-9a-f]+)\]")


def _is_pass(stat):
    return stat in (1, "APP_CG_CHECK_PASS")


def position(key):
    """A card's position as `device/slot/sub-slot`; fields of value 0 may be missing from a record."""
    def part(name):
        return key.get(name, key.get("t_" + name, 0))
    return f"{part('devid')}/{part('slotid')}/{part('sslotid')}"


class Narrator:
    """Listens to one chassis and shows its events on a screen."""

    def __init__(self, screen, log_path):
        self._screen = screen
        self._log_path = log_path
        self._log_seen = 0  # how much of the log was read
        self._online = {}  # position: was the card on line when last seen
        self._unconfirmed = set()  # record types that the watch has not subscribed to yet
        self._tell = {"card_info": self._card_info, "dp_lib_grole": self._role,
                      "app_cg_card_check_info": self._request, "app_cg_card_check_ack": self._answer,
                      "app_cg_card_deny_check_result": self._result, "dm_set_card_custom_st": self._custom,
                      "im_card_power_onoff": self._power}

    @property
    def types(self):
        """The record types that there is something to tell about."""
        return list(self._tell)

    def follow(self, watch):
        """Shows what a `cgctl watch --json` process prints, until it ends; on a thread of its own."""
        self._unconfirmed = set(self.types)
        threading.Thread(target=self._follow_watch, args=(watch.stdout,), daemon=True).start()

    def is_following(self):
        """Whether the watch sees every change from now on."""
        return not self._unconfirmed

    def _follow_watch(self, lines):
        for line in lines:
            event = json.loads(line)
            kind = event["type"].split(".")[-1]
            if event["cmd"] == "subscribed":
                self._unconfirmed.discard(kind)
            else:
                self._read_log()  # what the daemon logged before it wrote the record comes before it
                self._tell[kind](event["cmd"] == "deleted", event["key"], event["record"])

    def _card_info(self, deleted, key, record):
        card = position(key)
        was = self._online.pop(card, None)
        if deleted:
            self._screen.event(card, "pulled", "notice")
            return
        now = self._online[card] = bool(record.get("is_online"))
        node_type = (record.get("static_info") or {}).get("node_type", 0)
        kind = _NODE_NAMES.get(_NODE_TYPES.get(node_type, node_type), "card")
        name = f"{kind} '{record.get('name', '')}'"
        if was is None:
            self._screen.event(card, f"plugged: {name}, {'on line' if now else 'not yet on line'}", "head")
        elif was != now:
            self._screen.event(card, "is on line" if now else "went off line", "head")

    def _role(self, deleted, _key, record):
        role = record.get("my_grole", 0)
        name = _ROLES.get(role, str(role).replace("DM_ROLE_", "").lower())
        self._screen.event("", "role record deleted" if deleted else f"this device is {name}")

    def _request(self, deleted, key, _record):
        if not deleted:
            self._screen.event(position(key), "held; the check modules are asked")

    def _answer(self, deleted, key, record):
        if deleted:
            return  # the daemon consumes every answer
        passed = record.get("ret", 0) == 0
        reason = record.get("reason", "")
        self._screen.event(position(key), f"{key.get('mod_name', '?')} answers "
                           + ("PASS" if passed else f"DENY{': ' + reason if reason else ' and gives no reason'}"),
                           "" if passed else "notice")

    def _result(self, deleted, key, record):
        if deleted:
            self._screen.event(position(key), "verdict withdrawn")
        elif _is_pass(record.get("stat", 0)):
            self._screen.event(position(key), "ADMITTED", "good")
        else:
            self._screen.event(position(key), "DENIED", "bad")

    def _custom(self, deleted, key, _record):
        if not deleted:
            self._screen.event(position(key), "marked as unable to start", "bad")

    def _power(self, deleted, key, record):
        if not deleted and not record.get("updown"):
            self._screen.event(position(key), f"power-off requested: {key.get('cause', '')}", "bad")

    def system_log_line(self, _severity, text):
        """Shows a line of the system log."""
        slot = re.search(r"slot (-?\d+/-?\d+)", text)
        self._screen.event(f"{slot.group(1)}/-" if slot else "", f"system log: {text}", "notice")

    def _read_log(self):
        try:
            with open(self._log_path, "rb") as log:
                log.seek(self._log_seen)
                text = log.read()
        except FileNotFoundError:
            return
        whole = text[:text.rfind(b"\n") + 1]
        self._log_seen += len(whole)
        for match in _TIMED_OUT.finditer(whole):
            card = b"/".join(match.groups()[:3]).decode()
            self._screen.event(card, "300 s (scaled) have passed and a module is still silent", "notice")
