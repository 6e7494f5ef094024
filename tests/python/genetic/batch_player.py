"""Plays scripted passes of a pool that starts no process, and notes what ledgers are told."""

import contextlib
import inspect
import types

import pytest
from attempt_host import ENDING, STARTING, HostError
from batch_host import BatchWorld, Interrupted, PoolError

GRAPHS = [{"node": name, "do": ["backtest"]} for name in "abcd"]


@pytest.fixture
def told(genetic, monkeypatch):
    """What each ledger is told at the end, as (reason, *detail)."""
    notes = []

    class Ledger(genetic._ProcessAttemptLedger):
        def finalize_all_open(self, *args):
            notes.append(args)
            super().finalize_all_open(*args)

    monkeypatch.setattr(genetic, "_ProcessAttemptLedger", Ledger)
    return notes


class Player:
    """Evaluates graphs while the pool plays the passes; returns the world and the results."""

    def __init__(self, genetic, monkeypatch):
        self.world = None
        self._genetic = genetic
        self._monkeypatch = monkeypatch

    def __call__(self, *passes, graphs=GRAPHS[:2], timeout=None, failures=None, **settings):
        self.world = world = BatchWorld(passes, failures, **settings)
        world.bind(self._genetic, self._monkeypatch)
        return world, self._genetic._evaluate_candidate_batch(world.context, graphs, timeout)

    def fail_at(self, name, error):
        """Evaluate two graphs, the first call of this name fails; return what leaves."""
        for number in range(200):
            try:
                self(work(0, 1), failures={number: (error, False)})
                left = None
            except BaseException as caught:
                left = caught
            if self.failed(number) == name:
                return left
        raise AssertionError(f"there is no call of {name}")

    def failed(self, number):
        calls = [line for line in self.world.log if line[0] != "read"]
        return calls[number][0]


@pytest.fixture
def play(genetic, monkeypatch):
    return Player(genetic, monkeypatch)


def nodes(results):
    return [result["graph"]["node"] for result in results]


def work(*indexes):
    """Candidates that are dispatched, evaluated and handed over."""
    return [
        step for index in indexes
        for step in (("dispatch", index), ("work", index), ("give", index))
    ]


# Before the pool.
