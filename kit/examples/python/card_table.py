#!/usr/bin/python3
"""A check module that knows card types from a table: some are denied with a reason, all others pass.

    card_table.py NAME TABLE

TABLE is a JSON file, read anew for each card, so that it can be changed at any time:

    {"200": {"verdict": "deny", "reason": "{card} ({type}) is recalled"},
     "201": {"verdict": "pass", "after_s": 3}}

The key is the configured type of a card. A reason may hold {card} and {type}, which stand for
their names. `after_s` keeps the answer back.
"""
import json
import sys

import check_module
from check_module import Verdict


def entry_for(table_path, card_type):
    """What the table says of a type; raises ValueError when that makes no sense."""
    with open(table_path, encoding="utf-8") as file:
        table = json.load(file)
    entry = table.get(str(card_type), {"verdict": "pass"}) if isinstance(table, dict) else None
    if not isinstance(entry, dict) or entry.get("verdict") not in ("pass", "deny"):
        raise ValueError(f"{table_path}: type {card_type} has no verdict, 'pass' or 'deny'")
    return entry


def examiner(table_path):
    """The function that examines cards by a table."""
    def examine(request, card):
        entry = entry_for(table_path, request.type)
        reason = str(entry.get("reason", ""))
        if "{" in reason:
            known = card(request)
            reason = reason.replace("{card}", known.get("name") or str(request))
            reason = reason.replace("{type}", known.get("type_name") or str(request.type))
        return Verdict(entry["verdict"] == "pass", reason, float(entry.get("after_s", 0)))
    return examine


def main():
    """See the head of the file."""
    parser = check_module.arguments("A check module that denies the card types that a table names.")
    parser.add_argument("table", help="the JSON file of the types")
    options = parser.parse_args()
    return check_module.serve(options.name, examiner(options.table))


if __name__ == "__main__":
    sys.exit(main())
