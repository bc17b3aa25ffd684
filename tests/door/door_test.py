"""Links the real daemon against somebody else's platform, through the door that a device maker uses.

The platform is the recording one, given as a library file. The unit tests link the daemon's objects; only
this test has the program itself, so the exit statuses are those that a process manager sees.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

MARKER = pathlib.Path("/var/run/app_cg_ham.txt")
LEVEL_FILE = pathlib.Path("/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt")
MODULE_FOLDER = pathlib.Path("/etc/app_cg/deny_check")
BUILT_IN_LIBRARIES = re.compile(r"hiredis|event|spdlog|fmt|systemd")

START = """\
vx_initframe_duplicate_check()
vx_zlog_init(app_cg)
vx_global_init(app_cg)
ssat_lib_init(app_cg)
ssat_reg_mod_cmd(app_cg, log-level, 0, "level=%d")
ssat_reg_mod_cmd(app_cg, dump_node, 0, "void")
ssat_reg_mod_cmd(app_cg, show_time, 0, "void")
ssat_reg_mod_cmd(app_cg, dump_all, 0, "void")
ssat_reg_mod_cmd(app_cg, collect, 0, "void")
ssat_reg_mod_cmd(app_cg, dump_check_module, 0, "void")
ssat_reg_mod_cmd(app_cg, update_dev, 0, "dev=%d slot=%d sslotid=%d compa=%d op=%d")
reg_process_exit_action(0, 2)
vx_mom_client_connect_sync(1)
vx_mom_client_connect_sync(33)
vx_mom_client_connect(1)
vx_mom_client_connect(33)
vx_mom_client_connect(28)
vx_mom_client_set_disconnect_cb(1)
vx_mom_client_set_disconnect_cb(28)
vx_mom_client_set_disconnect_cb(33)
vx_mom_client_set_reconnect_cb(1)
vx_mom_client_set_reconnect_cb(28)
vx_mom_client_set_reconnect_cb(33)
vx_global_run()
""".splitlines()
VALIDATION = """\
log 100 app_cg.cpp app_cg_deny_check_init_wait_obj: Folder path(/etc/app_cg/deny_check/) error.\\n
vx_mom_subscribe(1, p_dev.dp_lib_grole{})
vx_mom_subscribe(1, p_dev.card_info{index={}})
""".splitlines()

options = argparse.Namespace()


def start_until(last):
    return START[: START.index(last) + 1]


def configure_and_build():
    """Returns the daemon's path."""
    build = options.scratch
    define = {
        "APP_CG_PLATFORM_LIBRARY": options.library,
        "APP_CG_SCHEMA_TABLE": options.table,
        "CMAKE_BUILD_TYPE": options.build_type,
        "CMAKE_C_FLAGS": options.cflags,
        "CMAKE_CXX_FLAGS": options.cxxflags,
        "CMAKE_C_COMPILER_LAUNCHER": options.launcher,
        "CMAKE_CXX_COMPILER_LAUNCHER": options.launcher,
    }
    if options.toolchain:
        define["CMAKE_TOOLCHAIN_FILE"] = options.toolchain
    else:
        define |= {"CMAKE_C_COMPILER": options.cc, "CMAKE_CXX_COMPILER": options.cxx}
    run_build(
        ["cmake", "-S", options.source, "-B", build, "-G", options.generator]
        + [f"-D{name}={value}" for name, value in define.items()]
    )
    # What an earlier run left must not pass for the daemon of this one.
    daemon = build / "bin" / "app_cg"
    daemon.unlink(missing_ok=True)
    run_build(["cmake", "--build", build, "--target", "app_cg", "--parallel", "2"])
    return daemon


def run_build(command):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{command[:2]} failed:\n{result.stdout}\n{result.stderr}")


class DoorTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        for path in (MARKER, LEVEL_FILE, MODULE_FOLDER):
            if path.exists():
                raise unittest.SkipTest(f"{path} exists: this machine runs the daemon")
        cls.daemon = configure_and_build()

    def run_daemon(self, script="", events=""):
        """Returns exit status, standard output and journal."""
        with tempfile.TemporaryDirectory() as folder:
            journal = pathlib.Path(folder) / "journal"
            journal.touch()
            environment = {
                **os.environ,
                "RECORDING_PLATFORM_JOURNAL": str(journal),
                "RECORDING_PLATFORM_SCRIPT": script,
                "RECORDING_PLATFORM_EVENTS": events,
            }
            result = subprocess.run(
                [*options.emulator, self.daemon],
                env=environment,
                capture_output=True,
                check=False,
                timeout=30,
                cwd=folder,
            )
            self.assertEqual(result.stderr.decode(), "")
            return result.returncode, result.stdout, journal.read_text().splitlines()

    def check(self, script, status, journal, output=b"", events=""):
        self.assertEqual(self.run_daemon(script, events), (status, output, journal))

    def test_none_of_the_built_in_platform_is_linked(self):
        result = subprocess.run(["readelf", "-d", self.daemon], capture_output=True, text=True, check=True)
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", result.stdout)
        self.assertTrue(any("protobuf-c" in name for name in needed), needed)
        self.assertEqual([name for name in needed if BUILT_IN_LIBRARIES.search(name)], [])

    def test_with_a_table_given_the_plugin_is_not_built(self):
        commands = (options.scratch / "compile_commands.json").read_text()
        self.assertIn("schema_registry.c", commands)
        self.assertNotIn("protoc_gen_vxkey", commands)

    def test_a_warning_of_the_device_makers_compiler_is_no_error(self):
        commands = (options.scratch / "compile_commands.json").read_text()
        self.assertIn("-Wconversion", commands)
        self.assertNotIn("-Werror", commands)

    def test_a_start_without_failures_ends_with_the_loop(self):
        self.check("", 0, START + ["vx_global_finish()"])

    def test_a_loop_that_fails_ends_with_zero_too(self):
        self.check("vx_global_run=5", 0, START + ["vx_global_finish()"])

    def test_a_second_instance_ends_with_255(self):
        self.check(
            "vx_initframe_duplicate_check=1", 255, ["vx_initframe_duplicate_check()"], b"app_cg, ret=1, FAIL\r\n"
        )

    def test_logging_that_fails_ends_with_245_after_three_attempts(self):
        self.check("vx_zlog_init=1", 245, ["vx_initframe_duplicate_check()"] + ["vx_zlog_init(app_cg)"] * 3)

    def test_no_context_ends_with_245(self):
        message = "log 100 app_cg.cpp main: g_app_cg_global init failed"
        self.check("vx_global_init=1", 245, start_until("vx_global_init(app_cg)") + [message])

    def test_a_failing_steps_result_is_passed_on(self):
        self.check(
            "reg_process_exit_action=6",
            6,
            start_until("reg_process_exit_action(0, 2)")
            + [
                "log 100 app_cg.cpp app_cg_indep_init: init ham fail",
                "log 100 app_cg.cpp app_cg_init: app_cg_indep_init failed rv 6",
                "log 100 app_cg.cpp main: failed,rv 6",
            ],
        )

    def test_a_negative_result_is_passed_on_modulo_256(self):
        self.check(
            "vx_mom_client_connect_sync=0,-21",
            235,
            start_until("vx_mom_client_connect_sync(33)")
            + [
                "log 100 app_cg.cpp app_cg_init: connect dev global sync failed, rv -21",
                "log 100 app_cg.cpp main: failed,rv -21",
            ],
        )

    def test_a_large_result_is_passed_on_modulo_256(self):
        status, _, _ = self.run_daemon("vx_mom_client_connect=300")
        self.assertEqual(status, 44)

    def test_three_connections_make_the_subscriptions(self):
        self.check(
            "",
            0,
            START + VALIDATION + ["vx_global_finish()"],
            events="connect 28;connect 1;connect 33",
        )

    def test_a_change_that_is_no_reconnection_ends_with_77(self):
        self.check(
            "", 77, START + VALIDATION, events="connect 1;connect 28;connect 33;disconnect 1;reconnect 1 1"
        )

    def test_a_completed_reconnection_goes_on(self):
        self.check(
            "",
            0,
            START + VALIDATION + VALIDATION + ["vx_global_finish()"],
            events="connect 1;connect 28;connect 33;disconnect 1;reconnect 1 2",
        )


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--scratch", type=pathlib.Path, required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("--generator", required=True)
    parser.add_argument("--build-type", default="")
    parser.add_argument("--cc", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("--cflags", default="")
    parser.add_argument("--cxxflags", default="")
    parser.add_argument("--launcher", default="")
    parser.add_argument("--table", required=True)
    parser.add_argument("--toolchain", default="")
    parser.add_argument("--emulator", default=[], type=lambda words: words.split(";") if words else [])
    parser.parse_args(namespace=options)
    result = unittest.main(argv=sys.argv[:1], verbosity=2, exit=False).result
    if result.skipped and result.testsRun == 0:
        sys.exit(77)  # nothing was tried, and ctest says so
    sys.exit(0 if result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
