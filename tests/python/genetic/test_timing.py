"""Timings of backtests, on Python objects.

Goal: every road to the parent carries the same timing, a bad one is a RuntimeError with its cause,
and the host's module is imported when it is needed and no sooner. Method: timings modules whose
operations note their calls, and a plain version of the rules over random candidates.
"""

import importlib
import math
import random
import sys
import traceback
import types
from collections import OrderedDict

import pytest

NAME = "varnholt.simulation.backtest_timing"
MISSING = "genetic candidate is missing serialized backtest timing"
INVALID = "genetic candidate has invalid backtest timing: "
DISAGREES = "genetic candidate backtest timing disagrees with "
EVIDENCE_DISAGREES = (
    "genetic candidate attempt evidence backtest timing disagrees with "
    "submission payload backtest timing"
)


def calls_of(genetic):
    """A call through each of the rules that ask the host to validate, with what it asks."""
    graph, timing = {"node": "a"}, {"seconds": 1}
    candidate = {"graph": graph, "backtest_timing": timing}
    return {
        "validate_backtest_timing_payload": [
            lambda: genetic._validated_process_backtest_timing(timing),
            lambda: genetic._candidate_backtest_timing_payload(None, candidate),
        ],
        "validate_graph_backtest_timing_payload": [
            lambda: genetic._validated_graph_backtest_timing(graph, timing),
            lambda: genetic._graph_bound_process_backtest_timing(graph, timing),
            lambda: genetic._process_backtest_timing(graph, {"backtest_timing": timing}, None),
            lambda: genetic._candidate_backtest_timing_payload(None, candidate),
        ],
        "validate_process_backtest_timing_payload": [
            lambda: genetic._validated_graph_process_backtest_timing(graph, timing),
            lambda: genetic._candidate_backtest_timing_payload(
                None, candidate, require_process_identity=True
            ),
        ],
        "consume_recorded_backtest_timing_payload": [
            lambda: genetic._consumed_process_backtest_timing(graph, None),
            lambda: genetic._process_backtest_timing(graph, None, None),
        ],
    }


def working_timings(**others):
    return {
        "validate_backtest_timing_payload": lambda timing: timing,
        "validate_graph_backtest_timing_payload": lambda graph, timing: timing,
        "validate_process_backtest_timing_payload": lambda graph, timing: timing,
        "consume_recorded_backtest_timing_payload": lambda *args, include_identity: {},
        "graph_timing_key": lambda graph: "key",
        **others,
    }


@pytest.mark.parametrize("operation", sorted(set(working_timings()) - {"graph_timing_key"}))
@pytest.mark.parametrize(
    "error",
    [TypeError("a bad type"), ValueError(), OverflowError("ö"), UnicodeError("\udcff"),
     type("Own", (ValueError,), {"__str__": lambda self: "own text"})()],
    ids=lambda error: type(error).__name__,
)
def test_a_bad_timing_is_a_runtime_error_with_its_cause(genetic, make_timings, operation, error):
    make_timings(**working_timings(**{operation: error}))
    for call in calls_of(genetic)[operation]:
        error.__traceback__ = None
        with pytest.raises(RuntimeError) as caught:
            call()
        assert type(caught.value) is RuntimeError
        assert caught.value.args == (INVALID + str(error),)
        assert caught.value.__cause__ is error and caught.value.__context__ is error
        assert caught.value.__suppress_context__ is True
        frames = traceback.extract_tb(error.__traceback__)
        assert frames[-1].name == "operation", "the cause keeps its traceback"


@pytest.mark.parametrize(
    "error",
    [KeyError("k"), RuntimeError("own"), AttributeError("a"), ZeroDivisionError(), RecursionError(),
     KeyboardInterrupt()],
    ids=lambda error: type(error).__name__,
)
def test_every_other_error_passes_as_it_is(genetic, make_timings, error):
    for operation, calls in calls_of(genetic).items():
        make_timings(**working_timings(**{operation: error}))
        for call in calls:
            with pytest.raises(type(error)) as caught:
                call()
            assert caught.value is error and caught.value.__cause__ is None


def test_the_graphs_key_is_no_validating_call(genetic, make_timings):
    error = TypeError("no key")
    make_timings(**working_timings(graph_timing_key=error))
    with pytest.raises(TypeError) as caught:
        genetic._graph_bound_process_backtest_timing({}, {})
    assert caught.value is error


def test_the_import_is_outside_of_the_guard(genetic, monkeypatch):
    monkeypatch.setitem(sys.modules, NAME, types.ModuleType(NAME))
    for operation, calls in calls_of(genetic).items():
        if operation == "validate_process_backtest_timing_payload":
            continue  # The candidate is validated first.
        with pytest.raises(ImportError, match="cannot import name") as caught:
            calls[0]()
        assert caught.value.name == NAME
        assert str(caught.value) == f"cannot import name '{operation}' from '{NAME}' " \
                                    "(unknown location)"
    monkeypatch.setitem(sys.modules, NAME, None)
    with pytest.raises(ModuleNotFoundError):
        genetic._validated_process_backtest_timing({})

    class Refusing(types.ModuleType):
        def __getattr__(self, name):
            raise ValueError("not now")

    monkeypatch.setitem(sys.modules, NAME, Refusing(NAME))
    with pytest.raises(ValueError, match="not now"):
        genetic._validated_process_backtest_timing({})


def test_the_import_error_is_the_one_of_the_statement(genetic, monkeypatch):
    module = importlib.import_module(NAME)
    monkeypatch.delattr(module, "validate_backtest_timing_payload")
    with pytest.raises(ImportError) as expected:
        exec(f"from {NAME} import validate_backtest_timing_payload")
    with pytest.raises(ImportError) as caught:
        genetic._validated_process_backtest_timing({"seconds": 1})
    assert str(caught.value) == str(expected.value)
    assert caught.value.path == expected.value.path


def test_an_operation_that_cannot_be_called_is_a_bad_timing(genetic, monkeypatch):
    module = types.ModuleType(NAME)
    module.validate_backtest_timing_payload = 5
    monkeypatch.setitem(sys.modules, NAME, module)
    with pytest.raises(RuntimeError) as caught:
        genetic._validated_process_backtest_timing({})
    assert caught.value.args == (INVALID + "'int' object is not callable",)


def test_the_hosts_own_object_is_handed_back_and_written_into(genetic, make_timings):
    class Timing(dict):
        pass

    made = Timing(seconds=1)
    graph, given = {"node": "g"}, {"seconds": 1}
    timings = make_timings(**working_timings(
        validate_graph_backtest_timing_payload=lambda *args: made,
        graph_timing_key=lambda graph: ["unhashable"],
    ))
    assert genetic._graph_bound_process_backtest_timing(graph, given) is made
    assert made == {"seconds": 1, "graph_key": ["unhashable"]} and given == {"seconds": 1}
    assert timings.calls == [
        ("validate_graph_backtest_timing_payload", (graph, given), {}),
        ("graph_timing_key", (graph,), {}),
    ]
    assert timings.calls[0][1][0] is graph and timings.calls[0][1][1] is given
    # A host that returns its argument has the evidence itself changed.
    make_timings(**working_timings())
    evidence = {"backtest_timing": {"seconds": 1}}
    assert genetic._process_backtest_timing(graph, evidence, {}) is evidence["backtest_timing"]
    assert evidence == {"backtest_timing": {"seconds": 1, "graph_key": "key"}}
    make_timings(**working_timings(validate_graph_backtest_timing_payload=7))
    with pytest.raises(TypeError, match="'int' object does not support item assignment"):
        genetic._graph_bound_process_backtest_timing(graph, given)


@pytest.mark.parametrize(
    "payload, arguments",
    [
        (None, ()), (5, ()), ({}, ()), ({"other": 1}, ()), ([("backtest_timing", 1)], ()),
        ({"backtest_timing": None}, (None,)), ({"backtest_timing": {"s": 1}}, ({"s": 1},)),
        (OrderedDict(backtest_timing=3), (3,)),
        (types.MappingProxyType({"backtest_timing": 4}), (4,)),
    ],
    ids=repr,
)
def test_what_the_consuming_operation_is_given(genetic, make_timings, payload, arguments):
    timings = make_timings(**working_timings())
    graph = {"node": 1}
    genetic._consumed_process_backtest_timing(graph, payload)
    assert timings.calls == [
        ("consume_recorded_backtest_timing_payload", (graph, *arguments),
         {"include_identity": True})
    ]
    assert timings.calls[0][1][0] is graph
    # Without a timing in the evidence the same is asked, whatever the evidence is.
    for evidence in (None, 5, {}, {"backtest_timing": None}):
        timings.calls.clear()
        genetic._process_backtest_timing(graph, evidence, payload)
        assert timings.calls[0][1] == (graph, *arguments)


def test_a_mapping_decides_itself_what_it_holds(genetic, make_timings):
    class Odd(dict):
        def __contains__(self, key):
            return key == "backtest_timing"

        def __getitem__(self, key):
            return "item of " + key

    timings = make_timings(**working_timings())
    genetic._consumed_process_backtest_timing({}, Odd())
    assert timings.calls[0][1] == ({}, "item of backtest_timing")


@pytest.mark.parametrize(
    "left, right, agree",
    [
        ({"a": 1, "b": 2.0}, {"b": 2, "a": True}, True),
        ({"a": 1}, OrderedDict(a=1), True),
        ({"a": 1}, {"a": 2}, False),
        ({"a": [1, {"b": 2}]}, {"a": [1, {"b": 3}]}, False),
        ({"a": math.nan}, {"a": math.nan}, True),
        ({"a": float("nan")}, {"a": float("nan")}, False),
        ("text", "text", True),
    ],
    ids=repr,
)
def test_agreement_is_pythons_equality(genetic, make_timings, left, right, agree):
    make_timings(**working_timings(graph_timing_key=lambda graph: "key"))
    candidate = {"backtest_timing": left, "submission_payload": {"backtest_timing": right}}
    evidence = {"backtest_timing": left}
    if agree:
        assert genetic._candidate_backtest_timing_payload(None, candidate) == left
    else:
        with pytest.raises(RuntimeError) as caught:
            genetic._candidate_backtest_timing_payload(None, candidate)
        assert caught.value.args == (DISAGREES + "submission payload backtest timing",)
        assert caught.value.__cause__ is None
        with pytest.raises(RuntimeError) as caught:
            genetic._process_backtest_timing({}, evidence, candidate["submission_payload"])
        assert caught.value.args == (EVIDENCE_DISAGREES,)


def test_an_equality_that_fails_passes(genetic, make_timings):
    class Odd:
        def __eq__(self, other):
            raise LookupError("cannot compare")

    make_timings(**working_timings())
    candidate = {"backtest_timing": Odd(), "submission_payload": {"backtest_timing": Odd()}}
    with pytest.raises(LookupError, match="cannot compare"):
        genetic._candidate_backtest_timing_payload(None, candidate)


def test_an_absent_value_under_the_payloads_key_is_compared_with_the_evidence(
    genetic, make_timings
):
    timings = make_timings(**working_timings(
        validate_graph_backtest_timing_payload=lambda graph, timing: dict(timing or {}),
    ))
    evidence = {"backtest_timing": {"seconds": 1}}
    with pytest.raises(RuntimeError, match="attempt evidence backtest timing disagrees"):
        genetic._process_backtest_timing({}, evidence, {"backtest_timing": None})
    assert timings.calls[2] == ("validate_graph_backtest_timing_payload", ({}, None), {})


def test_all_are_validated_before_any_two_are_compared(genetic, make_timings):
    timings = make_timings(**working_timings())
    candidate = {
        "graph": {"node": "g"},
        "backtest_timing": {"seconds": 1},
        "attempt_evidence": {"backtest_timing": {"seconds": 2}},
        "submission_payload": {"backtest_timing": {"seconds": 3}},
    }
    with pytest.raises(RuntimeError) as caught:
        genetic._candidate_backtest_timing_payload(None, candidate)
    assert caught.value.args == (DISAGREES + "attempt evidence backtest timing",)
    assert timings.called == ["validate_backtest_timing_payload"] * 3


def test_whether_the_process_counts_is_asked_when_all_agree(genetic, make_timings):
    asked = []

    class Asked:
        def __bool__(self):
            asked.append(list(timings.called))
            return True

    def payload(candidate):
        return genetic._candidate_backtest_timing_payload(
            None, candidate, require_process_identity=Asked()
        )

    timings = make_timings(**working_timings())
    seconds = [{"seconds": 1}, {"seconds": 2}]
    for candidate in (
        {}, {"backtest_timing": seconds[0], "attempt_evidence": {"backtest_timing": seconds[1]}}
    ):
        with pytest.raises(RuntimeError):
            payload(candidate)
        assert asked == []
    timings.calls.clear()
    payload({"backtest_timing": seconds[0]})
    assert asked == [["validate_backtest_timing_payload"]]
    assert timings.called[-1] == "validate_process_backtest_timing_payload"


def plain_payload(timings, candidate, require):
    found = []
    for source, holder in (
        ("candidate", candidate),
        ("attempt evidence", candidate.get("attempt_evidence")),
        ("submission payload", candidate.get("submission_payload")),
    ):
        if isinstance(holder, dict) and holder.get("backtest_timing") is not None:
            timing = timings.validate_backtest_timing_payload(holder["backtest_timing"])
            found.append((source, timing))
    if not found:
        raise RuntimeError(MISSING)
    for source, timing in found[1:]:
        if timing != found[0][1]:
            raise RuntimeError(DISAGREES + source + " backtest timing")
    kind = "process" if require else "graph"
    validate = getattr(timings, f"validate_{kind}_backtest_timing_payload")
    return validate(candidate.get("graph"), found[0][1])


def test_random_candidates(genetic, make_timings):
    for seed in range(300):
        rng = random.Random(seed)

        def timing():
            return rng.choice([None, {}, {"seconds": 1}, {"seconds": 1.0}, {"seconds": 2}])

        candidate = {"graph": {"node": "g"}}
        if rng.random() < 0.6:
            candidate["backtest_timing"] = timing()
        for key in ("attempt_evidence", "submission_payload"):
            candidate[key] = rng.choice([None, 5, {}, {"backtest_timing": timing()}])
        require = rng.choice([False, True, 0, "yes"])
        outcomes, calls = [], []
        for run in (
            lambda timings: plain_payload(timings, candidate, require),
            lambda timings: genetic._candidate_backtest_timing_payload(
                object(), candidate, require_process_identity=require
            ),
        ):
            timings = make_timings(**working_timings())
            try:
                outcomes.append(run(timings))
            except RuntimeError as error:
                outcomes.append(error.args)
            calls.append(timings.calls)
        assert outcomes[0] == outcomes[1] and calls[0] == calls[1], f"seed {seed}"
