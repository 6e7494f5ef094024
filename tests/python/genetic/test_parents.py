"""Parents on Python objects: what a candidate scores, what it repeats, who is bred from.

Goal: the answers, the order of questions to the host, and the identity of candidates. Method: small
populations, a score that notes its calls, and values whose truth, equality or type is unusual.
"""

import collections
import math
import random
import types
from decimal import Decimal
from fractions import Fraction

import pytest


def candidate(name, score=0.0, correlation=None, **more):
    return {
        "graph": {"node": name, "children": []}, "quality": score, "correlation": correlation,
        **more,
    }


@pytest.fixture
def scores(genetic, monkeypatch):
    """A score that is the candidate's quality, and the list of its calls."""
    calls = []

    def score_candidate(*args, **keywords):
        calls.append((*args, keywords))
        return args[0]["quality"]

    monkeypatch.setattr(genetic, "score_candidate", score_candidate)
    return calls


def qualities(pool):
    return [item["quality"] for item in pool]


def test_a_score_is_one_call_of_what_the_module_holds_now(genetic, scores):
    answer = object()
    correlation = [0.5]
    record = {"quality": answer, "correlation": correlation}
    assert genetic._candidate_eliteness(record, 0.25, 2) is answer
    ((given, keywords),) = scores
    assert given is record
    assert keywords == {
        "sibling_correlations": (), "pool_correlation": correlation, "diversity_weight": 0.25,
        "parsimony_weight": 2.0,
    }
    assert list(keywords) == [
        "sibling_correlations", "pool_correlation", "diversity_weight", "parsimony_weight"
    ]
    assert keywords["pool_correlation"] is correlation


def test_a_missing_correlation_and_an_absent_one_are_the_same(genetic, scores):
    for record in ({"quality": 1}, {"quality": 1, "correlation": None}):
        assert genetic._candidate_eliteness(record, 0, 0) == 1
        assert scores[-1][1]["pool_correlation"] is None


def test_what_cannot_be_scored(genetic, scores):
    with pytest.raises(AttributeError, match="'list' object has no attribute 'get'"):
        genetic._candidate_eliteness([], 0.0, 0.0)
    assert scores == []


def test_weights_go_to_the_host_as_they_are(genetic, scores):
    for weight in (None, "1", [1], 1, 2.5, Fraction(1, 3), Decimal("0.1")):
        genetic._candidate_eliteness({"quality": 1}, weight, weight)
        keywords = scores[-1][1]
        assert keywords["diversity_weight"] is weight and keywords["parsimony_weight"] is weight


def test_a_failing_score_leaves_as_it_is(genetic, monkeypatch):
    error = LookupError("score")

    def score_candidate(candidate, **keywords):
        raise error

    monkeypatch.setattr(genetic, "score_candidate", score_candidate)
    for call in (
        lambda: genetic._candidate_eliteness({}, 0.0, 0.0),
        lambda: genetic._diverse_parent_pool([candidate("a")]),
        lambda: genetic.compose_next_batch([candidate("a")]),
    ):
        with pytest.raises(LookupError) as caught:
            call()
        assert caught.value is error


class Named(str):
    def __str__(self):
        return "another"


class Empty(str):
    def __bool__(self):
        return False


@pytest.mark.parametrize(
    "graph, names",
    [
        ({"node": "a", "children": [{"node": "b", "type": "x"}, {"node": "a"}]}, {"a", "b"}),
        ([{"node": "a"}, ({"node": "b"}, [{"node": "c"}])], {"a", "b", "c"}),
        ({"node": "a", "children": ({"node": "b"},)}, {"a", "b"}),
        ({"node": "a", "children": "xyz"}, {"a"}),
        ({"node": "a", "children": {"node": 1}}, {"a"}),
        ({"node": "a", "children": iter([{"node": "b"}])}, {"a", "b"}),
        (types.MappingProxyType({"node": "a"}), {"a"}),
        (collections.UserDict(node="a", children=collections.deque([{"node": "b"}])), {"a", "b"}),
        ({"node": Named("a")}, {"a"}),
        ({"node": Empty("a")}, set()),
        ({"node": "", "children": [{"node": 5}, {"node": b"b"}, {"node": None}, {}]}, set()),
        ({"node": "\ud800é"}, {"\ud800é"}),
        ({"node": ["a"]}, set()),
        ("abc", set()), (None, set()), (5, set()), ({"a", "b"}, set()), (iter([{}]), set()),
    ],
    ids=repr,
)
def test_node_names(genetic, graph, names):
    found = genetic._graph_node_names(graph)
    assert found == names and type(found) is set
    assert all(type(name) is str for name in found)


def test_children_that_a_look_up_takes_away_are_walked_to_their_end(genetic):
    class Thief:
        """A key that is looked at in the search for another, and empties the parent meanwhile."""

        def __hash__(self):
            return hash("node")

        def __eq__(self, other):
            parent.pop("children", None)
            return False

    parent = {"node": "parent"}
    first = {Thief(): 1, "node": "first"}
    parent["children"] = [first, {"node": "second"}]
    assert genetic._graph_node_names(parent) == {"parent", "first", "second"}
    assert "children" not in parent



def test_only_missing_children_are_none(genetic):
    assert genetic._graph_node_names({"node": "a"}) == {"a"}
    for children in (None, 5):
        with pytest.raises(TypeError, match="object is not iterable"):
            genetic._graph_node_names({"node": "a", "children": children})


def test_a_graph_that_contains_itself_is_refused(genetic):
    graph = {"node": "a", "children": []}
    graph["children"].append(graph)
    with pytest.raises(RecursionError):
        genetic._graph_node_names(graph)


def test_similarity_is_the_share_of_common_names(genetic):
    similarity = genetic._graph_similarity
    left = [{"node": name} for name in "abc"]
    assert similarity(left, [{"node": name} for name in "bcd"]) == 0.5
    assert similarity(left, left) == 1.0
    assert similarity(left, {}) == similarity({}, left) == 0.0
    assert similarity({}, {}) == similarity(None, "x") == 0.0
    assert type(similarity({}, {})) is float


def test_redundancy(genetic):
    redundancy = genetic._selected_redundancy
    assert redundancy(candidate("a", correlation=-0.9), []) == 0.9
    assert redundancy(candidate("a", correlation="-0.25"), [candidate("b")]) == 0.25
    assert redundancy(candidate("a", correlation=0.5), [candidate("b"), candidate("a")]) == 1.0
    assert redundancy({}, ()) == 0.0
    assert redundancy(candidate("a"), iter([candidate("a")])) == 1.0
    assert redundancy({}, [{}]) == 0.0
    for correlation in (math.nan, math.inf, "x", [1]):
        with pytest.raises(ValueError) as caught:
            redundancy({"correlation": correlation}, [])
        assert str(caught.value) == "candidate correlation must be a finite number or None"
    with pytest.raises(AttributeError):
        redundancy({}, [5])


def test_the_adjusted_score(genetic, scores):
    adjusted = genetic._diversity_adjusted_parent_score
    record = candidate("a", 2, correlation=0.5)
    assert adjusted(record, [], 0.5, 0.125) == 2 - 0.5 * 5.0 * 0.5
    assert scores[-1][1]["diversity_weight"] == 0.0
    assert scores[-1][1]["parsimony_weight"] == 0.125
    assert len(scores) == 1
    # Without a weight the base is given back as it is, and nothing else is looked at.
    bad = candidate("a", object(), correlation=math.nan)
    assert adjusted(bad, None, 0.0, 0.0) is bad["quality"]
    assert adjusted(bad, None, -1, 0.0) is bad["quality"]
    with pytest.raises(ValueError):
        adjusted(candidate("a", 1, correlation=math.nan), [], 0.1, 0.0)


def test_an_empty_population_has_no_parents(genetic, scores):
    for prior in (None, [], (), {}, [{}], [{"graph": None}], 0):
        pool = genetic._diverse_parent_pool(prior)
        assert pool == [] and type(pool) is list
    assert scores == []


def test_the_pool_has_the_very_candidates_and_draws_nothing(genetic, scores):
    prior = [candidate(str(number), number) for number in range(10)]

    class Untouched(random.Random):
        def random(self):
            pytest.fail("drawn")

        getrandbits = random

    for weight in (0.0, 0.5):
        pool = genetic._diverse_parent_pool(prior, Untouched(1), 0.25, diversity_weight=weight)
        assert [one is prior[index] for one, index in zip(pool, (9, 8, 7))] == [True] * 3
        assert len(pool) == 3


@pytest.mark.parametrize(
    "count, fraction, size",
    [(2, 0.1, 2), (10, 0.25, 3), (30, 0.25, 8), (26, 0.25, 6), (5, 0, 3), (5, 9, 5), (4, True, 4)],
)
def test_the_size_of_the_pool(genetic, scores, count, fraction, size):
    prior = [candidate(str(number), number) for number in range(count)]
    for weight in (0, 0.5):
        pool = genetic._diverse_parent_pool(prior, None, fraction, weight)
        assert qualities(pool) == sorted(range(count), reverse=True)[:size]


def test_of_one_structure_the_better_stays_and_of_equals_the_earlier(genetic, scores):
    first, better, equal = candidate("a", 1), candidate("a", 2), candidate("a", 2.0)
    other = candidate("b", 2)
    pool = genetic._diverse_parent_pool([first, other, better, equal], diversity_weight=0.0)
    # The better one takes the place of the first, which comes before the other.
    assert len(pool) == 2 and pool[0] is better and pool[1] is other


def test_other_key_orders_are_other_structures_but_equal_records(genetic, scores):
    one = {"graph": {"node": "a", "x": 1}, "quality": 1}
    two = {"graph": {"x": 1, "node": "a"}, "quality": 1}
    assert one == two
    assert len(genetic._diverse_parent_pool([one, two], diversity_weight=0.0)) == 2
    pool = genetic._diverse_parent_pool([one, two], elite_fraction=1.0, diversity_weight=0.5)
    assert len(pool) == 1 and pool[0] is one


def test_records_are_compared_by_python(genetic, scores):
    asked = []

    class Stats:
        def __init__(self, name):
            self.name = name

        def __eq__(self, other):
            asked.append((self.name, other.name))
            return True

        __hash__ = None

    # Equal up to the statistics, which decide.
    one = {"graph": {"node": "a", "x": 1}, "stats": Stats("one"), "quality": 1}
    two = {"graph": {"x": 1, "node": "a"}, "stats": Stats("two"), "quality": 1}
    pool = genetic._diverse_parent_pool([one, two], elite_fraction=1.0, diversity_weight=0.5)
    assert len(pool) == 1 and set(map(frozenset, asked)) == {frozenset(("one", "two"))}


def test_the_order_of_questions(genetic, scores):
    first, again, other = candidate("a", 3, n=0), candidate("a", 1, n=1), candidate("b", 2, n=2)
    third = candidate("c", 1, n=3)
    pool = genetic._diverse_parent_pool([first, again, other, third], None, 1.0, 0.5, 0.125)
    assert [item["n"] for item in pool] == [0, 2, 3]
    asked = [(item["n"], keywords["diversity_weight"]) for item, keywords in scores]
    assert asked == [
        (1, 0.5), (0, 0.5),                          # one structure twice: the new one first
        (0, 0.5), (2, 0.5), (3, 0.5),                # the order
        (2, 0.0), (2, 0.5), (3, 0.0), (3, 0.5),      # the first pass: adjusted, then its own
        (3, 0.0), (3, 0.5),                          # the second
    ]
    assert {keywords["parsimony_weight"] for _, keywords in scores} == {0.125}


def test_redundant_candidates_lose_and_of_equals_the_first_wins(genetic, scores):
    best = candidate("a", 10)
    repeats = {"graph": {"node": "a", "children": [{"node": "a"}]}, "quality": 9}
    alike = [candidate("b", 8), candidate("c", 8), candidate("d", 8)]
    pool = genetic._diverse_parent_pool([best, repeats, *alike], None, 0.6, 0.5)
    assert [one is two for one, two in zip(pool, (best, alike[0], alike[1]))] == [True] * 3


def test_ties_are_broken_by_the_score_with_the_callers_weight(genetic, monkeypatch):
    def score_candidate(candidate, *, diversity_weight, **keywords):
        return candidate["own"] if diversity_weight else 1

    monkeypatch.setattr(genetic, "score_candidate", score_candidate)
    prior = [candidate(name, own=own) for name, own in (("a", 5), ("b", 1), ("c", 3), ("d", 2))]
    pool = genetic._diverse_parent_pool(prior, None, 0.5, 0.5)
    assert [item["own"] for item in pool] == [5, 3, 2]


def test_a_correlation_is_looked_at_only_with_a_weight(genetic, scores):
    prior = [candidate("a", 2), candidate("b", 1, correlation=math.nan)]
    assert qualities(genetic._diverse_parent_pool(prior, diversity_weight=0.0)) == [2, 1]
    with pytest.raises(ValueError, match="finite number or None"):
        genetic._diverse_parent_pool(prior, elite_fraction=1.0, diversity_weight=0.5)


def test_scores_of_several_types_are_ordered_as_python_orders_them(genetic, scores):
    from fractions import Fraction

    prior = [
        candidate("a", 10**30), candidate("b", 2.5), candidate("c", Fraction(7, 2)),
        candidate("d", True), candidate("e", -math.inf),
    ]
    for weight in (0.0, 0.5):
        pool = genetic._diverse_parent_pool(prior, None, 1.0, weight)
        assert qualities(pool) == [10**30, Fraction(7, 2), 2.5, True, -math.inf]
    with pytest.raises(TypeError, match="not supported between instances of"):
        genetic._diverse_parent_pool([candidate("a", 1), candidate("b", None)])


def test_the_default_arguments_are_those_of_load_time(genetic, scores, monkeypatch):
    monkeypatch.setattr(genetic, "DEFAULT_DIVERSITY_WEIGHT", 9.0)
    genetic._diverse_parent_pool([candidate("a")])
    assert scores[-1][1]["diversity_weight"] == 0.5
    assert scores[-1][1]["parsimony_weight"] == 0.125


def test_a_walk_is_as_good_as_a_list(genetic, scores):
    prior = [candidate("a", 1), candidate("b", 2)]
    assert qualities(genetic._diverse_parent_pool(iter(prior))) == [2, 1]
    views = (types.MappingProxyType(one) for one in prior)
    assert qualities(genetic._diverse_parent_pool(views)) == [2, 1]
    with pytest.raises(TypeError, match="not iterable"):
        genetic._diverse_parent_pool(5)
