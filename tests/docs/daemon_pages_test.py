"""What the pages say of the daemon and its source shows: who writes and deletes each record, which calls are repeated,
and the debug commands.

The source is read as text, so it is enough to have it: a function ends with a brace in the first column, and a record
that is written or deleted is named by the call.
"""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
CHANGE = re.compile(r"\b(?:vx_mom|store)_(set_sync|set|hmset|pdel|del)\(([^;]*?)&(\w+)\.base")
NOT_MASTER = "!= P_DEV__DM_ROLE_E__DM_ROLE_MASTER"


def read(name):
    """The text of a file of the project."""
    return (ROOT / name).read_text(encoding="utf-8")


def functions():
    """The daemon's functions, as text."""
    sources = [path.read_text(encoding="utf-8") for path in sorted((ROOT / "src").rglob("*.cpp"))]
    return [text for source in sources for text in source.split("\n}\n")]


def record_type(initialiser):
    """The name of a record type by its macro: P_DEV__CARD_INFO is p_dev.card_info."""
    package, name = initialiser.lower().split("__")
    return f"{package}.{name}"


def changes_in(function, databases):
    """(type, database, "Written by" or "Deleted by", "any" or "master") of what a function writes and deletes."""
    records = dict(re.findall(r"\b(\w+) = ([A-Z_]+)__INIT;", function))
    for operation, arguments, record in CHANGE.findall(function):
        database = databases[re.search(r"\bAPP_CG_DB_\w+", arguments).group()]
        deletes = operation in ("del", "pdel")
        yield (record_type(records[record]), database, "Deleted by" if deletes else "Written by",
               "master" if NOT_MASTER in function else "any")


def platform_functions():
    """What the headers of the platform declare."""
    headers = "\n".join(path.read_text(encoding="utf-8") for path in (ROOT / "platform").glob("*.h"))
    return set(re.findall(r"^(?!typedef|#)[a-z][\w ]*[ *](\w+)\(", headers, re.MULTILINE))


def calls(text):
    """The names that are called in a piece of source, or in code on a page."""
    return set(re.findall(r"\b(\w+)\(", text))


def section(page, heading):
    """The paragraph of a page that begins with this in bold."""
    return page.split(f"**{heading}")[1].split("\n\n")[0]


class RecordsTest(unittest.TestCase):
    maxDiff = None

    def test_who_writes_and_deletes_which(self):
        numbers = {name: int(number) for name, number in
                   re.findall(r"int32_t (APP_CG_DB_\w+) = (\d+);", read("src/app_cg/app_cg.h"))}
        does = {change for function in functions() for change in changes_in(function, numbers)}
        self.assertGreater(len(does), 10)
        said = set()
        table = read("docs/store-format.md").split("| Type | Database | Written by | Deleted by |\n")[1].split("\n\n")[0]
        rows = re.findall(r"^\| `(.*)` \| (\d+) \| (.*?) ?\| (.*?) ?\|$", table, re.MULTILINE)
        for name, database, writers, deleters in rows:
            for column, cell in (("Written by", writers), ("Deleted by", deleters)):
                said |= {(name, int(database), column, who) for who in re.findall(r"\b(?:any|master)\b", cell)}
        self.assertEqual(does, said)

    def test_a_function_that_asks_for_the_role_is_seen(self):
        function = f"""
            PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
            if (role {NOT_MASTER}) {{ return; }}
            vx_mom_hmset(global, APP_CG_DB_HOST,
                         &card.base, 0);"""
        self.assertEqual(list(changes_in(function, {"APP_CG_DB_HOST": 1})),
                         [("p_dev.card_info", 1, "Written by", "master")])


class PortingTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.page = read("docs/porting.md")

    def test_the_number_of_functions(self):
        used = calls("".join(functions())) & platform_functions()
        used |= calls(read("src/app_cg_dbg/logging.h")) & platform_functions()
        self.assertEqual(re.findall(r"calls (\d+) C functions", self.page), [str(len(used))])
        # The daemon brings the one about keys along.
        self.assertEqual(platform_functions() - used, {"vx_mom_key_attribute"})

    def test_the_calls_that_are_repeated(self):
        repeated = set()
        for call in re.findall(r"APP_CG_CHECK_RETURN\(\s*(\w+)\(", "".join(functions())):
            begin = re.compile(rf"^\w[\w ]* {call}\([^;]*\)\n{{", re.MULTILINE)
            bodies = [text for text in functions() if begin.search(text)]
            repeated |= ({call} | calls("".join(bodies))) & platform_functions()
        self.assertGreater(len(repeated), 3)
        self.assertEqual(repeated, calls(section(self.page, "Repeated calls.")))


class CommandsTest(unittest.TestCase):
    def test_of_the_debug_shell_are_those_of_the_manual_page(self):
        table = re.findall(r'\{"([\w-]+)", "(.*?)", handler_of', read("src/app_cg_dbg/debug_commands.cpp"))
        offered = {name if arguments == "void" else f"{name} {arguments.replace('%d', 'N')}" for name, arguments in table}
        page = read("docs/app_cg.8").split(".Sh DEBUG COMMANDS")[1].split(".Sh ")[0]
        self.assertEqual(offered, set(re.findall(r"^\.It Cm (.*)$", page, re.MULTILINE)))
        self.assertGreater(len(offered), 5)


if __name__ == "__main__":
    unittest.main(verbosity=2)
