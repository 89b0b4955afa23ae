"""What the documents name must be there."""

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
