"""Plain graphs, frozen forms, structural keys and filters on plain Python objects.

Goal: each rule answers on Python objects as it would if it were written in Python. Method: tables,
and a few lines of plain Python as the reference for random trees.
"""

import json
import math
import types

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

NOT_PLAIN = "genetic initial candidates must contain only plain graph data"
BAD_KEYS = "genetic initial candidate graph keys must be strings"


class Text(str):
    pass


class Record(dict):
    pass


def frozen_in_python(value):
    if type(value) is dict:
        return ("dict", tuple((key, frozen_in_python(item)) for key, item in value.items()))
    if type(value) is list:
        return ("list", tuple(map(frozen_in_python, value)))
    return ("scalar", value)


scalars = st.one_of(
    st.none(), st.booleans(), st.sampled_from([0, 1, 2, -1, 2**53, 2**53 + 1, 2**64]),
    st.integers(), st.sampled_from([0.0, -0.0, 1.0, 2.0**53, 2.0**64, math.inf]), st.floats(),
    st.text(max_size=3),
)
trees = st.recursive(
    scalars,
    lambda children: st.lists(children, max_size=3)
    | st.dictionaries(st.sampled_from("abcd"), children, max_size=3),
    max_leaves=8,
)


def test_the_frozen_form(genetic):
    graph = {"a": [1, None, True]}
    frozen = genetic._freeze_graph_data(graph)
    assert frozen == (
        "dict", (("a", ("list", (("scalar", 1), ("scalar", None), ("scalar", True)))),)
    )
    thawed = genetic._thaw_graph_data(frozen)
    assert thawed == graph and thawed is not graph and thawed["a"] is not graph["a"]
    hash(frozen)


@settings(max_examples=300, deadline=None)
@given(tree=trees)
def test_freezing_and_thawing_agree_with_plain_python(tree):
    from varnholt.search_templates import genetic

    frozen = genetic._freeze_graph_data(tree)
    assert repr(frozen) == repr(frozen_in_python(tree))
    assert repr(genetic._thaw_graph_data(frozen)) == repr(tree)
    assert repr(genetic._structural_key(tree)) == repr(frozen)


@settings(max_examples=300, deadline=None)
@given(tree=trees)
def test_the_canonical_string_is_that_of_pythons_json(tree):
    from varnholt.search_templates import genetic

    expected = json.dumps(tree, sort_keys=True, separators=(",", ":"))
    assert genetic._canonical_graph_string(tree) == expected


@settings(max_examples=300, deadline=None)
@given(graphs=st.lists(trees, max_size=6))
def test_deduplication_agrees_with_a_set_of_tuples(graphs):
    """The library compares compact keys; Python compares nested tuples."""
    from varnholt.search_templates import genetic

    seen, unique = set(), []
    for graph in graphs:
        key = frozen_in_python(graph)
        if key not in seen:
            seen.add(key)
            unique.append(graph)
    deduplicated = genetic._deduplicate_graphs(graphs)
    assert repr(deduplicated) == repr(unique)


@settings(max_examples=300, deadline=None)
@given(left=trees, right=trees)
def test_two_keys_are_equal_when_the_tuples_are(left, right):
    from varnholt.search_templates import genetic

    same = frozen_in_python(left) == frozen_in_python(right)
    assert (len(genetic._deduplicate_graphs([left, right])) == 1) == same


def test_what_keys_tell_apart(genetic):
    def unique(*graphs):
        return len(genetic._deduplicate_graphs(graphs))

    nan = math.nan
    assert unique({"a": 1, "b": 2}, {"b": 2, "a": 1}) == 2
    assert unique([1], [1.0], [True]) == 1
    assert unique([0], [-0.0], [False]) == 1
    assert unique([2**53 + 1], [2.0**53]) == 2
    assert unique([2**64], [2.0**64]) == 1
    assert unique([nan], [nan]) == 1
    assert unique([float("nan")], [float("nan")]) == 2
    assert unique({}, [], None, "", 0) == 5
    assert unique(["1"], [1]) == 2
    assert unique(["\ud800"], ["\ud800"], ["\ud801"]) == 2


@pytest.mark.parametrize("value", [(), (1,), set(), Text("a"), Record(), object(), b"", 1j])
def test_only_exact_plain_types_are_plain(genetic, value):
    for graph in (value, [value], {"a": [value]}):
        for rule in (
            genetic._plain_graph_data, genetic._freeze_graph_data, genetic._structural_key,
            genetic._canonical_graph_string,
        ):
            with pytest.raises(TypeError) as caught:
                rule(graph)
            assert str(caught.value) == NOT_PLAIN


@pytest.mark.parametrize("key", [1, None, True, Text("a"), ("a",), 1.5])
def test_only_exact_texts_are_keys(genetic, key):
    for rule in (genetic._plain_graph_data, genetic._freeze_graph_data):
        with pytest.raises(TypeError) as caught:
            rule({"fine": 1, key: ()})
        assert str(caught.value) == BAD_KEYS
        # An entry before the bad key has been looked at by then.
        with pytest.raises(TypeError) as caught:
            rule({"bad": (), key: 1})
        assert str(caught.value) == NOT_PLAIN


def test_a_plain_copy_keeps_the_scalars(genetic):
    nan = math.nan
    graph = {"x": nan, "y": [2**100]}
    copy = genetic._plain_graph_data(graph)
    assert copy["x"] is nan
    assert copy["y"][0] is graph["y"][0]
    assert copy == {"x": nan, "y": [2**100]} and copy["y"] is not graph["y"]


def test_plain_copies_do_not_share(genetic):
    shared = {"s": 1}
    copy = genetic._plain_graph_data([shared, shared])
    assert copy[0] is not copy[1]


def test_deep_and_circular_graphs_are_recursion_errors(genetic):
    circular = []
    circular.append(circular)
    deep = {}
    for _ in range(200_000):
        deep = {"children": [deep]}
    for graph in (circular, deep):
        for rule in (genetic._plain_graph_data, genetic._freeze_graph_data,
                     genetic._canonical_graph_string):
            with pytest.raises(RecursionError):
                rule(graph)


def test_initial_candidates(genetic):
    freeze = genetic._plain_initial_candidates
    assert freeze(None) is None
    assert freeze([]) == ()
    assert freeze([5, [1]]) == (("scalar", 5), ("list", (("scalar", 1),)))
    for value in ((), {}, "ab", type("L", (list,), {})()):
        with pytest.raises(TypeError) as caught:
            freeze(value)
        assert str(caught.value) == (
            "genetic initial_candidates must be a list of graph dictionaries"
        )
    with pytest.raises(TypeError, match=NOT_PLAIN):
        freeze([{}, ()])


def test_thawing_reads_by_index_and_refuses_other_kinds(genetic):
    assert genetic._thaw_graph_data(("scalar", 1, "more")) == 1
    for value in (("set", ()), ("", 1), (1, 2), (("dict",), ())):
        with pytest.raises(TypeError) as caught:
            genetic._thaw_graph_data(value)
        assert str(caught.value) == "invalid frozen genetic graph data"
    with pytest.raises(IndexError):
        genetic._thaw_graph_data(("dict",))
    with pytest.raises(TypeError):
        genetic._thaw_graph_data(5)


def test_depth_is_asked_of_the_host_and_tested_last(genetic, monkeypatch):
    within = genetic._graph_within_max_depth
    assert within("x", None) is True
    assert within("x", 3) is False
    nested = {"children": [{"children": [{}]}]}
    assert [within(nested, limit) for limit in (2, 3, 4, "3", 3.9, 2.9)] == [
        False, True, True, True, True, False
    ]
    assert within(nested, "deep") is False
    assert within(types.MappingProxyType({}), 1) is True

    class Engine:
        def _graph_depth_for_attempt_marker(self, graph):
            raise error

    monkeypatch.setattr(genetic, "_engine", Engine())
    for error in (TypeError(), ValueError(), OverflowError()):
        assert within({}, 3) is False
    error = KeyError("depth")
    with pytest.raises(KeyError):
        within({}, 3)


@pytest.mark.parametrize(
    "name", ["_candidate_item_within_max_depth", "_reaction_improvement_within_graph_max_depth"]
)
def test_items_are_judged_by_their_graph(genetic, name):
    within = getattr(genetic, name)
    assert within({"graph": {}}, 1) is True
    assert within({"graph": {"children": [{}]}}, 1) is False
    assert within({}, 1) is False
    assert within({}, None) is True
    assert within([("graph", {})], None) is False
    assert within(None, None) is False


def test_a_validator_sees_a_copy_and_answers_by_truth(genetic):
    passes = genetic._graph_passes_validator
    graph = {"children": [{}]}
    seen = []
    assert passes(graph, lambda given: seen.append(given) or [1]) is True
    assert seen[0] == graph and seen[0] is not graph
    assert seen[0]["children"][0] is not graph["children"][0]
    assert passes("x", None) is True
    assert passes("x", lambda given: True) is False
    assert passes({}, lambda given: None) is False
    assert passes({}, "not callable") is False

    class Refusing:
        def __bool__(self):
            raise ValueError("no truth")

    assert passes({}, lambda given: Refusing()) is False
    changed = {"a": [1]}
    assert passes(changed, lambda given: given["a"].append(2) or True) is True
    assert changed == {"a": [1]}


def test_a_validators_copy_keeps_what_is_shared_within(genetic):
    shared = {"s": 1}
    graph = {"a": shared, "b": shared, "self": None}
    graph["self"] = graph
    seen = []
    assert genetic._graph_passes_validator(graph, lambda given: seen.append(given) or True) is True
    (copy,) = seen
    assert copy["a"] is copy["b"] is not shared
    assert copy["self"] is copy is not graph


def test_items_are_validated_by_their_graph(genetic):
    passes = genetic._candidate_item_passes_validator
    assert passes({"graph": {}}, lambda graph: True) is True
    assert passes({}, lambda graph: True) is False
    assert passes({}, None) is True
    assert passes([], None) is False


def test_a_lineage_item_is_a_copy_with_the_label(genetic):
    make = genetic._lineage_candidate_item
    source = {"graph": {}, "own": 1}
    item = make(lambda: source, "fresh_random", None)
    assert item == {"graph": {}, "own": 1, "lineage": "fresh_random"}
    assert item is not source and item["graph"] is source["graph"] and "lineage" not in source
    assert make(lambda: [("graph", {})], "x", None) == {"graph": {}, "lineage": "x"}
    assert make(lambda: 5, "x", None) is None
    assert make(lambda: source, "x", 0) is None
    assert make(lambda: source, "x", None, lambda graph: False) is None
    assert make(lambda: source, "x", 1, lambda graph: True)["lineage"] == "x"
    assert make(None, "x", None) is None


@pytest.mark.parametrize(
    "depth, limit",
    [(0, None), (1, 1), (5, 5), ("7", 7), ("abc", None), (-3, None), (2.9, 2), (0.5, None),
     (None, None), (math.inf, None), (math.nan, None), (10**30, 10**30), (True, 1)],
    ids=repr,
)
def test_the_contexts_depth_limit(genetic, make_context, depth, limit):
    assert genetic._context_max_depth(make_context(max_depth=depth)) == limit


def test_a_missing_depth_is_no_limit(genetic, make_context):
    assert genetic._context_max_depth(make_context()) is None


def test_the_graph_validator(genetic, make_context):
    def own(graph):
        return True

    backtester = types.SimpleNamespace(validate_graph=lambda graph: True)
    find = genetic._graph_validator
    assert find(make_context()) is None
    assert find(make_context(_graph_validator=own)) is own
    assert find(make_context(_graph_validator=own, _backtester=backtester)) is own
    assert find(make_context(_backtester=backtester)) is backtester.validate_graph
    assert find(make_context(_graph_validator=3, _backtester=backtester)) is (
        backtester.validate_graph
    )
    assert find(make_context(_backtester=object())) is None
    assert find(make_context(_backtester=types.SimpleNamespace(validate_graph=3))) is None
