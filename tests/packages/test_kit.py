"""The kit as it is packaged: somebody builds a check module with nothing else of ours, and it serves on a device."""
import pathlib
import re
import shutil

import pytest

from workshop import Workshop

MODULE = "srv/consumer/build/in_c"
PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "writing-a-module.md"


@pytest.fixture(scope="module")
def workshop(tmp_path_factory):
    """Somebody's project, built with the packages as they tell to."""
    workshop = Workshop(tmp_path_factory.mktemp("workshop"))
    try:
        workshop.sh("cd /srv/consumer; cmake -S . -B build; cmake --build build")
        yield workshop
    finally:
        workshop.close()


def version(workshop):
    """The version of the kit without the number of the package."""
    return workshop.sh("dpkg-query -W -f '${Version}' libapp-cg-kit0").rsplit("-", 1)[0]


def test_cmake_finds_it(workshop):
    assert workshop.sh("/srv/consumer/build/in_cpp types").strip().endswith("done")
    assert workshop.sh(f"/{MODULE} types").splitlines()[-1] == f"{version(workshop)}: done"


def test_pkg_config_finds_it(workshop):
    workshop.sh("cd /srv/consumer; gcc -std=c11 in_c.c -o by_pkg_config $(pkg-config --cflags --libs app_cg_kit)")
    assert workshop.sh("/srv/consumer/by_pkg_config types").splitlines()[-1] == f"{version(workshop)}: done"
    assert workshop.sh("pkg-config --modversion app_cg_kit").strip() == version(workshop)


def test_the_loader_knows_the_library(workshop):
    assert "libapp_cg_kit.so.0" in workshop.sh("ldconfig --print-cache")


def test_the_examples_are_built_with_it(workshop):
    workshop.sh("cp -r /usr/share/doc/app-cg-doc/kit/examples /srv; cd /srv/examples; cmake -S . -B build;"
                "cmake --build build -j 2; test -x build/bin/examples/compatibility")


def test_the_player_of_scenarios_comes_with_it(workshop):
    assert "standard input: syntax OK, 1 statement" in workshop.sh("echo plug 1/3 | cg_sim --check - 2>&1")
    for page in ("man1/cg_sim.1", "man5/cg_scenario.5"):
        assert ".Sh NAME" in workshop.sh(f"gzip -dc /usr/share/man/{page}.gz")


def test_a_package_made_with_it_depends_on_it(workshop):
    workshop.sh("mkdir -p /srv/own/debian; printf 'Source: own\\n\\nPackage: own\\nArchitecture: any\\n' > /srv/own/debian/control")
    assert "libapp-cg-kit0 (>= 0.1.0)" in workshop.sh(f"cd /srv/own; dpkg-shlibdeps -O /{MODULE}")


def test_a_removal_leaves_nothing(tmp_path):
    workshop = Workshop(tmp_path)
    try:
        ours = "find / -xdev -name '*app[-_]cg*' -print"
        assert "/libapp_cg_kit.so.0" in workshop.sh(ours)
        workshop.sh(f"dpkg --purge {' '.join(workshop.packages)}; rm -r /srv/*")
        assert workshop.sh(ours) == ""
        assert "app_cg" not in workshop.sh("ldconfig --print-cache")
    finally:
        workshop.close()


def test_the_module_serves_on_a_device(workshop, device):
    shutil.copy(workshop.root / MODULE, device.root / "usr/local/bin/types")
    device.run("touch", "/etc/app_cg/deny_check/types")
    device.run("systemd-run", "--quiet", "--unit=module-types", "types", "types", "run")
    device.run("systemctl", "restart", "app_cg")
    device.wait_active()
    device.cgctl("role", "master")
    device.cgctl("card", "plug", "1/3/0", "--type", "230")
    device.cgctl("card", "plug", "1/4/0", "--type", "300")
    device.wait(lambda: "passed" in device.verdict("1/3/0"), "1/3/0 is passed")
    device.wait(lambda: "too new" in device.verdict("1/4/0"), "1/4/0 is denied with the module's reason")


def test_the_module_is_installed_as_the_page_tells(workshop, device):
    (commands,) = re.findall(r"^```sh norun: tests/packages [^\n]*\n(.*?)^```$", PAGE.read_text(), re.M | re.S)
    (unit,) = re.findall(r"^```ini\n(.*?)^```$", PAGE.read_text(), re.M | re.S)
    shutil.copy(workshop.root / MODULE, device.root / "usr/local/bin/types")
    (device.root / "usr/local/bin/my-module").write_text('#!/bin/sh\nexec types "$1" run\n')
    (device.root / "usr/local/bin/my-module").chmod(0o755)
    (device.root / "etc/systemd/system/app_cg-types.service").write_text(unit)

    device.sh("cd /srv\n" + device.manual("install -d -m 0711"))
    device.sh("cd /srv\n" + commands)
    device.sh("install -o redis -g redis -m 0640 /srv/users.acl /etc/redis/users.acl; systemctl restart redis-server;"
              "systemctl daemon-reload; systemctl start app_cg-types; systemctl restart app_cg")
    device.wait_active()
    assert device.run("stat", "-c", "%U", f"/proc/{device.pid('app_cg-types.service')}").strip() == "cg-types"
    device.sh("export VX_MOM_AUTH_FILE=/etc/app_cg/secrets/app_cg-admin; cgctl role master;"
              "cgctl card plug 1/3/0 --type 230; cgctl card plug 1/4/0 --type 300")
    device.wait(lambda: "passed" in device.verdict("1/3/0"), "1/3/0 is passed")
    device.wait(lambda: "too new" in device.verdict("1/4/0"), "1/4/0 is denied with the module's reason")
