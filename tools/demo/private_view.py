"""A private view of the file system: a folder of ours stands for /etc/app_cg, /data, /run and the log.

The daemon's paths are fixed, so it is shown other folders under them. A change of root would need the whole
system copied; bubblewrap needs one call, as root and as an ordinary user.
"""
import pathlib
import tempfile

# What a program needs of the system to run at all, read-only.
_SYSTEM = ("bin", "lib", "lib32", "lib64", "libx32", "sbin")
_ETC = ("ld.so.cache", "localtime", "passwd", "group", "nsswitch.conf")


# A unix socket's path has 107 bytes at most, and some 25 of them are needed below the folder.
_LONGEST_FOLDER = 70


def new_folder(prefix):
    """Makes an empty temporary folder whose path is short enough for sockets below it; the caller removes it."""
    parent = tempfile.gettempdir()
    if len(parent) + len(prefix) > _LONGEST_FOLDER:
        parent = "/tmp"
    return pathlib.Path(tempfile.mkdtemp(prefix=prefix, dir=parent))


class PrivateView:
    """The folders of one view, below one folder that belongs to the caller."""

    def __init__(self, folder):
        self.root = pathlib.Path(folder)
        self.etc = self.root / "etc"  # /etc/app_cg
        self.data = self.root / "data"  # /data
        self.run = self.root / "run"  # /run and /var/run
        self.log = self.root / "log"  # /log
        self.store = self.root / "store"  # /store
        self.modules = self.etc / "deny_check"
        for folder_ in (self.modules, self.data, self.run, self.log, self.store):
            folder_.mkdir(parents=True, exist_ok=True)

    @property
    def system_log_socket(self):
        """Where /dev/log of the view leads to."""
        return self.run / "dev-log"

    def command(self, program, env, info_fd):
        """The command line that runs `program` in the view, with `env` added to its environment only.

        What bubblewrap knows of the new process is written to `info_fd`, which the caller passes on.
        """
        argv = ["bwrap", "--die-with-parent", "--info-fd", info_fd, "--tmpfs", "/", "--ro-bind", "/usr", "/usr"]
        for name in _SYSTEM:
            path = pathlib.Path("/", name)
            if path.is_symlink():
                argv += ["--symlink", path.readlink(), path]
            elif path.exists():
                argv += ["--ro-bind", path, path]
        argv += ["--ro-bind", "/proc", "/proc", "--dev", "/dev", "--dir", "/tmp"]
        for name in _ETC:
            argv += ["--ro-bind-try", f"/etc/{name}", f"/etc/{name}"]
        for ours, theirs in ((self.etc, "/etc/app_cg"), (self.data, "/data"), (self.run, "/run"),
                             (self.log, "/log"), (self.store, "/store")):
            argv += ["--bind", ours, theirs]
        argv += ["--dir", "/var", "--symlink", "/run", "/var/run", "--symlink", "/run/dev-log", "/dev/log"]
        argv += ["--ro-bind", program, f"/app/{pathlib.Path(program).name}", "--remount-ro", "/", "--chdir", "/"]
        for name, value in env.items():
            argv += ["--setenv", name, value]
        return [*map(str, argv), "--", f"/app/{pathlib.Path(program).name}"]
