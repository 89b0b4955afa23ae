"""A real kernel and a real init system, in emulation. The scene is that of ./dev machine."""

import pytest
from machine import image, scene


@pytest.mark.long
def test_a_machine_updates_itself_and_is_treated_badly(program):  # noqa: ARG001
    """Timer, two passes, reboot, boot unit, a shutdown in the middle of rpm, a power cut there."""
    assert scene.play(image.package(), print) == []
