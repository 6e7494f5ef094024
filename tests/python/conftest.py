"""Makes the staged package importable under the small host package of `host/`."""

import os
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
STAGED = Path(os.environ.get("VARNHOLT_STAGED_PACKAGE", ROOT / "build" / "release" / "python"))
HOST = Path(__file__).resolve().parent / "host"

sys.path[:0] = [str(HOST), str(STAGED)]


class Event:
    """A stop event that is set from its n-th question on, and notes what it was asked."""

    def __init__(self, set_after=0):
        self.calls = []
        self._set_after = set_after

    def _answer(self):
        return len(self.calls) > self._set_after

    def is_set(self):
        self.calls.append("is_set")
        return self._answer()

    def wait(self, timeout):
        self.calls.append(("wait", timeout))
        return self._answer()


class Context:
    """A search context with attributes as given, and a recorder of metrics."""

    def __init__(self, **attributes):
        self.metrics = []
        self.__dict__.update(attributes)

    def record_search_run_metrics(self, **record):
        self.metrics.append(record)


@pytest.fixture
def genetic():
    """The module under test."""
    from varnholt.search_templates import genetic

    return genetic


@pytest.fixture
def make_context():
    return Context


@pytest.fixture
def make_event():
    return Event
