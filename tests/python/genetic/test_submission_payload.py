"""Evaluation ids, payloads and the ranking, on Python objects.

Goal: ids are those of Python's `json` and `hashlib`, payloads share what they are told to share,
and the ranking is Python's sort. Method: tables, and contexts and engines with answers as given.
"""

import copy
import decimal
import hashlib
import json
import math
import random
import types
from collections import OrderedDict

import pytest


@pytest.fixture
def passing():
    return {
        "passes": True, "graph": {"node": "g"}, "candidate_index": 3, "quality_score": 1.0,
        "backtest_timing": {"seconds": 1},
    }


# Evaluation ids.


@pytest.mark.parametrize("eval_id", [0, "", False, "x", 2**70, []], ids=repr)
def test_an_id_that_is_there_stands_as_it_is(genetic, eval_id):
    assert genetic._candidate_eval_id({"eval_id": eval_id, "candidate_index": 1}) is eval_id or (
        genetic._candidate_eval_id({"eval_id": eval_id}) == eval_id
    )


@pytest.mark.parametrize(
    "index, text",
    [(0, "0"), (True, "True"), ("", ""), (1.0, "1.0"), (2**70, str(2**70)), ("\udcff", "\udcff"),
     ([1], "[1]"), (math.nan, "nan")],
)
def test_an_id_made_of_the_index(genetic, index, text):
    assert genetic._candidate_eval_id({"candidate_index": index}) == "genetic-candidate-" + text


@pytest.mark.parametrize(
    "graph",
    [None, {}, {"node": "näme \U0001f40d", "children": [{"b": 1, "a": [1.5, None, True]}]},
     {"x": "\ud800", "y": 2**70, "z": math.nan}],
    ids=repr,
)
def test_an_id_made_of_the_graph_is_the_one_of_hashlib_and_json(genetic, graph):
    text = json.dumps(graph, sort_keys=True, separators=(",", ":"))
    digest = hashlib.sha256(text.encode("utf-8")).hexdigest()[:16]
    candidate = {"graph": graph, "eval_id": None, "candidate_index": None}
    assert genetic._candidate_eval_id(candidate) == "genetic-graph-" + digest


# Rejection reasons.


@pytest.mark.parametrize(
    "failures, reason",
    [
        (None, None), ({}, None), ([], None), (["a"], None), ("text", None), (5, None),
        ({"b": 1, "a": 2}, "b"), (OrderedDict(z=1), "z"), ({(1, 2): 3}, (1, 2)), ({None: 1}, None),
        (types.MappingProxyType({"k": 1}), "k"), ({7: 1}, 7),
    ],
    ids=repr,
)
def test_the_first_reason(genetic, failures, reason):
    result = genetic._candidate_rejection_reason({"failures": failures})
    assert result == reason and type(result) is type(reason)


def test_a_mapping_that_is_true_and_gives_nothing_has_no_reason(genetic):
    class Odd(dict):
        def __bool__(self):
            return self.true

    odd = Odd()
    odd.true = True
    assert genetic._candidate_rejection_reason({"failures": odd}) is None
    odd["a"] = 1
    assert genetic._candidate_rejection_reason({"failures": odd}) == "a"
    odd.true = False
    assert genetic._candidate_rejection_reason({"failures": odd}) is None


# Payloads.


def test_a_new_payload_has_its_keys_in_their_order(genetic, make_engine, passing):
    manifest = []

    def annotate(payload, sync_mgr):
        manifest.append((payload, dict(payload), sync_mgr))
        payload["market_id"] = "8"
        payload["client_manifest_era_number"] = 5

    make_engine(_annotate_submission_client_manifest=annotate)
    metaparameters, owner, sync = {"m": 1}, object(), object()
    context = types.SimpleNamespace(
        _named_universe="all", _signal_pool_name="pool", _metaparameters=metaparameters,
        _sync_mgr=sync, _submission_owner=owner, market_id="7",
    )
    passing["source_attempt_id"] = 0
    passing["elapsed_simulation_seconds"] = 0.5
    payload = genetic._ensure_candidate_submission_payload(context, passing)
    assert type(payload) is dict and passing["submission_payload"] is payload
    assert list(payload) == [
        "eval_id", "submission_type", "graph", "named_universe", "signal_pool_name", "is_stats",
        "metaparameters", "search_state", "expression_elapsed_seconds", "backtest_timing",
        "market_id", "client_manifest_era_number", "era_number", "_submission_owner",
        "_source_attempt_id",
    ]
    assert payload["eval_id"] == "genetic-candidate-3" and payload["submission_type"] == "signal"
    assert payload["graph"] is passing["graph"] and payload["metaparameters"] is metaparameters
    assert payload["_submission_owner"] is owner and payload["_source_attempt_id"] == 0
    assert payload["search_state"] == {} and payload["is_stats"]["sharpe"] == 0.0
    # The manifest writes into the payload itself, whose market is made whole afterwards.
    ((written, then, given),) = manifest
    assert written is payload and given is sync and then["market_id"] == 7
    assert (payload["market_id"], payload["era_number"]) == (8, 5)
    assert passing["backtest_timing"] is payload["backtest_timing"]


def test_what_a_bare_context_gives(genetic, passing):
    payload = genetic._ensure_candidate_submission_payload(object(), passing)
    assert payload["named_universe"] == "" and payload["signal_pool_name"] is None
    assert payload["metaparameters"] == {} and "_submission_owner" not in payload
    context = types.SimpleNamespace(
        _named_universe=None, _metaparameters=None, _submission_owner=None
    )
    passing.pop("submission_payload")
    payload = genetic._ensure_candidate_submission_payload(context, passing)
    assert payload["named_universe"] is None and payload["metaparameters"] is None
    assert "_submission_owner" not in payload


@pytest.mark.parametrize("passes", [False, 0, None, "", "missing"])
def test_what_does_not_pass_has_no_payload(genetic, make_timings, passes):
    make_timings()
    candidate = {"passes": passes} if passes != "missing" else {}
    before = dict(candidate)
    assert genetic._ensure_candidate_submission_payload(object(), candidate) is None
    assert candidate == before


@pytest.mark.parametrize("kind", [dict, OrderedDict])
def test_a_payload_that_is_there_is_only_completed(genetic, make_engine, passing, kind):
    engine = make_engine()
    payload = kind(market_id="x", eval_id=None, own=1)
    passing.update(submission_payload=payload, eval_id="e", source_attempt_id="s")
    context = types.SimpleNamespace(_submission_owner="owner", era_number=2)
    assert genetic._ensure_candidate_submission_payload(context, passing) is payload
    assert list(payload.items()) == [
        ("market_id", "x"), ("eval_id", "e"), ("own", 1), ("_source_attempt_id", "s"),
        ("era_number", 2), ("backtest_timing", {"seconds": 1}),
    ]
    assert engine.calls == []
    payload["eval_id"] = ""
    genetic._ensure_candidate_submission_payload(context, passing)
    assert payload["eval_id"] == "", "an empty text is an id"


@pytest.mark.parametrize("payload", [None, [], "text", 5, [("a", 1)]], ids=repr)
def test_what_is_no_mapping_is_replaced(genetic, passing, payload):
    passing["submission_payload"] = payload
    made = genetic._ensure_candidate_submission_payload(object(), passing)
    assert made is passing["submission_payload"] and made["submission_type"] == "signal"


def test_the_timings_fault_comes_before_any_write(genetic, passing):
    passing["submission_payload"] = {"backtest_timing": {"seconds": 2}}
    before = copy.deepcopy(passing)
    with pytest.raises(RuntimeError, match="disagrees with submission payload backtest timing"):
        genetic._ensure_candidate_submission_payload(object(), passing)
    assert passing == before


def test_whether_to_refresh_is_asked_when_the_payload_is_there(genetic, passing):
    asked = []

    class Asked:
        def __bool__(self):
            asked.append("submission_payload" in passing)
            return False

    ensure = genetic._ensure_candidate_submission_payload
    assert ensure(object(), {}, refresh_pool_metrics=Asked()) is None and asked == []
    payload = ensure(object(), passing, refresh_pool_metrics=Asked())
    assert asked == [True] and "mi_verdict" not in passing.get("tracking_metric_kwargs", {})
    assert payload is passing["submission_payload"]


def test_a_block_in_the_refresh_leaves_the_payload_on_the_record(genetic, monkeypatch, passing):
    monkeypatch.setattr(
        genetic._engine, "_submission_correlation_from_backtest_or_compute",
        lambda *args: (0.9, False),
    )
    context = types.SimpleNamespace(_backtester=object(), _era_config={}, _signal_pool_name="p")
    ensure = genetic._ensure_candidate_submission_payload
    assert ensure(context, passing, refresh_pool_metrics=True) is None
    assert passing["passes"] is False
    assert passing["submission_payload"]["is_stats"]["correlation"] == 0.9


# Ranking.


def ranked(genetic, candidates):
    return [one["name"] for one in genetic.rank_submittable_candidates(candidates)]


def test_the_ranking(genetic, monkeypatch):
    calls = []

    def score(candidate, **keywords):
        calls.append((candidate, keywords))
        return candidate["score"]

    monkeypatch.setattr(genetic, "score_candidate", score)
    graph = {"node": "b"}
    candidates = [
        {"name": "low", "score": 1, "passes": 1},
        {"name": "fails", "score": 9},
        {"name": "late", "score": 2.0, "passes": 1, "candidate_index": "10"},
        {"name": "early", "score": decimal.Decimal(2), "passes": 1, "candidate_index": 9.9},
        {"name": "second", "score": True + 1, "passes": 1, "candidate_index": 9, "graph": graph},
        {"name": "first", "score": 2, "passes": 1, "candidate_index": 9, "graph": {"node": "a"}},
        {"name": "again", "score": 2, "passes": 1, "candidate_index": 9, "graph": dict(graph)},
        {"name": "high", "score": 10**400, "passes": 1, "correlation": "c"},
    ]
    before = list(candidates)
    ranking = genetic.rank_submittable_candidates(candidates)
    # As texts, null comes before the brace of a mapping.
    assert [one["name"] for one in ranking] == [
        "high", "early", "first", "second", "again", "late", "low"
    ]
    expected = sorted(
        (one for one in candidates if one.get("passes")),
        key=lambda one: (
            -one["score"], int(one.get("candidate_index", 0)),
            genetic._canonical_graph_string(one.get("graph")),
        ),
    )
    assert [id(one) for one in ranking] == [id(one) for one in expected]
    assert type(ranking) is list and candidates == before
    assert [id(one) for one, _ in calls[:7]] == [
        id(one) for one in candidates if one.get("passes")
    ]
    assert calls[0][1] == {"sibling_correlations": (), "pool_correlation": None}
    assert calls[6][1]["pool_correlation"] == "c"
    assert genetic.rank_submittable_candidates(iter(candidates)) == ranking
    assert genetic.rank_submittable_candidates([]) == []


@pytest.mark.parametrize(
    "candidate, error",
    [
        ({"candidate_index": None}, TypeError), ({"candidate_index": "x"}, ValueError),
        ({"candidate_index": math.inf}, OverflowError), ({"quality_score": "x"}, TypeError),
        ({"quality_score": None}, TypeError), ({"graph": {1: {2}}}, TypeError), (5, AttributeError),
    ],
    ids=repr,
)
def test_what_cannot_be_ranked_fails(genetic, candidate, error):
    if isinstance(candidate, dict):
        candidate["passes"] = True
    with pytest.raises(error):
        genetic.rank_submittable_candidates([candidate])


def test_scores_of_the_hosts_own_kind_are_compared_by_themselves(genetic, monkeypatch):
    class Score:
        def __init__(self, rank):
            self.rank = rank

        def __neg__(self):
            return Score(-self.rank)

        def __eq__(self, other):
            return self.rank == other.rank

        def __lt__(self, other):
            return self.rank < other.rank

    monkeypatch.setattr(genetic, "score_candidate", lambda one, **rest: Score(one["name"]))
    candidates = [{"name": rank, "passes": True} for rank in (3, 1, 4, 1, 5, 9, 2, 6)]
    assert ranked(genetic, candidates) == [9, 6, 5, 4, 3, 2, 1, 1]


def test_scores_that_are_not_numbers_do_no_harm(genetic):
    rng = random.Random(5)
    candidates = [
        {"name": i, "passes": True, "quality_score": rng.choice([1.0, 2.0, math.nan])}
        for i in range(200)
    ]
    assert sorted(ranked(genetic, candidates)) == list(range(200))
