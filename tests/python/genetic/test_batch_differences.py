"""Batches against a plain Python version of them, call by call.

Goal: whatever the pool, its children and the host do, and at whatever call the host fails, a batch
asks, answers and leaves as plainly written Python does. Method: scripts drawn at random are played
on two worlds with the same failures; results, errors with what they carry, the hosts' logs, rows,
markers, guards and evaluation states are compared. A difference prints the seed that draws it:
`SCRIPTS = range(seed, seed + 1)`. One script is played once for each call of its host, which fails.
"""

import random

import plain_batch
import pytest
from attempt_host import HostError
from batch_host import BatchWorld, Interrupted, PoolError, described, outcome_of

SCRIPTS = range(600)
STEPS = (
    "backtest", "backtest", "backtest", "phase", "sync", "record", "pass", "enqueue", "metrics",
    "raise", "interrupt", "no evidence",
)
REASONS = (
    "worker_failed", "worker_failed", "worker_timeout", "process_priority_failed", "odd", None
)


class Script:
    """A batch, its host and what its pool does, drawn from a seed."""

    def __init__(self, seed):
        self.rng = random.Random(seed)
        rng = self.rng
        self.size = rng.choice((1, 1, 2, 3, 4))
        self.batch = [
            {"node": f"g{place}", "do": self.steps()} for place in range(self.size)
        ]
        self.resolved = rng.choice((0, 1, 2, 3, 8))
        self.settings = {"_n_jobs": rng.choice((1, 2, 8, "x", 0))}
        if rng.random() < 0.2:
            name = rng.choice((
                "_sync_mgr", "_enqueue_deferred_submission_payload", "record_search_run_metrics",
                "_tracker", "_attempt_expected_columns", "_safe_record",
            ))
            self.settings[name] = None
        if rng.random() < 0.2:
            self.settings["_process_priority"] = 3
        self.timeout = rng.choice((None, 0, 5.5))
        self.attempts = dict.fromkeys(range(self.size), -1)
        self.passes = [self.one_pass() for _ in range(self.size + 1)]
        self.failure = None
        if rng.random() < 0.5:
            number = rng.choice((rng.randrange(150), rng.randrange(40), rng.randrange(6)))
            self.failure = (number, rng.randrange(4), rng.random() < 0.5)
        self.is_cancelled = rng.random() < 0.03

    def steps(self):
        rng = self.rng
        if rng.random() < 0.6:
            return ["backtest"] + (["pass"] if rng.random() < 0.5 else [])
        return [rng.choice(STEPS) for _ in range(rng.randrange(3))]

    def one_pass(self):
        rng = self.rng
        steps = []
        for index in rng.sample(range(self.size), self.size):
            if rng.random() < 0.8:
                steps += self.life(index)
            if rng.random() < 0.08:
                steps.append(self.chaos())
        return steps + [self.ending()]

    def life(self, index):
        """What may become of one candidate in a pass."""
        rng = self.rng
        self.attempts[index] += 1
        attempt = self.attempts[index]
        steps = [("dispatch", index, attempt)]
        if rng.random() < 0.15:
            steps.append(("signal", index, attempt))
        if rng.random() < 0.2:
            steps.append(("lose", index, attempt, True))
            self.attempts[index] += 1
            attempt = self.attempts[index]
            steps.append(("dispatch", index, attempt))
        end = rng.random()
        if end < 0.6:
            steps.append(("run", index, attempt))
            steps += rng.choice((
                [("complete", index, attempt), ("give", index, attempt)],
                [("complete", index, attempt), ("give", index, attempt)],
                [("complete", index, attempt)],
                [("give", index, attempt)],
                [],
            ))
        elif end < 0.85:
            steps.append(("lose_for_good", index, attempt, rng.choice(REASONS[:3])))
        if rng.random() < 0.1:
            steps.append(("poll",))
        return steps

    def chaos(self):
        rng = self.rng
        index = rng.choice((0, 1, 2, 7, "x", None, 0.0))
        return rng.choice((
            ("cancel",), ("forget",), ("ask",), ("poll",),
            ("signal", index, rng.choice((0, 1))),
            ("dispatch", index, rng.choice((0, 1))),
            ("lose", index, 0, rng.random() < 0.5, rng.choice((None, "worker_timeout", "odd"))),
            ("complete", index, 0),
            ("complete", index, 0, {"attempt_evidence": {"backtest_completed": True}}),
            ("complete", index, 0, {"candidate_index": 5, "attempt_evidence": {},
                                    "submission_payload": {"a": 1}}),
            ("give", index, 0),
        ))

    def ending(self):
        rng = self.rng
        if rng.random() < 0.75:
            return ("end",)
        attributes = {}
        if rng.random() < 0.8:
            attributes["candidate_index"] = rng.choice((0, 1, 2, 9, None))
        if rng.random() < 0.9:
            attributes["terminal_reason"] = rng.choice(REASONS)
        if rng.random() < 0.3:
            attributes["detail"] = rng.choice(("why", "", None))
        named = None
        if rng.random() < 0.5:
            named = [
                {"candidate_index": rng.choice((0, 1, 2, 1.0, 9, None)),
                 "terminal_reason": rng.choice(REASONS)}
                for _ in range(rng.randrange(4))
            ]
        return rng.choice((
            ("fail", attributes, named), ("fail", attributes, named), ("fail", attributes, named),
            ("throw", HostError("the pool broke")), ("throw", Interrupted("the pool")),
            ("answer", None), ("answer", ()), ("answer", 5),
        ))

    def failures(self):
        if self.failure is None:
            return {}
        number, kind, takes_effect = self.failure
        error = (
            HostError("a call failed"), Interrupted("a call"), ValueError("a call"),
            PoolError("a call", candidate_index=0, terminal_reason="worker_failed"),
        )[kind]
        error.label = "injected"
        return {number: (error, takes_effect)}

    def world(self):
        world = BatchWorld(
            self.passes, self.failures(), resolved=self.resolved, **self.settings
        )
        world.cancelled = self.is_cancelled
        return world


def play(module, world, evaluate, script, monkeypatch):
    world.bind(module, monkeypatch)
    plain_batch.bind(module)
    return outcome_of(lambda: evaluate(world.context, iter(script.batch), script.timeout))


def seen(world):
    """Everything that a world has come to know, in a form to compare."""
    return {
        "log": [described(list(line)) for line in world.log],
        "rows": world.rows,
        "markers": world.markers,
        "recorded": described(world.recorded_graphs),
        "enqueued": described(world.enqueued),
        "prefetched": described(world.prefetched),
        "state": described(world.state),
        "context": sorted(vars(world.context)),
        "engine": sorted(vars(world.engine)),
        "calls": next(world._calls),
    }


def compare(genetic, script, monkeypatch, what):
    ours, plain = script.world(), script.world()
    outcome = play(genetic, ours, genetic._evaluate_candidate_batch, script, monkeypatch)
    expected = play(genetic, plain, plain_batch.evaluate_candidate_batch, script, monkeypatch)
    ours_saw, plain_saw = seen(ours), seen(plain)
    for key in plain_saw:
        assert ours_saw[key] == plain_saw[key], f"{what}: {key}"
    assert outcome == expected, what
    return ours, outcome


@pytest.mark.parametrize("first", SCRIPTS[::100])
def test_random_scripts(genetic, monkeypatch, first):
    for seed in SCRIPTS[first - SCRIPTS[0]:][:100]:
        compare(genetic, Script(seed), monkeypatch, f"seed {seed}")


def test_the_scripts_reach_what_they_are_for(genetic, monkeypatch):
    """A test of the test: the random scripts take every exit and every way through."""
    reasons, leaves = set(), set()
    for seed in SCRIPTS:
        script = Script(seed)
        world = script.world()
        finalize = genetic._ProcessAttemptLedger.finalize_all_open

        def finalize_all_open(self, reason, detail=None):
            reasons.add(reason)
            return finalize(self, reason, detail)

        with monkeypatch.context() as patch:
            patch.setattr(genetic._ProcessAttemptLedger, "finalize_all_open", finalize_all_open)
            outcome = play(genetic, world, genetic._evaluate_candidate_batch, script, patch)
        leaves.add(outcome[0] if outcome[0] == "returned" else outcome[1][0][0])
    assert reasons == {
        "process_evaluation_cancelled", "found_pnl_prefetch_failed",
        "process_capacity_resolution_failed", "candidate_feature_prefetch_failed",
        "fatal_process_evaluation_failure", "unsupported_process_evaluation_failure",
        "unmatched_process_evaluation_failure", "process_evaluation_aborted",
        "process_result_missing",
    }
    assert {"returned", "PoolError", "HostError", "Interrupted", "RuntimeError"} <= leaves


# Every call of one batch of four fails once, with each kind of error, before and after its effect.


class Whole(Script):
    """Four candidates: one passes, one fails its gates, one is lost twice, one takes too long."""

    def __init__(self, number, error, takes_effect):
        self.batch = [
            {"node": "a", "do": ["phase", "backtest", "sync", "record", "pass"]},
            {"node": "b", "do": ["backtest"]}, {"node": "c"}, {"node": "d"},
        ]
        self.resolved, self.settings, self.timeout = 3, {"_n_jobs": 3}, None
        self.is_cancelled = False
        self.passes = [
            [
                ("dispatch", 0), ("dispatch", 1), ("dispatch", 2), ("work", 0), ("ask",),
                ("lose", 2, 0, True), ("dispatch", 2, 1), ("signal", 2, 1), ("work", 1), ("poll",),
                ("lose_for_good", 2, 1), ("end",),
            ],
            [("dispatch", 3), ("signal", 3), ("lose_for_good", 3, 0, "worker_timeout"), ("end",)],
        ]
        self._failures = {} if error is None else {number: (error, takes_effect)}

    def failures(self):
        return self._failures


def test_a_batch_without_a_failure(genetic, monkeypatch):
    world, outcome = compare(genetic, Whole(0, None, False), monkeypatch, "whole")
    assert outcome[0] == "returned" and len(outcome[1]) == 4
    assert len(world.recorded_graphs) == 4 and len(world.enqueued) == 1
    assert [marks[-1] for marks in world.rows.values()] == ["started"] * 4


@pytest.mark.parametrize("takes_effect", [False, True], ids=["before", "after"])
@pytest.mark.parametrize("kind", [HostError, Interrupted, PoolError])
def test_each_call_fails_once(genetic, monkeypatch, kind, takes_effect):
    number = 0
    while True:
        error = kind(f"call {number}")
        error.label = "injected"
        script = Whole(number, error, takes_effect)
        world, outcome = compare(genetic, script, monkeypatch, f"call {number} of {kind.__name__}")
        if next(world._calls) - 2 < number:
            break
        check_invariants(world)
        number += 1
    assert outcome[0] == "returned" and number > 80


def check_invariants(world):
    """What must hold wherever a batch was left."""
    calls = world.called
    for marks in world.rows.values():
        assert marks[0] == "created"
        ends = [mark for mark in marks if mark not in ("created", "dispatched", "started")]
        # An end that took effect and failed all the same may be asked for once more.
        assert len(set(ends)) <= 1
        if "started" in marks:
            assert "dispatched" in marks[: marks.index("started")]
    assert calls.count("_enqueue_deferred_submission_payload") <= calls.count("_safe_record")
    nodes = [graph["node"] for graph in world.recorded_graphs]
    assert len(nodes) == len(set(nodes)), "a candidate was recorded twice"
    assert {"_write_evaluation_attempt_marker"}.isdisjoint(vars(world.engine)), "a guard was left"
    assert world.state.attempt_id == "earlier" and world.state.parent_owned_attempt == "before"
