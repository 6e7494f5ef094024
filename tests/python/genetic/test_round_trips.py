"""Random nested values through the forms of a graph, and states of random generators.

Goal: freezing, thawing, copying, keys and texts are what three lines of Python say that they are,
and a template's stream is `random.Random`'s. Method: hypothesis draws values and shrinks what
differs; the definitions stand here.
"""

import json
import math
import pickle
import random

import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

scalars = st.one_of(
    st.none(), st.booleans(), st.integers(), st.integers(2**62, 2**66), st.floats(), st.text(),
    st.characters(categories=["Cs"]),
)
graphs = st.recursive(
    scalars,
    lambda inner: st.one_of(
        st.lists(inner, max_size=4), st.dictionaries(st.text(max_size=5), inner, max_size=4)),
    max_leaves=30,
)
often = settings(
    max_examples=300, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])


def frozen(value):
    if type(value) is dict:
        return ("dict", tuple((key, frozen(item)) for key, item in value.items()))
    if type(value) is list:
        return ("list", tuple(frozen(item) for item in value))
    return ("scalar", value)


def same(left, right):
    """Equal, of the same types, with scalars that are the same objects."""
    if type(left) is not type(right):
        return False
    if type(left) is dict:
        return list(left) == list(right) and all(same(left[key], right[key]) for key in left)
    if type(left) in (list, tuple):
        return len(left) == len(right) and all(map(same, left, right))
    return left is right or (type(left) in (int, str) and left == right)


@often
@given(value=graphs)
def test_a_frozen_form(genetic, value):
    assert same(genetic._freeze_graph_data(value), frozen(value))
    assert same(genetic._structural_key(value), frozen(value))
    assert same(genetic._plain_initial_candidates([value]), (frozen(value),))


@often
@given(value=graphs)
def test_thawing_and_copying_give_an_equal_value_that_shares_no_container(genetic, value):
    before = pickle.dumps(value)
    for copy in (genetic._thaw_graph_data(frozen(value)), genetic._plain_graph_data(value)):
        assert same(copy, value)
        containers = []

        def visit(one, other):
            if type(one) in (dict, list):
                containers.append(one is other)
                for inner, beside in zip(
                    one.values() if type(one) is dict else one,
                    other.values() if type(other) is dict else other,
                ):
                    visit(inner, beside)

        visit(copy, value)
        assert not any(containers)
    assert pickle.dumps(value) == before


@often
@given(value=graphs)
def test_the_canonical_text(genetic, value):
    expected = json.dumps(value, sort_keys=True, separators=(",", ":"))
    assert genetic._canonical_graph_string(value) == expected


@often
@given(left=graphs, right=graphs)
def test_keys_are_equal_when_the_frozen_forms_are(genetic, left, right):
    kept = genetic._deduplicate_graphs([left, right])
    assert len(kept) == len({frozen(left), frozen(right)})


@often
@given(seed=st.integers(-(2**70), 2**70), draws=st.lists(st.sampled_from("rgb"), max_size=20))
def test_a_state_is_pythons_own(genetic, seed, draws):
    plain = random.Random(seed)
    rng = genetic._rng_from_state(genetic._managed_rng_state(seed))
    assert type(rng) is random.Random
    for draw in draws:
        if draw == "r":
            assert rng.random() == plain.random()
        elif draw == "g":
            assert rng.gauss(0, 1) == plain.gauss(0, 1)
        else:
            assert rng.getrandbits(70) == plain.getrandbits(70)
    assert rng.getstate() == plain.getstate()
    template = genetic.with_config()
    template._store_rng_state(rng)
    assert template._rng_state == plain.getstate()
    assert template.rng.random() == template._rng_for_batch().random() == plain.random()


@pytest.mark.parametrize("value", [math.nan, 0.0, -0.0, 1e300, 10**30, "\ud800", "n" * 300, 1000])
def test_a_scalar_is_handed_back_as_the_very_object(genetic, value):
    graph = {"node": value, "children": [value, {"k": value}]}
    for copy in (genetic._plain_graph_data(graph),
                 genetic._thaw_graph_data(genetic._freeze_graph_data(graph))):
        assert copy["node"] is value
        assert copy["children"][0] is value and copy["children"][1]["k"] is value
    # The same through the library's own walk, which a subclass of dict has no part in.
    item = genetic._lineage_candidate_item(lambda: {"graph": graph, "v": value}, value, None)
    assert item["lineage"] is value and item["v"] is value and item["graph"] is graph


def test_a_tuple_is_handed_back_as_the_very_object(genetic):
    lineage = (1, [2], "three")
    item = genetic._lineage_candidate_item(lambda: {"graph": {}, "t": lineage}, lineage, None)
    assert item["lineage"] is lineage and item["t"] is lineage


def test_conversions_give_an_exact_number_back_as_it_is(genetic):
    for real in (0.25, -3.5, 1e300, math.nan):
        assert genetic._number(real) is real
    assert genetic._optional_correlation(0.25 + 0) == 0.25
    large = 10**9
    assert genetic._positive_int_or_none(large) is large
    fraction = float("0.75")
    assert genetic.with_config(elite_fraction=fraction).elite_fraction is fraction
