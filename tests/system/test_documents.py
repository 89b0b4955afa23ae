"""What documents and tables name must be there."""

import re
import subprocess
import sys

import pytest
from conftest import PROJECT


@pytest.mark.parametrize("document, count", [("SECURITY.md", 50), ("docs/publishing.md", 5)])
def test_the_tests_that_are_named_exist(document, count):
    named = re.findall(r"`(test_\w+|[A-Z][a-z]\w+\.[a-z]\w+)`", (PROJECT / document).read_text(encoding="utf-8"))
    assert len(named) > count
    found = subprocess.run([sys.executable, "tools/choose-tests.py", *set(named)], cwd=PROJECT, capture_output=True, text=True, check=False)
    assert (found.stderr, found.returncode) == ("", 0)


def test_links_lead_to_headings():
    text = (PROJECT / "docs/operating.md").read_text(encoding="utf-8")
    places = {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in re.findall(r"^#+ (.*)$", text, re.MULTILINE)}
    assert set(re.findall(r"\]\(#([^)]*)\)", text)) <= places


def test_every_small_fault_applies(tmp_path):
    def tell(*arguments):
        command = [sys.executable, "-m", "mutants", "--apply-only", *arguments]
        done = subprocess.run(command, cwd=PROJECT / "tools", capture_output=True, text=True, check=False)
        return done.returncode, done.stderr
    assert tell() == (0, "")
    (tmp_path / "table").write_text("== dev\n\nold (Uri): was there once\n-nobody wrote this\n+or this\n")
    assert tell("--table", tmp_path / "table") == (1, "mutants: 'old' does not apply: its text stands 0 times in dev\n")
