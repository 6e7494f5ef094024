"""Ranking by what a host's scores answer.

Goal: candidates are ordered as Python orders tuples, whatever objects the scores are, and no answer
of theirs can do more harm than a wrong order. Method: score classes with operators of their own,
compared with `sorted`.
"""

import itertools
import json
import math
import random
import sys

import pytest


@pytest.fixture
def rank(genetic, monkeypatch):
    """The numbers of the candidates in their order; candidate i has scores[i]."""

    def ranking(scores, **entries):
        candidates = [{"passes": True, "graph": f"g{i}", "i": i} for i in range(len(scores))]
        for name, values in entries.items():
            for candidate, value in zip(candidates, values):
                candidate[name] = value
        monkeypatch.setattr(genetic, "score_candidate", lambda c, **_: scores[c["i"]])
        return [candidate["i"] for candidate in genetic.rank_submittable_candidates(candidates)]

    return ranking


class Contradiction:
    """A score that is less than itself every other time."""

    def __init__(self, answers):
        self._answers = answers

    def __neg__(self):
        return self

    def __eq__(self, other):
        return False

    def __lt__(self, other):
        return next(self._answers)


@pytest.mark.parametrize("count", [2, 3, 17, 64])
def test_scores_that_contradict_themselves_give_some_order(rank, count):
    for answers in ([False, True], [True, False], [True], [False, True, True]):
        score = Contradiction(itertools.cycle(answers))
        assert sorted(rank([score] * count)) == list(range(count))
    draw = random.Random(count)
    score = Contradiction(draw.random() < 0.5 for _ in itertools.count())
    assert sorted(rank([score] * count)) == list(range(count))


def test_parents_with_such_scores_are_sorted_somehow(genetic, monkeypatch):
    score = Contradiction(itertools.cycle([True, False, True]))
    monkeypatch.setattr(genetic, "score_candidate", lambda *_, **__: score)
    prior = [{"passes": True, "graph": {"node": str(i)}} for i in range(20)]
    # They are sorted before the first of them is reckoned with, which such a score does not allow.
    with pytest.raises(TypeError, match="Contradiction"):
        genetic.compose_next_batch(prior, 4, random.Random(1))


class Kept(float):
    """A float that stays what it is under a sign, as array scalars do."""

    def __neg__(self):
        return Kept(float.__neg__(self))


@pytest.mark.skipif(sys.version_info >= (3, 13), reason="this Python's sort leaves it elsewhere")
def test_a_nan_stays_where_pythons_sort_leaves_it(rank):
    draw = random.Random(5)
    for kind in (float, Kept, lambda number: math.nan if number == "nan" else float(number)):
        for _ in range(200):
            scores = [kind(draw.choice([1, 2, 3, "nan"])) for _ in range(draw.randrange(90))]
            keys = [(-score, 0, json.dumps(f"g{i}")) for i, score in enumerate(scores)]
            assert rank(scores) == sorted(range(len(scores)), key=lambda i: keys[i])


class OnlyLess:
    """A score with an order and no equality but identity."""

    def __init__(self, value):
        self.value = value

    def __neg__(self):
        return OnlyLess(-self.value)

    def __lt__(self, other):
        return self.value < other.value


def test_scores_of_which_none_is_less_keep_their_order(rank):
    scores = [OnlyLess(1), OnlyLess(1), OnlyLess(2), OnlyLess(1)]
    assert rank(scores, graph=["d", "c", "b", "a"], candidate_index=[4, 3, 2, 1]) == [2, 0, 1, 3]


class Unequal:
    """A score that cannot be compared, as an array cannot."""

    def __neg__(self):
        return self

    def __eq__(self, other):
        raise ValueError("the truth of an array is ambiguous")

    __lt__ = __eq__


def test_one_score_for_all_is_equal_to_itself_whatever_it_says(rank):
    assert rank([Unequal()] * 3, candidate_index=[3, 1, 2]) == [1, 2, 0]
    with pytest.raises(ValueError, match="ambiguous"):
        rank([Unequal(), Unequal()])
