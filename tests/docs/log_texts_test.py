#!/usr/bin/env python3
"""Every log text of level warn and above, and every system-log text, stands in the man page.

People bind alarms to these texts, so the list in the man page may not fall behind the code.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LITERALS = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
LOG_CALL = re.compile(r"APP_CG_(?:FATAL|ERROR|WARN)\(\s*" + LITERALS)
SYSLOG_CALL = re.compile(r"printk_syslog_ext\((?:[^;\"]*\"[A-Z_]+\",)?[^;\"]*" + LITERALS)


def texts(source: str) -> set[str]:
    found = set()
    for pattern in (LOG_CALL, SYSLOG_CALL):
        for match in pattern.finditer(source):
            text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', match.group(1)))
            found.add(text.replace("\\r", "").replace("\\n", "").strip())
    return found


def main() -> int:
    sources = sorted((ROOT / "src").rglob("*.cpp")) + sorted((ROOT / "src").rglob("*.h"))
    wanted = set().union(*(texts(path.read_text(encoding="utf-8")) for path in sources))
    listed = {
        line.removeprefix(".It ").strip()
        for line in (ROOT / "docs" / "app_cg.8").read_text(encoding="utf-8").splitlines()
    }
    missing = sorted(wanted - listed)
    for text in missing:
        print(f"docs/app_cg.8 does not list: {text}")
    print(f"{len(wanted)} texts in src/, {len(missing)} missing in the man page")
    return 1 if missing or len(wanted) < 60 else 0


if __name__ == "__main__":
    sys.exit(main())
