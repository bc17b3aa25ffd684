"""cgctl doctor on a whole installation with the real daemon: well, and with the daemon gone, frozen or deaf."""
import json
import os
import re
import signal
import socket
import subprocess
import threading

import pytest
import redis

from rig import BUILD, HOST, PASS

ADMINISTRATOR, DAEMON, MODULE = "app_cg-admin", "app_cg", "module-m1"


class Installation:
    """A device whose store knows users and saves its data, with the daemon, and the check module m1 connected."""

    def __init__(self, rig):
        self.rig = rig
        self.secrets = rig.view.store / "secrets"  # /store/secrets to the daemon
        self.secrets.mkdir(mode=0o700)
        rig.modules("m1")
        lines = rig.cgctl("acl", "--modules", rig.view.modules, "--secrets", self.secrets, "--create").splitlines()
        self._before = rig.database(0)
        for line in lines:
            if not line.startswith("user default "):
                self._before.execute_command("ACL", "SETUSER", *line.split()[1:])
        rig.cgctl.env.update(VX_MOM_AUTH_FILE=str(self.secrets / ADMINISTRATOR), VX_MOM_DEADLINE_MS="3000")
        self.administrator = self.connect(ADMINISTRATOR)
        self.administrator.config_set("save", "3600 1")
        self.administrator.execute_command("ACL", "SETUSER", "default", "off")
        rig.cgctl("role", "master")
        self.start_daemon()
        self._module = self.connect(MODULE)
        self._module.ping()

    def connect(self, user, **more):
        """A connection to the store as one of its users."""
        lines = dict(line.split(" ", 1) for line in (self.secrets / user).read_text().splitlines())
        return redis.Redis(unix_socket_path=str(self.rig.store.socket_path), db=HOST, username=lines["user"],
                           password=lines["password"], **{"decode_responses": True, **more})

    def start_daemon(self):
        """Starts the daemon as its user, and waits until it listens to cards and answers."""
        self.rig.start(VX_MOM_AUTH_FILE=f"/store/secrets/{DAEMON}")
        self.rig.expect(lambda: self.subscriptions() == (1, 2), "the daemon's subscriptions")

    def subscriptions(self):
        """How many channels and patterns the daemon listens to in database 1."""
        own = [client for client in self.administrator.client_list()
               if client["name"] == "app_cg" and client["db"] == "1"]
        return sum(int(client["sub"]) for client in own), sum(int(client["psub"]) for client in own)

    def examine(self, *more):
        """Runs the doctor; returns its exit status, and what it says by check."""
        done = self.rig.cgctl.attempt("doctor", "--json", "--modules", self.rig.view.modules, *more, seconds=60)
        assert done.stderr == ""
        return done.returncode, {check["name"]: check for check in json.loads(done.stdout)}

    def complaints(self):
        """The checks that do not find all well."""
        return {name: check for name, check in self.examine()[1].items() if check["state"] != "ok"}

    def carry_out(self, check):
        """Carries out the first command of a fix, with our programs in the path."""
        command = re.search("`([^`]*)`", check["fix"])[1]
        subprocess.run(command, shell=True, check=True, timeout=20, stdout=subprocess.DEVNULL,
                       env={**os.environ, **self.rig.cgctl.env, "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}"})


@pytest.fixture
def installation(rig):
    """See above."""
    return Installation(rig)


def test_a_whole_installation_is_well(installation):
    status, checks = installation.examine()
    assert {name: check for name, check in checks.items() if check["state"] != "ok"} == {}
    assert status == 0


def test_it_is_well_while_cards_are_being_admitted(installation):
    rig = installation.rig
    rig.plug("1/3/0")
    rig.plug("1/4/0", node_type="mb")
    rig.plug("1/5/0", offline=True)
    rig.expect(lambda: installation.administrator.exists("p_libpub.app_cg_card_check_info:0:1:3:0"), "the request")
    assert installation.complaints() == {}
    rig.answer("1/3/0", "m1")
    result = "p_libpub.app_cg_mom_deny_check_result:1003"
    rig.expect(lambda: installation.administrator.hget(result, "6") == PASS, "the verdict")
    assert installation.complaints() == {}


def test_a_killed_daemon_is_missed(installation):
    daemon = installation.rig.daemon
    daemon.signal(signal.SIGKILL)
    daemon.wait()
    installation.rig.expect(lambda: installation.subscriptions() == (0, 0), "the server misses it, too")
    status, checks = installation.examine()
    assert status == 1
    assert checks["daemon"]["state"] == "fail" and "`systemctl start app_cg`" in checks["daemon"]["fix"]
    assert checks["cards"]["found"] == "not examined because of: daemon"
    installation.start_daemon()
    assert installation.complaints() == {}


def test_a_frozen_daemon_is_told_from_one_that_serves(installation):
    daemon = installation.rig.daemon
    daemon.signal(signal.SIGSTOP)
    status, checks = installation.examine()
    daemon.signal(signal.SIGCONT)
    assert status == 1
    assert checks["daemon"]["state"] == "fail" and "does not respond" in checks["daemon"]["found"]
    assert "`systemctl restart app_cg`" in checks["daemon"]["fix"]
    assert installation.complaints() == {}


def test_cards_that_the_daemon_left_alone_are_asked_for_after_a_restart(installation):
    rig = installation.rig
    rig.plug("1/3/0")
    request = "p_libpub.app_cg_card_check_info:0:1:3:0"
    rig.expect(lambda: installation.administrator.exists(request), "the request")
    installation.administrator.delete(request)
    check = installation.examine()[1]["cards"]
    assert (check["state"], check["found"][-5:]) == ("fail", "1/3/0")
    assert "`systemctl restart app_cg`" in check["fix"]
    rig.daemon.stop()
    installation.start_daemon()
    rig.expect(lambda: installation.administrator.exists(request), "the request")
    assert installation.complaints() == {}


def test_a_check_that_nobody_ends_is_begun_anew_by_a_restart(installation):
    rig = installation.rig
    rig.plug("1/3/0")
    key = "p_libpub.app_cg_card_check_info:0:1:3:0"
    rig.expect(lambda: installation.administrator.exists(key), "the request")
    with installation.connect(ADMINISTRATOR, decode_responses=False) as raw:
        raw.restore(key, 0, raw.dump(key), replace=True, idletime=400)
    check = installation.examine()[1]["open-checks"]
    assert (check["state"], check["found"][-5:]) == ("fail", "1/3/0")
    rig.daemon.stop()
    installation.start_daemon()
    rig.expect(lambda: int(installation.administrator.object("idletime", key)) < 300, "the request written anew")
    assert installation.complaints() == {}


def test_a_module_added_to_the_folder_is_not_asked_before_a_restart(installation):
    (installation.rig.view.modules / "m2").touch()
    checks = installation.examine()[1]
    assert checks["daemon-modules"]["state"] == "warn"
    assert 'asks "m1", the folder names "m1", "m2"' in checks["daemon-modules"]["found"]
    (installation.rig.view.modules / "m2").unlink()
    assert installation.complaints() == {}


def test_functions_that_are_gone_are_loaded_by_the_fix(installation):
    installation.administrator.execute_command("FUNCTION", "DELETE", "vx_mom2")
    check = installation.examine()[1]["functions"]
    assert check["state"] == "fail"
    installation.carry_out(check)
    assert installation.complaints() == {}


class Swallower:
    """Somebody in front of the store who passes everything on but what is published."""

    def __init__(self, path, store_path):
        self._store_path = str(store_path)
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(str(path))
        self._listener.listen(16)
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        """Takes no more connections; those that stand end with their clients."""
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()

    def _accept(self):
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            server = socket.socket(socket.AF_UNIX)
            server.connect(self._store_path)
            threading.Thread(target=self._pass, args=[client, server], daemon=True).start()
            threading.Thread(target=self._pass, args=[server, client], daemon=True).start()

    @staticmethod
    def _pass(source, target):
        try:
            while data := source.recv(65536):
                if not data.startswith(b"*3\r\n$7\r\nmessage\r\n"):
                    target.sendall(data)
            target.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


def test_notifications_that_do_not_arrive_are_missed(installation):
    rig = installation.rig
    swallower = Swallower(rig.folder / "between", rig.store.socket_path)
    before = sorted(installation.administrator.keys("*"))
    status, checks = installation.examine("--endpoint", f"unix:{rig.folder / 'between'}")
    swallower.close()
    assert status == 1
    assert {name for name, check in checks.items() if check["state"] != "ok"} == {"notifications"}
    assert checks["notifications"]["state"] == "fail"
    assert "does not arrive" in checks["notifications"]["found"] and checks["notifications"]["fix"]
    assert sorted(installation.administrator.keys("*")) == before, "nothing of the canary remains"
    assert installation.complaints() == {}
