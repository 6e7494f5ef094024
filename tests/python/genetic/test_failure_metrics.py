"""Failures worth repairing, on Python objects.

Goal: membership, truth and attributes are Python's; recorded results are never changed. Method:
tables, engines that note their calls, and plain versions of the rules over random results.
"""

import copy
import json
import random
import types
from collections import OrderedDict

import pytest

REACTION = (
    "turnover_max", "turnover_exceeded", "max_weight_max", "max_weight_exceeded",
    "delta_exposure_max", "delta_exposure_exceeded", "abs_weight_sum_mean_below_min",
    "sharpe_min", "gross_returns_sharpe_below_min",
)
GATES = ("correlation_exceeded", "pnl_mi_below_threshold")


class WithGet:
    """No mapping, but with the operation that a result is read by."""

    def __init__(self, **entries):
        self.entries = entries

    def get(self, key):
        return self.entries.get(key)


def gate_failure(reason, **others):
    figures = dict(actual=2, threshold=1, gate="g", operator=">", category="c")
    return types.SimpleNamespace(reason=reason, metric=reason + "_metric", **{**figures, **others})


def answers(*failures, **others):
    return {
        "_stats_gate_threshold_set": lambda thresholds, era: {"set": thresholds},
        "_stats_gate_metrics": lambda stats: {"of": stats},
        "threshold_gate_failure_reason": lambda failure: failure.reason,
        "threshold_gate_failure_metric": lambda failure: failure.metric,
        "_recorded_failure_detail": lambda reason, metric, value, threshold, **keywords: {
            "metric": metric, "value": value, "threshold": threshold, **keywords
        },
        **others,
    }


@pytest.fixture
def make_gates(genetic, make_engine, monkeypatch):
    """An engine as given, and gates that find these failures; what the gates got is on `gates`."""

    def make(*failures, result=None, **others):
        engine = make_engine(**answers(**others))
        engine.gates = []

        def evaluate_threshold_gates(*, metrics, threshold_set):
            engine.gates.append((metrics, threshold_set))
            if isinstance(result, BaseException):
                raise result
            return types.SimpleNamespace(failures=list(failures)) if result is None else result

        monkeypatch.setattr(genetic, "_evaluate_threshold_gates", evaluate_threshold_gates)
        return engine

    return make


# Membership.


@pytest.mark.parametrize(
    "failures, reaction, gate",
    [
        ({}, False, False), (None, False, False), ({"other": {}}, False, False),
        *(({reason: None}, True, False) for reason in REACTION),
        *(({reason: None}, False, True) for reason in GATES),
        ({"sharpe_min": 1, "correlation_exceeded": 1}, True, True),
        (["sharpe_min"], True, False), (("x", "correlation_exceeded"), False, True),
        ({"sharpe_min"}, True, False), (frozenset(GATES), False, True),
        ("a sharpe_min, perhaps", True, False), ("sharpe", False, False),
        (OrderedDict(sharpe_min=1), True, False),
        (types.MappingProxyType({"sharpe_min": 1}), True, False),
        (0, False, False), ([], False, False),
    ],
    ids=repr,
)
def test_which_failures_can_be_repaired(genetic, failures, reaction, gate):
    for result in ({"failures": failures}, OrderedDict(passes=0, failures=failures)):
        assert genetic._has_actionable_near_miss_failure(result) is (reaction or gate)
        assert genetic._has_gate_near_miss_failure(result) is gate
    assert genetic._has_reaction_failure(WithGet(failures=failures)) is reaction
    passing = {"passes": "yes", "failures": failures}
    assert genetic._has_actionable_near_miss_failure(passing) is False


def test_membership_is_asked_of_the_object_itself(genetic):
    asked = []

    class Failures:
        def __contains__(self, reason):
            asked.append(reason)
            return reason == "sharpe_min"

    assert genetic._has_reaction_failure({"failures": Failures()}) is True
    assert asked == list(REACTION[:8])

    class Own(dict):
        def __contains__(self, reason):
            return reason == "correlation_exceeded"

    # An iterator is used up by the first question.
    assert genetic._has_reaction_failure({"failures": iter(["turnover_max"])}) is True
    assert genetic._has_reaction_failure({"failures": iter(["sharpe_min"])}) is False

    result = {"failures": Own(sharpe_min=1)}
    assert genetic._has_reaction_failure(result) is False
    assert genetic._has_failure_reason(result, ["correlation_exceeded"]) is True

    class Falsy(dict):
        def __bool__(self):
            return False

    assert genetic._has_reaction_failure({"failures": Falsy(sharpe_min=1)}) is False
    assert genetic._has_failure_reason({"failures": Falsy(sharpe_min=1)}, ["sharpe_min"]) is True


def test_what_cannot_be_asked_fails(genetic):
    with pytest.raises(TypeError, match="argument of type 'int' is not iterable"):
        genetic._has_reaction_failure({"failures": 5})
    with pytest.raises(TypeError, match="is not iterable"):
        genetic._has_reaction_failure({"failures": object()})
    with pytest.raises(AttributeError, match="'NoneType' object has no attribute 'get'"):
        genetic._has_reaction_failure(None)
    with pytest.raises(AttributeError, match="'int' object has no attribute 'get'"):
        genetic._has_gate_near_miss_failure(5)
    error = LookupError("truth")

    class Passes:
        def __bool__(self):
            raise error

    with pytest.raises(LookupError) as caught:
        genetic._has_reaction_failure({"passes": Passes()})
    assert caught.value is error


def test_named_reasons(genetic):
    has = genetic._has_failure_reason
    result = {"passes": True, "failures": {"a": 1, 2: 2, (3, 4): 5}}
    assert has(result, ["x", "a"]) is True, "a passing result too"
    assert has(result, iter([2.0])) is True
    assert has(result, {(3, 4): None}) is True
    assert has(result, "ba") is True, "a text is walked by its letters"
    assert has(result, []) is False
    assert has({"failures": ["a"]}, ["a"]) is False
    for nothing in ({}, None, WithGet(failures={"a": 1})):
        assert has(nothing, 5) is False
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        has(result, 5)
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        has(result, [[]])


# Thresholds.


def test_thresholds_are_merged_in_their_order(genetic, make_engine):
    engine = make_engine(_stats_gate_threshold_set="the set")
    own, public, era = {"a": 1, "b": 1}, OrderedDict(b=2, c=2), object()
    context = types.SimpleNamespace(
        thresholds=own, _thresholds=public, era_config=era, _era_config=1,
        _search_context_thresholds=lambda: types.MappingProxyType({"c": 3, "d": 3}),
    )
    assert genetic._context_thresholds(context) == "the set"
    ((_, (merged, config), keywords),) = engine.calls
    assert list(merged.items()) == [("a", 1), ("b", 2), ("c", 3), ("d", 3)]
    assert type(merged) is dict and merged is not own and config is era and keywords == {}
    assert own == {"a": 1, "b": 1}


@pytest.mark.parametrize("source", [None, 5, "text", [("a", 1)], {}, types.MappingProxyType({})])
def test_what_is_no_mapping_or_empty_adds_nothing(genetic, make_engine, source):
    for attributes in ({"thresholds": source}, {"_thresholds": source},
                       {"_search_context_thresholds": lambda: source},
                       {"_search_context_thresholds": source}):
        engine = make_engine(_stats_gate_threshold_set=None)
        assert genetic._context_thresholds(types.SimpleNamespace(**attributes)) is None
        assert engine.calls[0][1] == ({}, None)


def test_which_failures_of_thresholds_pass(genetic, make_engine):
    engine = make_engine(_stats_gate_threshold_set=0)

    def context(error):
        def fail():
            raise error

        return types.SimpleNamespace(_search_context_thresholds=fail, _era_config=5)

    assert genetic._context_thresholds(context(RuntimeError())) == 0
    assert engine.calls[0][1] == ({}, 5)
    with pytest.raises(KeyboardInterrupt):
        genetic._context_thresholds(context(KeyboardInterrupt()))

    class Falsy(dict):
        def __bool__(self):
            raise ValueError("truth")

    with pytest.raises(ValueError, match="truth"):
        genetic._context_thresholds(types.SimpleNamespace(_search_context_thresholds=Falsy))
    error = KeyError("set")
    make_engine(_stats_gate_threshold_set=error)
    with pytest.raises(KeyError) as caught:
        genetic._context_thresholds(object())
    assert caught.value is error


def test_the_metrics_of_a_result(genetic, make_engine):
    engine = make_engine(_stats_gate_metrics="metrics")
    stats = object()
    for result, given in (
        ({"stats": stats}, stats), (OrderedDict(stats=0), 0),
        (types.MappingProxyType({"stats": stats}), stats),
    ):
        assert genetic._stats_gate_metrics_for_result(result) == "metrics"
        assert engine.calls.pop()[1] == (given,)
    for result in ({"stats": None}, {}, WithGet(stats=stats), stats):
        genetic._stats_gate_metrics_for_result(result)
        assert engine.calls.pop()[1][0] is result


# Expansion.


def test_the_gates_failures(genetic, make_gates):
    failures = [
        gate_failure("sharpe_min"), gate_failure("other"), gate_failure("turnover_max"),
        gate_failure("sharpe_min", actual=9),
    ]
    engine = make_gates(*failures)
    result = {"stats": 7, "failures": {}}
    expanded = genetic._expanded_threshold_failures(object(), result)
    assert type(expanded) is dict and list(expanded) == ["sharpe_min", "turnover_max"]
    assert list(expanded["turnover_max"].items()) == [
        ("reason", "turnover_max"),
        ("detail", {"metric": "turnover_max_metric", "value": 2, "threshold": 1, "gate": "g",
                    "operator": ">", "category": "c"}),
    ]
    assert expanded["sharpe_min"]["detail"]["value"] == 9, "the later one, at the first one's place"
    assert engine.gates == [({"of": 7}, {"set": {}})]
    assert engine.called == [
        "_stats_gate_threshold_set", "_stats_gate_metrics",
        *["threshold_gate_failure_reason", "threshold_gate_failure_metric",
          "_recorded_failure_detail"],
        "threshold_gate_failure_reason",
        *["threshold_gate_failure_reason", "threshold_gate_failure_metric",
          "_recorded_failure_detail"] * 2,
    ]


def test_a_gate_failure_without_attributes(genetic, make_gates):
    engine = make_gates(
        object(), threshold_gate_failure_reason="sharpe_min", threshold_gate_failure_metric="m"
    )
    genetic._expanded_threshold_failures(object(), {})
    assert engine.calls[-1] == (
        "_recorded_failure_detail", ("sharpe_min", "m", None, None),
        {"gate": None, "operator": None, "category": None},
    )


def test_when_nothing_is_expanded(genetic, make_gates):
    engine = make_gates(gate_failure("sharpe_min"))
    assert genetic._expanded_threshold_failures(object(), {"passes": 1}) == {}
    assert engine.calls == []
    engine = make_gates(gate_failure("sharpe_min"), _stats_gate_threshold_set=[])
    assert genetic._expanded_threshold_failures(object(), {}) == {} and engine.gates == []
    for others in ({"result": KeyError("gates")}, {"_stats_gate_metrics": KeyError("metrics")}):
        make_gates(gate_failure("sharpe_min"), **others)
        assert genetic._expanded_threshold_failures(object(), {}) == {}
    make_gates(result=object())
    assert genetic._expanded_threshold_failures(object(), {}) == {}, "no failures at all"
    make_gates(gate_failure("sharpe_min"), threshold_gate_failure_reason=["sharpe_min"])
    assert genetic._expanded_threshold_failures(object(), {}) == {}, "equality, not a hash"


def test_which_failures_of_an_expansion_pass(genetic, make_gates):
    for others in (
        {"_stats_gate_threshold_set": LookupError("x")},
        {"threshold_gate_failure_reason": LookupError("x")},
        {"threshold_gate_failure_metric": LookupError("x")},
        {"_recorded_failure_detail": LookupError("x")},
    ):
        make_gates(gate_failure("sharpe_min"), **others)
        with pytest.raises(LookupError):
            genetic._expanded_threshold_failures(object(), {})
    make_gates(result=KeyboardInterrupt())
    with pytest.raises(KeyboardInterrupt):
        genetic._expanded_threshold_failures(object(), {})
    make_gates(result=types.SimpleNamespace(failures=None))
    with pytest.raises(TypeError, match="'NoneType' object is not iterable"):
        genetic._expanded_threshold_failures(object(), {})

    class Lazy:
        @property
        def failures(self):
            raise LookupError("lazy")

    make_gates(result=Lazy())
    with pytest.raises(LookupError, match="lazy"):
        genetic._expanded_threshold_failures(object(), {})


def test_an_expansion_is_a_copy_and_nothing_else_changes(genetic, make_gates):
    make_gates(gate_failure("sharpe_min"), gate_failure("turnover_max"))
    kept = {"reason": "turnover_max", "value": 0}
    result = {"passes": False, "failures": {"turnover_max": kept, "own": 1}, "stats": {"s": 1}}
    before = copy.deepcopy(result)
    expanded = genetic._with_expanded_reaction_failures(object(), result)
    assert result == before and expanded is not result
    assert expanded["failures"] is not result["failures"] and expanded["stats"] is result["stats"]
    assert list(expanded) == ["passes", "failures", "stats"]
    assert list(expanded["failures"]) == ["turnover_max", "own", "sharpe_min"]
    assert expanded["failures"]["turnover_max"] is kept
    # The stored expansion carries a value now, so that nothing is found to change.
    assert genetic._with_expanded_reaction_failures(object(), expanded) is expanded


@pytest.mark.parametrize(
    "recorded, replaced",
    [
        (None, True), ("text", True), ([], True), ({}, True), ({"detail": "no JSON {"}, True),
        ({"detail": "[1]"}, True), ({"detail": {}}, True), ({"value": None}, True),
        ({"value": 0}, False), ({"threshold": 0}, False), ({"detail": {"value": 0}}, False),
        ({"detail": '{"threshold": false}'}, False), (OrderedDict(value=""), False),
        ({"value": None, "detail": '{"value": null}'}, True),
    ],
    ids=repr,
)
def test_a_failure_with_a_figure_is_never_replaced(genetic, make_gates, recorded, replaced):
    make_gates(gate_failure("sharpe_min"))
    result = {"failures": {"sharpe_min": recorded}}
    expanded = genetic._with_expanded_reaction_failures(object(), result)
    assert (expanded is result) is not replaced
    if replaced:
        assert expanded["failures"]["sharpe_min"]["detail"]["value"] == 2


def test_what_is_handed_back_untouched(genetic, make_gates):
    engine = make_gates(gate_failure("sharpe_min"))
    for result in ({"failures": {}}, 5, None, (1, 2), "text", [{}]):
        assert genetic._with_expanded_reaction_failures(None, result) is result
    for result in (5, None, (1, 2), "some text", WithGet(), object()):
        assert genetic._with_expanded_reaction_failures(object(), result) is result
    assert engine.calls == []


def test_a_result_of_any_mapping_kind_becomes_a_dict(genetic, make_gates):
    make_gates(gate_failure("sharpe_min"))
    for result in (OrderedDict(a=1), types.MappingProxyType({"a": 1})):
        expanded = genetic._with_expanded_reaction_failures(object(), result)
        assert type(expanded) is dict and list(expanded) == ["a", "failures"]
        assert "failures" not in result


@pytest.mark.parametrize(
    "failures, error",
    [(5, TypeError), ("text", ValueError), ([1], TypeError), ([("a", 1, 2)], ValueError)],
    ids=repr,
)
def test_failures_that_make_no_mapping_fail(genetic, make_gates, failures, error):
    make_gates(gate_failure("sharpe_min"))
    with pytest.raises(error) as caught:
        genetic._with_expanded_reaction_failures(object(), {"failures": failures})
    with pytest.raises(error) as expected:
        dict(failures)
    assert str(caught.value) == str(expected.value)


def test_pairs_make_a_mapping(genetic, make_gates):
    make_gates(gate_failure("sharpe_min"))
    for failures in ([("a", 1)], (["a", 1],), iter([("a", 1)])):
        expanded = genetic._with_expanded_reaction_failures(object(), {"failures": failures})
        assert list(expanded["failures"]) == ["a", "sharpe_min"]


# The same in plain words.


def plain_pair(failure):
    if not isinstance(failure, dict):
        return None, None
    if failure.get("value") is not None or failure.get("threshold") is not None:
        return failure.get("value"), failure.get("threshold")
    detail = failure.get("detail")
    if isinstance(detail, str):
        try:
            detail = json.loads(detail)
        except Exception:
            detail = None
    if not isinstance(detail, dict):
        return None, None
    return detail.get("value"), detail.get("threshold")


def plain_number(value):
    try:
        return float(value)
    except (TypeError, ValueError, OverflowError):
        return None


def plain_sharpe(result, metrics):
    candidates = [result.get("sharpe"), metrics.get("sharpe")]
    threshold = None
    failures = result.get("failures")
    for reason in ("sharpe_min", "gross_returns_sharpe_below_min"):
        if isinstance(failures, dict) and threshold is None:
            value, limit = plain_pair(failures.get(reason))
            candidates.append(value)
            threshold = plain_number(limit)
    numbers = [plain_number(one) for one in candidates]
    return next((one for one in numbers if one is not None), None), threshold


def test_random_results(genetic, make_gates):
    figures = [None, 0, 1.5, "2", "x", True, -3, "NaN", [], 10**20]
    for seed in range(500):
        rng = random.Random(seed)

        def figure():
            return {
                key: rng.choice(figures) for key in ("value", "threshold") if rng.random() < 0.6
            }

        def failure():
            made = figure() if rng.random() < 0.4 else {}
            if rng.random() < 0.7:
                detail = figure()
                made["detail"] = rng.choice([detail, json.dumps(detail), "{", None, 5])
            return rng.choice([made, made, made, None, "text"])

        reasons = rng.sample(REACTION + GATES, rng.randrange(4))
        result = {"sharpe": rng.choice(figures)}
        result["failures"] = rng.choice([{reason: failure() for reason in reasons}, None, {}])
        metrics = {"sharpe": rng.choice(figures)}
        found = [gate_failure(reason) for reason in rng.sample(REACTION, rng.randrange(3))]
        make_gates(*found, _stats_gate_metrics=metrics)
        before = copy.deepcopy(result)
        for one in (result["failures"] or {}).values():
            assert repr(genetic._failure_metric_pair(one)) == repr(plain_pair(one)), seed
        pair = genetic._sharpe_reaction_metric_pair(result)
        assert repr(pair) == repr(plain_sharpe(result, metrics)), f"seed {seed}"
        expanded = genetic._with_expanded_reaction_failures(object(), result)
        expected = dict(result["failures"] or {})
        for one in found:
            if plain_pair(expected.get(one.reason)) == (None, None):
                expected[one.reason] = "expanded"
        seen = {
            reason: "expanded" if isinstance(one, dict) and "metric" in str(one) else one
            for reason, one in (expanded["failures"] or {}).items()
        }
        assert list(seen.items()) == list(expected.items()), f"seed {seed}"
        assert result == before, f"seed {seed}"
