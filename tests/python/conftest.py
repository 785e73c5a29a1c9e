import pytest
import velmara


@pytest.fixture(scope="module")
def car():
    """The simulated car with everything; opening takes seconds, so the tests of a file share it."""
    with velmara.connect("demo:", protocol="can11-500") as opened:
        yield opened
