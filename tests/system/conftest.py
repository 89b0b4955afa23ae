"""Fixtures of the system tests. The program under test is $UPDATER, else the build with sanitizers.
$EMULATOR may run it (tools/device/root.py)."""

import os
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "tools"))

from device.device import Device  # noqa: E402


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--long", action="store_true", help="run what is marked long, too")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "long: takes more than a few seconds")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    if not config.getoption("--long"):
        for item in items:
            if item.get_closest_marker("long"):
                item.add_marker(pytest.mark.skip(reason="needs --long"))


def pytest_make_parametrize_id(config: pytest.Config, val: object, argname: str) -> str:  # noqa: ARG001
    """Lets the name of a row tell what stands in it, in short."""
    if isinstance(val, bytes):
        return f"{len(val)} bytes"
    text = val if isinstance(val, str) else " ".join(map(str, val)) if isinstance(val, (list, tuple)) else str(val)
    return "".join(c if c.isprintable() else " " for c in text)[:50] or f"no {argname}"


@pytest.fixture(scope="session")
def program() -> Path:
    path = Path(os.environ.get("UPDATER", PROJECT / "build/dev/updater")).resolve()
    if not path.is_file():
        pytest.exit(f"no program at {path}: build it, or set UPDATER", 2)
    return path


@pytest.fixture
def device(program: Path) -> Iterator[Device]:
    """A fresh device that knows the key "vendor" and has a configuration for file:///srv/repo."""
    with Device(program) as made:
        made.import_key()
        made.configure()
        yield made
