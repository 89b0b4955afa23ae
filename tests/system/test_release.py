"""How a version is made: in a repository of its own, where `dev` is a stand-in."""

import hashlib
import os
import shutil
import subprocess

import pytest
from conftest import PROJECT

DEV = """#!/bin/sh
echo "$@" >>.git/calls
[ "$1" = package ] || exit 0
mkdir -p build/packages; for kind in deb rpm; do printf $kind >build/packages/u.$kind; echo build/packages/u.$kind; done
"""
CHANGES = "# Changelog\n\n## [Unreleased]\n\n## [1.1] - 2026-01-02\n\n### Added\n\n- All of it.\n\n## [1.0] - 2025-01-02\n\n- Old.\n"


def run(where, *command: str) -> str:
    environment = {"PATH": os.environ["PATH"], "HOME": str(where), "GIT_CONFIG_NOSYSTEM": "1"}
    done = subprocess.run(command, cwd=where, env=environment, capture_output=True, text=True, check=False)
    return done.stdout + done.stderr


@pytest.fixture
def checkout(tmp_path):
    for name, text in {"dev": DEV, "CHANGELOG.md": CHANGES, "CMakeLists.txt": "project(updater VERSION 1.1 LANGUAGES CXX)\n",
                       ".gitignore": "/build/\n/.gitconfig\n", ".gitconfig": "[user]\nname = t\nemail = t@example.invalid\n"}.items():
        (tmp_path / name).write_text(text)
    (tmp_path / "dev").chmod(0o755)
    (tmp_path / "tools").mkdir()
    shutil.copy(PROJECT / "tools/release", tmp_path / "tools")
    assert run(tmp_path, "sh", "-c", "git init -q && git add . && git commit -qm all") == ""
    return tmp_path


@pytest.mark.parametrize("file, old, new, commit, said", [
    ("dev", "exit 0", "exit 0 ", False, "there are changes that are not committed"),
    ("CMakeLists.txt", "1.1", "1.2", True, "CMakeLists.txt has version 1.2, and the newest in CHANGELOG.md is '1.1'"),
    ("CHANGELOG.md", "- 2026-01-02", "- soon", True, "the newest in CHANGELOG.md is '1.0'"),
    ("CHANGELOG.md", "### Added\n\n- All of it.", "", True, "CHANGELOG.md says nothing of 1.1"),
    ("CHANGELOG.md", "[Unreleased]", "[Unreleased]\n\n- More.", True, "CHANGELOG.md has unreleased changes"),
    ("dev", "exit 0", "exit 1", True, ""),  # the tests fail
    ("dev", "kind in deb rpm", "kind in deb", True, "not two packages"),
    ("dev", "mkdir", ">new; mkdir", True, "there are changes that are not committed"),
])
def test_refusals_leave_no_tag(checkout, file, old, new, commit, said):
    path = checkout / file
    path.write_text(path.read_text().replace(old, new, 1))
    if commit:
        run(checkout, "git", "commit", "-qam", "change")
    assert said in run(checkout, "tools/release")
    assert run(checkout, "git", "tag") == ""


def test_a_version_is_tested_packed_and_tagged(checkout):
    assert run(checkout, "tools/release", "--dry-run").startswith("would run ./dev check --long, build both packages, and git tag --annotate v1.1")
    assert (run(checkout, "git", "tag"), (checkout / ".git/calls").exists()) == ("", False)
    sums = [f"{hashlib.sha256(kind).hexdigest()}  build/packages/u.{kind.decode()}" for kind in (b"deb", b"rpm")]
    assert run(checkout, "tools/release").splitlines()[-2:] == sums
    assert (checkout / ".git/calls").read_text() == "check --long\npackage\n"
    assert run(checkout, "git", "tag", "-n9") == "v1.1            updater 1.1\n    \n    ### Added\n    \n    - All of it.\n    \n"
    assert "the tag v1.1 is there already" in run(checkout, "tools/release")
