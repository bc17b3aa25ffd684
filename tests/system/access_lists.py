"""The users of a device's servers: each server on the list that cgctl prints for it, the commands as administrators."""
import redis

from rig import CAP, DEV_GLOBAL, HOST

ADMINISTRATOR, DAEMON = "app_cg-admin", "app_cg"
_FOLDERS = {HOST: "secrets", CAP: "group", DEV_GLOBAL: "group"}  # of the passwords, below the store's


class AccessLists:
    """For a rig whose servers are apart and whose modules are known; from then on nobody gets in without a password."""

    def __init__(self, rig):
        self._rig = rig
        for number in (HOST, CAP):
            folder = rig.view.store / _FOLDERS[number]
            folder.mkdir(mode=0o700)
            self._give(number, folder)
        for number in _FOLDERS:
            rig.cgctl.env[f"VX_MOM_AUTH_FILE_{number}"] = str(self.file(number, ADMINISTRATOR))
        for number in (HOST, CAP):
            self.administrator(number).execute_command("ACL", "SETUSER", "default", "off")

    def _give(self, number, folder):
        printed = self._rig.cgctl("acl", "--database", number, "--modules", self._rig.view.modules, "--secrets", folder,
                                  "--create")
        for line in printed.splitlines():
            if not line.startswith("user default "):
                self._rig.database(number).execute_command("ACL", "SETUSER", *line.split()[1:])

    def file(self, number, user):
        """The file of a user's credentials at the server that has a database."""
        return self._rig.view.store / _FOLDERS[number] / user

    def connect(self, number, user):
        """A connection to a database as one of its server's users."""
        lines = dict(line.split(" ", 1) for line in self.file(number, user).read_text().splitlines())
        return redis.Redis(unix_socket_path=str(self._rig.server(number).socket_path), db=number,
                           username=lines["user"], password=lines["password"], decode_responses=True)

    def administrator(self, number):
        """A connection to a database as its server's administrator."""
        return self.connect(number, ADMINISTRATOR)

    def give_again(self, number):
        """Gives a server that was restarted, and so forgot its users, the same list."""
        self._give(number, self._rig.view.store / _FOLDERS[number])
        self.administrator(number).execute_command("ACL", "SETUSER", "default", "off")

    def of_daemon(self):
        """The settings that make a daemon its user at each server."""
        return {f"VX_MOM_AUTH_FILE_{number}": f"/store/{folder}/{DAEMON}" for number, folder in _FOLDERS.items()}
