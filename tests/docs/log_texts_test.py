#!/usr/bin/env python3
"""docs/operating.md lists every message that an operator may see, with what it means and what to do.

People bind alarms to these texts and look them up at night, so the list may not fall behind the code: the daemon's
records, each below its level, the system log's lines, the platform's warnings, errors and messages on standard
error, the recorder's messages, the warnings and errors of modules made with the kit, the alarm unit's line, and the
daemon's exit statuses.
"""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs" / "operating.md").read_text(encoding="utf-8")
LITERALS = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
LEVELS = ("Fatal", "Error", "Warn", "Notice", "Info")
RECORDS = {level: re.compile(rf"APP_CG_{level.upper()}\(\s*" + LITERALS) for level in LEVELS}
DAEMON = (*RECORDS.values(), re.compile(r"printk_syslog_ext\((?:[^;\"]*\"[A-Z_]+\",)?[^;\"]*" + LITERALS),
          re.compile(r"printf\(\s*(?=\"[^\"]*FAIL\\r)" + LITERALS))
# A text that has a name of its own.
NAMED = re.compile(r"^#define (\w+)\s+(?:\\\n\s*)?((?:\"(?:[^\"\\]|\\.)*\"\s*(?:\\\n\s*)?)+)$", re.MULTILINE)
PLATFORM = (re.compile(r"(?:PLATFORM_LOG\(|LOG_TO\([^,\"]+,)\s*(?:\w+::)?log_(?:warn|error),\s*" + LITERALS),
            re.compile(r"\bfailure\(\w+,\s*" + LITERALS),
            re.compile(r"(?:tell|notify)_starter\(\s*" + LITERALS), re.compile(r"perror\(\s*" + LITERALS),
            re.compile(r"report_on_standard_error\(\s*(?=\"platform: )" + LITERALS))
# The recorder's messages are put together; what is looked for is the first long literal of each.
RECORDER = re.compile(r'(?:\blog_|\bnotice|\bFailure)\(((?:[^";]|"(?:[^"\\]|\\.)*")*);')
# Likewise the kit's, of which the part up to a semicolon is looked for.
KIT = re.compile(r'(?:\blog_?\(\s*APP_CG_KIT_(?:ERROR|WARNING),|\bretry_later\(|\bwhy = |\bruntime_error\()'
                 r'((?:[^";]|"(?:[^"\\]|\\.)*")*);')
KIT_NAME = re.compile(r'\breturn ((?:[^";]|"(?:[^"\\]|\\.)*")*);')
LONG = 12


def recorder_texts() -> set[str]:
    """The messages of the recorder, as the page shortens them."""
    found = set()
    for name in ("outbox.cpp", "recorder.cpp", "module_list.cpp", "service.cpp", "daemon_health.cpp"):
        source = (ROOT / "tools" / "recorder" / name).read_text(encoding="utf-8")
        for call in RECORDER.findall(source):
            literals = [text for text in re.findall(r'"((?:[^"\\]|\\.)*)"', call) if len(text) >= LONG]
            found |= {text.strip() for text in literals[:1]}
    follower = (ROOT / "lib" / "admission" / "follower.cpp").read_text(encoding="utf-8")
    return found | {text.strip() for text in re.findall(r'"((?:cannot|lost|the store) [^"]*)"', follower)}


def kit_texts() -> set[str]:
    """What a module made with the kit warns of, as the page shortens it."""
    found = set()
    about_names = sorted((ROOT / "lib" / "modules").glob("module_*.cpp"))
    for path in [*sorted((ROOT / "kit" / "core").glob("*.cpp")), *about_names]:
        source = path.read_text(encoding="utf-8")
        names = path in about_names or path.name == "name_lock.cpp"
        for call in KIT.findall(source) + (KIT_NAME.findall(source) if names else []):
            literals = [text.split(";")[0].strip(" :(") for text in re.findall(r'"((?:[^"\\]|\\.)*)"', call)]
            found |= set([text for text in literals if len(text) >= len("the name")][:1])
    return found - {"is not a module name"}  # which the tools say of an argument


def with_named_texts(source: str) -> str:
    """The source with the texts in the place of their names."""
    for name, text in NAMED.findall(source):
        source = re.sub(rf"(?<!#define )\b{name}\b", lambda _, text=text: text.replace("\\\n", ""), source)
    return source


def texts(folder: str, calls: tuple) -> set[str]:
    """The texts of these calls in the sources below a folder, without line breaks at their end."""
    found = set()
    for path in sorted((ROOT / folder).rglob("*")):
        if path.suffix not in {".cpp", ".h"}:
            continue
        source = with_named_texts(path.read_text(encoding="utf-8"))
        for match in (match for call in calls for match in call.finditer(source)):
            text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', match.group(1)))
            found.add(text.replace("\\r", "").replace("\\n", ""))
        # A reason that is put into a message is looked up with it.
        found |= {f"record %s left out: {reason}" for reason in re.findall(r'\bleave_out\([^;"{]*"([^"]+)"', source)}
    return found


def entries() -> dict[str, str]:
    """{heading: text} of the entries of the page."""
    parts = re.split(r"^#### (.*)$", PAGE, flags=re.MULTILINE)
    return {name: re.split(r"^#{1,3} ", text, maxsplit=1, flags=re.MULTILINE)[0]
            for name, text in zip(parts[1::2], parts[2::2])}


def texts_of(text: str) -> set[str]:
    """The texts that a part of the page lists."""
    return set(re.findall(r"^- `(.*)`$", text, re.MULTILINE))


def listed() -> set[str]:
    """The texts that the page lists."""
    return texts_of("\n".join(entries().values()))


def levels() -> dict[str, str]:
    """{level: what the page has below it}, of the daemon's records."""
    section = PAGE.split("\n## Log records\n")[1].split("\n## ")[0]
    parts = re.split(rf"^### ({'|'.join(LEVELS)})\b.*$", section, flags=re.MULTILINE)
    return {name: text.split("\n### ")[0] for name, text in zip(parts[1::2], parts[2::2])}


class LogTextsTest(unittest.TestCase):
    maxDiff = None

    def wanted(self) -> set[str]:
        daemon, platform = texts("src", DAEMON), texts("builtin", PLATFORM)
        self.assertGreaterEqual(len(daemon), 90)
        self.assertGreaterEqual(len(platform), 25)
        self.assertGreaterEqual(len(recorder_texts()), 8)
        self.assertGreaterEqual(len(kit_texts()), 20)
        return daemon | platform | recorder_texts() | kit_texts()

    def test_every_text_is_there_and_none_besides(self) -> None:
        alarm = "The admission gate app_cg is down"
        self.assertIn(alarm, (ROOT / "packaging/systemd/app_cg-alarm.service").read_text(encoding="utf-8"))
        self.assertEqual(self.wanted() | {alarm}, listed())

    def test_every_record_is_below_its_level(self) -> None:
        self.assertEqual(list(levels()), list(LEVELS))
        for level, text in levels().items():
            with self.subTest(level):
                self.assertEqual(texts("src", (RECORDS[level],)), texts_of(text))

    def test_every_entry_says_what_it_means_and_what_to_do(self) -> None:
        for name, text in entries().items():
            with self.subTest(name):
                meaning = re.sub(r"^- `.*`$", "", text.split("**Do:**")[0], flags=re.MULTILINE)
                self.assertTrue(meaning.strip(), "no meaning")
                self.assertRegex(text, r"\*\*Do:\*\* \S")

    def test_the_metrics_in_conditions_are_those_of_the_recorder(self) -> None:
        source = (ROOT / "tools" / "recorder" / "metrics.cpp").read_text(encoding="utf-8")
        conditions = PAGE.split("```promql\n")[1].split("```")[0]
        named = set(re.findall(r"\bcg_\w+", conditions)) | set(re.findall(r"\bcg_\w+_(?:total|waiting|seconds)\b", PAGE))
        self.assertGreater(len(named), 8)
        self.assertEqual(named - set(re.findall(r'"(cg_\w+)"', source)), set())

    def test_the_exit_statuses_are_those_of_the_manual_page(self) -> None:
        section = PAGE.split("## Exit statuses of the daemon")[1].split("\n## ")[0]
        here = re.findall(r"^\| (\d+|others) \|", section, re.MULTILINE)
        manual = (ROOT / "docs" / "app_cg.8").read_text(encoding="utf-8").split(".Sh EXIT STATUS")[1].split(".Sh ")[0]
        self.assertEqual(here, re.findall(r"^\.It (\w+)$", manual, re.MULTILINE))


if __name__ == "__main__":
    unittest.main(verbosity=2)
