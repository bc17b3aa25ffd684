"""A check module in another language, the one of kit/examples, beside others and through all that can happen."""
import os
import random
import re
import signal
import subprocess
import sys
import threading

import pytest

from demo import programs
from rig import ACK, DENY, HOST, PASS, PROJECT, REQUEST

sys.path.insert(0, str(PROJECT / "tests" / "faults"))
sys.path.insert(0, str(PROJECT / "kit" / "examples" / "python"))
from connection import Lost  # noqa: E402  (needs the paths above)
from sentinel_group import Group, client  # noqa: E402
from settings import Credentials, parse_endpoint, setting  # noqa: E402
from store import Store, Watch  # noqa: E402

EXAMPLE = PROJECT / "kit" / "examples" / "python" / "card_table.py"
NAME = "types"


class Module:
    """The example as a process of its own."""

    def __init__(self, rig, table, name=NAME, **env):
        self._log = rig.folder / f"{name}.err"
        self.command = ["/usr/bin/python3", EXAMPLE, name, table]
        self._env = {"VX_MOM_ENDPOINT": rig.store.endpoint, "PYTHONDONTWRITEBYTECODE": "1",
                     "VX_PLATFORM_CONF": str(rig.folder / "none"), **env}
        self._process = None

    def start(self):
        """Starts it and returns when it watches."""
        before = self.count("watching")
        self.begin()
        programs.wait_until(lambda: self.count("watching") > before, 20, f"the module watches: {self.logged()}")
        return self

    def begin(self):
        """Starts it."""
        with open(self._log, "ab") as log:
            self._process = programs.start(self.command, self._env, stderr=log)
        return self

    def logged(self):
        """What it wrote to standard error."""
        return self._log.read_text() if self._log.exists() else ""

    def count(self, text):
        """How often its log says this."""
        return self.logged().count(text)

    def stop(self):
        """Ends it as a service manager does; returns the exit status."""
        self._process.send_signal(signal.SIGTERM)
        return self._process.wait(20)

    def end(self, signum=signal.SIGKILL):
        """Ends it by force."""
        if self._process is not None and self._process.poll() is None:
            os.kill(self._process.pid, signum)
            self._process.wait()

    def freeze(self):
        """Lets it stand still; thaw() ends that."""
        os.kill(self._process.pid, signal.SIGSTOP)

    def thaw(self):
        """See freeze()."""
        os.kill(self._process.pid, signal.SIGCONT)


@pytest.fixture
def table(rig):
    """The table of card types; a test writes it."""
    path = rig.folder / "table.json"
    path.write_text("{}")
    return path


@pytest.fixture
def module(rig, table):
    """Makes modules; all are ended after the test."""
    made = []

    def make(name=NAME, **env):
        made.append(Module(rig, table, name, **env))
        return made[-1]

    yield make
    for one in made:
        one.end()


def expect_verdict(rig, position, verdict):
    rig.expect_no_request(position)
    rig.expect(lambda: rig.by_position(position), f"a verdict for {position}")
    assert rig.by_position(position).get("6", "0") == verdict


def write_request(rig, slot):
    """Asks for a card to be examined as the daemon does."""
    rig.cgctl("set", REQUEST, "t_mod=0", "devid=1", f"slotid={slot}", "sslotid=0", "type=200", "node_type=3",
              f"card_nodeid={100 + slot}")


def answers_of(rig, name=NAME):
    """How many answers of the module the daemon has taken for passes and denials."""
    return rig.logged().count(f"is passed by[{name}]"), rig.logged().count(f"is denied by[{name}]")


def kill_clients(rig):
    for kind in (b"normal", b"pubsub"):
        rig.store.ask(b"CLIENT KILL TYPE " + kind + b" SKIPME yes\r\n")


def test_two_cards_at_once_pass_beside_modules_in_another_language(rig, module, runner):
    rig.start_master(NAME, "cpp")
    module().start()
    runner("cpp", "true")
    rig.plug("1/3/0")
    rig.plug("1/4/0")
    for position in ("1/3/0", "1/4/0"):
        expect_verdict(rig, position, PASS)
    rig.settle()
    assert answers_of(rig) == (2, 0)
    assert answers_of(rig, "cpp") == (2, 0)
    assert rig.keys(HOST, ACK) == []


def test_one_of_two_cards_is_denied_with_a_reason(rig, module, runner, table):
    table.write_text('{"200": {"verdict": "deny", "reason": "zu heiß 熱\\nslot 1/9 is fine: {card} {type}"}}')
    rig.start_master(NAME, "cpp")
    module().start()
    runner("cpp", "true")
    rig.plug("1/3/0")
    rig.cgctl("card", "plug", "1/4/0", "--type", 201, "--node-type", "lc", "--nodeid", 104, "--tipc", 1004)
    expect_verdict(rig, "1/3/0", DENY)
    expect_verdict(rig, "1/4/0", PASS)
    rig.expect(lambda: len(rig.system_log.lines()) >= 2, "two system-log lines")
    first = rig.system_log.lines()[0][1]
    assert "zu heiß 熱" in first and first.endswith("slot 1/9 is fine: card-3 lc."), first
    assert len(rig.system_log.lines()) == 2 and first.isprintable()


def test_a_verdict_may_take_its_time(rig, module, table):
    table.write_text('{"200": {"verdict": "pass", "after_s": 3600}}')
    rig.start_master(NAME)
    one = module().start()
    rig.plug("1/3/0")
    rig.cgctl("card", "plug", "1/4/0", "--type", 201, "--node-type", "lc", "--nodeid", 104, "--tipc", 1004)
    expect_verdict(rig, "1/4/0", PASS)
    assert rig.request("1/3/0") and not rig.by_tipc(3), "the others are not held up by one that waits"
    table.write_text('{"200": {"verdict": "pass", "after_s": 0.1}}')
    write_request(rig, 3)  # written again: asked again
    expect_verdict(rig, "1/3/0", PASS)
    assert one.stop() == 0


def test_a_check_that_cannot_be_made_is_made_later(rig, module, table):
    table.write_text('{"200": {"verdict": "perhaps"}}')
    rig.start_master(NAME)
    one = module().start()
    rig.plug("1/3/0")
    rig.expect(lambda: one.count("is not examined yet"), "the module says so")
    assert rig.request("1/3/0")
    table.write_text("{}")
    expect_verdict(rig, "1/3/0", PASS)


def test_killed_connections_between_request_and_answer(rig, module, runner, table):
    table.write_text('{"200": {"verdict": "deny", "reason": "wait", "after_s": 3600}}')
    rig.start_master(NAME, "cpp")
    one = module().start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    for _ in range(3):
        before = one.count("watching")
        kill_clients(rig)
        rig.expect(lambda before=before: one.count("watching") > before, "the module watches again")
    rig.settle()
    assert answers_of(rig) == (0, 0), "the answer is still kept back"
    table.write_text('{"200": {"verdict": "deny", "reason": "now"}}')
    write_request(rig, 3)
    expect_verdict(rig, "1/3/0", DENY)
    rig.settle()
    assert answers_of(rig) == (0, 1), "one answer for each request, connections or not"


def test_what_happened_while_it_was_deaf_is_found(rig, module, runner):
    """Plugged, pulled and plugged while its connections are gone and it stands still."""
    rig.start_master(NAME)
    one = module().start()
    one.freeze()
    kill_clients(rig)
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
    rig.cgctl("card", "pull", "1/4/0")
    rig.expect_no_request("1/4/0")
    one.thaw()
    expect_verdict(rig, "1/3/0", PASS)
    rig.settle()
    assert answers_of(rig) == (1, 0)
    assert rig.keys(HOST, ACK) == []


def test_an_answer_that_was_given_is_not_given_again(rig, module, runner):
    """A second module keeps the request open, so a repeated answer would be seen."""
    rig.start_master(NAME, "cpp")
    one = module().start()
    rig.plug("1/3/0")
    rig.expect_logged(f"is passed by[{NAME}]")
    rig.store.ask(b"SAVE\r\n")
    before = one.count("watching")
    rig.store.stop()
    rig.store.start()
    rig.expect(lambda: one.count("watching") > before, "the module watches again")
    rig.expect(lambda: "module: num[" in rig.logged(), "the daemon is back")
    before = one.count("watching")
    kill_clients(rig)
    rig.expect(lambda: one.count("watching") > before, "the module watches again")
    runner("cpp", "true")
    expect_verdict(rig, "1/3/0", PASS)
    rig.settle()
    assert answers_of(rig) == (1, 0)


def test_a_store_that_came_back_with_its_data_while_an_answer_was_due(rig, module, table):
    table.write_text('{"200": {"verdict": "perhaps"}}')
    rig.start_master(NAME)
    one = module().start()
    rig.plug("1/3/0")
    rig.expect(lambda: one.count("is not examined yet"), "the module has the request")
    rig.store.ask(b"SAVE\r\n")
    rig.store.kill()
    rig.expect(lambda: one.count("Error") + one.count("onnection"), "the module notices")
    table.write_text('{"200": {"verdict": "deny", "reason": "after all"}}')
    rig.store.start()
    expect_verdict(rig, "1/3/0", DENY)
    rig.settle()
    assert answers_of(rig) == (0, 1)


@pytest.mark.parametrize("made_up_for", [False, True])
def test_a_store_that_lost_the_answer_gets_it_again(rig, module, made_up_for):
    """The copy from which it comes back holds the request and not the answer; without a daemon both stand still.

    Where others have written as much meanwhile, the revisions alone would not tell.
    """
    write_request(rig, 3)
    one = module().start()
    rig.expect(lambda: one.count("1/3/0 PASS"), "the module knows that it has answered")
    answers = rig.keys(HOST, ACK)
    one.freeze()
    rig.database(HOST).delete(*answers, f"@idx:{ACK}", f"@rev:{ACK}")
    rig.store.ask(b"SAVE\r\n")
    rig.store.kill()
    rig.store.start()
    if made_up_for:
        for slot in (7, 8, 9):
            rig.answer(f"1/{slot}/0", "another")
    one.thaw()
    rig.expect(lambda: set(answers) <= set(rig.keys(HOST, ACK)), "the answer again")
    rig.expect(lambda: one.count("1/3/0 PASS") == 2, "the module knows that it has answered again")
    assert one.stop() == 0


def test_a_request_that_is_gone_without_a_word_is_not_answered(rig, module, table):
    table.write_text('{"200": {"verdict": "perhaps"}}')
    write_request(rig, 3)
    one = module().start()
    rig.expect(lambda: one.count("is not examined yet"), "the module has the request")
    rig.database(HOST).delete(f"{REQUEST}:0:1:3:0")  # past the functions: nothing is published
    table.write_text("{}")
    rig.expect(lambda: one.count("the request is gone"), "the module finds out")
    assert rig.keys(HOST, ACK) == []


def test_a_store_that_comes_back_empty_is_no_end(rig, module):
    rig.start_master(NAME)
    one = module().start()
    rig.plug("1/3/0")
    expect_verdict(rig, "1/3/0", PASS)
    rig.store.kill()
    rig.store.start()
    assert rig.daemon.wait() == 77
    rig.role("master")
    rig.start()
    rig.plug("1/3/0")
    expect_verdict(rig, "1/3/0", PASS)
    assert one.stop() == 0


def test_a_request_that_is_written_again_is_answered_again(rig, module, runner):
    rig.start_master(NAME, "cpp")
    one = module().start()
    rig.plug("1/3/0")
    rig.expect_logged(f"is passed by[{NAME}]")
    write_request(rig, 3)
    rig.expect_logged(f"is passed by[{NAME}]", times=2)
    rig.settle()
    assert answers_of(rig) == (2, 0)
    runner("cpp", "true")
    expect_verdict(rig, "1/3/0", PASS)
    assert one.stop() == 0


def test_a_module_that_was_away_answers_what_is_open(rig, module, table):
    table.write_text('{"200": {"verdict": "deny", "reason": "x", "after_s": 3600}}')
    rig.start_master(NAME)
    one = module().start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    assert one.stop() == 0, one.logged()
    table.write_text("{}")
    module().start()
    expect_verdict(rig, "1/3/0", PASS)


def test_a_malformed_request_harms_nobody(rig, module):
    rig.start_master(NAME)
    module().start()
    store = rig.database(HOST)
    for key, fields in ((f"{REQUEST}:x:1:9:0", {"6": "1"}), (f"{REQUEST}:0:1:8:0", {"6": "many", "rev": "1"}),
                        (f"{REQUEST}:0:1:7:0", {"rev": "none"})):
        store.hset(key, mapping=fields)
        store.sadd(f"@idx:{REQUEST}", key)
    store.set(f"{REQUEST}:0:1:6:0", "a text")
    store.sadd(f"@idx:{REQUEST}", f"{REQUEST}:0:1:6:0")
    store.publish(f"@chg:1:{REQUEST}:0:1:5:0", "nonsense")
    kill_clients(rig)
    rig.plug("1/3/0")
    expect_verdict(rig, "1/3/0", PASS)


def test_it_follows_a_group_to_its_new_master(rig, module):
    with Group(rig.folder / "group") as group:
        rig.cgctl.env["VX_MOM_ENDPOINT"] = group.endpoint
        store = group.follow(HOST)
        write_request(rig, 3)
        one = module(VX_MOM_ENDPOINT=group.endpoint).start()
        rig.expect(lambda: one.count("1/3/0 PASS"), "the answer")
        rig.expect(lambda: all(client(replica, db=HOST).exists(f"{ACK}:1:3:0:{NAME}") for replica in group.replicas),
                   "the replicas have the answer")
        group.master.kill()
        rig.expect(lambda: one.count("watching") >= 2, "the module watches the new master", seconds=60)
        rig.expect(group.agrees, "the sentinels agree on the new master", seconds=60)
        write_request(rig, 4)
        rig.expect(lambda: one.count("1/4/0 PASS"), "the answer to the new master")
        assert store.exists(f"{ACK}:1:4:0:{NAME}")
        assert one.count("1/3/0 PASS") == 1, "nothing was lost, so nothing is answered again"
        assert one.stop() == 0


def test_of_several_servers_it_uses_that_of_database_1(rig, module):
    rig.start_master(NAME)
    one = module(VX_MOM_ENDPOINT="unix:/nowhere", VX_MOM_ENDPOINT_28="unix:/nowhere",
                 VX_MOM_ENDPOINT_1=rig.store.endpoint).start()
    rig.plug("1/3/0")
    expect_verdict(rig, "1/3/0", PASS)
    assert one.stop() == 0


@pytest.mark.parametrize("name", [NAME, "a b:é*"])
def test_it_needs_no_more_rights_than_a_module_has(rig, module, table, name):
    table.write_text('{"200": {"verdict": "deny", "reason": "{card}"}}')
    rig.start_master(name)
    secrets = rig.folder / "secrets"
    secrets.mkdir(mode=0o700)
    lines = rig.cgctl("acl", "--modules", rig.view.modules, "--secrets", secrets, "--create").splitlines()
    [line] = [line for line in lines if line.startswith("user module-")]
    user = line.split()[1]
    rig.database(0).execute_command("ACL", "SETUSER", *line.split()[1:])
    one = module(name, VX_MOM_AUTH_FILE=str(secrets / user)).start()
    rig.plug("1/3/0")
    expect_verdict(rig, "1/3/0", DENY)
    assert {client["user"] for client in rig.database(0).client_list() if client["db"] == "1"} == {"default", user}
    kill_clients(rig)
    rig.expect(lambda: one.count("watching") >= 2, "the module watches again")
    rig.cgctl("card", "plug", "1/4/0", "--type", 201, "--node-type", "lc", "--nodeid", 104, "--tipc", 1004)
    expect_verdict(rig, "1/4/0", PASS)
    assert one.stop() == 0
    assert rig.database(0).execute_command("ACL", "LOG") == [], "it tried nothing that it may not do"


def test_a_module_without_rights_says_so_and_waits_for_them(rig, module):
    rig.start_master(NAME)
    store = rig.database(0)
    store.execute_command("ACL", "SETUSER", "poor", "on", ">secret", "+select", "+client|setname")
    auth = rig.folder / "auth"
    auth.write_text("user poor\npassword secret\n")
    auth.chmod(0o600)
    one = module(VX_MOM_AUTH_FILE=str(auth)).begin()
    rig.plug("1/3/0")
    rig.expect(lambda: one.count("WARNING"), "it says so")
    assert "secret" not in one.logged()
    store.execute_command("ACL", "SETUSER", "poor", "+@all", "~*", "&*")
    expect_verdict(rig, "1/3/0", PASS)


def test_a_change_that_was_not_heard_is_found_by_the_next_one(rig, module):
    write_request(rig, 3)
    one = module().start()
    rig.expect(lambda: one.count("1/3/0 PASS"), "the answer")
    store, key = rig.database(HOST), f"{REQUEST}:0:1:4:0"
    store.hset(key, mapping={"6": "200", "rev": store.incr(f"@rev:{REQUEST}")})  # nothing is published
    store.sadd(f"@idx:{REQUEST}", key)
    write_request(rig, 5)
    rig.expect(lambda: one.count("1/4/0 PASS") and one.count("1/5/0 PASS"), "both answers")
    assert one.count("is missing") == 1 and one.count("1/3/0 PASS") == 1


class Writer(threading.Thread):
    """Changes requests at random, beside the watcher, whom it cuts off now and then."""

    def __init__(self, store, seed, changes):
        super().__init__(daemon=True)
        self._store, self._random, self._changes = store, random.Random(seed), changes
        self.is_done = False

    def run(self):
        """All the changes; a thread that failed is never done."""
        for number in range(self._changes):
            self._change(number)
            if self._random.random() < 0.01:
                self._cut()
        self.is_done = True

    def _cut(self):
        for client in self._store.client_list():
            if client["name"] == "watcher" and self._random.random() < 0.7:
                self._store.client_kill_filter(_id=client["id"])

    def _change(self, number):
        key = f"{REQUEST}:0:1:{self._random.randrange(300)}:0"
        names = [f"@rev:{REQUEST}", f"@idx:{REQUEST}"]
        kind = self._random.choices(["set", "hmset", "del", "pdel"], [60, 30, 20, 1])[0]
        more = {"set": ["", "6", number], "hmset": ["", "2", "7", number, "6"], "del": [],
                "pdel": [f"{REQUEST}:0:"]}[kind]
        keys = names if kind == "pdel" else [key, *names]
        self._store.execute_command("FCALL", f"vx_mom2_{kind}", len(keys), *keys, "@chg:1:", *more)


@pytest.mark.parametrize("seed", range(3))
def test_what_it_believes_is_what_there_is(rig, seed):
    """Under random changes and cut connections."""
    write_request(rig, 3)  # brings the functions
    writer = Writer(rig.database(HOST), seed, 10000)
    store = Store(parse_endpoint(rig.store.endpoint), Credentials(), HOST, "watcher")
    watch, belief, returns, highest = Watch(store, REQUEST), {}, 0, {}
    connected = False
    writer.start()
    while writer.is_alive() or not connected:
        try:
            if not connected:
                assert store.connect(), "it is the same data all the time"
                watch.synchronise(False)
                connected, returns = True, returns + 1
            watch.listen(0.01)
        except Lost:
            store.close()
            connected = False
        take_over(watch, belief, highest)
    assert writer.is_done
    assert watch_settled(rig, watch, belief, highest), f"seed {seed}"
    store.close()
    assert returns > 1, f"seed {seed}"


def take_over(watch, belief, highest):
    """Believes what the watch tells; it must never go back."""
    while watch.changes:
        change = watch.changes.popleft()
        if change.is_deleted:
            assert belief.pop(change.key, None) is not None, "only what was known is deleted"
        else:
            assert change.revision > highest.get(change.key, 0)
            highest[change.key] = change.revision
            belief[change.key] = change.fields


def watch_settled(rig, watch, belief, highest):
    """Whether belief and store are the same in the end."""
    def same():
        watch.listen(0)
        take_over(watch, belief, highest)
        return {key.decode(): {name.decode(): value.decode() for name, value in fields.items()}
                for key, fields in belief.items()} == \
            {key: {name: value for name, value in rig.database(HOST).hgetall(key).items() if name not in ("rev", "by")}
             for key in rig.keys(HOST, REQUEST)}
    rig.expect(same, "belief and store are the same")
    return same()


def test_the_module_that_the_page_shows(rig, module, tmp_path):
    """kit/examples/README.md: the code as it stands there."""
    page = (EXAMPLE.parents[1] / "README.md").read_text()
    [code] = re.findall(r"^```python\n(.*?)^```", page, re.DOTALL | re.MULTILINE)
    program = tmp_path / "own.py"
    program.write_text(code)
    rig.start_master("own")
    one = module("own", PYTHONPATH=str(EXAMPLE.parent))
    one.command = ["/usr/bin/python3", program, "own"]
    one.start()
    for slot, card_type in ((3, 299), (4, 300)):
        rig.cgctl("card", "plug", f"1/{slot}/0", "--type", card_type, "--node-type", "lc", "--nodeid", 100 + slot,
                  "--tipc", 1000 + slot)
    expect_verdict(rig, "1/3/0", PASS)
    expect_verdict(rig, "1/4/0", DENY)
    rig.expect(lambda: rig.system_log.lines(), "a system-log line")
    assert rig.system_log.lines()[0][1].endswith("types from 300 on are not supported here.")


def complete(*args, **env):
    """Runs the example to its end."""
    return subprocess.run(["/usr/bin/python3", EXAMPLE, *args], capture_output=True, text=True, timeout=60, check=False,
                          stdin=subprocess.DEVNULL,
                          env={**os.environ, "VX_PLATFORM_CONF": "/nonexistent", "PYTHONDONTWRITEBYTECODE": "1", **env})


def test_help(table):
    done = complete("--help")
    assert done.returncode == 0 and "VX_MOM_ENDPOINT" in done.stdout and "15 bytes" in done.stdout


@pytest.mark.parametrize("name, endpoint, text", [
    ("sixteen-letters-", "unix:/x", "15 bytes"),
    ("füffzehn-zeiche", "unix:/x", "15 bytes"),  # 15 characters, 16 bytes
    ("", "unix:/x", "15 bytes"),
    (NAME, "udp:host:1", "tcp:host:port"),
    (NAME, "tcp:host", "tcp:host:port"),
    (NAME, "unix:relative", "unix:/path"),
    (NAME, "sentinel:@host:1", "sentinel:NAME"),
    (NAME, "sentinel:g@host:1,other", "'other' is no host:port"),
])
def test_wrong_usage_is_one_line(table, name, endpoint, text):
    done = complete(name, str(table), VX_MOM_ENDPOINT=endpoint)
    assert done.returncode == 2
    [line] = done.stderr.splitlines()
    assert text in line


@pytest.mark.parametrize("environment, file, value", [
    ({"VX_A": "all", "VX_A_1": "one"}, "", "one"),
    ({"VX_A": "all", "VX_A_1": ""}, "", "all"),
    ({"VX_A": "all"}, "VX_A_1=one\n", "all"),  # what somebody sets for one program holds, whatever the file has
    ({}, "VX_A=all\nVX_A_1=one\n", "one"),
    ({"VX_A_28": "another"}, "VX_A=all\n", "all"),
    ({"VX_A_28": "another"}, "VX_A_28=another\n", "neither"),
])
def test_a_setting_may_be_given_for_a_database(tmp_path, monkeypatch, environment, file, value):
    (tmp_path / "settings").write_text(file)
    for name, text in {**environment, "VX_PLATFORM_CONF": str(tmp_path / "settings")}.items():
        monkeypatch.setenv(name, text)
    assert setting("VX_A", "neither", 1) == value


@pytest.mark.parametrize("content, mode, text", [
    ("password s3cret\n", 0o604, "0600"),
    ("secret s3cret\n", 0o600, "line 1"),
    ("user somebody\n", 0o600, "no password"),
])
def test_a_file_of_credentials_that_is_no_good_is_refused(table, content, mode, text):
    path = table.parent / "auth"
    path.write_text(content)
    path.chmod(mode)
    done = complete(NAME, str(table), VX_MOM_ENDPOINT="unix:/x", VX_MOM_AUTH_FILE=str(path))
    assert done.returncode == 2
    [line] = done.stderr.splitlines()
    assert text in line and "s3cret" not in line


def test_without_a_store_it_waits_and_says_why(rig, module):
    rig.store.kill()
    one = module().begin()
    rig.expect(lambda: one.count("WARNING"), "it says so")
    assert one.stop() == 0
    assert one.count("\n") == 1, one.logged()
