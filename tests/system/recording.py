"""The recorder beside a device under test."""
import json
import signal
import subprocess
import urllib.parse
import urllib.request

from demo import programs
from rig import BUILD


class Recorder:
    """One recorder on a rig's store; may be started again after it ended."""

    def __init__(self, rig):
        self._rig = rig
        self.history = rig.folder / "history.sqlite"
        self.life = rig.view.run / "life"
        self._errors = rig.folder / "recorder.err"
        self._process = None

    def start(self, **env):
        """Starts it and waits until it follows the store."""
        before = self.said().count("subscribed; following")
        self.launch(**env)
        self._rig.expect(lambda: self.said().count("subscribed; following") > before, "the recorder subscribes")
        return self

    def launch(self, modules=None, **env):
        """Starts it and does not wait. `modules`: another folder than the daemon's."""
        places = {name: value for name, value in self._rig.cgctl.env.items() if name.startswith("VX_MOM_ENDPOINT")}
        with open(self._errors, "ab") as errors:
            self._process = programs.start(
                [BUILD / "bin" / "cg_recorderd", "--history", self.history, "--modules",
                 modules or self._rig.view.modules, "--life", self.life, "--listen", "127.0.0.1:0"],
                {"VX_MOM_ENDPOINT": self._rig.store.endpoint, **places, **env}, stderr=errors)

    def said(self):
        """All that it wrote to standard error."""
        return self._errors.read_text() if self._errors.exists() else ""

    def end(self, signum=signal.SIGTERM):
        """Ends it and returns the exit status."""
        if self._process is None:
            return 0
        self._process.send_signal(signum)
        status = self._process.wait(20)
        self._process = None
        return status

    def signal(self, signum):
        """Sends it a signal, such as SIGSTOP."""
        self._process.send_signal(signum)

    def _metrics_url(self):
        return [line.split()[-1] for line in self.said().splitlines() if "metrics are at" in line][-1]

    def metrics_port(self):
        """Where the metrics are served."""
        return urllib.parse.urlsplit(self._metrics_url()).port

    def metrics(self):
        """What Prometheus would get, {series: value}."""
        with urllib.request.urlopen(self._metrics_url(), timeout=10) as answer:
            lines = answer.read().decode().splitlines()
        return {series: float(value)
                for series, value in (line.rsplit(" ", 1) for line in lines if not line.startswith("#"))}

    def of_database(self, metric, number):
        """A metric of one database; nothing when there is none."""
        found = [value for series, value in self.metrics().items()
                 if series.startswith(f'{metric}{{database="{number}"')]
        return found[0] if found else None

    def decisions(self, *arguments):
        """What cgctl history tells."""
        return self.json("history", *arguments)["decisions"]

    def gaps(self):
        """The times in which nothing was heard."""
        done = self._rig.cgctl.attempt("history", "--history", self.history, "--json")
        return json.loads(done.stdout)["gaps"]

    def json(self, verb, *arguments):
        """What a verb tells of the history."""
        return self._rig.cgctl.json(verb, *arguments, "--history", self.history)

    def expect_decision(self, position, outcome):
        """Waits until the last decision on a card is this one, and returns it."""
        def last():
            found = self._rig.cgctl.attempt("history", position, "--history", self.history, "--json")
            decisions = json.loads(found.stdout)["decisions"] if found.returncode == 0 else []
            return decisions[-1] if decisions and decisions[-1]["outcome"] == outcome else None
        return self._rig.expect(last, f"{position} is recorded as {outcome}")


def sql(recorder, query):
    """Reads the file past our own reader."""
    done = subprocess.run(["/usr/bin/python3", "-c",
                           "import sqlite3, sys; print(sqlite3.connect(sys.argv[1]).execute(sys.argv[2]).fetchone()[0])",
                           recorder.history, query], capture_output=True, text=True, check=False)
    return done.stdout.strip()
