"""Validators, operator rates, seeds and random states.

Goal: each accepts, converts and refuses as told, with the exact type and text. Method: tables of
values and answers.
"""

import decimal
import fractions
import math
import random
import secrets

import pytest


class Whole(int):
    pass


class Indexed:
    def __index__(self):
        return 3


NOT_WHOLE = [True, False, 1.0, "1", None, Whole(3), Indexed(), [], math.nan]


@pytest.mark.parametrize("value", [1, 7, 2**63, 10**400])
def test_positive_int_returns_the_value(genetic, value):
    assert genetic._positive_int(value, "batch_size") is value or value < 2**63
    assert genetic._positive_int(value, "batch_size") == value


@pytest.mark.parametrize("value", NOT_WHOLE, ids=repr)
def test_positive_int_takes_the_exact_integer_type_alone(genetic, value):
    with pytest.raises(TypeError) as caught:
        genetic._positive_int(value, "batch_size")
    assert str(caught.value) == "genetic batch_size must be an integer"


@pytest.mark.parametrize("value", [0, -1, -(2**70)])
def test_positive_int_refuses_what_is_not_above_zero(genetic, value):
    with pytest.raises(ValueError) as caught:
        genetic._positive_int(value, "batch_size")
    assert str(caught.value) == "genetic batch_size must be positive"


def test_optional_nonnegative_int(genetic):
    assert genetic._optional_nonnegative_int(None, "depth") is None
    assert genetic._optional_nonnegative_int(0, "depth") == 0
    for value in NOT_WHOLE:
        if value is None:
            continue
        with pytest.raises(TypeError) as caught:
            genetic._optional_nonnegative_int(value, "depth")
        assert str(caught.value) == "genetic depth must be an integer or None"
    with pytest.raises(ValueError) as caught:
        genetic._optional_nonnegative_int(-1, "depth")
    assert str(caught.value) == "genetic depth must be non-negative"


@pytest.mark.parametrize(
    "value, number",
    [
        (True, 1.0), (3, 3.0), ("0.5", 0.5), (" 1_000 ", 1000.0), ("٣", 3.0),
        (decimal.Decimal("0.25"), 0.25), (fractions.Fraction(1, 2), 0.5), (b"2", 2.0),
        (Indexed(), 3.0), (2**70, 2.0**70),
    ],
    ids=repr,
)
def test_floats_are_converted_as_pythons_float_does(genetic, value, number):
    for validate in (
        genetic._positive_float, genetic._nonnegative_float, genetic._optional_nonnegative_float
    ):
        converted = validate(value, "x")
        assert type(converted) is float and converted == number


@pytest.mark.parametrize(
    "name, end",
    [
        ("_positive_float", "a finite number"),
        ("_nonnegative_float", "a finite number"),
        ("_optional_nonnegative_float", "a finite number or None"),
    ],
)
def test_what_is_no_finite_number_is_refused(genetic, name, end):
    validate = getattr(genetic, name)
    for value in ("abc", "", [], {}, object(), 10**400, 1j):
        with pytest.raises(TypeError) as caught:
            validate(value, "x")
        assert str(caught.value) == f"genetic x must be {end}"
        assert caught.value.__cause__ is None
    for value in (math.nan, math.inf, -math.inf, "nan", "-inf"):
        with pytest.raises(ValueError) as caught:
            validate(value, "x")
        assert str(caught.value) == "genetic x must be finite"


def test_the_sign_that_each_allows(genetic):
    for value in (0, 0.0, -0.0, -1, False):
        with pytest.raises(ValueError, match="^genetic x must be positive$"):
            genetic._positive_float(value, "x")
    assert math.copysign(1, genetic._nonnegative_float(-0.0, "x")) == -1
    assert genetic._optional_nonnegative_float(None, "x") is None
    with pytest.raises(TypeError):
        genetic._nonnegative_float(None, "x")
    for validate in (genetic._nonnegative_float, genetic._optional_nonnegative_float):
        with pytest.raises(ValueError, match="^genetic x must be non-negative$"):
            validate(-5e-324, "x")


def test_operator_rates_fill_up_from_the_defaults(genetic):
    defaults = dict(genetic.DEFAULT_OPERATOR_RATES)
    assert genetic._operator_rates(None) == defaults
    assert genetic._operator_rates(None) is not genetic.DEFAULT_OPERATOR_RATES
    assert genetic._operator_rates({}) == defaults
    rates = genetic._operator_rates({"crossover": "2", "point_mutation": 0})
    assert rates == {**defaults, "crossover": 2.0, "point_mutation": 0.0}
    assert list(rates) == list(defaults)
    assert defaults == genetic.DEFAULT_OPERATOR_RATES


def test_operator_rates_refuse_what_is_no_mapping(genetic):
    for value in ([], "crossover", 1, [("crossover", 1)], set()):
        with pytest.raises(TypeError) as caught:
            genetic._operator_rates(value)
        assert str(caught.value) == "genetic operator_rates must be a dictionary"


def test_unknown_rates_are_listed_sorted_by_text_form(genetic):
    class Shown:
        def __repr__(self):
            return "b"

    with pytest.raises(ValueError) as caught:
        genetic._operator_rates({"c": 1, "a": 1, Shown(): 1, "b": 1, 1: 1, None: -1})
    assert str(caught.value) == "genetic operator_rates has unknown keys: 1, None, a, b, b, c"


def test_bad_rates_are_told_under_their_name(genetic):
    with pytest.raises(ValueError) as caught:
        genetic._operator_rates({"crossover": -1})
    assert str(caught.value) == "genetic operator_rates.crossover must be non-negative"
    with pytest.raises(TypeError) as caught:
        genetic._operator_rates({"crossover": "x"})
    assert str(caught.value) == "genetic operator_rates.crossover must be a finite number"
    with pytest.raises(ValueError) as caught:
        genetic._operator_rates(dict.fromkeys(genetic.DEFAULT_OPERATOR_RATES, 0.0))
    assert str(caught.value) == "genetic operator_rates must contain at least one positive rate"


def test_the_defaults_are_read_from_the_module_when_called(genetic, monkeypatch):
    monkeypatch.setattr(genetic, "DEFAULT_OPERATOR_RATES", {"only": 1.0})
    assert genetic._operator_rates(None) == {"only": 1.0}
    with pytest.raises(ValueError, match="unknown keys: crossover"):
        genetic._operator_rates({"crossover": 1})


def test_a_seed_is_drawn_once_and_never_zero(genetic, monkeypatch):
    asked = []

    def randbits(count):
        asked.append(count)
        return drawn

    monkeypatch.setattr(secrets, "randbits", randbits)
    for drawn, seed in ((0, 1), (1, 1), (2**63 - 1, 2**63 - 1)):
        assert genetic._generate_run_seed() == seed
    assert asked == [63, 63, 63]


@pytest.mark.parametrize("seed", [1, 2**31, 2**63 - 1, 0, -5, 2**200])
def test_a_state_is_that_of_pythons_generator(genetic, seed):
    state = genetic._managed_rng_state(seed)
    assert state == random.Random(seed).getstate()
    generator = genetic._rng_from_state(state)
    assert type(generator) is random.Random
    reference = random.Random(seed)
    draws = [
        (one.random(), one.getrandbits(64), one.randrange(1000), one.gauss(0, 1))
        for one in (generator, reference)
    ]
    assert draws[0] == draws[1]


def test_clones_are_independent(genetic):
    state = genetic._managed_rng_state(3)
    first, second = genetic._rng_from_state(state), genetic._rng_from_state(state)
    assert first is not second
    assert [first.random() for _ in range(700)] == [second.random() for _ in range(700)]
    assert state == random.Random(3).getstate()
    assert genetic._rng_from_state(None) is None


def test_a_pending_gauss_value_belongs_to_the_state(genetic):
    generator = random.Random(3)
    generator.gauss(0, 1)
    clone = genetic._rng_from_state(generator.getstate())
    assert clone.gauss(0, 1) == generator.gauss(0, 1)


def test_a_bad_state_is_pythons_complaint(genetic):
    with pytest.raises(ValueError, match="state with version"):
        genetic._rng_from_state((99, (), None))
