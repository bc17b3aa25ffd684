"""Where the store is, and as whom to go there: the settings that the daemon and cgctl read too.

A setting is an environment variable or a line NAME=VALUE of /etc/app_cg/platform.conf (another file:
VX_PLATFORM_CONF); the environment wins. Some may be set for one database: NAME_1 counts before NAME, but nothing
in the file before either of them in the environment. A mistake is reported at the start and not worked around: a
module that talks to the wrong store looks like one that is silent.
"""
import dataclasses
import os
import stat

_FORMS = "use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port"
_SECRETS = {"user": "user", "password": "password",
            "sentinel-user": "sentinel_user", "sentinel-password": "sentinel_password"}


class Mistake(Exception):
    """A setting, or what somebody typed, is wrong; the text says what would be right."""


@dataclasses.dataclass
class Endpoint:
    """One of three: the path of a unix socket, a server's address, or the name of a group and its sentinels."""

    text: str
    path: str = ""
    address: tuple = ()
    group: str = ""
    sentinels: tuple = ()


@dataclasses.dataclass
class Credentials:
    """Empty texts: nobody in particular."""

    user: str = ""
    password: str = dataclasses.field(default="", repr=False)
    sentinel_user: str = ""
    sentinel_password: str = dataclasses.field(default="", repr=False)


def setting(name, fallback="", database=None):
    """The value of a setting, as it is for a database if one is named; an empty one counts as none."""
    names = [name] if database is None else [f"{name}_{database}", name]
    path = os.environ.get("VX_PLATFORM_CONF") or "/etc/app_cg/platform.conf"
    for layer in (os.environ.get, lambda one: _in_file(path, one)):
        for one in names:
            if value := layer(one):
                return value
    return fallback


def _in_file(path, name):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            lines = [line.strip() for line in file]
    except FileNotFoundError:
        return ""
    except OSError as problem:
        raise Mistake(f"{path}: {problem.strerror}") from problem
    value = ""
    for line in lines:
        left, equals, right = line.partition("=")
        if equals and not line.startswith("#") and left.strip() == name:
            value = right.strip()  # the last one counts
    return value


def _address(text):
    host, _, port = text.rpartition(":")
    if host.startswith("[") and host.endswith("]"):
        host = host[1:-1]
    elif ":" in host:
        host = ""
    if not host or not port.isascii() or not port.isdigit() or not 0 < int(port) < 65536:
        raise Mistake(f"'{text}' is no host:port")
    return host, int(port)


def parse_endpoint(text):
    """Reads an endpoint; raises Mistake when it is none."""
    form, _, rest = text.partition(":")
    try:
        if form == "unix" and rest.startswith("/"):
            return Endpoint(text, path=rest)
        if form == "tcp":
            return Endpoint(text, address=_address(rest))
        group, at, addresses = rest.partition("@")
        if form == "sentinel" and group and at:
            return Endpoint(text, group=group, sentinels=tuple(map(_address, addresses.split(","))))
    except Mistake as problem:
        raise Mistake(f"endpoint '{text}': {problem}, {_FORMS}") from problem
    raise Mistake(f"endpoint '{text}' is none, {_FORMS}")


def read_credentials(path):
    """Reads a file of credentials; an empty path means none. Raises Mistake when others may read it."""
    credentials = Credentials()
    if not path:
        return credentials
    try:
        # Opened first and asked then: by its name it could be another file a moment later.
        with open(os.open(path, os.O_RDONLY | os.O_CLOEXEC | os.O_NONBLOCK), encoding="utf-8") as file:
            mode = os.fstat(file.fileno()).st_mode
            if not stat.S_ISREG(mode):
                raise Mistake(f"{path}: not a regular file")
            if mode & stat.S_IRWXO:
                raise Mistake(f"{path}: others have rights to it, use mode 0600")
            lines = file.read().splitlines()
    except (OSError, UnicodeDecodeError) as problem:
        raise Mistake(f"{path}: {problem}") from problem
    for number, line in enumerate(lines, 1):
        word, _, value = line.partition(" ")
        if line and (word not in _SECRETS or not value.strip(" \t")):
            raise Mistake(f"{path}: line {number} is neither 'user NAME' nor 'password SECRET', "
                          "nor one of these with 'sentinel-' before it")
        if line:
            setattr(credentials, _SECRETS[word], value.lstrip(" \t"))
    for user, password in (("user", "password"), ("sentinel_user", "sentinel_password")):
        if getattr(credentials, user) and not getattr(credentials, password):
            raise Mistake(f"{path}: there is a user and no password")
    return credentials
