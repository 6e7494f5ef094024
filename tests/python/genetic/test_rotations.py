"""The safe rotations on Python objects.

Goal: what the host is asked, in which order, and which of its rotations are kept. Method: helpers
that note their calls, and contexts whose attributes are missing, absent or of other types.
"""

import collections
import types

import pytest


class Vocabulary(collections.UserDict):
    pass


def test_safe_rotations(genetic, monkeypatch, make_context):
    calls = []
    rotations = [
        {"name": "rank", "inner": [1]}, {"name": ""}, {"name": 5}, {}, {"name": None},
        {"name": "zscore"}, {"name": "rank"},
    ]
    functions, window, node, registry = object(), (1, [2]), {"n": 1}, [object()]

    def noting(name, answer):
        def operation(*args, **keywords):
            calls.append((name, args, keywords))
            return answer
        return operation

    monkeypatch.setattr(genetic, "_engine", types.SimpleNamespace(
        _function_entries_for_kind=noting("entries", functions),
        _random_weighted_window_limit=noting("window", window),
        _random_weighted_node_limit=noting("node", node),
        _random_weighted_runtime_registry=noting("registry", registry),
        _signal_generation_safe_rotations=noting("safe", rotations),
    ))
    vocabulary = Vocabulary(functions=[])
    context = make_context(vocabulary=vocabulary, max_depth="4")
    safe = genetic._safe_reaction_rotations(context)
    assert safe == [rotations[0], rotations[5], rotations[6]]
    assert safe[0] is not rotations[0]
    assert safe[0]["inner"] is not rotations[0]["inner"]
    assert calls == [
        ("entries", (vocabulary, "rotation"), {}),
        ("window", (context, 4), {}),
        ("node", (context,), {}),
        ("registry", (context,), {}),
        ("safe", (functions, window, node, registry), {
            "log_context": genetic._GENETIC_REACTION_LOG_CONTEXT, "template_name": "genetic",
            "stage": "reaction_planning", "generator": "safe_reaction_rotations",
        }),
    ]
    _, given, keywords = calls[4]
    assert calls[0][1][0] is vocabulary
    assert all(one is two for one, two in zip(given, (functions, window, node, registry)))
    assert keywords["log_context"] is genetic._GENETIC_REACTION_LOG_CONTEXT
    names = genetic._safe_reaction_rotation_names(context)
    assert names == {"rank", "zscore"} and type(names) is set


@pytest.mark.parametrize("vocabulary", [None, [], "x", 5])
def test_a_vocabulary_that_is_no_mapping(genetic, monkeypatch, make_context, vocabulary):
    monkeypatch.setattr(genetic, "_engine", None)
    context = make_context(vocabulary=vocabulary)
    assert genetic._safe_reaction_rotations(context) == []
    assert genetic._safe_reaction_rotation_names(context) == set()


@pytest.mark.parametrize(
    "attributes, depth",
    [({}, 1), ({"max_depth": None}, 1), ({"max_depth": "x"}, 1), ({"max_depth": float("inf")}, 1),
     ({"max_depth": 2.9}, 2), ({"max_depth": 0}, 0), ({"max_depth": -3}, -3)],
    ids=repr,
)
def test_the_depth_that_limits_windows(genetic, monkeypatch, make_context, attributes, depth):
    given = []
    monkeypatch.setattr(genetic._engine, "_random_weighted_window_limit",
                        lambda ctx, max_depth: given.append(max_depth))
    monkeypatch.setattr(genetic._engine, "_function_entries_for_kind",
                        lambda vocabulary, kind: given.append(vocabulary) or [])
    # A missing vocabulary is an empty one.
    assert genetic._safe_reaction_rotations(make_context(**attributes)) == []
    assert given == [{}, depth] and type(given[0]) is dict and type(given[1]) is int


def test_rotation_names_are_the_texts_themselves(genetic, monkeypatch, make_context):
    class Named(str):
        def __str__(self):
            return "another"

    answers = iter([[{"name": Named("rank")}], [5]])
    monkeypatch.setattr(genetic._engine, "_signal_generation_safe_rotations",
                        lambda *args, **keywords: next(answers))
    names = genetic._safe_reaction_rotation_names(make_context())
    assert names == {"rank"} and [type(name) for name in names] == [str]
    with pytest.raises(AttributeError):
        genetic._safe_reaction_rotations(make_context())
