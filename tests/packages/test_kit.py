"""The kit as it is packaged: somebody builds a check module with nothing else of ours, and it serves on a device."""
import shutil

import pytest

from workshop import Workshop

MODULE = "srv/consumer/build/in_c"


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
