"""Market and era of a submission, on Python objects.

Goal: what counts as a positive integer is what Python's `int` makes of it, names are asked in their
order, and only the payload is written. Method: tables, contexts that note their reads, and a plain
version of the rules that random contexts and payloads are compared with.
"""

import decimal
import fractions
import math
import random
import types
from collections import OrderedDict, defaultdict

import pytest


class Whole(int):
    pass


class Real(float):
    pass


class Text(str):
    pass


class ForeignTrue:
    """A boolean as numeric libraries have it: no subtype of bool."""

    def __bool__(self):
        return True

    def __int__(self):
        return 1


class Indexed:
    def __index__(self):
        return 9


@pytest.mark.parametrize(
    "value, integer",
    [
        (None, None), (True, None), (False, None), (0, None), (-3, None), (7, 7), (Whole(7), 7),
        (7.0, 7), (7.5, None), (0.0, None), (-2.0, None), (Real(7.0), 7), (Real(7.5), None),
        (math.nan, None), (math.inf, None), (-math.inf, None), (1e300, int(1e300)),
        ("7", 7), (" +7\n", 7), ("1_000", 1000), ("_1", None), ("1__0", None), ("7.0", None),
        ("", None), ("x", None), ("-7", None), ("0", None), (Text("7"), 7), ("\ud800", None),
        ("٧", 7), ("۱۲", 12), ("１２", 12), ("②", None), ("9" * 4300, int("9" * 4300)),
        ("9" * 4301, None), (b"7", 7), (b" 1_0 ", 10), (bytearray(b"12"), 12), (b"7.0", None),
        (b"\xff", None), (2**63, 2**63), (10**400, 10**400), (-(10**400), None),
        (decimal.Decimal("7.9"), 7), (decimal.Decimal("NaN"), None),
        (decimal.Decimal("Infinity"), None), (fractions.Fraction(15, 2), 7), (1j, None),
        (ForeignTrue(), 1), (Indexed(), 9), ([7], None), ({}, None), (object(), None),
    ],
    ids=lambda value: repr(value)[:20],
)
def test_a_positive_integer_or_none(genetic, value, integer):
    result = genetic._positive_int_or_none(value)
    assert result == integer
    assert type(result) is type(integer)


def test_the_three_tolerated_errors_and_no_other(genetic):
    def number(error):
        def fail(self):
            raise error

        return type("Number", (), {"__int__": fail})()

    for error in (TypeError(), ValueError(), OverflowError(), UnicodeError()):
        assert genetic._positive_int_or_none(number(error)) is None
    for error in (KeyError("k"), RuntimeError(), KeyboardInterrupt()):
        with pytest.raises(type(error)) as caught:
            genetic._positive_int_or_none(number(error))
        assert caught.value is error


class Noting:
    """A context whose every attribute read is noted; `missing` for what it has not."""

    def __init__(self, **attributes):
        object.__setattr__(self, "reads", [])
        object.__setattr__(self, "attributes", attributes)

    def __getattr__(self, name):
        self.reads.append(name)
        try:
            value = self.attributes[name]
        except KeyError:
            raise AttributeError(name) from None
        if isinstance(value, BaseException):
            raise value
        return value


def test_the_names_are_asked_in_their_order_and_as_often_as_told(genetic):
    context = Noting()
    assert genetic._context_market_id(context) is None
    assert context.reads == ["_market_id", "market_id", "_era_config", "era_config"]
    context.reads.clear()
    assert genetic._context_era_number(context) is None
    assert context.reads == [
        "_era_number", "era_number", "_era_number", "era_number", "_era_config", "era_config"
    ]
    context = Noting(_market_id=0, market_id=5)
    assert genetic._context_market_id(context) == 5
    assert context.reads == ["_market_id", "market_id"]


def test_an_era_configuration_is_read_as_mapping_or_by_attributes(genetic):
    config = Noting(era_number=None, id=12)
    assert genetic._context_era_number(types.SimpleNamespace(era_config=config)) == 12
    assert config.reads == ["era_number", "era_number", "id"]
    config = Noting(market="8", id=3)
    assert genetic._context_market_id(types.SimpleNamespace(_era_config=config)) == 8
    assert config.reads == ["market_id", "market"]
    for mapping in ({"id": 12}, OrderedDict(id=12), types.MappingProxyType({"id": 12})):
        assert genetic._context_era_number(types.SimpleNamespace(era_config=mapping)) == 12
        # "id" names an era only, and "market" a market.
        assert genetic._context_market_id(types.SimpleNamespace(era_config=mapping)) is None
    counting = defaultdict(lambda: 99)
    assert genetic._context_era_number(types.SimpleNamespace(era_config=counting)) is None
    assert counting == {}


def test_the_own_era_configuration_is_asked_first_and_kept_as_it_is(genetic):
    own, public = object(), object()
    assert genetic._context_era_config(types.SimpleNamespace(_era_config=own)) is own
    both = types.SimpleNamespace(_era_config=own, era_config=public)
    assert genetic._context_era_config(both) is own
    both._era_config = None
    assert genetic._context_era_config(both) is public
    both._era_config = 0
    assert genetic._context_era_config(both) == 0, "only None is absent"
    assert genetic._context_era_config(None) is None


def test_an_attribute_error_of_a_property_means_missing_and_others_pass(genetic):
    context = Noting(_market_id=AttributeError("inner"), market_id=4)
    assert genetic._context_market_id(context) == 4
    error = LookupError("lost")
    for name in ("_market_id", "market_id", "_era_config", "era_config"):
        with pytest.raises(LookupError) as caught:
            genetic._context_market_id(Noting(**{name: error}))
        assert caught.value is error
    config = Noting(market=error)
    with pytest.raises(LookupError):
        genetic._context_market_id(types.SimpleNamespace(era_config=config))


def test_a_field(genetic):
    field, default = genetic._field_value, object()
    assert field({"a": None}, "a", 1) is None
    assert field({}, "a", default) is default
    assert field({}, "keys") is None, "a mapping's attributes are no fields"
    assert field(types.SimpleNamespace(a=5), "a") == 5
    assert field(types.SimpleNamespace(), "a", default=default) is default
    assert field(None, "a", 3) == 3
    assert field(5, "real") == 5
    assert field({3: "three"}, 3) == "three"
    with pytest.raises(TypeError, match="attribute name must be string, not 'int'"):
        field(object(), 3)
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        field({}, [])

    class Slots:
        get = None

    with_get = Slots()
    with_get.a = 1
    assert field(with_get, "a") == 1, "an operation `get` makes no mapping"


def test_the_payload_itself_is_changed_and_returned(genetic):
    payload = {"market_id": "no number", "other": 1}
    context = types.SimpleNamespace(market_id=4, era_number="9")
    assert genetic._ensure_payload_market_era(payload, context) is payload
    assert list(payload.items()) == [("market_id", 4), ("other", 1), ("era_number", 9)]
    ordered = OrderedDict(era_number="7")
    assert genetic._ensure_payload_market_era(ordered, None) is ordered
    assert ordered == {"era_number": 7} and type(ordered["era_number"]) is int


def test_what_cannot_be_resolved_stays_as_it_is(genetic):
    payload = {"market_id": "x", "client_manifest_market_id": True, "era_number": -1}
    before = dict(payload)
    genetic._ensure_payload_market_era(payload, object())
    assert payload == before
    read_only = types.MappingProxyType({})
    assert genetic._ensure_payload_market_era(read_only, object()) is read_only
    with pytest.raises(TypeError, match="does not support item assignment"):
        genetic._ensure_payload_market_era(types.MappingProxyType({"market_id": 1}), object())
    with pytest.raises(AttributeError, match="'int' object has no attribute 'get'"):
        genetic._ensure_payload_market_era(5, object())


def plain_positive(value):
    if value is None or isinstance(value, bool):
        return None
    if isinstance(value, float) and not value.is_integer():
        return None
    try:
        integer = int(value)
    except (TypeError, ValueError, OverflowError):
        return None
    return integer if integer > 0 else None


def plain_first(values):
    return next((found for found in map(plain_positive, values) if found is not None), None)


def plain_context(context, names, config_names):
    found = plain_first(getattr(context, name, None) for name in names)
    if found is not None:
        return found
    config = getattr(context, "_era_config", None)
    config = getattr(context, "era_config", None) if config is None else config
    read = config.get if isinstance(config, dict) else lambda name: getattr(config, name, None)
    return plain_first(read(name) for name in config_names)


def plain_payload(payload, context):
    for key, names, config_names in (
        ("market_id", ("_market_id", "market_id"), ("market_id", "market")),
        ("era_number", ("_era_number", "era_number"), ("era_number", "id")),
    ):
        found = plain_first(
            read() for read in (
                lambda: payload.get(key),
                lambda: plain_context(context, names, config_names),
                lambda: payload.get("client_manifest_" + key),
            )
        )
        if found is not None:
            payload[key] = found
    return payload


def test_random_payloads_and_contexts(genetic):
    values = [None, True, 0, 3, -1, 2.0, 2.5, "4", "x", b"5", math.nan, 10**30, []]
    names = ["market_id", "_market_id", "era_number", "_era_number", "market", "id",
             "client_manifest_market_id", "client_manifest_era_number"]
    for seed in range(600):
        rng = random.Random(seed)

        def some():
            return {name: rng.choice(values) for name in names if rng.random() < 0.4}

        attributes = some()
        for name in ("era_config", "_era_config"):
            choice = rng.randrange(4)
            if choice:
                attributes[name] = [None, some(), types.SimpleNamespace(**some())][choice - 1]
        context, payload = types.SimpleNamespace(**attributes), some()
        expected = plain_payload(dict(payload), context)
        result = genetic._ensure_payload_market_era(payload, context)
        assert repr(list(result.items())) == repr(list(expected.items())), f"seed {seed}"
