"""The next batch on Python objects: fresh items and offspring by turns.

Goal: which factory is called when, with what, and which of its items are kept. Method: factories
and validators that note their calls, and batches bred by the whole module with a stored state.
"""

import random
import types

import pytest


def candidate(name, score=0.0):
    return {"graph": {"node": name, "children": []}, "quality_score": score}


class Factories:
    """Two factories that note their calls in one list."""

    def __init__(self, depth=0):
        self.calls = []
        self._graph = {"node": "made", "children": [{}] * depth}

    def fresh(self):
        self.calls.append("fresh")
        return {"graph": self._graph, "number": len(self.calls)}

    def elite(self, parents, rng):
        self.calls.append((parents, rng))
        return {"graph": self._graph, "number": len(self.calls)}


def lineages(batch):
    return [item["lineage"] for item in batch]


FRESH, ELITE = "fresh_random", "elite_derived"


@pytest.mark.parametrize(
    "size, weight, expected",
    [(5, 0.5, [FRESH, ELITE, FRESH, ELITE, FRESH]), (5, 0, [ELITE, FRESH, ELITE, FRESH, ELITE]),
     (1, 0.5, [FRESH]), (1, 0.0, [ELITE]), (0, 0.5, []), (-3, 0.5, []), (True, 0.5, [FRESH])],
)
def test_rounds(genetic, size, weight, expected):
    factories = Factories()
    batch = genetic.compose_next_batch(
        [candidate("a")], size, None, factories.fresh, factories.elite, diversity_weight=weight
    )
    assert lineages(batch) == expected and type(batch) is list
    assert len(factories.calls) == len(expected)
    for number, item in enumerate(batch, 1):
        assert type(item) is dict and list(item) == ["graph", "number", "lineage"]
        assert item["number"] == number and item["graph"] is factories._graph


def test_the_elite_factory_gets_the_pool_and_the_generator_themselves(genetic):
    prior = [candidate(name, score) for score, name in enumerate("abcde")]
    factories = Factories()
    for rng in (None, random.Random(1), object()):
        factories.calls.clear()
        genetic.compose_next_batch(
            prior, batch_size=2, rng=rng, elite_factory=factories.elite
        )
        (pool, first), (again, second) = factories.calls
        assert first is rng and second is rng
        assert pool is again and type(pool) is list
        assert [one is two for one, two in zip(pool, (prior[4], prior[3], prior[2]))] == [True] * 3
        assert len(pool) == 3


def test_a_factory_that_empties_the_pool_is_not_asked_again(genetic):
    calls = []

    def elite(parents, rng):
        calls.append(len(parents))
        parents.clear()
        return {"graph": {}}

    assert lineages(genetic.compose_next_batch([candidate("a")], 4, elite_factory=elite)) == [ELITE]
    assert calls == [1]


def test_without_parents_there_are_only_fresh_items(genetic):
    for prior in (None, [], (), [{}], [{"graph": None}]):
        for weight in (0.0, 0.5):
            factories = Factories()
            batch = genetic.compose_next_batch(
                prior, 3, None, factories.fresh, factories.elite, diversity_weight=weight
            )
            assert lineages(batch) == [FRESH] * 3 and factories.calls == ["fresh"] * 3


def test_without_factories_there_is_nothing(genetic):
    assert genetic.compose_next_batch([candidate("a")]) == []


def test_what_cannot_be_called_is_a_missing_item(genetic):
    # Only None is no factory.
    assert genetic.compose_next_batch([candidate("a")], 4, None, 0, "elite") == []
    factories = Factories()
    assert lineages(genetic.compose_next_batch([candidate("a")], 2, None, 0, factories.elite)) == [
        ELITE, ELITE
    ]


def test_scores_are_asked_whatever_the_size(genetic, monkeypatch):
    asked = []

    def score_candidate(candidate, **keywords):
        asked.append((candidate, keywords))
        return 1

    monkeypatch.setattr(genetic, "score_candidate", score_candidate)
    prior = [candidate("a"), {"graph": None, "correlation": 0.5}]
    assert genetic.compose_next_batch(
        prior, 0, diversity_weight=0.25, parsimony_weight=0.75
    ) == []
    # Each item once, those without a graph too; then those with one for the order of the pool.
    assert [id(one) for one, _ in asked] == [id(prior[index]) for index in (0, 1, 0)]
    assert asked[1][1] == {
        "sibling_correlations": (), "pool_correlation": 0.5, "diversity_weight": 0.25,
        "parsimony_weight": 0.75,
    }


def test_a_refused_item_costs_its_round_one_slot(genetic):
    seen = []

    def validator(graph):
        seen.append(graph)
        return len(seen) % 3  # Refuses every third.

    factories = Factories()
    batch = genetic.compose_next_batch(
        [candidate("a")], 4, None, factories.fresh, factories.elite, validator=validator
    )
    assert lineages(batch) == [FRESH, ELITE, ELITE, FRESH]
    assert len(factories.calls) == 5
    assert all(graph == factories._graph and graph is not factories._graph for graph in seen)


def test_a_round_without_items_ends_the_batch(genetic):
    answers = iter([True, False, False, False, True])
    factories = Factories()
    batch = genetic.compose_next_batch(
        [candidate("a")], 9, None, factories.fresh, factories.elite,
        validator=lambda graph: next(answers),
    )
    # The first round adds one, the second none; the third does not come.
    assert lineages(batch) == [FRESH] and len(factories.calls) == 4


@pytest.mark.parametrize("limit, kept", [(2, 2), (None, 2), ("2", 2), (1.9, 0), (1, 0), ("x", 0)])
def test_the_depth_limit(genetic, limit, kept):
    factories = Factories(depth=1)
    assert len(genetic.compose_next_batch(None, 2, None, factories.fresh, max_depth=limit)) == kept


def test_a_failing_factory_is_a_missing_item_and_an_interrupt_is_not(genetic):
    def failing():
        raise LookupError

    factories = Factories()
    batch = genetic.compose_next_batch([candidate("a")], 2, None, failing, factories.elite)
    assert lineages(batch) == [ELITE, ELITE]

    interrupt = KeyboardInterrupt()

    def interrupted(*args):
        raise interrupt

    for keywords in ({"fresh_random_factory": interrupted}, {"elite_factory": interrupted}):
        with pytest.raises(KeyboardInterrupt) as caught:
            genetic.compose_next_batch([candidate("a")], **keywords)
        assert caught.value is interrupt


def test_bad_arguments(genetic):
    for size in (2.0, None, "2"):
        with pytest.raises(TypeError, match="slice indices must be|not supported between"):
            genetic.compose_next_batch([], size)
    with pytest.raises(TypeError):
        genetic.compose_next_batch([], diversity_weight="1")
    with pytest.raises(AttributeError, match="'int' object has no attribute 'get'"):
        genetic.compose_next_batch([5])


class Config:
    """What a bred batch reads of a template."""

    def __init__(self, batch_size, seed=1):
        self._batch_size = batch_size
        self._initial_candidates = None
        self._elite_fraction = 0.5
        self._diversity_weight = 0.5
        self._parsimony_weight = 0.125
        self._operator_rates = {"hoist_mutation": 1.0, "crossover": 0.5}
        self._state = random.Random(seed).getstate()
        self.calls = []

    def _rng_for_batch(self):
        self.calls.append("fetch")
        rng = random.Random()
        rng.setstate(self._state)
        return rng

    def _store_rng_state(self, rng):
        self.calls.append("store")
        self._state = rng.getstate()


@pytest.fixture
def prior(genetic):
    graphs = genetic._fresh_random_candidates(None, 6, random.Random(99))
    return [{"graph": graph, "quality_score": float(n)} for n, graph in enumerate(graphs)]


def test_a_bred_batch_is_the_same_for_the_same_state(genetic, make_context, prior):
    one, two, three = Config(8), Config(8), Config(8, seed=2)
    start = one._state
    batch = genetic._candidate_batch(make_context(), one, 3, prior)
    assert len(batch) == 8 and one.calls == ["fetch", "store"] and one._state != start
    assert genetic._candidate_batch(make_context(), two, 5, prior) == batch
    assert two._state == one._state
    assert genetic._candidate_batch(make_context(), three, 3, prior) != batch
    assert genetic._candidate_batch(make_context(), one, 4, prior) != batch


def test_a_bred_batch_asks_the_source_for_one_graph_and_for_three(genetic, make_context, prior,
                                                                  monkeypatch):
    asked = []

    def source(ctx, batch_size, rng=None):
        asked.append((ctx, batch_size, rng))
        return [{"node": f"fresh {len(asked)}"}]

    monkeypatch.setattr(genetic, "_fresh_random_candidates", source)
    context = make_context()
    batch = genetic._candidate_batch(context, Config(4), 1, prior)
    assert [count for _, count, _ in asked] == [1, 3, 1, 3]
    assert all(ctx is context for ctx, _, _ in asked)
    assert len({id(rng) for _, _, rng in asked}) == 1 and isinstance(asked[0][2], random.Random)
    assert batch[0] == {"node": "fresh 1"} and batch[2] == {"node": "fresh 3"}
    # The offspring are copies: no parent's graph is in the batch.
    parents = [item["graph"] for item in prior]
    assert batch[1] in parents and not any(batch[1] is graph for graph in parents)


def test_a_source_without_the_generator_loses_the_fresh_items(genetic, make_context, prior,
                                                              monkeypatch):
    asked = []

    def source(ctx, batch_size):
        asked.append(batch_size)
        return []

    monkeypatch.setattr(genetic, "_fresh_random_candidates", source)
    batch = genetic._candidate_batch(make_context(), Config(2), 1, prior)
    # The fresh factory hands it a keyword that it does not take, and offspring do not.
    assert asked == [3, 3] and len(batch) == 2
    for arguments in ((0, []), (1, []), (1, prior, True)):
        with pytest.raises(TypeError):
            genetic._candidate_batch(make_context(), Config(2), *arguments)


def test_an_empty_source_is_a_missing_item(genetic, make_context, prior, monkeypatch):
    monkeypatch.setattr(genetic, "_fresh_random_candidates", lambda ctx, count, rng: [])
    config = Config(3)
    parents = [item["graph"] for item in prior]
    assert all(graph in parents for graph in genetic._candidate_batch(None, config, 1, prior))
    assert config.calls == ["fetch", "store"]


def test_a_failure_leaves_the_stored_state(genetic, make_context, prior, monkeypatch):
    def score_candidate(candidate, **keywords):
        raise ZeroDivisionError

    monkeypatch.setattr(genetic, "score_candidate", score_candidate)
    config = Config(3)
    start = config._state
    with pytest.raises(ZeroDivisionError):
        genetic._candidate_batch(make_context(), config, 1, prior)
    assert config.calls == ["fetch"] and config._state == start


def test_the_context_limits_a_bred_batch(genetic, make_context, prior):
    seen = []

    def validate(graph):
        seen.append(graph)
        return graph["type"] == "rotation"

    backtester = types.SimpleNamespace(validate_graph=validate)
    context = make_context(_backtester=backtester, max_depth="2")
    assert len(genetic._candidate_batch(context, Config(4), 1, prior)) == 4 and seen
    # Each graph is two deep.
    assert genetic._candidate_batch(make_context(max_depth=1), Config(4), 1, prior) == []
