"""Batches of graphs on Python objects: fresh ones, deduplicated ones, the next one.

Goal: the order and number of host calls, of random draws and of reads, and the answers. Method:
small configurations, contexts and sources that note what they are asked.
"""

import functools
import random

import pytest


class Config:
    """What deduplication and batches read of a template."""

    def __init__(self, batch_size, initial_candidates=None, seed=1):
        self._batch_size = batch_size
        self._initial_candidates = initial_candidates
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
def replace_source(genetic, monkeypatch):
    """Puts a source of fresh graphs in place and notes its calls."""

    def replace(*answers):
        calls = []
        waiting = list(answers)

        def source(ctx, batch_size, rng=None):
            calls.append((ctx, batch_size, rng))
            return waiting.pop(0) if len(waiting) > 1 else waiting[0]

        monkeypatch.setattr(genetic, "_fresh_random_candidates", source)
        return calls

    return replace


def run(genetic, config, graphs, seen=None, ctx=None):
    return genetic._run_deduplicated_batch(
        ctx, config, graphs, seen if seen is not None else set()
    )


def test_a_batch_without_duplicates_touches_no_generator(genetic, replace_source):
    calls = replace_source([])
    config, seen = Config(4), set()
    graphs = [{"n": 1}, {"n": 2}]
    batch = run(genetic, config, graphs, seen)
    assert batch == {"graphs": graphs, "generated_count": 2, "duplicate_count": 0}
    assert list(batch) == ["graphs", "generated_count", "duplicate_count"]
    assert all(one is two for one, two in zip(batch["graphs"], graphs))
    assert batch["graphs"] is not graphs
    assert seen == {genetic._structural_key(graph) for graph in graphs}
    assert config.calls == [] and calls == []


def test_an_empty_batch_asks_nothing(genetic, replace_source):
    calls = replace_source([{}])
    config = Config(4)
    assert run(genetic, config, []) == {
        "graphs": [], "generated_count": 0, "duplicate_count": 0
    }
    assert config.calls == [] and calls == []


def test_a_batch_is_cut_at_the_batch_size(genetic, replace_source):
    replace_source([])
    batch = run(genetic, Config(2), [{"n": 0}, {"n": 1}, {"n": 1}, {"n": 2}])
    assert batch == {
        "graphs": [{"n": 0}, {"n": 1}], "generated_count": 4, "duplicate_count": 0
    }


def test_duplicates_are_replaced_by_fresh_graphs(genetic, replace_source):
    calls = replace_source([{"n": 1}, {"dropped": 1}], [{"n": 0}], [{"n": 2}])
    config, seen, ctx = Config(8), set(), object()
    batch = run(genetic, config, [{"n": 0}] * 3, seen, ctx)
    assert batch == {
        "graphs": [{"n": 0}, {"n": 1}, {"n": 2}], "generated_count": 7, "duplicate_count": 3
    }
    assert [(call[0], call[1]) for call in calls] == [(ctx, 1)] * 3
    assert len({id(call[2]) for call in calls}) == 1, "one generator for all replacements"
    assert config.calls == ["fetch", "store"]
    assert len(seen) == 3


def test_draws_for_replacements_are_kept(genetic, monkeypatch):
    def source(ctx, batch_size, rng=None):
        return [{"n": rng.random()}]

    monkeypatch.setattr(genetic, "_fresh_random_candidates", source)
    config, reference = Config(3, seed=9), random.Random(9)
    batch = run(genetic, config, [{}, {}, {}])
    assert [graph.get("n") for graph in batch["graphs"]] == [
        None, reference.random(), reference.random()
    ]
    assert config._state == reference.getstate()


def test_attempts_end_at_twenty_for_each_wanted_graph(genetic, replace_source):
    calls = replace_source([{"same": 1}])
    batch = run(genetic, Config(8), [{"same": 1}] * 4)
    assert batch == {"graphs": [{"same": 1}], "generated_count": 164, "duplicate_count": 163}
    assert len(calls) == 160


def test_an_empty_answer_ends_the_batch_and_the_state_is_stored(genetic, replace_source):
    calls = replace_source([])
    config = Config(4)
    assert run(genetic, config, [{}, {}])["generated_count"] == 2
    assert len(calls) == 1 and config.calls == ["fetch", "store"]


def test_a_failure_leaves_the_keys_and_not_the_draws(genetic, monkeypatch):
    def source(ctx, batch_size, rng=None):
        raise LookupError("empty")

    monkeypatch.setattr(genetic, "_fresh_random_candidates", source)
    config, seen = Config(4), set()
    with pytest.raises(LookupError):
        run(genetic, config, [{}, {}], seen)
    assert config.calls == ["fetch"] and len(seen) == 1


def test_no_generator_is_asked_for_again_and_never_stored(genetic, replace_source):
    class WithoutRng(Config):
        def _rng_for_batch(self):
            self.calls.append("fetch")

    calls = replace_source([{"n": 1}], [{"n": 2}])
    config = WithoutRng(4)
    run(genetic, config, [{}, {}, {}])
    assert config.calls == ["fetch", "fetch"]
    assert [call[2] for call in calls] == [None, None]


def test_any_object_that_answers_as_a_set_will_do(genetic, replace_source):
    replace_source([])
    asked, added = [], []

    class Seen:
        def __contains__(self, key):
            asked.append(key)
            return key == ("scalar", 1)

        def add(self, key):
            added.append(key)

    batch = run(genetic, Config(4), [1, 2, 2], Seen())
    assert batch["graphs"] == [2]
    # A duplicate within the batch is found without asking.
    assert asked == [("scalar", 1), ("scalar", 2)]
    assert added == [("scalar", 2)] and added[0] is asked[1]


def test_what_has_no_length_is_refused(genetic):
    with pytest.raises(TypeError, match="has no len"):
        run(genetic, Config(4), iter([{}]))


def test_fresh_graphs_are_taken_one_by_one(genetic, monkeypatch):
    asked, taken = [], []

    def graphs(ctx, *, rng, log_context, template_name):
        asked.append((ctx, rng, log_context, template_name))
        for number in range(5):
            taken.append(number)
            yield {"n": number}

    monkeypatch.setattr(genetic, "_random_weighted_graphs", graphs)
    ctx, rng = object(), random.Random(1)
    assert genetic._fresh_random_candidates(ctx, 3, rng=rng) == [{"n": 0}, {"n": 1}, {"n": 2}]
    assert taken == [0, 1, 2], "the walk goes no further than asked"
    ((asked_ctx, asked_rng, log_context, template_name),) = asked
    assert asked_ctx is ctx and asked_rng is rng and template_name == "genetic"
    assert log_context is genetic._GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT
    assert len(genetic._fresh_random_candidates(ctx, 9)) == 5
    assert asked[-1][1] is None
    assert genetic._fresh_random_candidates(ctx, 0) == []


def test_a_walk_is_released_before_the_graphs_are_returned(genetic, monkeypatch):
    closed = []

    def graphs(ctx, **keywords):
        try:
            while True:
                yield {}
        finally:
            closed.append(True)

    monkeypatch.setattr(genetic, "_random_weighted_graphs", graphs)
    genetic._fresh_random_candidates(None, 1)
    assert closed == [True]


def test_no_walk_gives_no_graphs(genetic, monkeypatch):
    monkeypatch.setattr(genetic, "_random_weighted_graphs", lambda ctx, **keywords: None)
    assert genetic._fresh_random_candidates(None, 3) == []
    monkeypatch.setattr(genetic, "_random_weighted_graphs", lambda ctx, **keywords: [{}])
    with pytest.raises(TypeError, match="'list' object is not an iterator"):
        genetic._fresh_random_candidates(None, 3)
    with pytest.raises(TypeError, match="cannot be interpreted as an integer"):
        genetic._fresh_random_candidates(None, 1.5)


def test_a_replacement_without_rng_is_called_without_it(genetic, monkeypatch):
    draw = functools.partial(genetic._fresh_random_candidates_for_rng, "ctx", 3, "rng")
    called = []

    def plain(ctx, batch_size):
        called.append((ctx, batch_size))
        return ["plain"]

    def keywords(ctx, batch_size, **keywords):
        called.append((ctx, batch_size, keywords))
        return ["keywords"]

    def named(ctx, batch_size, *, rng):
        called.append((ctx, batch_size, rng))
        return ["named"]

    class Opaque:
        __signature__ = "no signature"

        def __call__(self, ctx, batch_size, rng):
            called.append((ctx, batch_size, rng))
            return ["opaque"]

    for replacement in (plain, keywords, named, Opaque()):
        monkeypatch.setattr(genetic, "_fresh_random_candidates", replacement)
        draw()
    assert called == [
        ("ctx", 3), ("ctx", 3, {"rng": "rng"}), ("ctx", 3, "rng"), ("ctx", 3, "rng")
    ]


def test_the_default_source_is_not_looked_into(genetic, monkeypatch, make_context):
    monkeypatch.setattr("inspect.signature", lambda source: pytest.fail("looked into"))
    assert genetic._DEFAULT_FRESH_RANDOM_CANDIDATES is genetic._fresh_random_candidates
    rng = random.Random(2)
    assert len(genetic._fresh_random_candidates_for_rng(make_context(), 2, rng)) == 2


def test_seeds_are_thawed_for_batch_0_alone(genetic, replace_source):
    calls = replace_source([{"fresh": 1}])
    seeds = genetic._plain_initial_candidates([{"n": number} for number in range(5)])
    config = Config(3, seeds)
    for force in (False, True):
        batch = genetic._candidate_batch(None, config, 0, [], force_restart=force)
        assert batch == [{"n": 0}, {"n": 1}, {"n": 2}]
    assert config.calls == [] and calls == []
    assert genetic._candidate_batch(None, Config(3, ()), 0, []) == []
    assert genetic._candidate_batch(None, config, 4, [], force_restart=True) == [{"fresh": 1}]


def test_fresh_batches(genetic, replace_source):
    ctx = object()
    answer = [{"n": number} for number in range(5)]
    calls = replace_source(answer)
    config = Config(4)
    assert genetic._candidate_batch(ctx, config, 0, []) == answer[:4]
    assert genetic._candidate_batch(ctx, config, 0, [], True) == answer[1:]
    assert genetic._candidate_batch(ctx, config, 3, [], force_restart=1) == answer[1:]
    assert genetic._candidate_batch(ctx, config, 3, None) == answer
    assert [call[1] for call in calls] == [4, 5, 5, 4]
    assert config.calls == ["fetch", "store"] * 4


def test_a_restart_with_too_few_graphs_drops_none(genetic, replace_source):
    replace_source([{"n": number} for number in range(4)])
    assert len(genetic._candidate_batch(None, Config(4), 7, [], force_restart=True)) == 4
