"""Completion in a bash on a terminal, in the private device."""

import os
import pty
import re
import subprocess

import pytest
from conftest import PROJECT
from scenes import wait_until

LOAD = ". /srv/data/bash-completion/completions/updater"
LEVELS = "debug error fatal info trace warn"  # sorted by readline
#: C-t: complete; C-o: insert all that is possible; C-y: note the line and begin anew.
KEYS = r"""PS1=; PS2=; shopt -u progcomp_alias; cd /srv/files
bind 'set bell-style none' 'set completion-query-items -1' 2>/dev/null; bind '"\C-t": complete'; bind '"\C-o": insert-completions'
note() { printf '%s|\n' "$READLINE_LINE" >>/tmp/lines; READLINE_LINE=; READLINE_POINT=0; }; bind -x '"\C-y": note'
"""
CASES = {  # typed; what stands in the line then
    "updater --ca\x14": "updater --cache-", "updater --lock\x14": "updater --lock-timeout=", "updater --qu\x14": "updater --quiet ",
    "updater --log\x0f": "updater --log-level= --log-to-stderr --log-to= ", "updater -\x14": "updater -",
    "updater -l \x0f": f"updater -l {LEVELS} ", "updater --log-level \x0f": f"updater --log-level {LEVELS} ",
    "updater --log-level=\x0f": f"updater --log-level={LEVELS} ", "updater --log-level=wa\x14": "updater --log-level=warn ",
    "updater -qnl e\x14": "updater -qnl error ", "updater -ln e\x14": "updater -ln e", "updater --max-wait-time \x14": "updater --max-wait-time ",
    "updater --log-to some\x14": r"updater --log-to some\ file ", "updater --conf-file=ot\x14": "updater --conf-file=other.conf ",
    'updater --log-to "so\x14': 'updater --log-to "some file" ', "updater --cache-dir \x14": "updater --cache-dir dir/",
    "updater --cache-dir=o\x14": "updater --cache-dir=o",
    "updater -r \x0f": "updater -r base service ", "updater --repo=s\x14": "updater --repo=service ",
    "updater --conf-file other.conf -r \x0f": "updater --conf-file other.conf -r mine ",
    "updater --conf-file=/srv/files/other.conf --repo \x14": "updater --conf-file=/srv/files/other.conf --repo mine ",
    "updater --repo-url s\x14": "updater --repo-url service:", "updater --repo-url=service:h\x14": "updater --repo-url=service:h",
    "updater ot\x14": "updater ot", "updater -n -- --q\x14": "updater -n -- --q",
    "updater --conf-file nowhere -r b\x14": "updater --conf-file nowhere -r b",
}


def type_into_bash(device, setup, keys):
    """Gives the lines that came of it."""
    for file in (PROJECT / "dist/bash-completion").iterdir():
        device.write(f"/srv/data/bash-completion/completions/{file.name}", file.read_bytes())
    device.write("/etc/updater.conf", '<updater><repository id="base"/><repository id="service"/><repository id="$(reboot)"/></updater>')
    for path, text in {"other.conf": '<updater><repository id="mine"/></updater>', "some file": "", "dir/file": ""}.items():
        device.write(f"/srv/files/{path}", text)
    device.write("/tmp/lines", "")
    device.write("/tmp/rc", KEYS + setup)
    command, environment = device.command("/bin/bash", "--norc", "--noprofile", "--noediting", "-c",
                                          "exec /bin/bash --noprofile --rcfile /tmp/rc -i")
    environment |= {"PATH": "/device/bin:/usr/bin", "TERM": "dumb", "INPUTRC": "/dev/null",
                    "XDG_DATA_DIRS": "/srv/data", "HISTFILE": ""}
    master, slave = pty.openpty()
    shell = subprocess.Popen(command, stdin=slave, stdout=slave, stderr=slave, start_new_session=True, env=environment)
    os.close(slave)
    try:
        for count, typed in enumerate(keys, 1):
            os.write(master, typed.encode() + b"\x19")
            wait_until(lambda: device.read("/tmp/lines").count("|\n") >= count)
    finally:
        shell.kill()
        shell.wait()
        os.close(master)
    return device.read("/tmp/lines").removesuffix("|\n").split("|\n")


@pytest.mark.parametrize("setup", [
    f"set -u; shopt -s failglob nullglob; IFS=x; {LOAD}", ". /usr/share/bash-completion/bash_completion"])
def test_cases(device, setup):
    assert dict(zip(CASES, type_into_bash(device, setup, CASES), strict=True)) == CASES
    assert device.calls == []


def test_the_publishers_program(device, program):
    device.write("/device/bin/updater-repocheck", program.with_name("updater-repocheck").read_bytes(), 0o755)
    cases = {"updater-repocheck --met\x14": "updater-repocheck --metadata-only ", "updater-repocheck d\x14": "updater-repocheck dir/",
             "updater-repocheck --conf-file=ot\x14": "updater-repocheck --conf-file=other.conf "}
    assert type_into_bash(device, ". /usr/share/bash-completion/bash_completion", cases) == list(cases.values())


def test_every_option_and_nothing_else(device):
    help_ = device.shell("updater --help").stdout
    options = re.findall(r"^ +(?:(-.), )?(--[\w-]+)(=?)", help_, re.MULTILINE)
    offered, = type_into_bash(device, LOAD, ["updater -\x0f"])
    assert sorted(offered.split()[1:]) == sorted([*(long + sign for _, long, sign in options), *(short for short, _, _ in options if short)])
    assert len(options) > 18
