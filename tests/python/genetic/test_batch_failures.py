"""What becomes of a batch whose pool fails, on Python objects.

Goal: an error of one candidate is its failure and no more, any other closes what is open and
leaves as the very object that came. Method: scripted passes of a pool that starts no process.
"""

import contextlib
import inspect
import types

import pytest
from attempt_host import ENDING, STARTING, HostError
from batch_host import BatchWorld, Interrupted, PoolError

from batch_player import GRAPHS, nodes, play, told, work  # noqa: F401


FATAL = [
    {"terminal_reason": "process_priority_failed", "candidate_index": 0},
    {"terminal_reason": "memory_budget_exceeded", "candidate_index": 0},
    {"terminal_reason": "worker_failed"},
    {"terminal_reason": "worker_failed", "candidate_index": None},
    {},
]


@pytest.mark.parametrize("attributes", FATAL)
def test_a_fatal_error_closes_and_leaves(genetic, told, play, attributes):
    with pytest.raises(PoolError) as caught:
        play([("dispatch", 0), ("signal", 0), ("fail", attributes)])
    assert told == [("fatal_process_evaluation_failure", caught.value)]
    assert told[0][1] is caught.value
    assert play.world.rows == {100: ["created", "dispatched", "started", "backtest_failed"]}
    assert "_safe_record" not in play.world.called


ONE = {"candidate_index": 0, "terminal_reason": "worker_failed"}


@pytest.mark.parametrize("reason", ["odd", None, "", "memory_budget_exceeded"])
def test_a_reason_that_is_no_candidates_own(genetic, told, play, reason):
    named = [ONE, {"candidate_index": 1, "terminal_reason": reason}, ONE]
    with pytest.raises(PoolError) as caught:
        play([("dispatch", 0), ("dispatch", 1), ("signal", 1), ("fail", ONE, named)])
    ((told_reason, detail),) = told
    assert told_reason == "unsupported_process_evaluation_failure"
    assert detail is caught.value.terminal_errors[1]
    # What was recorded before stays recorded, and is not ended twice.
    assert nodes_recorded(play.world) == ["a"]
    assert play.world.rows == {100: ["created", "dispatched", "started", "backtest_failed"]}


@pytest.mark.parametrize("index", [9, None, "0", -1])
def test_an_error_of_no_candidate(genetic, told, play, index):
    named = [ONE, {"candidate_index": index, "terminal_reason": "worker_timeout"}]
    with pytest.raises(PoolError) as caught:
        play([("dispatch", 0), ("dispatch", 1), ("signal", 1), ("fail", ONE, named)])
    ((told_reason, detail),) = told
    assert told_reason == "unmatched_process_evaluation_failure"
    assert detail is caught.value.terminal_errors[1]
    assert nodes_recorded(play.world) == ["a"]


def test_a_candidate_of_an_earlier_pass_is_none_of_this_one(genetic, told, play):
    with pytest.raises(PoolError):
        play(work(0), [("dispatch", 1), ("fail", ONE)], resolved=1)
    assert told[0][0] == "unmatched_process_evaluation_failure"


def test_an_error_that_cannot_be_a_key_leaves_as_it_stands(genetic, told, play):
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        play([("fail", {"candidate_index": [0], "terminal_reason": "worker_failed"})])
    with pytest.raises(TypeError, match="unhashable type: 'dict'"):
        play([("fail", {"candidate_index": 0, "terminal_reason": {}})])
    assert told == []


def nodes_recorded(world):
    return [graph["node"] for graph in world.recorded_graphs]


def test_a_lost_worker_is_its_candidates_failure(genetic, told, play):
    world, results = play(
        [
            ("dispatch", 0), ("signal", 0), ("dispatch", 1), ("dispatch", 2), ("work", 1),
            ("lose", 0), ("lose", 2, 0, False, "worker_timeout"),
            ("fail", ONE, [
                {**ONE, "detail": "killed by signal 9"},
                {"candidate_index": 2, "terminal_reason": "worker_timeout"},
            ]),
        ],
        work(3), graphs=GRAPHS, resolved=3,
    )
    assert nodes(results) == list("abcd")
    assert [list(result["failures"]) for result in results] == [
        ["worker_failed"], ["low"], ["worker_timeout"], ["low"],
    ]
    lost, _, late, _ = results
    assert lost["failures"]["worker_failed"]["detail"] == "killed by signal 9"
    assert late["failures"]["worker_timeout"]["detail"] == "named"
    assert lost["source_attempt_id"] == 100 and "source_attempt_id" not in late
    assert list(lost)[:14] == [
        "graph", "stats", "passes", "failures", "eval_id", "submission_payload",
        "per_column_stats", "tracking_metric_kwargs", "sharpe", "quality_score", "correlation",
        "source_attempt_id", "attempt_evidence", "_parent_recorded",
    ]
    assert lost["attempt_evidence"]["terminal_disposition_override"] == "backtest_failed"
    assert lost["attempt_evidence"]["backtest_started"] is True
    assert late["attempt_evidence"]["terminal_disposition_override"] == "resource_blocked"
    assert late["attempt_evidence"]["stats_construction_blocker"] == {
        "type": "process_worker_failed_backtest_state_unknown", "reason": "worker_timeout",
        "detail": "named",
    }
    # Recorded once each, the failures without their attempt and never submitted.
    assert nodes_recorded(world) == ["b", "a", "c", "d"]
    assert world.called.count("_activate_existing_attempt") == 2
    # Nobody ends the row of the lost attempt: its recorder did not know of it.
    assert world.rows[100] == ["created", "dispatched", "started"]
    assert told == [("process_result_missing",)]


def test_an_error_without_others_stands_for_itself(genetic, play):
    for named in (None, [], ()):
        world, results = play([("dispatch", 0), ("fail", ONE, named)], work(1))
        assert [list(result["failures"]) for result in results] == [["worker_failed"], ["low"]]


def test_absent_others_are_none(genetic, play):
    error = PoolError(terminal_errors=None, **ONE)
    world, results = play([("dispatch", 0), ("throw", error)], work(1))
    assert len(results) == 2
    error = PoolError(terminal_errors=iter([error]), **ONE)
    world, results = play([("dispatch", 0), ("throw", error)], work(1))
    assert len(results) == 2


def test_a_streamed_candidate_is_not_recorded_again(genetic, told, play):
    world, results = play(
        [("dispatch", 0), ("dispatch", 1), ("work", 0), ("work", 1), ("fail", ONE, [ONE, ONE])]
    )
    assert [list(result["failures"]) for result in results] == [["low"], ["low"]]
    assert nodes_recorded(world) == ["a", "b"] and told == [("process_result_missing",)]


def test_a_second_error_of_a_candidate_is_skipped(genetic, play):
    second = {"candidate_index": 0.0, "terminal_reason": "worker_timeout"}
    world, results = play([("dispatch", 0), ("fail", ONE, [ONE, second])], work(1))
    assert list(results[0]["failures"]) == ["worker_failed"]
    assert nodes_recorded(world) == ["a", "b"]


def test_a_failure_round_without_progress_does_not_end_the_batch(genetic, play):
    """Streamed results of an earlier pass do not count: the pool is simply asked again."""
    skipped = {"candidate_index": 0, "terminal_reason": "worker_failed"}
    world, results = play(
        [("dispatch", 0), ("work", 0), ("fail", skipped, [skipped])], work(1),
    )
    assert nodes(results) == ["a", "b"]
    assert [len(graphs) for graphs in world.prefetched] == [2, 1]


@pytest.mark.parametrize("size", [1, 2, 3])
def test_every_mix_of_results_and_errors_records_each_candidate_once(genetic, play, size):
    """Each candidate has come through or not, and is named or not, in both orders."""
    import itertools

    for fates in itertools.product(("streamed", "named", "both", "nothing"), repeat=size):
        steps = []
        for index, fate in enumerate(fates):
            steps.append(("dispatch", index))
            if fate in ("streamed", "both"):
                steps.append(("work", index))
        named = [
            {"candidate_index": index, "terminal_reason": "worker_failed"}
            for index, fate in enumerate(fates) if fate in ("named", "both")
        ]
        rest = [index for index, fate in enumerate(fates) if fate == "nothing"]
        for order in (named, named[::-1]):
            if not order:
                continue
            second = [
                step for index in rest
                for step in (("dispatch", index, 1), ("work", index, 1), ("give", index, 1))
            ]
            world, results = play(
                [*steps, ("fail", order[0], order)], second, graphs=GRAPHS[:size], resolved=size
            )
            assert nodes(results) == list("abcd"[:size]), fates
            assert sorted(nodes_recorded(world)) == list("abcd"[:size]), fates
            assert [list(result["failures"]) for result in results] == [
                ["worker_failed"] if fate == "named" else ["low"] for fate in fates
            ]


def test_what_fails_while_a_failure_is_taken_leaves_the_rest_open(genetic, told, play):
    with pytest.raises(RuntimeError, match="parent evaluation persistence failed") as caught:
        play([("dispatch", 0), ("dispatch", 1), ("signal", 1), ("forget",), ("fail", ONE)])
    assert told == [] and "finalize_simulation_attempt" not in play.world.called
    assert type(caught.value.__context__) is PoolError


def test_the_error_is_tested_for_the_pools_own_type_first(genetic, told, play):
    class Both(PoolError, KeyError):
        pass

    error = Both(**ONE)
    world, results = play([("dispatch", 0), ("throw", error)], work(1))
    assert len(results) == 2 and told == [("process_result_missing",)]


# The record of a process result.


def result(**attributes):
    return types.SimpleNamespace(**{
        "payload": {"a": 1}, "candidate_index": 2, "worker_pid": 7,
        "elapsed_simulation_seconds": 0.5, "attempt": 1, **attributes,
    })


def test_the_record_of_a_process_result(genetic):
    graph, stats = {"node": "g"}, object()
    payload = {"graph": graph, "stats": stats, "worker_pid": 1, "process_attempt": None}
    record = genetic._candidate_result_from_process_result(result(payload=payload))
    assert list(record.items()) == [
        ("graph", graph), ("stats", stats), ("worker_pid", 7), ("process_attempt", 1),
        ("candidate_index", 2), ("elapsed_simulation_seconds", 0.5),
    ]
    assert record["graph"] is graph and record["stats"] is stats and payload["worker_pid"] == 1
    for index in (9, None, ""):
        record = genetic._candidate_result_from_process_result(
            result(payload={"candidate_index": index})
        )
        assert record["candidate_index"] == index, "a key that is there is kept"


def test_the_submission_payload_of_a_process_result_is_shared(genetic):
    submission = {"eval_id": "e"}
    whole = result(payload={"submission_payload": submission})
    first = genetic._candidate_result_from_process_result(whole)
    assert first["submission_payload"] is submission and submission["worker_pid"] == 7
    whole.worker_pid = 8
    second = genetic._candidate_result_from_process_result(whole)
    assert second["worker_pid"] == 8 and submission["worker_pid"] == 7
    for other in (None, "text", [1], 5, object()):
        record = genetic._candidate_result_from_process_result(
            result(payload={"submission_payload": other})
        )
        assert record["submission_payload"] == other


def test_a_process_result_that_lacks_something(genetic):
    for name in ("payload", "candidate_index", "worker_pid", "elapsed_simulation_seconds",
                 "attempt"):
        one = result()
        delattr(one, name)
        with pytest.raises(AttributeError) as caught:
            genetic._candidate_result_from_process_result(one)
        assert str(caught.value) == f"'types.SimpleNamespace' object has no attribute '{name}'"
    with pytest.raises(TypeError):
        genetic._candidate_result_from_process_result(result(payload=5))
    assert genetic._candidate_result_from_process_result(result(payload=[("a", 2)]))["a"] == 2
