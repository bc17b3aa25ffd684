"""The packages on a real device: the service comes up, judges cards, comes back, raises an alarm, and goes."""
import re

ALARM = ("--identifier=app_cg-alarm", "--output=cat")


def test_the_service_comes_up_and_is_guarded(device):
    assert device.run("systemctl", "is-enabled", "app_cg").strip() == "enabled"
    assert device.run("stat", "-c", "%U", f"/proc/{device.pid()}").strip() == "app_cg"
    assert device.unit("app_cg", "StatusText") == "Serving"
    assert device.run("stat", "-c", "%U %a", "/data/collect").strip() == "app_cg 755"
    assert device.run("systemctl", "--failed", "--no-legend") == ""
    # An assessment between 0.0 (locked up) and 10.0 (may do everything): at most 2.0.
    device.run("systemd-analyze", "security", "--threshold=20", "app_cg.service")
    device.run("systemd-analyze", "--man=no", "verify", "app_cg.service", "app_cg-alarm.service", "app_cg-retry.timer")


def test_cards_are_judged(device):
    device.module("firmware", "sh", "-c", '[ "$CG_CARD" != 1/4/0 ] || { echo too old; exit 1; }')
    device.wait_active()
    device.cgctl("role", "master")
    device.cgctl("card", "plug", "1/3/0")
    device.cgctl("card", "plug", "1/4/0")
    device.wait(lambda: "passed" in device.verdict("1/3/0"), "1/3/0 is passed")
    device.wait(lambda: "denied" in device.verdict("1/4/0"), "1/4/0 is denied")
    told = device.journal("--identifier=APP_CG", "--output=cat")
    assert "Card in slot 1/4 will be disabled due to reason: too old." in told


def test_the_debug_shell_and_what_it_collects(device):
    assert "app_cg_wait_obj_num" in device.cgctl("debug", "dump_check_module")
    device.cgctl("debug", "collect")
    assert "app_cg_wait_obj_num" in device.run("cat", "/data/collect/app_cg.log")


def test_what_was_collected_is_rotated(device):
    collected = "/data/collect/app_cg.log"
    before = device.pid()

    def grow():
        device.sh(f"yes line | head -c 2000000 >> {collected}; logrotate /etc/logrotate.d/app_cg")
        return int(device.run("stat", "-c", "%s", collected))

    # Nobody has collected yet: the file is another one's.
    device.sh(f"install -o app_cg -g app_cg /dev/null {collected}")
    assert grow() == 0
    device.sh(f"gzip -dc {collected}.1.gz | tail -n 1 | grep -qx line")
    device.cgctl("debug", "show_time")
    assert device.run("cat", collected) == "", "the daemon has nothing to do with it"

    device.cgctl("debug", "collect")
    held = device.sh(f"ls /proc/{before}/fd | wc -l")
    assert grow() == 0
    device.cgctl("debug", "dump_check_module")
    assert 0 < int(device.run("stat", "-c", "%s", collected)) < 100000, "it goes on at the end of what was cut"
    assert "app_cg_wait_obj_num" in device.run("cat", collected)
    assert device.sh(f"ls /proc/{before}/fd | wc -l") == held
    device.sh(f"test -e {collected}.2.gz")
    assert device.pid() == before


def test_the_log_stays_in_the_journal(device):
    device.cgctl("debug", "log-level", "level=4")
    device.cgctl("debug", "collect")
    device.cgctl("role", "master")
    device.wait(lambda: device.journal("_SYSTEMD_UNIT=app_cg.service", "--grep=role"), "the daemon logs to the journal")


def test_it_comes_back_after_a_kill(device):
    before = device.pid()
    device.sh(f"kill -9 {before}")
    device.wait_active(other_than=before)
    assert device.unit("app_cg", "NRestarts") == "1"
    assert device.journal(*ALARM) == "", "one failure is no alarm"


def test_it_comes_back_when_it_asks_for_it(device):
    before = device.pid()
    device.cgctl("role", "master")
    device.run("systemctl", "kill", "-s", "KILL", "redis-server")  # it returns empty
    device.wait(lambda: "status=77" in device.journal("--unit=app_cg"), "the daemon wants to be started afresh")
    device.wait_active(other_than=before)


def test_it_comes_back_when_its_loop_stands_still(device):
    device.sh("mkdir -p /etc/systemd/system/app_cg.service.d\n"
              "printf '[Service]\\nWatchdogSec=2\\n' > /etc/systemd/system/app_cg.service.d/quick.conf\n"
              "systemctl daemon-reload; systemctl restart app_cg")
    before = device.wait_active()
    first = device.unit("app_cg", "WatchdogTimestampMonotonic")
    device.wait(lambda: device.unit("app_cg", "WatchdogTimestampMonotonic") != first, "the loop pings")
    device.sh(f"kill -STOP {before}")
    device.wait_active(other_than=before)
    assert "Watchdog timeout" in device.journal("--unit=app_cg")


def test_restarts_by_hand_are_no_failures(device):
    for _ in range(7):
        before = device.pid()
        device.run("systemctl", "restart", "app_cg")
        device.wait_active(other_than=before)
    assert device.journal(*ALARM) == ""


def test_a_gate_that_stays_dead_is_told_and_tried_again(device):
    device.sh("echo VX_MOM_DEADLINE_MS=200 >> /etc/app_cg/platform.conf")
    device.run("systemctl", "stop", "redis-server")
    device.run("systemctl", "restart", "app_cg", check=False)
    device.wait(lambda: device.journal(*ALARM), "the alarm is raised", 60)
    assert device.state() == "failed"
    told = device.journal(*ALARM, "--priority=alert..alert")
    assert "is down (result exit-code, status " in told and "line cards are not checked" in told
    device.run("systemctl", "start", "redis-server")
    device.wait_active()

    # A daemon that runs waits for its store; one that starts does not.
    device.run("systemctl", "stop", "redis-server")
    device.run("systemctl", "restart", "app_cg", check=False)
    device.wait(lambda: len(device.journal(*ALARM).splitlines()) == 2, "the alarm is raised again", 90)
    device.wait(lambda: device.state("app_cg-retry.timer") == "active", "the next round is planned")
    device.run("systemctl", "stop", "app_cg")
    assert device.state("app_cg-retry.timer") == "inactive", "who stops the service stops the rounds"


def edit_unit(device, unit, text):
    """What `systemctl edit` does with a text."""
    (device.root / f"etc/systemd/system/{unit}.d").mkdir(parents=True, exist_ok=True)
    (device.root / f"etc/systemd/system/{unit}.d/override.conf").write_text(text + "\n")
    device.run("systemctl", "daemon-reload")


def test_there_is_one_gate(device):
    """Also where somebody starts a daemon by hand, beside the service."""
    assert f"is held by another instance, pid {device.pid()}" in device.run("/usr/sbin/app_cg", status=255)


def test_a_daemon_that_was_started_by_hand_leaves_the_lock_to_the_service(device):
    """Also where the service has not run since the boot."""
    device.run("systemctl", "stop", "app_cg")
    device.sh("rm -r /run/app_cg; systemd-tmpfiles --create app_cg.conf; systemd-run --unit=by-hand /usr/sbin/app_cg")
    device.wait(lambda: "app_cg_wait_obj_num" in device.run("cgctl", "debug", "dump_check_module", check=False),
                "the daemon serves")
    device.run("systemctl", "stop", "by-hand")
    device.run("systemctl", "start", "app_cg")
    device.wait_active()


def test_the_marker_turns_notification_off(device):
    assert device.unit("app_cg", "StatusText") == "Serving"
    device.sh("install -o app_cg -g app_cg /dev/null /run/app_cg_ham.txt")
    edit_unit(device, "app_cg.service", "[Service]\nType=simple\nWatchdogSec=0")
    device.run("systemctl", "restart", "app_cg")
    device.wait_active()
    device.wait(lambda: "app_cg_wait_obj_num" in device.cgctl("debug", "dump_check_module"), "the daemon serves")
    assert device.unit("app_cg", "StatusText") == ""


def test_the_store_is_set_up_as_the_manual_tells(device):
    device.sh("sed -i '/^databases 64/d' /etc/redis/redis.conf; systemctl restart redis-server")
    assert device.run("redis-cli", "config", "get", "databases").split() == ["databases", "16"]
    device.sh(device.manual("apt install redis-server"))
    assert device.run("redis-cli", "config", "get", "databases").split() == ["databases", "64"]
    device.run("systemctl", "restart", "app_cg")
    device.wait_active()


def test_somebody_is_called_as_the_manual_tells(device):
    script = device.root / "usr/local/bin/call-somebody"
    script.write_text('#!/bin/sh\necho "$1" > /srv/called\n')
    script.chmod(0o755)
    assert device.manual("    systemctl edit", 1) == "systemctl edit app_cg-alarm.service"
    edit_unit(device, "app_cg-alarm.service", device.manual("    [Service]\n        ExecStart=/usr/local", 2))
    device.sh("echo VX_MOM_DEADLINE_MS=200 >> /etc/app_cg/platform.conf; systemctl stop redis-server")
    device.run("systemctl", "restart", "app_cg", check=False)
    device.wait((device.root / "srv/called").exists, "somebody is called", 60)
    assert (device.root / "srv/called").read_text() == "app_cg: exit-code\n"
    assert "is down" in device.journal(*ALARM)


def test_the_recorder_forgets_as_the_manual_tells(device):
    device.wait_active(name="cg_recorderd.service")
    edit_unit(device, "cg_recorderd.service", device.manual("[Service]\n    ExecStart=\n"))
    before = device.pid("cg_recorderd.service")
    device.run("systemctl", "restart", "cg_recorderd")
    pid = device.wait_active(before, "cg_recorderd.service")
    assert device.run("cat", f"/proc/{pid}/cmdline").split("\0")[1:5] == ["--keep-days", "90", "--keep-mib", "64"]


def test_the_store_is_guarded_as_the_manual_tells(device):
    device.sh("cd /srv\n" + device.manual("install -d -m 0711"))
    device.wait_active()
    device.wait(lambda: device.state("cg_recorderd") == "active", "the recorder is up")
    # Nobody but the daemon has the daemon's credentials; root reads with the watcher's, and changes nothing with them.
    assert "VX_MOM_AUTH_FILE=/etc/app_cg/secrets/app_cg\0" in device.run("cat", f"/proc/{device.pid()}/environ")
    device.cgctl("list")
    assert "app_cg-admin" in device.run("cgctl", "card", "plug", "1/3/0", status=1)
    device.sh("VX_MOM_AUTH_FILE=/etc/app_cg/secrets/app_cg-admin cgctl card plug 1/3/0")
    device.wait(lambda: device.verdict("1/3/0"), "the card is in the list")
    device.wait(lambda: re.search(r'cg_cards{state="\w+"} 1', device.metrics()), "the recorder is let in")
    assert "NOPERM" in device.run("redis-cli", "ping") or "NOAUTH" in device.run("redis-cli", "ping")


def everything(device):
    """Every path of the device's file system, and the contents of /etc."""
    # Left out: what runs by itself, what records that something was done, and copies of the account files.
    paths = device.sh("find / -xdev \\( -path /var/log -o -path /var/cache -o -path /var/lib/dpkg -o -path /srv -o -path /root "
                      "-o -path /var/lib/redis -o -path /tmp -o -path /var/tmp \\) -prune -o -print | sort; "
                      "find /run -name 'app_cg*' -o -name 'cg_rec*'; find /etc -type f ! -name '*-' | sort | xargs sha256sum")
    return set(paths.splitlines())


def test_a_purge_leaves_nothing(bare):
    before = everything(bare)
    bare.install()
    bare.wait_active()
    bare.module("m1", "true")
    bare.cgctl("debug", "collect")
    bare.run("systemctl", "stop", "module-m1")
    bare.sh("for unit in app_cg.service app_cg-alarm.service app_cg-retry.service app_cg-retry.timer cg_recorderd.service;"
            " do install -D -t /etc/systemd/system/$unit.d /dev/stdin </dev/null; done")
    daemon = bare.pid()
    bare.purge()
    assert not bare.run("sh", "-c", f"ls -d /proc/{daemon} 2>/dev/null || true"), "the daemon is gone"
    assert everything(bare) ^ before == set()
    assert "app_cg" not in bare.run("systemctl", "list-units", "--all", "--no-legend", "--plain", "app_cg*", "cg_*")


def test_a_removal_keeps_what_the_administrator_set(device):
    device.run("touch", "/etc/app_cg/deny_check/m1")
    device.sh("echo VX_MOM_DEADLINE_MS=200 >> /etc/app_cg/platform.conf")
    device.run("dpkg", "--remove", "app-cg")
    assert device.state() == "inactive"
    device.install()
    device.wait_active()
    device.sh("test -e /etc/app_cg/deny_check/m1 && grep -q DEADLINE_MS=200 /etc/app_cg/platform.conf")


def test_what_was_switched_off_stays_so(device):
    device.run("systemctl", "disable", "--now", "app_cg")
    device.install()
    assert device.run("systemctl", "is-enabled", "app_cg", check=False).strip() == "disabled"
    assert device.state() == "inactive"


def test_an_upgrade_puts_the_new_daemon_in_place(device):
    before = device.pid()
    device.install()
    device.wait_active(other_than=before)
    assert device.unit("app_cg", "NRestarts") == "0", "it was asked to, and did not fail"
