"""What happens in the demonstration, and what must have become of every card at its end."""
import dataclasses

from demo.programs import NotInTime


@dataclasses.dataclass(frozen=True)
class Card:
    """A card of the story. Its type decides what the check modules say of it."""

    position: str
    name: str
    node_type: str
    type: int
    nodeid: int
    fate: str  # for the table
    expected: str  # the verdict at the end


SUPERVISOR = Card("1/1/0", "supervisor", "mb", 100, 11, "board card: exempt from checking", "passed")
PLAIN = Card("1/2/0", "lc-48", "lc", 200, 12, "passed by all three modules", "passed")
OLD_FIRMWARE = Card("1/3/0", "lc-12-old", "lc", 210, 13, "denied by firmware, with a reason", "denied")
RETURNING = Card("1/4/0", "lc-48", "lc", 200, 14, "went off line, returned, passed again", "passed")
SILENT = Card("1/5/0", "lc-proto", "lc", 230, 15, "thermal stays silent: passed after 300 s", "passed")
HUNGRY = Card("1/6/0", "lc-400", "lc", 220, 16, "denied by power, with a reason", "denied")
PULLED = Card("1/7/0", "lc-48", "lc", 200, 17, "passed, then pulled", "gone")
SUB_CARD = Card("1/8/1", "sub-8", "sub_lc", 200, 18, "plugged off line, came up later", "passed")
ABSENT = Card("1/9/0", "lc-48", "lc", 200, 19, "plugged, never came on line", "none")
LATE = Card("1/10/0", "lc-proto", "lc", 230, 20, "thermal is still silent: waiting", "waiting")

CARDS = (SUPERVISOR, PLAIN, OLD_FIRMWARE, RETURNING, SILENT, HUNGRY, PULLED, SUB_CARD, ABSENT, LATE)


def _plug(chassis, card, *options):
    chassis.cgctl("card", "plug", card.position, "--name", card.name, "--node-type", card.node_type,
                  "--type", card.type, "--nodeid", card.nodeid, "--tipc", card.nodeid + 1000, *options)


def tell(chassis):
    """Lets it all happen. A card that does not get where it should is left to the table to show."""
    chassis.cgctl("role", "master")
    steps = (_board_card, _silent_module_begins, _plain_card, _denials, _return, _pull, _late_comers,
             _silent_module_ends, _still_waiting)
    for step in steps:
        try:
            step(chassis)
        except NotInTime:
            pass


def _board_card(chassis):
    chassis.caption("A board card is admitted without a check.")
    _plug(chassis, SUPERVISOR)
    chassis.wait_for(SUPERVISOR.position, "passed")


def _silent_module_begins(chassis):
    chassis.caption("A prototype, of which one module will say nothing: its 300 s begin.")
    _plug(chassis, SILENT)


def _plain_card(chassis):
    chassis.caption("A line card that all modules pass.")
    _plug(chassis, PLAIN)
    chassis.wait_for(PLAIN.position, "passed")


def _denials(chassis):
    for card in (OLD_FIRMWARE, HUNGRY):
        chassis.caption("A line card that one module denies: marked, powered off, told to the system log.")
        _plug(chassis, card)
        chassis.wait_for(card.position, "denied")


def _return(chassis):
    chassis.caption("A line card is passed, goes off line, and is checked again when it returns.")
    _plug(chassis, RETURNING)
    chassis.wait_for(RETURNING.position, "passed")
    chassis.cgctl("card", "offline", RETURNING.position)
    chassis.wait_for(RETURNING.position, "none")
    chassis.caption("(The second check waits only for what the first left open: one answer is enough.)")
    chassis.cgctl("card", "online", RETURNING.position)
    chassis.wait_for(RETURNING.position, "passed")


def _pull(chassis):
    chassis.caption("A line card is passed, and pulled.")
    _plug(chassis, PULLED)
    chassis.wait_for(PULLED.position, "passed")
    chassis.cgctl("card", "pull", PULLED.position)
    chassis.wait_for(PULLED.position, "gone")


def _late_comers(chassis):
    chassis.caption("A card that never comes on line, and a sub-card that does so later.")
    _plug(chassis, ABSENT, "--offline")
    _plug(chassis, SUB_CARD, "--offline")
    chassis.wait_for(SUB_CARD.position, "none")
    chassis.cgctl("card", "online", SUB_CARD.position)
    chassis.wait_for(SUB_CARD.position, "passed")


def _silent_module_ends(chassis):
    chassis.caption("Now the prototype's time is up soon: silence counts as PASS.")
    chassis.wait_for(SILENT.position, "passed", 40)


def _still_waiting(chassis):
    chassis.caption("Another prototype: it is still waiting when the table is made.")
    _plug(chassis, LATE)
    chassis.wait_for(LATE.position, "waiting")
