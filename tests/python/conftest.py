"""Makes the staged package importable under the small host package of `host/`."""

import os
import sys
from pathlib import Path
from types import SimpleNamespace

import pytest

ROOT = Path(__file__).resolve().parents[2]
STAGED = Path(os.environ.get("VARNHOLT_STAGED_PACKAGE", ROOT / "build" / "release" / "python"))
HOST = Path(__file__).resolve().parent / "host"
# Plain Python versions to compare the module with.
REFERENCE = Path(__file__).resolve().parent / "reference"

sys.path[:0] = [str(HOST), str(STAGED), str(REFERENCE)]


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
    """A search context with attributes as given, and a recorder of metrics.

    It is never called off, and its attempts have no tracker.
    """

    def __init__(self, **attributes):
        self.metrics = []
        self._template_evaluation_state = SimpleNamespace()
        self.__dict__.update(attributes)

    def _submission_cancelled(self):
        return False

    def record_search_run_metrics(self, **record):
        self.metrics.append(record)


class Operations:
    """Operations of a host that note their calls and answer as told.

    An answer is a value; an exception, which is raised; or a function, which is called. A class is
    no operation but the attribute itself.
    """

    def __init__(self, **answers):
        self.calls = []
        for name, answer in answers.items():
            self.answer(name, answer)

    def answer(self, name, answer):
        setattr(self, name, answer if isinstance(answer, type) else self._operation(name, answer))

    def _operation(self, name, answer):
        def operation(*args, **keywords):
            self.calls.append((name, args, keywords))
            if isinstance(answer, BaseException):
                raise answer
            return answer(*args, **keywords) if callable(answer) else answer

        return operation

    @property
    def called(self):
        return [name for name, _, _ in self.calls]


@pytest.fixture
def genetic():
    """The module under test."""
    from varnholt.search_templates import genetic

    return genetic


@pytest.fixture
def make_context():
    return Context


@pytest.fixture
def make_engine(genetic, monkeypatch):
    """Puts operations as given in the place of the host's helpers, and returns them."""

    def make(**answers):
        engine = Operations(**answers)
        monkeypatch.setattr(genetic, "_engine", engine)
        return engine

    return make


@pytest.fixture
def make_timings(monkeypatch):
    """Puts operations as given in the place of the host's module of timings, and returns them."""

    def make(**answers):
        timings = Operations(**answers)
        monkeypatch.setitem(sys.modules, "varnholt.simulation.backtest_timing", timings)
        return timings

    return make


@pytest.fixture
def make_event():
    return Event
