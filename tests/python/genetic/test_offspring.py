"""One offspring on Python objects: choice of operator and parents, derivation, root.

Goal: the order of host calls and of draws for each operator, and what Python's types and exceptions
make of the rest. Method: one list of events that generator, score, source, operators and validator
all write into; generators that answer as told.
"""

import collections
import random
import types

import pytest

OPERATORS = ["crossover", "point_mutation", "subtree_mutation", "hoist_mutation"]
NO_RATE = "genetic operator_rates must contain at least one positive rate"


class Scripted:
    """A generator that gives the draws it was made with, and notes each of them."""

    def __init__(self, *draws, events=None):
        self._draws = list(draws)
        self.events = [] if events is None else events

    def random(self):
        self.events.append("draw")
        return self._draws.pop(0)

    def is_spent(self):
        return not self._draws


def signal(node, *children):
    return {"node": node, "type": "rotation", "children": list(children)}


def feature(node):
    return {"node": node, "type": "feature"}


# The choice of an operator.

@pytest.mark.parametrize(
    "draw, name",
    [(0.0, "crossover"), (0.25, "crossover"), (0.26, "point_mutation"), (0.75, "subtree_mutation"),
     (0.76, "hoist_mutation"), (0.999, "hoist_mutation")],
)
def test_an_operator_is_drawn_by_its_rate(genetic, draw, name):
    rng = Scripted(draw)
    # The order is fixed, whatever the mapping's.
    chosen = genetic._choose_operator(dict.fromkeys(reversed(OPERATORS), 0.5), rng)
    assert chosen == name and type(chosen) is str and rng.is_spent()


def test_without_a_generator_the_first_operator_with_a_rate_is_chosen(genetic):
    choose = genetic._choose_operator
    assert choose(dict.fromkeys(OPERATORS, 1), None) == "crossover"
    assert choose({"hoist_mutation": True}, None) == "hoist_mutation"
    assert choose(types.MappingProxyType({"crossover": 0.0, "point_mutation": 1}), None) == (
        "point_mutation"
    )
    assert choose({"crossover": 0.0, "hoist_mutation": 1.0}, Scripted(0.0)) == "hoist_mutation"


def test_unknown_names_take_their_share_of_the_draw(genetic):
    rates = {"own": 9.0, "hoist_mutation": 1.0}
    # The target is beyond all four, so the first with a rate is taken.
    assert genetic._choose_operator(rates, Scripted(0.9)) == "hoist_mutation"
    rng = Scripted(0.5)
    with pytest.raises(ValueError) as caught:
        genetic._choose_operator({"own": 9.0}, rng)
    assert str(caught.value) == NO_RATE and rng.is_spent()


def test_rates_that_choose_nothing(genetic):
    for rates in ({}, {"crossover": 0}, {"crossover": -1.0, "point_mutation": 1}):
        rng = Scripted()
        with pytest.raises(ValueError) as caught:
            genetic._choose_operator(rates, rng)
        assert str(caught.value) == NO_RATE and rng.events == []
    for rates in ({"crossover": "1"}, {"crossover": None}):
        with pytest.raises(TypeError):
            genetic._choose_operator(rates, None)
    with pytest.raises(AttributeError):
        genetic._choose_operator([], None)


# The choice of a parent.

def graded(*scores):
    return [{"graph": {}, "quality_score": score} for score in scores]


@pytest.mark.parametrize("draw, index", [(0.0, 0), (0.333, 0), (0.334, 1), (0.999, 2)])
def test_equal_parents_are_drawn_alike(genetic, draw, index):
    rng = Scripted(draw)
    found = genetic._weighted_parent_index(graded(7, 7.0, 7), rng, 0.5, 0.125)
    assert found == index and type(found) is int and rng.is_spent()


def test_the_worst_parent_keeps_a_chance(genetic):
    parents = graded(1.0, 0.0, 2.0)
    for draw, index in ((0.33, 0), (0.3336, 1), (0.34, 2)):
        assert genetic._weighted_parent_index(parents, Scripted(draw), 0.5, 0.125) == index


def test_scores_are_asked_in_order_before_the_draw(genetic, monkeypatch):
    rng = Scripted(0.5)
    monkeypatch.setattr(
        genetic, "score_candidate",
        lambda candidate, **keywords: rng.events.append((candidate["n"], keywords)) or 1,
    )
    genetic._weighted_parent_index([{"n": 1}, {"n": 2}], rng, 0.5, 0.125)
    assert [event if event == "draw" else event[0] for event in rng.events] == [1, 2, "draw"]
    assert rng.events[0][1]["diversity_weight"] == 0.5
    assert rng.events[0][1]["parsimony_weight"] == 0.125


def test_where_there_is_no_choice_nothing_is_asked(genetic, monkeypatch):
    monkeypatch.setattr(genetic, "score_candidate", lambda *args, **keywords: pytest.fail("asked"))
    rng = Scripted()
    assert genetic._weighted_parent_index(graded(1, 2), None, 0.5, 0.5) == 0
    assert genetic._weighted_parent_index(graded(1), rng, 0.5, 0.5) == 0
    for empty in ([], (), None):
        with pytest.raises(ValueError) as caught:
            genetic._weighted_parent_index(empty, rng, 0.5, 0.5)
        assert str(caught.value) == "parent selection requires at least one parent"
    assert rng.events == []


def test_any_sequence_of_parents_will_do(genetic):
    for kind in (tuple, collections.deque, type("Own", (list,), {})):
        assert genetic._weighted_parent_index(kind(graded(0, 1)), Scripted(0.9), 0, 0) == 1
    with pytest.raises(TypeError, match="has no len"):
        genetic._weighted_parent_index(iter(graded(0, 1)), Scripted(0.9), 0, 0)


# The root.

@pytest.mark.parametrize(
    "graph, count",
    [
        (signal("a", feature("x"), signal("y", feature("z")), {"type": "window"}, "x"), 2),
        ({"children": ({"type": "feature"}, types.MappingProxyType({"type": "rotation"}))}, 2),
        ({"children": [{"type": ["feature"]}, {"node": "feature"}, {}]}, 0),
        ({"children": {"type": "feature"}}, 0),
        ({}, 0), ([feature("x")], 0), (None, 0), ("x", 0),
    ],
    ids=repr,
)
def test_data_children(genetic, graph, count):
    assert genetic._data_graph_child_count(graph) == count


def test_data_children_by_equality(genetic):
    class Like:
        def __eq__(self, other):
            return other == "rotation"

        __hash__ = None

    assert genetic._data_graph_child_count({"children": [{"type": Like()}]}) == 1
    with pytest.raises(TypeError, match="not iterable"):
        genetic._data_graph_child_count({"children": None})


def test_the_root_is_put_on_the_child_itself(genetic):
    child, root = signal("own", feature("x")), ["root"]
    assert genetic._restore_elite_root_node(child, root, 1, None) is child
    assert child["node"] is root and list(child) == ["node", "type", "children"]
    seen = []
    assert genetic._restore_elite_root_node(child, "b", 1, seen.append) is child
    assert len(seen) == 1 and seen[0] is child and child["node"] == "b"


def test_where_the_root_does_not_fit_the_child_stays(genetic):
    def validator(graph):
        pytest.fail("asked")

    for child, root, count in (
        (signal("own", feature("x")), "root", 2), (signal("own"), "", 0), (signal("own"), None, 0),
        (signal("own"), [], 0), ([signal("own")], "root", 0), (None, "root", 0),
        (("a", []), "b", 0),
    ):
        before = repr(child)
        assert genetic._restore_elite_root_node(child, root, count, validator) is child
        assert repr(child) == before


def test_a_refused_root_is_taken_back(genetic):
    seen = []

    def validator(graph):
        seen.append(graph.get("node"))
        if graph.get("node") == "root":
            raise ValueError("refused")

    for child, own in ((signal("own"), "own"), ({"children": []}, None)):
        seen.clear()
        assert genetic._restore_elite_root_node(child, "root", 0, validator) is child
        assert seen == ["root", own]
        # A child without a root gets an absent one.
        assert child["node"] == own
    child, own = signal("own"), ["own"]
    child["node"] = own
    genetic._restore_elite_root_node(child, "root", 0, validator)
    assert child["node"] is own


def test_a_validators_second_failure_leaves_and_its_answer_does_not_count(genetic):
    first, second = ValueError("first"), LookupError("second")
    errors = [second, first]

    def validator(graph):
        raise errors.pop()

    child = signal("own")
    with pytest.raises(LookupError) as caught:
        genetic._restore_elite_root_node(child, "root", 0, validator)
    assert caught.value is second and child["node"] == "own"
    assert genetic._restore_elite_root_node(child, "root", 0, lambda graph: False)["node"] == "root"
    # One that cannot be called fails as a refusal does, and then for good.
    with pytest.raises(TypeError):
        genetic._restore_elite_root_node(signal("own"), "root", 0, 0)


def test_an_interrupt_is_no_refusal(genetic):
    def validator(graph):
        raise KeyboardInterrupt

    child = signal("own")
    with pytest.raises(KeyboardInterrupt):
        genetic._restore_elite_root_node(child, "root", 0, validator)
    assert child["node"] == "root"


def test_a_child_that_cannot_be_written(genetic):
    child = types.MappingProxyType(signal("own"))
    with pytest.raises(TypeError, match="does not support item assignment"):
        genetic._restore_elite_root_node(child, "root", 0, None)


# One offspring.

class Stage:
    """Two parents, and a host whose every call is an event; its operators draw once each."""

    def __init__(self, genetic, monkeypatch, *draws):
        self.events = []
        self.genetic = genetic
        self.rng = Scripted(*draws, events=self.events)
        self.parents = [
            {"graph": signal("elite", feature("x")), "quality_score": 2.0},
            {"graph": signal("mate", feature("y")), "quality_score": 1.0},
        ]
        self.made = []
        self.replacements = [signal("fresh")]
        self.context = types.SimpleNamespace(_graph_validator=self.validate)
        monkeypatch.setattr(genetic, "score_candidate", self.score)
        monkeypatch.setattr(genetic, "_fresh_random_candidates", self.fresh)
        for name in OPERATORS:
            monkeypatch.setattr(genetic, name, self.operator(name))

    def score(self, candidate, **keywords):
        self.events.append(f"score {candidate['graph']['node']}")
        return candidate["quality_score"]

    def fresh(self, ctx, batch_size, rng=None):
        assert ctx is self.context and rng is self.rng
        self.events.append(f"fresh {batch_size}")
        self.rng.random()
        return self.replacements

    def operator(self, name):
        def run(*args, **keywords):
            assert list(keywords) == ["rng", "validator"]
            assert keywords["rng"] is self.rng
            assert keywords["validator"] == self.context._graph_validator
            self.events.append((name, *args))
            self.rng.random()
            self.made.append(signal(name, feature("z")))
            return self.made[-1]

        return run

    def validate(self, graph):
        self.events.append(f"validate {graph['node']}")

    def derive(self, **keywords):
        keywords.setdefault("operator_rates", dict.fromkeys(OPERATORS, 0.25))
        keywords.setdefault("elite_fraction", 0.99)
        return self.genetic._elite_derived_graph(
            self.context, self.parents, self.rng, **keywords
        )


# The elite is the first parent and its mate the second; then come the replacements.
CHOICE = ["score elite", "score mate", "draw", "score elite", "score mate", "draw", "fresh 3",
          "draw", "draw"]
ELITE, MATE, FRESH = signal("elite", feature("x")), signal("mate", feature("y")), [signal("fresh")]


@pytest.mark.parametrize(
    "draw, tail, crossed",
    [
        (0.1, [("crossover", ELITE, MATE), "draw", "validate elite"], None),
        (0.3, [("point_mutation", ELITE, FRESH), "draw", "validate elite", "draw"], "elite"),
        (0.6, [("subtree_mutation", ELITE, FRESH), "draw", "validate elite", "draw"], "elite"),
        (0.9, [("hoist_mutation", ELITE), "draw", "validate hoist_mutation", "validate elite",
               "draw"], "elite"),
    ],
    ids=OPERATORS,
)
@pytest.mark.parametrize("follow_up", [False, True])
def test_the_order_of_calls_and_draws(genetic, monkeypatch, draw, tail, crossed, follow_up):
    # Elite, mate, the source's own, the operator, the operator's own; the follow-up, its own.
    draws = [0.1, 0.9995, 0.5, draw, 0.5]
    if crossed:
        draws += [0.2499, 0.5] if follow_up else [0.25]
    stage = Stage(genetic, monkeypatch, *draws)
    child = stage.derive()
    expected = CHOICE + tail
    if crossed and follow_up:
        first = signal("elite", feature("z"))  # The first operator's child, with the root.
        expected += [("crossover", first, MATE), "draw", "validate elite"]
    assert stage.events == expected and stage.rng.is_spent()
    assert child == signal("elite", feature("z"))
    if tail[0][0] != "hoist_mutation" or follow_up:
        assert child is stage.made[-1], "the very object that the operator returned"
    else:
        assert child is not stage.made[-1] and stage.made[-1]["node"] == "hoist_mutation"
    assert [parent["graph"] for parent in stage.parents] == [ELITE, MATE]


def test_the_operators_get_the_very_graphs(genetic, monkeypatch):
    stage = Stage(genetic, monkeypatch, 0.1, 0.9995, 0.5, 0.3, 0.5, 0.2, 0.5)
    stage.derive()
    point, crossover = [event for event in stage.events if isinstance(event, tuple)]
    assert point[1] is stage.parents[0]["graph"] and point[2] is stage.replacements
    assert crossover[1] is stage.made[0] and crossover[2] is stage.parents[1]["graph"]


def test_without_replacements_a_mutation_is_a_validated_copy(genetic, monkeypatch):
    for draw in (0.3, 0.6):
        stage = Stage(genetic, monkeypatch, 0.1, 0.9995, 0.5, draw, 0.5)
        stage.replacements = []
        child = stage.derive()
        assert stage.events == [*CHOICE, "validate elite", "validate elite", "draw"]
        assert child == ELITE and child is not stage.parents[0]["graph"]
        assert child["children"][0] is not stage.parents[0]["graph"]["children"][0]


def test_the_whole_fraction_breeds_the_last_with_the_first_undrawn(genetic, monkeypatch):
    for fraction in (1.0, 7, True):
        stage = Stage(genetic, monkeypatch, 0.5, 0.1, 0.5)
        stage.derive(elite_fraction=fraction)
        assert stage.events == ["fresh 3", "draw", "draw", ("crossover", MATE, ELITE), "draw",
                                "validate mate"]


def test_one_eligible_parent_is_its_own_mate_undrawn(genetic, monkeypatch):
    stage = Stage(genetic, monkeypatch, 0.5, 0.1, 0.5)
    # Half of three is 1.5, of which the even neighbour is 2; a quarter of two is 0.5, and then 0.
    stage.derive(elite_fraction=0.25)
    assert stage.events == ["fresh 3", "draw", "draw", ("crossover", ELITE, ELITE), "draw",
                            "validate elite"]


def test_without_a_generator_nothing_is_drawn(genetic, monkeypatch):
    stage = Stage(genetic, monkeypatch)
    calls = []
    monkeypatch.setattr(genetic, "_fresh_random_candidates",
                        lambda ctx, count, rng: calls.append((count, rng)) or [])
    monkeypatch.setattr(genetic, "crossover",
                        lambda *args, **keywords: calls.append(keywords) or args[1])
    child = genetic._elite_derived_graph(types.SimpleNamespace(), stage.parents, None)
    assert calls == [(3, None), {"rng": None, "validator": None}]
    assert child is stage.parents[0]["graph"] and stage.events == []


def test_rates_fall_back_on_the_modules_own_at_each_call(genetic, monkeypatch):
    monkeypatch.setattr(genetic, "DEFAULT_OPERATOR_RATES",
                        {"crossover": 0.0, "point_mutation": 0.0, "subtree_mutation": 1.0,
                         "hoist_mutation": 0.0})
    stage = Stage(genetic, monkeypatch, 0.1, 0.9995, 0.5, 0.0, 0.5)
    stage.derive(operator_rates={"subtree_mutation": "2"})
    # Without a rate for crossover no second step is drawn for.
    assert stage.events == CHOICE + [("subtree_mutation", ELITE, FRESH), "draw", "validate elite"]
    for rates, kind in (([], TypeError), ({"own": 1}, ValueError), ({"crossover": "x"}, TypeError)):
        with pytest.raises(kind):
            stage.derive(operator_rates=rates)


def test_a_child_of_another_shape_keeps_its_root(genetic, monkeypatch):
    stage = Stage(genetic, monkeypatch, 0.1, 0.9995, 0.5, 0.1)
    child = signal("own", feature("x"), feature("y"))
    monkeypatch.setattr(genetic, "crossover", lambda first, second, rng, validator: child)
    assert stage.derive() is child and child["node"] == "own"
    assert stage.events == CHOICE


def test_an_elite_that_is_no_mapping_has_no_root(genetic, monkeypatch):
    monkeypatch.setattr(genetic, "crossover", lambda first, second, *, rng, validator: first)
    monkeypatch.setattr(genetic, "_fresh_random_candidates", lambda ctx, count, rng: [])
    graph = [signal("a")]
    context = types.SimpleNamespace()
    assert genetic._elite_derived_graph(context, [{"graph": graph}], None) is graph


def test_failures_leave_as_they_are(genetic, monkeypatch):
    error = ZeroDivisionError("operator")

    def failing(*args, **keywords):
        raise error

    context = types.SimpleNamespace(max_depth=3)
    parents = [{"graph": signal("a")}]
    for name in OPERATORS:
        monkeypatch.setattr(genetic, name, failing)
        with pytest.raises(ZeroDivisionError) as caught:
            genetic._elite_derived_graph(
                context, parents, random.Random(1),
                operator_rates={**dict.fromkeys(OPERATORS, 0), name: 1},
            )
        assert caught.value is error
    for empty in ([], (), None):
        with pytest.raises(ValueError) as caught:
            genetic._elite_derived_graph(context, empty, None)
        assert str(caught.value) == "elite-derived graph requires at least one parent"
    with pytest.raises(KeyError):
        genetic._elite_derived_graph(context, [{}], None)


def test_a_validator_that_refuses_a_hoisted_copy(genetic):
    def validator(graph):
        raise LookupError("refused")

    # The operator itself asks first, so one that asks nobody is put in its place.
    with pytest.MonkeyPatch.context() as patch:
        patch.setattr(genetic, "hoist_mutation", lambda graph, *, rng, validator: graph)
        graph = signal("a")
        with pytest.raises(LookupError):
            genetic._elite_derived_graph(
                types.SimpleNamespace(_graph_validator=validator), [{"graph": graph}],
                random.Random(1),
                operator_rates={**dict.fromkeys(OPERATORS, 0), "hoist_mutation": 1},
            )
        assert graph == signal("a")


@pytest.mark.parametrize(
    "kind", ["plain", "keywords", "keyword-only", "positional-only", "varargs"]
)
def test_replaced_sources_get_the_generator_by_their_signature(genetic, monkeypatch, kind):
    calls = []

    def note(*args):
        calls.append(args)
        return []

    source = {
        "plain": lambda ctx, count: note(count),
        "keywords": lambda ctx, count, **keywords: note(count, keywords),
        "keyword-only": lambda ctx, count, *, rng: note(count, rng),
        "positional-only": lambda ctx, count, rng=None, /: note(count, rng),
        "varargs": lambda *args: note(*args[1:]),
    }[kind]
    monkeypatch.setattr(genetic, "_fresh_random_candidates", source)
    rng = random.Random(1)
    context, parents = types.SimpleNamespace(), [{"graph": signal("a")}]
    if kind == "positional-only":
        # The name counts whatever its kind, so the call goes wrong.
        with pytest.raises(TypeError, match="positional-only"):
            genetic._elite_derived_graph(context, parents, rng)
        assert calls == []
        return
    genetic._elite_derived_graph(context, parents, rng)
    assert calls == [{"plain": (3,), "varargs": (3,), "keywords": (3, {"rng": rng}),
                      "keyword-only": (3, rng)}[kind]]


class Recorder(random.Random):
    """A `random.Random` that notes each of its draws."""

    def __init__(self, seed):
        self.draws = []
        super().__init__(seed)

    def random(self):
        self.draws.append("real")
        return super().random()

    def getrandbits(self, count):
        self.draws.append(count)
        return super().getrandbits(count)


@pytest.mark.parametrize("name", OPERATORS)
def test_a_subclass_of_random_is_drawn_from_by_its_own_methods(genetic, make_context, name):
    rates = {**dict.fromkeys(OPERATORS, 0.0), name: 1.0}
    parents = [{"graph": signal("a", feature("x")), "quality_score": 2.0},
               {"graph": signal("b", feature("y")), "quality_score": 1.0}]
    recorder, plain = Recorder(5), random.Random(5)
    children = [
        genetic._elite_derived_graph(
            make_context(), parents, rng, operator_rates=rates, elite_fraction=0.99
        )
        for rng in (recorder, plain)
    ]
    assert children[0] == children[1] and recorder.getstate() == plain.getstate()
    # Two parents, three graphs of the host's, of at least one draw each, the operator, its own.
    bits = [draw for draw in recorder.draws if draw == 30]
    assert len(bits) >= 3
    assert recorder.draws == ["real", "real", *bits, "real", "real"]
