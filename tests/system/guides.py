"""The commands of a guide, run as they stand there."""

import re
import shlex

from conftest import PROJECT
from device.device import Device


def blocks(document: str) -> dict[str, str]:
    """The commands of a document, by the heading or the line <!-- tried: NAME --> that they are the first ones behind."""
    text = (PROJECT / document).read_text(encoding="utf-8")
    found = re.findall(r"^(?:#+|<!-- tried:) (.*?)(?: -->)?\n(?:(?!#|<!--|```).*\n)*```(?:console|sh)\n((?:.*\n)*?)```$", text, re.M)
    assert len(dict(found)) == len(found)
    return dict(found)


def check(device: Device, block: str, directory: str, **environment: str) -> None:
    """Runs each line behind a "$", and compares what it prints with what stands behind it; "..." is any number of lines."""
    commands = [line[2:] for line in block.splitlines() if line.startswith("$ ")]
    script = "".join(f"printf '%s\\n' {shlex.quote(f'$ {command}')}\n{command}\n" for command in commands)
    said = device.shell(f"exec 2>&1; cd {directory}\n{script}", **environment).stdout
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(line) + "\n" for line in block.splitlines())
    assert re.fullmatch(pattern, said), f"{said}\nis not\n\n{block}"
