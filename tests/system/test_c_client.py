"""A program in C needs nothing of us but the platform's headers, the records, and the library."""
import pathlib
import re
import shlex
import subprocess

from rig import BUILD, PROJECT

SOURCE = pathlib.Path(__file__).resolve().parent / "c_client" / "exchange.c"
LIBRARIES = ("-lhiredis", "-levent", "-lmd", "-lspdlog", "-lfmt", "-lprotobuf-c", "-lstdc++", "-lpthread")


def compiler():
    """The C compiler of the build under test with its flags: libraries under a sanitizer ask for it in the program too."""
    cache = (BUILD / "CMakeCache.txt").read_text()
    found = [re.search(rf"^{name}:\w+=(.*)$", cache, re.MULTILINE).group(1) for name in ("CMAKE_C_COMPILER", "CMAKE_C_FLAGS")]
    return shlex.split(" ".join(found))


def test_a_c_program_exchanges_records_with_cgctl(rig):
    program = rig.folder / "exchange"
    subprocess.run([*compiler(), "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                    f"-I{PROJECT / 'platform'}", f"-I{BUILD / 'proto'}", SOURCE, "-o", program,
                    BUILD / "builtin" / "libapp_cg_builtin.a", BUILD / "libapp_cg_schemas.a", *LIBRARIES], check=True)
    rig.plug("1/3/0")
    done = subprocess.run([program], env={"VX_MOM_ENDPOINT": rig.store.endpoint}, capture_output=True, text=True,
                          timeout=20, check=False)
    assert (done.returncode, done.stdout) == (0, "card-3 1003 3\n"), done.stderr
    assert rig.record(1, "p_dev.dp_lib_grole")["6"] == "1"
    role = rig.cgctl("get", "p_dev.dp_lib_grole")
    assert re.search(r"dev_num\W+3", role) and "DM_ROLE_MASTER" in role
