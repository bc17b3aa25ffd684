"""Every debug command, over the real shell, by the operator's command."""
import os
import pty
import re
import subprocess

import pytest

from demo import programs
from rig import CUSTOM_STATUS, DEV_GLOBAL

NODE_HEADER = "===================CURRENT_NODE_INFO==================="
SEPARATOR = "\r\n=====================================\r\n"


def exact(rig, *command):
    """What a debug command printed, carriage returns and all."""
    with programs.start([rig.cgctl.program, "debug", *command], rig.cgctl.env, stdout=subprocess.PIPE) as process:
        out = process.communicate(timeout=20)[0]
    assert process.returncode == 0
    return out.decode()


def test_log_level(master):
    master.debug("log-level", "level=4")
    master.debug("log-level", "level=2")
    assert "set debug level 2" in master.logged(), "told at the verbosity before the change"
    assert "set debug level 4" not in master.logged()
    master.debug("log-level", "level=0")
    before = master.logged()
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.settle()
    assert master.logged() == before, "verbosity 0 silences even errors"
    master.debug("log-level", "level=-1")
    master.plug("1/4/0")
    master.expect_logged("enter devid[1] slotid[4] sslotid[0]start 1")


def test_dump_node(master):
    assert exact(master, "dump_node") == NODE_HEADER + "\n"
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    printed = exact(master, "dump_node").splitlines()
    assert printed[0] == NODE_HEADER and len(printed) == 2
    assert re.fullmatch(
        r"node\[0x00000067\] config_dev_type\[200\] devid\[1\] slotid\[3\] sslotid\[0\] is_online\[1\] "
        r"tipc_node\[1003\] node_type\[3\], dm_install\[1\] reported\[0\] reason\[\] stat\[0\] "
        r"app_cg_wait_obj_num\[2\] app_cg_wait_obj_bmp\[3\] timer\[0x[0-9a-f]+\]", printed[1])


def check_times(text):
    assert text.startswith(SEPARATOR) and text.endswith(SEPARATOR)
    labels = re.findall(r"^(.+?) (\d+):(\d+)\r$", text, re.MULTILINE)
    assert [label for label, _, _ in labels] == ["app_cg run", "init global", "ham init ok", "cg init st"]
    times = {label: int(seconds) * 1000000 + int(micros) for label, seconds, micros in labels}
    assert times["app_cg run"] <= times["init global"] <= times["cg init st"] <= times["ham init ok"]


def test_show_time(master):
    check_times(exact(master, "show_time"))


def check_modules_text(text):
    lines = text.splitlines()
    assert lines[:2] == ["app_cg_wait_obj_num 2", "app_cg_wait_obj_bmp 0x3"]
    assert {line.split(", ")[1] for line in lines[2:4]} == {"name[m1]", "name[m2]"}
    assert [line.split(",")[0] for line in lines[2:4]] == ["wait mod[0]", "wait mod[1]"]


def test_dump_check_module(master):
    text = exact(master, "dump_check_module")
    check_modules_text(text)
    assert len(text.splitlines()) == 4


def check_all(text):
    check_modules_text(text)
    modules, _, rest = text.partition(SEPARATOR)
    assert len(modules.splitlines()) == 4
    times, _, nodes = (SEPARATOR + rest).partition(NODE_HEADER)
    check_times(times)
    return nodes.splitlines()[1:]


def test_dump_all(master):
    assert check_all(exact(master, "dump_all")) == []
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    [node] = check_all(exact(master, "dump_all"))
    assert "slotid[3]" in node


def test_collect_twice_and_what_comes_after(master):
    file = master.view.data / "collect" / "app_cg.log"
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    first = master.cgctl.attempt("debug", "collect")
    assert first.returncode == 0
    assert "/data/collect/app_cg.log" in first.stdout + first.stderr, "the client is told where the output went"
    [node] = check_all(file.read_bytes().decode())
    assert "slotid[3]" in node

    # The second one writes over the first from its start; being shorter, it leaves the first one's tail.
    before = file.read_bytes()
    master.cgctl("card", "pull", "1/3/0")
    master.expect_no_request("1/3/0")
    again = master.cgctl.attempt("debug", "collect")
    assert again.returncode == 0
    after = file.read_bytes()
    assert len(after) == len(before)
    assert after.endswith(before[-40:])
    assert "/data/collect/app_cg.log" in again.stdout + again.stderr

    # From now on all output goes to the file, and nothing to what the daemon was started with.
    printed = master.daemon.printed()
    times = master.cgctl.attempt("debug", "show_time")
    assert times.returncode == 0
    assert "cg init st" not in times.stdout
    assert "/data/collect/app_cg.log" in times.stdout + times.stderr
    assert file.read_bytes() != after
    assert file.read_bytes().decode().count("cg init st") >= 2
    assert master.daemon.printed() == printed


def test_collect_where_the_file_cannot_be_opened(master):
    (master.view.data / "collect").mkdir()
    (master.view.data / "collect" / "app_cg.log").mkdir()
    text = exact(master, "collect")
    assert text.startswith("/data/collect/app_cg.log open fail\r\n")
    check_all(text.partition("\r\n")[2])
    check_times(exact(master, "show_time"))


def update_dev(rig, compa, op):
    printed = exact(rig, "update_dev", "dev=1", "slot=3", "sslotid=0", f"compa={compa}", f"op={op}")
    assert f"begin set_chk_ack, devid 1 slotid 3 sslotid 0 stat {compa} op {op}\n" in printed


def test_update_dev(master):
    # The role is read when the subscription is confirmed: not before is the command obeyed.
    master.settle()
    update_dev(master, 2, 1)
    [key] = master.keys(DEV_GLOBAL, CUSTOM_STATUS)
    status = master.database(DEV_GLOBAL).hgetall(key)
    assert (status["6"], status["7"]) == ("2", "2")
    update_dev(master, 1, 1)
    assert master.keys(DEV_GLOBAL, CUSTOM_STATUS) == []
    update_dev(master, 2, 1)
    update_dev(master, 2, 0)
    assert master.keys(DEV_GLOBAL, CUSTOM_STATUS) == []


def test_update_dev_on_a_slave_does_nothing(rig):
    rig.modules("m1")
    rig.role("slave")
    rig.start()
    rig.settle()
    update_dev(rig, 2, 1)
    assert rig.keys(DEV_GLOBAL, CUSTOM_STATUS) == []


@pytest.mark.parametrize("command", [
    ["log-level"], ["log-level", "level=high"], ["log-level", "level=1", "level=2"], ["log-level", "depth=3"],
    ["log-level", "level=99999999999"], ["show_time", "now=1"], ["update_dev", "dev=1"], ["no-such-command"]])
def test_wrong_arguments_change_nothing(master, command):
    refused = master.cgctl.attempt("debug", *command)
    assert refused.returncode != 0
    assert refused.stdout == "" and len(refused.stderr.strip().splitlines()) == 1
    assert "set debug level" not in master.logged()
    check_times(exact(master, "show_time"))


def test_without_a_command_at_a_terminal_the_commands_are_listed(master):
    """A person who types the verb alone wants to know what there is, and waits for no end of input."""
    controller, terminal = pty.openpty()
    try:
        done = subprocess.run([master.cgctl.program, "debug"], env={**os.environ, **master.cgctl.env}, stdin=terminal,
                              capture_output=True, text=True, check=False, timeout=20)
    finally:
        os.close(terminal)
        os.close(controller)
    assert done.returncode == 0, done.stderr
    assert done.stdout == master.cgctl("debug", "--list")
    assert "update_dev dev=%d" in done.stdout


def test_commands_from_a_pipe(master):
    def piped(text):
        return subprocess.run([master.cgctl.program, "debug"], env={**os.environ, **master.cgctl.env}, input=text,
                              capture_output=True, text=True, check=False, timeout=30)

    good = piped("dump_check_module\n# nothing\nshow_time\n")
    assert good.returncode == 0 and "name[m1]" in good.stdout and "app_cg run" in good.stdout
    assert re.match(rf"cgctl: app_cg, process {master.daemon.pid}, up since \d\d:\d\d:\d\d \(\d+ s\), at ", good.stderr)
    assert "\x1b" not in good.stdout
    bad = piped("no-such\ndump_check_module\n")
    assert bad.returncode == 1 and "name[m1]" in bad.stdout and "no-such" in bad.stderr
