"""Improving near misses, on Python objects.

Goal: what the planner is handed, what comes back, and which objects those are; the two ways of
calling the selection; errors that stay the objects that they were. The keys and orders themselves
are compared with a second telling in test_reaction_reference.py. Method: engines and planners that
note their calls.
"""

import math
import types
from collections import OrderedDict
from fractions import Fraction

import pytest


def graph_named(name, *features):
    children = [{"node": feature, "type": "feature"} for feature in features]
    return {"node": name, "type": "rotation", "children": children}


def miss(name, violation=0.5, **entries):
    failure = {"value": 1.0 + violation, "threshold": 1.0}
    return {"graph": graph_named(name), "passes": False, "failures": {"turnover_max": failure},
            "sharpe": 1.0, "quality_score": 1.0, **entries}


@pytest.fixture
def planner(genetic, monkeypatch):
    """A planner that notes what it is asked and answers with `plans`."""

    class Planner:
        def __init__(self):
            self.calls = []
            self.plans = []

        def derive_reaction_improvements(self, *args, **keywords):
            self.calls.append((args, keywords))
            return self.plans(args[0]) if callable(self.plans) else self.plans

    planner = Planner()
    monkeypatch.setattr(genetic, "_reaction_planning", planner)
    return planner


# The planner.


def test_the_planner_gets_seven_keywords_in_order(genetic, planner, make_context):
    rotations = [{"name": "sma", "kind": "rotation"}]
    vocabulary = {"functions": rotations}
    validator = print
    ctx = make_context(vocabulary=vocabulary, _graph_validator=validator)
    result = miss("a", improvement_depth="2")
    peers = (graph_named("b"),)
    most = object()
    genetic._derive_reaction_improvements(ctx, result, max_plans=most, extra_data_graphs=peers)
    (args, keywords), = planner.calls
    assert len(args) == 1 and args[0] is result
    assert list(keywords) == [
        "vocabulary", "safe_rotation_specs", "validator", "structural_key", "improvement_depth",
        "max_plans", "extra_data_graphs",
    ]
    assert keywords["vocabulary"] is vocabulary
    assert keywords["safe_rotation_specs"] == rotations
    assert keywords["safe_rotation_specs"][0] is not rotations[0]
    assert keywords["validator"] is validator
    assert keywords["structural_key"] is genetic._structural_key
    assert keywords["improvement_depth"] == 3
    assert keywords["max_plans"] is most
    assert keywords["extra_data_graphs"] is peers


def test_what_is_missing_is_empty_or_none(genetic, planner, make_context):
    genetic._derive_reaction_improvements(make_context(), miss("a"))
    (_, keywords), = planner.calls
    assert keywords["vocabulary"] == {} and keywords["safe_rotation_specs"] == []
    assert keywords["validator"] is None and keywords["max_plans"] is None
    assert keywords["improvement_depth"] == 1 and keywords["extra_data_graphs"] == ()


def test_without_a_context_the_planner_is_asked_all_the_same(genetic, planner):
    genetic._derive_reaction_improvements(None, miss("a"))
    assert planner.calls[0][1]["vocabulary"] == {}


@pytest.mark.parametrize("plans", [["one", "two"], ("one", "two"), [], (), "text", None, 5])
def test_what_the_planner_returns_is_returned(genetic, planner, make_context, plans):
    planner.plans = plans
    assert genetic._derive_reaction_improvements(make_context(), miss("a")) is plans


def test_the_first_improvement(genetic, planner, make_context):
    first = {"graph": graph_named("x")}
    planner.plans = (first, {})
    assert genetic._derive_reaction_improvement(make_context(), miss("a")) is first
    planner.plans = []
    assert genetic._derive_reaction_improvement(make_context(), miss("a")) is None


def test_a_result_without_reaction_failure_is_not_planned_for(genetic, planner, make_context):
    for result in ({}, miss("a", passes=True), miss("a", failures={"correlation_exceeded": {}})):
        improvements = genetic._derive_reaction_improvements(make_context(), result)
        assert improvements == [] and type(improvements) is list
        assert genetic._derive_reaction_improvement(make_context(), result) is None
    assert planner.calls == []


def test_structural_key_is_what_the_module_has_now(genetic, planner, make_context, monkeypatch):
    def other(graph):
        return "key"

    monkeypatch.setattr(genetic, "_structural_key", other)
    genetic._derive_reaction_improvements(make_context(), miss("a"))
    assert planner.calls[0][1]["structural_key"] is other


def test_depths_of_any_size(genetic, planner, make_context):
    genetic._derive_reaction_improvements(make_context(), miss("a", improvement_depth=10**30))
    assert planner.calls[0][1]["improvement_depth"] == 10**30 + 1


class Interrupt(BaseException):
    pass


@pytest.mark.parametrize("error", [RuntimeError("no plan"), KeyError("x"), Interrupt()])
def test_an_error_of_the_planner_leaves_as_it_is(genetic, planner, make_context, error):
    def plans(result):
        raise error

    planner.plans = plans
    with pytest.raises(type(error)) as raised:
        genetic._derive_improvement_batch(
            make_context(), [miss("a")], set(), max_depth=None, remaining_candidates=None
        )
    assert raised.value is error


# Figures and keys.


@pytest.mark.parametrize(
    "result, quality",
    [
        ({"quality_score": 0.5, "sharpe": 2.0}, 0.5), ({"sharpe": 1.2}, 1.2), ({}, 0.0),
        ({"quality_score": None, "sharpe": 2.0}, 0.0), ({"quality_score": "x", "sharpe": 2}, 0.0),
        ({"quality_score": Fraction(1, 4)}, 0.25), (OrderedDict(sharpe="1.5"), 1.5),
    ],
)
def test_quality(genetic, result, quality):
    assert genetic._candidate_quality(result) == quality
    assert type(genetic._candidate_quality(result)) is float


@pytest.mark.parametrize(
    "value, depth",
    [(2, 2), ("2", 2), (1.9, 1), (-3, -3), ("x", 0), (None, 0), (math.nan, 0), (math.inf, 0),
     (True, 1), (10**30, 10**30), (Fraction(7, 2), 3), ([], 0)],
)
def test_depth(genetic, value, depth):
    assert genetic._improvement_depth({"improvement_depth": value}) == depth
    assert genetic._improvement_depth({}) == 0


def test_an_error_of_another_kind_leaves_a_conversion(genetic):
    error = KeyError("refused")

    class Refusing:
        def __int__(self):
            raise error

    with pytest.raises(KeyError) as raised:
        genetic._improvement_depth({"improvement_depth": Refusing()})
    assert raised.value is error


def test_keys_are_tuples_of_the_lengths_told(genetic):
    assert genetic._reaction_priority_key(miss("a", candidate_index="7")) == (-1.0, 0, 7)
    assert genetic._reaction_repair_priority_key(miss("a", candidate_index=7)) == (
        0, 0.5, 0, -1.0, 7,
    )
    far = miss("a", 1.25, candidate_index=7, improvement_depth=2)
    assert genetic._reaction_repair_priority_key(far) == (1, -1.0, 2, 7)
    assert genetic._failure_progress_key(far) == (1, 1.25)
    assert genetic._failure_signature(far) == ("turnover_max",)
    assert genetic._delta_exposure_peer_repair_key({"stats": {}}) == (0, 1.0)
    assert genetic._peer_feature_overlap_key({"a", "b"}, graph_named("x", "b", "c")) == (0, 1 / 3)
    assert genetic._peer_feature_overlap_key(frozenset("a"), graph_named("x", "a")) == (1, 1.0)
    for key in (genetic._reaction_priority_key(far), genetic._failure_progress_key(far),
                genetic._peer_feature_overlap_key(set(), {})):
        assert type(key) is tuple


def test_the_near_miss_key_asks_the_host_for_one_score(genetic, monkeypatch):
    asked = []

    def score(candidate, **keywords):
        asked.append((candidate, keywords))
        return Fraction(1, 2)

    monkeypatch.setattr(genetic, "score_candidate", score)
    result = miss("a", candidate_index=3, improvement_depth=1, correlation=0.25)
    key = genetic._actionable_near_miss_key(result)
    assert key == (1, 0.5, Fraction(-1, 2), -1.0, 1, 3) and type(key[2]) is Fraction
    (candidate, keywords), = asked
    assert candidate is result
    assert keywords == {
        "sibling_correlations": (), "pool_correlation": 0.25,
        "diversity_weight": genetic.DEFAULT_DIVERSITY_WEIGHT,
        "parsimony_weight": genetic.DEFAULT_PARSIMONY_WEIGHT,
    }


def test_features_are_a_set_of_texts(genetic):
    names = genetic._graph_feature_names(graph_named("x", "a", "b", "a"))
    assert names == {"a", "b"} and type(names) is set
    names.add("c")
    assert genetic._graph_feature_names({"type": "feature", "node": "a"}) == {"a"}


def deep_graph():
    graph = {"node": "leaf"}
    for _ in range(5_000):
        graph = {"node": "n", "children": [graph]}
    return graph


@pytest.mark.parametrize(
    "call",
    [
        lambda genetic, deep: genetic._graph_feature_names(deep),
        lambda genetic, deep: genetic._reaction_peer_graphs([miss("a", graph=deep)], miss("b")),
        lambda genetic, deep: genetic._select_actionable_near_miss_parents(
            [miss("a", graph=deep)], 1
        ),
    ],
)
def test_a_graph_that_is_too_deep_is_an_ordinary_error(genetic, call):
    with pytest.raises(RecursionError):
        call(genetic, deep_graph())


@pytest.mark.parametrize(
    "reason, improvements, rounds, exhausted",
    [
        ("max_improvement_rounds", 0, 0, False), ("max_improvement_rounds", 0, 1, True),
        ("max_improvement_candidates", 1, 0, True), ("no_improvement", 0, 0, True),
        ("duplicate", 0, 0, True), ("max_improvement_depth", 0, 0, True), ("other", 5, 5, False),
        (None, 5, 5, False), ("stopped", 5, 5, False),
    ],
)
def test_reasons_that_exhaust_the_near_misses(genetic, reason, improvements, rounds, exhausted):
    assert genetic._improvement_terminal_exhausts_near_misses(
        reason, improvements, rounds
    ) is exhausted


def test_reasons_that_end_the_search(genetic):
    assert genetic._improvement_terminal_ends_search("fork_unavailable") is True
    assert genetic._improvement_terminal_ends_search("duplicate") is False
    assert genetic._improvement_terminal_ends_search(None) is False


# Selections and peers.


def test_the_third_argument_tells_the_two_calls_apart(genetic, make_engine, make_context):
    engine = make_engine(_stats_gate_threshold_set={}, _stats_gate_metrics={})
    results = [miss("a")]
    ctx = make_context(thresholds={})
    assert genetic._select_actionable_near_miss_parents(results, 1) == results
    assert engine.called == []
    assert genetic._select_actionable_near_miss_parents(ctx, results, 1) == results
    assert engine.called == ["_stats_gate_threshold_set"]
    # An absent third argument is none: the first one holds the results.
    assert genetic._select_actionable_near_miss_parents(results, "x", None) == results


def test_chosen_near_misses_and_peers_are_the_very_objects(genetic):
    results = [miss("a"), miss("b", graph=graph_named("b", "x")), types.MappingProxyType(miss("c"))]
    chosen = genetic._select_actionable_near_miss_parents(iter(results), 2)
    assert type(chosen) is list and sorted(map(id, chosen)) == sorted(map(id, results))
    peers = genetic._reaction_peer_graphs(tuple(results), results[0])
    assert {id(graph) for graph in peers} == {id(one["graph"]) for one in results[1:]}


def test_constants_of_the_module_may_be_replaced(genetic, monkeypatch):
    results = [miss(f"n{index}") for index in range(20)]
    monkeypatch.setattr(genetic, "DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS", 12)
    assert len(genetic._select_actionable_near_miss_parents(results, 1)) == 12


# Batches.


def plans_of(*names):
    def plans(result):
        return [
            {"graph": graph_named(name), "source_result": result, "reaction_plan": name,
             "improvement_depth": 1}
            for name in names
        ]

    return plans


def derive(genetic, ctx, results, seen, max_depth=None, remaining=None, **keywords):
    return genetic._derive_improvement_batch(
        ctx, results, seen, max_depth=max_depth, remaining_candidates=remaining, **keywords
    )


def test_the_report_of_a_batch(genetic, planner, make_context):
    planner.plans = plans_of("x", "y", "x", "old")
    seen = {genetic._structural_key(graph_named("old"))}
    source = miss("a")
    report = derive(genetic, make_context(), [source], seen)
    assert list(report) == [
        "improvements", "eligible_count", "duplicate_count", "depth_limited_count",
        "candidate_limit_reached",
    ]
    assert [one["reaction_plan"] for one in report["improvements"]] == ["x", "y"]
    assert all(one["source_result"] is source for one in report["improvements"])
    assert (report["eligible_count"], report["duplicate_count"]) == (1, 2)
    assert report["depth_limited_count"] == 0 and report["candidate_limit_reached"] is False
    assert seen == {genetic._structural_key(graph_named(name)) for name in ("old", "x", "y")}


def test_a_batch_of_nothing(genetic, make_context):
    assert derive(genetic, make_context(), [], set()) == {
        "improvements": [], "eligible_count": 0, "duplicate_count": 0, "depth_limited_count": 0,
        "candidate_limit_reached": False,
    }


def test_the_limit_on_candidates(genetic, planner, make_context):
    planner.plans = plans_of("x", "y")
    seen = set()
    report = derive(genetic, make_context(), [miss("a")], seen, remaining=0)
    assert report["improvements"] == [] and report["candidate_limit_reached"] is True
    assert seen == set()
    assert derive(genetic, make_context(), [miss("a")], set(), remaining=2)[
        "candidate_limit_reached"
    ] is False


@pytest.mark.parametrize(
    "limit, accepted",
    [(None, 12), (0, 8), (-1, 8), ("x", 8), ("3", 3), (2.9, 2), (math.nan, 8), ([], 8)],
)
def test_the_limit_on_plans_of_a_source(genetic, planner, make_context, limit, accepted):
    planner.plans = plans_of(*(f"n{index}" for index in range(12)))
    report = derive(genetic, make_context(), [miss("a")], set(), max_plans_per_result=limit)
    assert len(report["improvements"]) == accepted
    assert planner.calls[0][1]["max_plans"] is None


def test_the_limit_on_depth_fails_as_a_comparison_does(genetic, make_context):
    with pytest.raises(TypeError, match="'>=' not supported between instances of 'int' and 'str'"):
        derive(genetic, make_context(), [miss("a")], set(), max_depth="3")


def test_an_improvement_without_graph(genetic, planner, make_context):
    planner.plans = [{}]
    with pytest.raises(KeyError, match="graph"):
        derive(genetic, make_context(), [miss("a")], set())


def test_limits_are_keywords(genetic, make_context):
    with pytest.raises(TypeError):
        genetic._derive_improvement_batch(make_context(), [], set(), None, None)
    with pytest.raises(TypeError):
        genetic._derive_improvement_batch(make_context(), [], set(), max_depth=None)
    with pytest.raises(TypeError):
        genetic._derive_reaction_improvements(make_context(), {}, 3)


def test_the_source_pool_has_the_near_misses_first(genetic, make_context):
    far, near, passing = miss("far", 0.75), miss("near", 0.25), miss("p", passes=True)
    pool = genetic._improvement_source_pool(
        make_context(), [far, near], [passing, far, 5, {"graph": None}], 1
    )
    assert [id(one) for one in pool] == [id(near), id(far), id(passing)]


def test_a_source_pool_without_a_batch_size_takes_the_context_for_the_results(
    genetic, make_context
):
    """The near misses are asked for with three arguments, the last of them None."""
    with pytest.raises(TypeError, match="'Context' object is not iterable"):
        genetic._improvement_source_pool(make_context(), [miss("a")], [], None)
    one = miss("one")
    assert genetic._improvement_source_pool([one], 3, [], None) == [one]


def test_the_sum_of_no_seconds_is_an_integer(genetic):
    assert repr(genetic._elapsed_candidate_seconds([])) == "0"
    assert repr(genetic._elapsed_candidate_seconds([{}])) == "0.0"


def test_indexes_of_any_size(genetic):
    results = [{}, {}]
    assert genetic._annotate_candidate_results(
        results, start_index=2**63 - 1, improvement_depth=0
    ) is results
    assert results[1]["candidate_index"] == 2**63
