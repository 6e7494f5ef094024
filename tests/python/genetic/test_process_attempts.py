"""Attempts in processes of their own, on Python objects.

Goal: an attempt's row is created and ended with exactly the keywords, texts, order of keys and
order of reads that a tracker relies on, and the three flags settle what the attempt was. Method: a
host that writes down every read and call, and each combination of the flags beside a table by hand.
"""

import inspect
import itertools
import pickle
import sys
import types
from collections import OrderedDict

import pytest
from attempt_host import Thing, World, world  # noqa: F401

# (dispatched, backtest_started, cancelled): (type, disposition, category, source).
TABLE = {
    (False, False, False): (
        "process_dispatch_failed", "resource_blocked", "resource", "process_evaluation"),
    (True, False, False): (
        "process_worker_failed_backtest_state_unknown", "resource_blocked", "resource",
        "process_evaluation"),
    (False, True, False): (
        "process_backtest_execution_failed", "backtest_failed", "execution",
        "process_evaluation"),
    (True, True, False): (
        "process_backtest_execution_failed", "backtest_failed", "execution",
        "process_evaluation"),
    (False, False, True): (
        "process_search_cancelled", "cancelled", "operator", "client_lifecycle"),
    (True, False, True): (
        "process_search_cancelled", "cancelled", "operator", "client_lifecycle"),
    (False, True, True): (
        "process_search_cancelled", "cancelled", "operator", "client_lifecycle"),
    (True, True, True): (
        "process_search_cancelled", "cancelled", "operator", "client_lifecycle"),
}


def finalized(world):
    """The keywords of the one end."""
    (line,) = [line for line in world.log if line[0] == "finalize_simulation_attempt"]
    return line[2]


# Creating.


def test_the_keywords_of_a_new_attempt(genetic, world):
    given = {}

    def create(**keywords):
        given.update(keywords)
        return identity

    identity, graph, columns = Thing("id"), {"node": "g"}, ("a", "b")
    world.tracker._held["create_simulation_attempt"] = create
    world.context._held["_attempt_expected_columns"] = columns
    assert genetic._create_process_attempt(world.context, 3, graph) is identity
    assert list(given.items()) == [
        ("product_run_id", ("run", 1)),
        ("source_path", "search_signal"),
        ("graph", graph),
        ("algorithm", "genetic"),
        ("rotation_identifier", "candidate-3"),
        ("era_number", 12),
        ("market_id", "market"),
        ("data_shape", ("shape", columns)),
        ("expected_columns", columns),
        ("eval_type", "signal"),
    ]
    assert given["graph"] is graph and given["expected_columns"] is columns
    assert given["product_run_id"] is world.context._held["_product_run_id"]


def test_the_operation_is_looked_up_before_its_arguments_are_read(genetic, world):
    genetic._create_process_attempt(world.context, 0, {})
    assert [line[:3] if line[0] == "read" else line[0] for line in world.log] == [
        ("read", "context", "_tracker"),
        ("read", "tracker", "create_simulation_attempt"),
        ("read", "context", "_product_run_id"),
        ("read", "context", "_era_number"),
        ("read", "context", "_market_id"),
        ("read", "engine", "_attempt_declared_data_shape"),
        ("read", "context", "_attempt_expected_columns"),
        "_attempt_declared_data_shape",
        ("read", "context", "_attempt_expected_columns"),
        "create_simulation_attempt",
    ]


@pytest.mark.parametrize(
    "index, name", [("7", "candidate-7"), (2.9, "candidate-2"), (True, "candidate-1"),
                    (2**70, f"candidate-{2**70}"), (-1, "candidate--1")],
    ids=repr,
)
def test_the_index_in_the_name_is_an_integer(genetic, world, index, name):
    genetic._create_process_attempt(world.context, index, {})
    assert world.log[-1][2]["rotation_identifier"] == name


def test_a_bad_index_fails_after_the_run_id_is_read(genetic, world):
    with pytest.raises(ValueError):
        genetic._create_process_attempt(world.context, "x", {})
    assert [line[2] for line in world.log] == [
        "_tracker", "create_simulation_attempt", "_product_run_id"
    ]


@pytest.mark.parametrize(
    "name", ["_tracker", "_product_run_id", "_era_number", "_market_id",
             "_attempt_expected_columns"]
)
def test_a_context_must_have_what_an_attempt_is_created_with(genetic, monkeypatch, name):
    # No resolved value stands in: a context that only has `market_id` fails.
    world = World(without=[name])
    world.bind(genetic, monkeypatch)
    world.context._held.update(market_id=5, era_number=6)
    with pytest.raises(AttributeError, match=f"^context has no {name}$"):
        genetic._create_process_attempt(world.context, 0, {})
    assert "create_simulation_attempt" not in world.called


def test_a_tracker_that_fails_leaves_its_own_error(genetic, monkeypatch):
    for error in (OSError("disk"), KeyboardInterrupt()):
        world = World(failures={1: (error, False)})
        world.bind(genetic, monkeypatch)
        with pytest.raises(type(error)) as caught:
            genetic._create_process_attempt(world.context, 0, {})
        assert caught.value is error


# The blocker.


@pytest.mark.parametrize("flags, row", TABLE.items(), ids=str)
def test_the_blocker_of_every_combination(genetic, flags, row):
    assert genetic._process_attempt_blocker("r", "d", *flags) == {
        "type": row[0], "reason": "r", "detail": "d",
    }


def test_the_blocker_without_a_detail_has_no_such_key(genetic):
    blocker = genetic._process_attempt_blocker(5, None, True, False)
    assert list(blocker.items()) == [
        ("type", "process_worker_failed_backtest_state_unknown"), ("reason", "5")
    ]
    for detail, text in (("", ""), (0, "0"), (ValueError("bad"), "bad"), (KeyError("k"), "'k'")):
        blocker = genetic._process_attempt_blocker(None, detail, False, False, cancelled=True)
        assert list(blocker.items()) == [
            ("type", "process_search_cancelled"), ("reason", "None"), ("detail", text)
        ]


def test_flags_are_asked_for_their_truth(genetic):
    blocker = genetic._process_attempt_blocker
    assert blocker("r", None, 1, [], 0)["type"] == "process_worker_failed_backtest_state_unknown"
    assert blocker("r", None, None, "x", "")["type"] == "process_backtest_execution_failed"
    assert blocker("r", None, None, None, [0])["type"] == "process_search_cancelled"


def test_a_text_form_that_fails_leaves_its_own_error(genetic):
    error = RuntimeError("no text")

    class Mute:
        def __str__(self):
            raise error

    for arguments in ((Mute(), None), ("r", Mute())):
        with pytest.raises(RuntimeError) as caught:
            genetic._process_attempt_blocker(*arguments, True, True)
        assert caught.value is error


# The evidence.


@pytest.mark.parametrize("flags, row", TABLE.items(), ids=str)
def test_the_evidence_of_every_combination(genetic, world, flags, row):
    evidence = genetic._process_attempt_evidence(world.context, "r", None, *flags)
    assert list(evidence.items()) == [
        ("backtest_started", flags[1]),
        ("backtest_completed", False),
        ("generated_stats", None),
        ("candidate_stats", None),
        ("stats_construction_blocker", {"type": row[0], "reason": "r"}),
        ("per_column_inventory", [("a", "b"), {}]),
        ("terminal_disposition_override", row[1]),
        ("threshold_verdict_override", "blocked" if flags[0] else "skipped"),
        ("failure_category_override", row[2]),
        ("classification_source_override", row[3]),
    ]
    assert evidence["backtest_started"] is flags[1]
    assert world.log == [
        ("read", "context", "_attempt_expected_columns"),
        ("build_column_inventory", (("a", "b"), {}), {}),
    ]


def test_the_inventory_is_the_hosts_own_object(genetic, world):
    inventory = ("columns", object())
    world.accounting.build_column_inventory = lambda *args: inventory
    evidence = genetic._process_attempt_evidence(world.context, "r", "d", 1, "yes", 0)
    assert evidence["per_column_inventory"] is inventory
    assert evidence["backtest_started"] is True
    assert evidence["stats_construction_blocker"]["detail"] == "d"


# Ending.


@pytest.mark.parametrize("flags, row", TABLE.items(), ids=str)
def test_the_end_of_every_combination(genetic, world, flags, row):
    dispatched, backtest_started, cancelled = flags
    assert genetic._finalize_process_failure_attempt(
        world.context, "id", "reason", ValueError("why"), dispatched=dispatched,
        backtest_started=backtest_started, cancelled=cancelled,
    ) is None
    name, positional, keywords = world.log[-1]
    verdict = {"status": "not_evaluated"}
    assert (name, positional) == ("finalize_simulation_attempt", ("id",))
    assert list(keywords.items()) == [
        ("terminal_disposition", row[1]),
        ("backtest_completed", False),
        ("generated_stats", None),
        ("candidate_stats", None),
        ("stats_construction_blocker", {"type": row[0], "reason": "reason", "detail": "why"}),
        ("expected_columns", ("a", "b")),
        ("per_column_inventory", [("a", "b"), {}]),
        ("threshold_gate", {
            "verdict": "blocked" if dispatched else "skipped",
            "reason": "reason",
            "detail": "why",
            "threshold_set": {"ready": {"sharpe": 1.0}},
            "stats_verdict": verdict,
            "correlation_verdict": verdict,
            "mi_verdict": verdict,
        }),
        ("failure_category", row[2]),
        ("failure_reason", "search_stopped" if cancelled else "reason"),
        ("failure_detail", "why"),
        ("classification_source", row[3]),
    ]
    assert list(keywords["threshold_gate"]) == [
        "verdict", "reason", "detail", "threshold_set", "stats_verdict", "correlation_verdict",
        "mi_verdict",
    ]
    assert list(keywords["stats_construction_blocker"]) == ["type", "reason", "detail"]


def test_the_order_in_which_an_end_asks_the_host(genetic, world):
    genetic._finalize_process_failure_attempt(
        world.context, "id", "r", dispatched=True, backtest_started=False
    )
    assert [line[:3] if line[0] == "read" else line[0] for line in world.log] == [
        "not_evaluated_verdict",
        ("read", "context", "_tracker"),
        ("read", "tracker", "finalize_simulation_attempt"),
        ("read", "context", "_attempt_expected_columns"),
        ("read", "context", "_attempt_expected_columns"),
        "build_column_inventory",
        ("read", "context", "_thresholds"),
        "json_ready",
        "finalize_simulation_attempt",
    ]


def test_an_absent_detail_is_absent_in_two_places_and_missing_in_the_third(genetic, world):
    genetic._finalize_process_failure_attempt(
        world.context, "id", None, None, dispatched=0, backtest_started=0, cancelled=0
    )
    keywords = finalized(world)
    assert keywords["failure_detail"] is None and keywords["threshold_gate"]["detail"] is None
    assert keywords["stats_construction_blocker"] == {
        "type": "process_dispatch_failed", "reason": "None",
    }
    assert keywords["failure_reason"] == "None"


def test_an_empty_detail_is_a_detail(genetic, world):
    genetic._finalize_process_failure_attempt(
        world.context, "id", "r", "", dispatched=True, backtest_started=True
    )
    keywords = finalized(world)
    assert keywords["failure_detail"] == "" == keywords["threshold_gate"]["detail"]
    assert keywords["stats_construction_blocker"]["detail"] == ""


def test_the_three_verdicts_are_three_mappings(genetic, world):
    one = OrderedDict(status="not_evaluated", inner=[])
    given = {}
    world.verdicts.not_evaluated_verdict = lambda: one
    world.tracker._held["finalize_simulation_attempt"] = (
        lambda attempt_id, **keywords: given.update(keywords)
    )
    genetic._finalize_process_failure_attempt(
        world.context, "id", "r", dispatched=True, backtest_started=True
    )
    gate = given["threshold_gate"]
    verdicts = [gate[name] for name in ("stats_verdict", "correlation_verdict", "mi_verdict")]
    assert verdicts == [one, one, one]
    assert len({id(verdict) for verdict in [*verdicts, one]}) == 4
    assert [type(verdict) for verdict in verdicts] == [dict] * 3
    assert all(verdict["inner"] is one["inner"] for verdict in verdicts), "the copy is shallow"


@pytest.mark.parametrize("verdict", [None, 5, object()], ids=repr)
def test_a_verdict_that_is_no_mapping_fails(genetic, world, verdict):
    world.verdicts.not_evaluated_verdict = lambda: verdict
    with pytest.raises(TypeError):
        genetic._finalize_process_failure_attempt(
            world.context, "id", "r", dispatched=True, backtest_started=True
        )
    assert "finalize_simulation_attempt" not in world.called


def test_what_the_host_gave_is_handed_on_as_it_is(genetic, world):
    columns, identity, ready = ("a",), ("id", 1), ("ready",)
    given = []
    world.context._held["_attempt_expected_columns"] = columns
    world.accounting.json_ready = lambda value: ready
    world.tracker._held["finalize_simulation_attempt"] = (
        lambda attempt_id, **keywords: given.extend((attempt_id, keywords))
    )
    genetic._finalize_process_failure_attempt(
        world.context, identity, "r", dispatched=True, backtest_started=True
    )
    assert given[0] is identity and given[1]["expected_columns"] is columns
    assert given[1]["threshold_gate"]["threshold_set"] is ready


@pytest.mark.parametrize("name", ["_tracker", "_attempt_expected_columns", "_thresholds"])
def test_an_end_needs_the_whole_context(genetic, monkeypatch, name):
    world = World(without=[name])
    world.bind(genetic, monkeypatch)
    world.context._held["thresholds"] = {}
    with pytest.raises(AttributeError, match=f"^context has no {name}$"):
        genetic._finalize_process_failure_attempt(
            world.context, "id", "r", dispatched=True, backtest_started=True
        )
    assert "finalize_simulation_attempt" not in world.called


def test_every_call_of_an_end_may_fail(genetic, monkeypatch):
    for number in range(4):
        error = OSError(number)
        world = World(failures={number: (error, False)})
        world.bind(genetic, monkeypatch)
        with pytest.raises(OSError) as caught:
            genetic._finalize_process_failure_attempt(
                world.context, "id", "r", dispatched=True, backtest_started=True
            )
        assert caught.value is error and len(world.called) == number + 1


# Modules that are imported when they are called.


def test_accounts_are_imported_at_each_call(genetic, monkeypatch):
    name = "varnholt.simulation.attempt_accounting"
    for number in range(2):
        made = types.SimpleNamespace(
            build_column_inventory=lambda *args, number=number: (number, args),
            json_ready=lambda *args, number=number: (number, args),
        )
        monkeypatch.setitem(sys.modules, name, made)
        assert genetic._build_attempt_column_inventory("c", "s") == (number, ("c", "s"))
        assert genetic._attempt_json_ready("v") == (number, ("v",))
    monkeypatch.setitem(sys.modules, name, types.ModuleType(name))
    with pytest.raises(ImportError, match="cannot import name"):
        genetic._build_attempt_column_inventory(1, 2)
    with pytest.raises(ImportError, match="cannot import name"):
        genetic._attempt_json_ready(1)
    monkeypatch.setitem(sys.modules, name, None)
    with pytest.raises(ModuleNotFoundError):
        genetic._attempt_json_ready(1)


def test_accounts_get_and_give_the_very_objects(genetic, world):
    for value in (("t",), "some text", 2**70, 1.5, None, object(), {"a": 1}):
        seen = []
        world.accounting.json_ready = lambda given, seen=seen: seen.append(given) or given
        assert genetic._attempt_json_ready(value) is value and seen[0] is value
        world.accounting.build_column_inventory = lambda columns, stats: stats
        assert genetic._build_attempt_column_inventory((), value) is value


# The face.


@pytest.mark.parametrize(
    "name, signature",
    [
        ("_create_process_attempt", "(ctx, candidate_index, graph)"),
        ("_finalize_process_failure_attempt",
         "(ctx, attempt_id, reason, detail=None, *, dispatched, backtest_started, "
         "cancelled=False)"),
        ("_process_attempt_blocker",
         "(reason, detail, dispatched, backtest_started, cancelled=False)"),
        ("_process_attempt_evidence",
         "(ctx, reason, detail, dispatched, backtest_started, cancelled)"),
        ("_build_attempt_column_inventory", "(expected_columns, per_column_stats)"),
        ("_attempt_json_ready", "(value)"),
    ],
)
def test_functions_show_what_they_are(genetic, name, signature):
    function = getattr(genetic, name)
    assert str(inspect.signature(function)) == signature
    assert function.__doc__ and function.__module__ == genetic.__name__
    assert pickle.loads(pickle.dumps(function)) is function


def test_every_argument_can_be_given_by_name(genetic, world):
    assert genetic._create_process_attempt(ctx=world.context, candidate_index=0, graph={}) == 100
    for flags in itertools.product((False, True), repeat=2):
        names = dict(zip(("dispatched", "backtest_started"), flags))
        genetic._process_attempt_blocker(reason="r", detail=None, cancelled=True, **names)
        genetic._process_attempt_evidence(
            ctx=world.context, reason="r", detail=None, cancelled=True, **names
        )
    with pytest.raises(TypeError):
        genetic._process_attempt_evidence(world.context, "r", None, True, True)
    with pytest.raises(TypeError):
        genetic._finalize_process_failure_attempt(world.context, "id", "r", None, True, True)
