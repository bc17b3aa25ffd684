"""The commands around the daemon, as programs that others call."""
import json
import subprocess

from demo import programs


class CommandFailed(Exception):
    """The command ended with another status than 0."""


class Command:
    """A command, cgctl or cg_sim, against one store and one daemon."""

    def __init__(self, program, view, env=None):
        """`env` is added to its environment; the store is the one of the view by default."""
        self.program = program
        self.env = {"VX_MOM_ENDPOINT": f"unix:{view.store / 'store.sock'}",
                    "SSAT_SOCKET": str(view.run / "app_cg.ssat"), "VX_ZLOG": "stderr",
                    **(env or {})}

    def attempt(self, *args, seconds=20):
        """Runs it and returns the completed process, whatever its status."""
        with programs.start([self.program, *args], self.env, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            text=True) as process:
            try:
                out, err = process.communicate(timeout=seconds)
            except BaseException:
                process.kill()
                raise
        return subprocess.CompletedProcess(args, process.returncode, out, err)

    def __call__(self, *args, seconds=20):
        """Runs it and returns what it printed; raises CommandFailed when its status is not 0."""
        done = self.attempt(*args, seconds=seconds)
        if done.returncode != 0:
            raise CommandFailed(f"{self.program.name} {' '.join(map(str, args))}: status {done.returncode}: "
                                f"{done.stderr.strip()} {done.stdout.strip()}")
        return done.stdout

    def json(self, *args):
        """Runs it with --json and returns what that says."""
        return json.loads(self(*args, "--json"))

    def start(self, *args, **more):
        """Starts it and returns the Popen, for what does not end by itself."""
        return programs.start([self.program, *args], self.env, **more)
