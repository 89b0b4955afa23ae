"""What metadata cost that are made to cost as much as they can. The bounds are several times of what is
seen, with sanitizers; a step that grows with the square is far beyond them."""

import pytest
from bench import hostile
from device.device import Package

#: Of a megabyte compressed: what grows with the length alone can be short, the other kind shows in a tenth.
SHARES = {"elements": 0.01, "attributes": 0.01, "packages": 0.02, "entries": 0.02, "undeclared": 0.03, "crowd": 0.3}
MEASURE = """import resource, subprocess, sys
code = subprocess.call(sys.argv[1:])
used = resource.getrusage(resource.RUSAGE_CHILDREN)
print(used.ru_utime + used.ru_stime, used.ru_maxrss / 1024)
sys.exit(code)"""


@pytest.mark.parametrize("document", hostile.DOCUMENTS, ids=[document.__name__ for document in hostile.DOCUMENTS])
def test_nothing_costs_more_than_it_is_long(device, document):
    device.install(Package("app", "1-1"))
    cache = device.path("/var/cache/updater/base")
    cache.mkdir()
    hostile.write(document, SHARES.get(document.__name__, 0.1), cache)
    result = device.shell(f"/usr/bin/python3 -I -c '{MEASURE}' updater --check-only --cache-only", timeout=120)
    seconds, mebibytes = map(float, result.stdout.split())
    assert result.returncode == 0 or (result.returncode == 1 and "ERROR: " in result.stderr)
    assert seconds < 15
    assert mebibytes < 800
