"""What metadata cost that are made to cost as much as they can. The bounds are several times of what is
seen, with sanitizers; a step that grows with the square is far beyond them."""

import pytest
from bench import hostile

#: Of a megabyte compressed: what grows with the length alone can be short, the other kind shows in a tenth.
SHARES = {"elements": 0.01, "attributes": 0.01, "packages": 0.02, "entries": 0.02, "undeclared": 0.03, "crowd": 0.3}


@pytest.mark.parametrize("document", hostile.DOCUMENTS, ids=[document.__name__ for document in hostile.DOCUMENTS])
def test_nothing_costs_more_than_it_is_long(device, document):
    result, seconds, mebibytes = hostile.cost(device, document, SHARES.get(document.__name__, 0.1))
    assert result.returncode == 0 or (result.returncode == 1 and "ERROR: " in result.stderr)
    assert seconds < 15
    assert mebibytes < 800
