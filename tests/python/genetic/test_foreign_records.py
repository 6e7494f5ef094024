"""Records that are no plain dicts.

Goal: a record of any class is read, written, copied and compared by the operations that Python's
own statements would use on it, with the arguments that they would pass. Method: classes that
override one operation each, or have only the operations that are needed.
"""

import copy
import sqlite3
import types
from collections import defaultdict
from collections.abc import Mapping

import pytest


class OneArgument(dict):
    """A dict whose `get` takes the key alone, and copies what it gives."""

    def get(self, key):
        return copy.deepcopy(dict.get(self, key))


def test_get_is_called_with_the_key_alone(genetic):
    assert genetic._failure_metric_pair(OneArgument(detail={"value": 3})) == (3, None)
    assert genetic._failure_metric_pair(OneArgument(detail={"value": 3, "threshold": 4})) == (3, 4)
    assert genetic._candidate_eval_id(OneArgument(candidate_index=7)) == "genetic-candidate-7"


def test_a_fallback_is_passed_on(genetic, monkeypatch):
    asked = []

    class Asked(dict):
        def get(self, *arguments):
            asked.append(arguments)
            return dict.get(self, *arguments)

    monkeypatch.setattr(genetic, "score_candidate", lambda *_, **__: 1)
    genetic.rank_submittable_candidates([Asked(passes=True)])
    assert ("candidate_index", 0) in asked


class Duck:
    """Has `get` and items that can be set, and is no mapping."""

    def __init__(self, **entries):
        self._entries = entries

    def get(self, key, fallback=None):
        return self._entries.get(key, fallback)

    def __setitem__(self, key, value):
        self._entries[key] = value


def test_what_has_get_and_items_will_do(genetic):
    assert genetic._candidate_eval_id(Duck(eval_id="e")) == "e"
    payload = Duck(market_id="7")
    genetic._ensure_payload_market_era(payload, types.SimpleNamespace(_era_number=2))
    assert payload._entries == {"market_id": 7, "era_number": 2}


def test_what_it_lacks_fails_with_pythons_error(genetic):
    with pytest.raises(AttributeError, match="^'object' object has no attribute 'get'$"):
        genetic._candidate_eval_id(object())

    class OnlyGet:
        def get(self, key):
            return 7 if key == "market_id" else None

    context = types.SimpleNamespace()
    with pytest.raises(TypeError, match="'OnlyGet' object does not support item assignment"):
        genetic._ensure_payload_market_era(OnlyGet(), context)


def test_what_is_read_by_key_is_made_by_a_default_dict(genetic, make_timings):
    make_timings(consume_recorded_backtest_timing_payload=lambda graph, timing=0, **_: timing)

    class Claims(defaultdict):
        def __contains__(self, key):
            return True

    payload = Claims(lambda: "made")
    assert genetic._consumed_process_backtest_timing({}, payload) == "made"
    assert payload == {"backtest_timing": "made"}
    assert genetic._candidate_rejection_reason(Claims(dict)) is None  # `get` makes nothing.


# Copies.


@pytest.fixture
def expand(genetic, make_engine, make_context, monkeypatch):
    """Expands a result, of which the gates find that it fails "sharpe_min"."""
    failure = types.SimpleNamespace(
        reason="sharpe_min", actual=1, threshold=2, gate="g", operator="<", category="c")
    make_engine(
        _stats_gate_threshold_set=lambda thresholds, era: {"sharpe": 2},
        _stats_gate_metrics=lambda stats: {},
        threshold_gate_failure_reason=lambda failure: failure.reason,
        threshold_gate_failure_metric=lambda failure: "sharpe",
        _recorded_failure_detail=lambda *_, **__: {"value": 1},
    )
    monkeypatch.setattr(genetic, "_evaluate_threshold_gates",
                        lambda **_: types.SimpleNamespace(failures=[failure]))
    context = make_context(_thresholds={"sharpe": 2})
    return lambda result: genetic._with_expanded_reaction_failures(context, result)


def row(**entries):
    connection = sqlite3.connect(":memory:")
    connection.row_factory = sqlite3.Row
    names = ", ".join(f"? AS {name}" for name in entries)
    return connection.execute(f"SELECT {names}", tuple(entries.values())).fetchone()


def test_failures_with_keys_and_items_are_converted_as_dict_does(expand):
    failures = row(sharpe_min="x", other="y")
    expanded = expand({"failures": failures})["failures"]
    assert list(expanded) == ["sharpe_min", "other"]
    assert expanded["other"] == "y" and expanded["sharpe_min"]["reason"] == "sharpe_min"


class OddItems(dict):
    """A dict whose `items` tells something else than what is stored."""

    def items(self):
        return [("odd", 1)]


def test_a_copy_has_what_is_stored_whatever_items_says(expand):
    result = OddItems(failures=OddItems(a={"reason": "a"}), kept=1)
    expanded = expand(result)
    assert list(expanded) == ["failures", "kept"]
    assert list(expanded["failures"]) == ["a", "sharpe_min"]


class Stopping(Mapping):
    """A mapping whose items fail with the exception that ends a walk."""

    def __getitem__(self, key):
        raise StopIteration(key)

    def __iter__(self):
        return iter(["k"])

    def __len__(self):
        raise KeyError("nobody asks how many")

    def __bool__(self):
        return True


def test_a_copy_asks_for_keys_and_their_items_alone(expand):
    with pytest.raises(StopIteration):
        expand({"failures": Stopping()})


def test_a_threshold_mapping_is_merged_as_update_does(genetic, make_context):
    context = make_context(_era_config=None)
    context._search_context_thresholds = lambda: OddItems(sharpe_min=1)
    merged = genetic._context_thresholds(context)
    assert "odd" not in merged


# Deep copies.


class Items(list):
    pass


def test_what_a_host_container_shares_with_the_graph_stays_shared(genetic):
    shared = {"node": "a"}
    cyclic = {"node": "c"}
    cyclic["self"] = Items([cyclic])
    graph = {"children": [shared, cyclic], "other": Items([shared])}
    copies = []
    genetic._graph_passes_validator(graph, copies.append)
    (copied,) = copies
    assert copied is not graph and copied["children"][0] is not shared
    assert copied["children"][0] is copied["other"][0]
    assert copied["children"][1]["self"][0] is copied["children"][1]
    assert type(copied["other"]) is Items


def test_an_object_is_copied_once_for_all_its_places(genetic):
    class Counted:
        copies = 0

        def __deepcopy__(self, memo):
            Counted.copies += 1
            return Counted()

    node = Counted()
    copies = []
    genetic._graph_passes_validator({"a": node, "b": Items([node]), "c": [node]}, copies.append)
    assert Counted.copies == 1
    assert copies[0]["a"] is copies[0]["b"][0] is copies[0]["c"][0]


# Numbers and equality.


def test_a_float_subtype_is_asked_whether_it_is_whole(genetic):
    class Says(float):
        def __new__(cls, value, whole):
            made = float.__new__(cls, value)
            made.whole = whole
            return made

        def is_integer(self):
            if isinstance(self.whole, Exception):
                raise self.whole
            return self.whole

    assert genetic._positive_int_or_none(Says(7.5, True)) == 7
    assert genetic._positive_int_or_none(Says(7.0, [])) is None
    assert genetic._positive_int_or_none(7.5) is None
    with pytest.raises(KeyError):
        genetic._positive_int_or_none(Says(7.0, KeyError("k")))


def test_equality_is_what_pythons_operator_says(genetic, make_timings):
    class Always:
        def __eq__(self, other):
            return True

        __hash__ = None

    class Never:
        def __eq__(self, other):
            return False

        __hash__ = None

    class Different:
        def __ne__(self, other):
            return True

        def __eq__(self, other):
            return True

        __hash__ = None

    make_timings(validate_backtest_timing_payload=lambda timing: timing,
                 validate_graph_backtest_timing_payload=lambda graph, timing: timing)
    message = "disagrees with attempt evidence backtest timing"

    def timing(candidate, evidence):
        return genetic._candidate_backtest_timing_payload(None, {
            "backtest_timing": candidate, "attempt_evidence": {"backtest_timing": evidence}})

    # The evidence's side of the comparison comes first, and its answer stands.
    with pytest.raises(RuntimeError, match=message):
        timing({"a": Always()}, {"a": Never()})
    timing({"a": Never()}, {"a": Always()})
    with pytest.raises(RuntimeError, match=message):
        timing(Different(), Different())


def test_a_subtype_of_int_is_a_batch_size(genetic, make_context):
    class Count(int):
        pass

    class Unlike:
        def __index__(self):
            return 2

    def batch(batch_size):
        config = types.SimpleNamespace(_batch_size=batch_size)
        return genetic._run_deduplicated_batch(make_context(), config, [{"a": 1}, {"a": 2}], set())

    assert batch(Count(2))["graphs"] == batch(2)["graphs"] == [{"a": 1}, {"a": 2}]
    with pytest.raises(TypeError, match="'<' not supported between .*'int' and 'Unlike'"):
        batch(Unlike())


def test_subtypes_of_int_are_subtracted_exactly(genetic, monkeypatch):
    class Score(int):
        pass

    scores = [Score(2**53 + 1), Score(2**53), Score(2**53 + 4)]
    monkeypatch.setattr(genetic, "score_candidate", lambda c, **_: scores[c["i"]])
    parents = [{"graph": {}, "i": i} for i in range(3)]
    draw = types.SimpleNamespace(random=lambda: 0.02558)  # Weights 1.001, 0.001 and 4.001.
    assert genetic._weighted_parent_index(parents, draw, 0.0, 0.0) == 0
