"""A chassis on one machine: store server, daemon, check modules and cards, all real and all private.

The package holds the pieces that start real programs without touching the system (used by the system tests
too), and the demonstration made of them (`python3 -m demo`). Standard library only, so that it runs on a
system where nothing but Debian's own python3 is installed.
"""
