"""What the documents name must be there."""

import re
import subprocess
import sys

from conftest import PROJECT


def test_security_names_tests_that_exist():
    named = re.findall(r"`(test_\w+|[A-Z]\w+\.[a-z]\w+)`", (PROJECT / "SECURITY.md").read_text(encoding="utf-8"))
    assert len(named) > 50
    found = subprocess.run([sys.executable, "tools/choose-tests.py", *set(named)], cwd=PROJECT, capture_output=True, text=True, check=False)
    assert (found.stderr, found.returncode) == ("", 0)
