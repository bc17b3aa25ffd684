"""cgctl doctor on a device whose databases are on two servers, with access lists: one fault, one finding, and its fix."""
import json

import pytest

from access_lists import ADMINISTRATOR, AccessLists
from rig import CAP, DEV_GLOBAL, HOST

MODULE = "module-m1"


class Installation:
    """The device with the daemon and the check module m1 connected; nothing is wrong with it."""

    def __init__(self, rig):
        self.rig = rig
        rig.apart()
        rig.modules("m1")
        self.lists = AccessLists(rig)
        rig.cgctl.env["VX_MOM_DEADLINE_MS"] = "3000"
        for number in (HOST, CAP):
            self.lists.administrator(number).config_set("save", "3600 1")
        rig.cgctl("role", "master")
        rig.start(**self.lists.of_daemon())
        self._module = None
        self.connect_module()

    def connect_module(self):
        """Connects the module, as its user."""
        self._module = self.lists.connect(HOST, MODULE)
        self._module.ping()

    def complaints(self):
        """The findings that are neither ok nor skipped with nothing to do."""
        done = self.rig.cgctl.attempt("doctor", "--json", "--modules", self.rig.view.modules, seconds=60)
        assert done.stderr == ""
        found = [check for check in json.loads(done.stdout)
                 if check["fix"] or check["state"] not in ("ok", "skipped")]
        assert done.returncode == (1 if found else 0)
        return found

    def only_complaint(self):
        """The one finding that there is."""
        found = self.complaints()
        assert len(found) == 1, found
        return found[0]

    def restart(self, server, number):
        """Starts a server that was killed after SAVE, with the users that its list has."""
        server.start()
        self.lists.give_again(number)
        self.lists.administrator(number).config_set("save", "3600 1")


@pytest.fixture
def installation(rig):
    """See above."""
    made = Installation(rig)
    rig.expect(lambda: made.complaints() == [], "nothing is wrong with it")
    return made


def kill_saved(installation, server, number):
    """Ends a server; its data are there at its next start."""
    assert installation.lists.administrator(number).save()
    server.kill()


@pytest.mark.parametrize("where", ["host", "group"])
def test_a_server_that_is_down_is_the_one_fault(installation, where):
    rig = installation.rig
    server, number = (rig.store, HOST) if where == "host" else (rig.global_store, CAP)
    kill_saved(installation, server, number)
    fault = installation.only_complaint()
    assert (fault["name"], fault["state"]) == ("store", "fail")
    assert fault["server"] == server.endpoint and fault["databases"] == ([HOST] if where == "host" else [CAP, DEV_GLOBAL])
    assert "`systemctl start redis-server`" in fault["fix"]
    settings = "VX_MOM_ENDPOINT" if where == "host" else "VX_MOM_ENDPOINT_28 and VX_MOM_ENDPOINT_33"
    assert f"or set {settings} to where it is" in fault["fix"]
    installation.restart(server, number)
    if where == "host":
        installation.connect_module()
    rig.expect(lambda: installation.complaints() == [], "nothing is wrong any more")
    assert rig.daemon.is_running


def test_a_daemon_that_does_not_start_without_the_group_is_no_fault_of_its_own(installation):
    rig = installation.rig
    rig.daemon.stop()
    kill_saved(installation, rig.global_store, CAP)
    daemon = rig.new_daemon(VX_MOM_DEADLINE_MS="300", **installation.lists.of_daemon()).start()
    assert daemon.wait() == 146
    fault = installation.only_complaint()
    assert fault["name"] == "store" and fault["server"] == rig.global_store.endpoint
    installation.restart(rig.global_store, CAP)
    rig.cgctl("list")  # registers the server's run, as the daemon would
    assert installation.only_complaint()["name"] == "daemon", "now it could, and does not"
    rig.start(**installation.lists.of_daemon())
    rig.expect(lambda: installation.complaints() == [], "nothing is wrong any more")


def test_a_wrong_credential_is_the_one_fault(installation):
    rig = installation.rig
    wrong = rig.folder / "wrong"
    wrong.touch(mode=0o600)
    wrong.write_text(f"user {ADMINISTRATOR}\npassword wrong\n")
    rig.cgctl.env["VX_MOM_AUTH_FILE_33"] = str(wrong)
    fault = installation.only_complaint()
    assert fault["name"] == "store" and fault["server"] == rig.global_store.endpoint
    assert "WRONGPASS" in fault["found"]
    assert f"into {wrong} (VX_MOM_AUTH_FILE_33)" in fault["fix"]
    wrong.write_text(installation.lists.file(DEV_GLOBAL, ADMINISTRATOR).read_text())
    assert installation.complaints() == []
