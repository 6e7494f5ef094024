"""Values and hosts that are easily got wrong, drawn at random; a log tells what they are asked."""

import enum
import math
import random
import re
import types
from collections import OrderedDict, defaultdict
from decimal import Decimal
from fractions import Fraction
from unittest import mock


class Text(str):
    pass


class Whole(int):
    pass


class Real(float):
    pass


class Entries(dict):
    """A dict with an own way to read and look into it."""

    def get(self, key, *fallback):
        return super().get(key, *fallback)

    def __contains__(self, key):
        return super().__contains__(key)


class Pair(tuple):
    pass


class Items(list):
    pass


class Reason(str, enum.Enum):
    """Its text form is that of an enumeration, its characters are another."""

    SHARPE = "sharpe_min"
    WORKER = "worker_failed"


class Textual:
    """Its text form is a text of an own type."""

    def __str__(self):
        return Text("textual")


class Failing:
    """Fails at one operation, with a certain error."""

    def __init__(self, operation, error):
        self._operation = operation
        self._error = error

    def _fail(self, operation, default):
        if operation == self._operation:
            raise self._error
        return default

    def __bool__(self):
        return self._fail("bool", True)

    def __float__(self):
        return self._fail("float", 1.5)

    def __int__(self):
        return self._fail("int", 3)

    def __eq__(self, other):
        return self._fail("eq", self is other)

    def __hash__(self):
        return self._fail("hash", 11)

    def __str__(self):
        return self._fail("str", "failing")

    def __repr__(self):
        return f"<failing {self._operation}>"


class Spy:
    """Writes down what it is asked, and answers as a number would."""

    def __init__(self, log, name, number):
        self.__dict__.update(_log=log, _name=name, _number=number)

    def _note(self, what, *args):
        self._log.append((self._name, what) + tuple(map(shown, args)))

    def _other(self, other):
        return other._number if isinstance(other, Spy) else other

    def __repr__(self):
        return f"<spy {self._name}>"

    def __bool__(self):
        self._note("bool")
        return bool(self._number)

    def __float__(self):
        self._note("float")
        return float(self._number)

    def __int__(self):
        self._note("int")
        return int(self._number)

    def __str__(self):
        self._note("str")
        return self._name

    def __hash__(self):
        self._note("hash")
        return hash(self._number)

    def __neg__(self):
        self._note("neg")
        return Spy(self._log, "-" + self._name, -self._number)

    def __abs__(self):
        self._note("abs")
        return abs(self._number)


def spied(name):
    def operation(self, other):
        self._note(name, other)
        try:
            answer = getattr(self._number, name)(self._other(other))
        except AttributeError:
            return NotImplemented
        if answer is NotImplemented:
            return answer
        if name in ("__sub__", "__rsub__", "__add__", "__radd__", "__mul__", "__rmul__"):
            return Spy(self._log, f"{self._name}{name}", answer)
        return answer

    return operation


for _name in ("lt", "le", "gt", "ge", "eq", "ne", "sub", "rsub", "add", "radd", "mul", "rmul"):
    setattr(Spy, f"__{_name}__", spied(f"__{_name}__"))


# What differs from object to object in the text forms that Python gives.
ADDRESS = re.compile(r"0x[0-9a-f]+|id='\d+'")


def shown(value):
    """A form that two worlds share, without asking the value anything that it would note."""
    kind = type(value)
    if kind in (tuple, list):
        return (kind.__name__, *map(shown, value))
    if kind is dict:
        return ("dict", *((shown(key), shown(item)) for key, item in value.items()))
    if kind is float:
        return ("float", repr(value))
    if kind is str:
        return ("str", ADDRESS.sub("#", value))
    if kind in (int, bool, bytes, type(None)):
        return (kind.__name__, value)
    if issubclass(kind, BaseException):
        return (kind.__name__, *map(shown, value.args))
    if kind is set or kind is frozenset:
        return (kind.__name__, *sorted(map(repr, map(shown, value))))
    if kind in (Entries, OrderedDict, defaultdict):
        return (kind.__name__, *((shown(k), shown(v)) for k, v in dict.items(value)))
    if kind is types.MappingProxyType:
        return (kind.__name__, *((shown(k), shown(v)) for k, v in value.items()))
    if kind in (Text, Whole, Real, Pair, Items, Decimal, Fraction, Reason):
        return (kind.__name__, repr(value))
    if kind is types.SimpleNamespace:
        return ("namespace", *((k, shown(v)) for k, v in vars(value).items()))
    if kind in (Spy, Failing):
        return repr(value)
    return kind.__name__


class World:
    """Draws values, and keeps the log of a scene."""

    def __init__(self, seed, oddity=0.3):
        self.draw = random.Random(seed)
        self.oddity = oddity
        self.log = []
        self.spies = 0
        self.nan = math.nan
        self.patches = []

    def chance(self, share):
        return self.draw.random() < share

    def spy(self):
        self.spies += 1
        return Spy(self.log, f"s{self.spies}", self.draw.choice([0, 1, 2.5, -1, 0.25, 3, 0.5]))

    def error(self):
        return self.draw.choice([
            TypeError, ValueError, OverflowError, KeyError, AttributeError, RuntimeError,
            StopIteration, ArithmeticError, UnicodeError, IndexError,
        ])("refused")

    def failing(self):
        return Failing(
            self.draw.choice(["bool", "float", "int", "eq", "hash", "str"]), self.error()
        )

    def odd(self):
        """Anything at all."""
        choices = [
            lambda: None, lambda: True, lambda: False, lambda: 0, lambda: 1, lambda: -1,
            lambda: 70000 + self.draw.randrange(9), lambda: 2**70, lambda: -(10**400),
            lambda: 1.0 * self.draw.randrange(3), lambda: self.draw.random(), lambda: -0.0,
            lambda: self.nan, lambda: float("nan"), lambda: math.inf, lambda: 1e300,
            lambda: "", lambda: "x" * self.draw.randrange(1, 40), lambda: "7", lambda: " 0.5 ",
            lambda: "nan", lambda: "sharpe_min", lambda: "\ud800", lambda: b"7",
            list, lambda: [self.draw.random()], dict, lambda: {"a": self.draw.random()},
            tuple, lambda: (1, self.draw.random()), lambda: Pair((1, 2)), lambda: Items([1]),
            lambda: Decimal("1.5"), lambda: Fraction(1, 3), lambda: Fraction(7, 2),
            lambda: Text("sharpe_min"), lambda: Text("0.5"), lambda: Text(""), lambda: Whole(4),
            lambda: Real(1.25), lambda: Real(math.nan), lambda: Reason.SHARPE, Textual,
            lambda: Entries(a=1), lambda: OrderedDict(a=1), lambda: defaultdict(dict),
            lambda: defaultdict(lambda: self.spy(), value=self.draw.random()),
            lambda: types.MappingProxyType({"value": self.draw.random()}),
            lambda: {"value": self.number(), "threshold": self.number()},
            lambda: mock.NonCallableMock(dict), lambda: mock.NonCallableMock(str),
            lambda: types.SimpleNamespace(sharpe=1.5),
            lambda: object(), lambda: 3 + 4j, self.spy, self.spy, self.failing,
        ]
        return self.draw.choice(choices)()

    def number(self):
        if self.chance(self.oddity):
            return self.odd()
        return self.draw.choice([
            lambda: round(self.draw.uniform(-2, 3), 3), lambda: self.draw.randrange(5),
            lambda: self.draw.uniform(-2, 3),
        ])()

    def either(self, *makers):
        """One of the values made, or anything."""
        if self.chance(self.oddity):
            return self.odd()
        maker = self.draw.choice(makers)
        return maker() if callable(maker) else maker

    def text(self, *known):
        return self.either(*known)

    def mapping(self, **makers):
        """A record with some of the keys, mostly a plain dict."""
        entries = {}
        for key, maker in makers.items():
            if not self.chance(0.2):
                entries[key] = maker()
        return self.dressed(entries)

    def dressed(self, entries):
        if not self.chance(self.oddity):
            return entries
        return self.draw.choice([
            Entries, OrderedDict, types.MappingProxyType, lambda e: defaultdict(self.odd, e),
            lambda e: e, lambda e: e,
        ])(entries)

    def graph(self, depth=2, oddity=None):
        oddity = self.oddity / 6 if oddity is None else oddity
        if self.chance(oddity):
            return self.odd()
        node = {
            "node": self.draw.choice(["ts_mean", "rank", "close", "comparison_gt", "add_x"]),
            "type": self.draw.choice(["feature", "function", "rotation"]),
        }
        if depth and self.chance(0.7):
            node["children"] = [
                self.graph(depth - 1, oddity) for _ in range(self.draw.randrange(3))
            ]
        if self.chance(0.2):
            node["window"] = self.draw.choice([5, 5.0, 20, True, None, self.nan, self.number()])
        return node

    def stats(self):
        if self.chance(self.oddity):
            return self.odd()
        names = ("sharpe", "quality_score", "correlation", "turnover", "drawdown",
                 "annualized_returns")
        return types.SimpleNamespace(
            **{name: self.number() for name in names if self.chance(0.7)}
        )

    def operation(self, name, *answers, failing=0.08):
        """An operation of the host: notes its call, and fails now and then."""
        fails = self.error() if self.chance(failing) else None
        maker = self.draw.choice(answers) if answers else (lambda *_, **__: None)

        def run(*args, **keywords):
            self.log.append((name, shown(args), shown(keywords)))
            if fails is not None:
                raise fails
            return maker(*args, **keywords)

        return run

    def namespace(self, name, missing=0.0, **held):
        """An object whose attributes are noted when they are read."""
        return Noted(
            self.log, name, {key: value for key, value in held.items() if not self.chance(missing)}
        )

    def patch(self, name, value):
        """Puts something in the place of a host's module or operation."""
        self.patches.append((name, value))
        return value

    def module(self, name, **members):
        """Puts something in the place of an importable module."""
        self.patches.append((name, types.SimpleNamespace(**members)))


class Noted:
    def __init__(self, log, name, held):
        self.__dict__.update(_log=log, _name=name, _held=held)

    def __repr__(self):
        return f"<{self._name}>"

    def __getattr__(self, name):
        self._log.append((self._name, "read", name))
        try:
            return self._held[name]
        except KeyError:
            raise AttributeError(f"{self._name!r} has no {name}") from None

    def __setattr__(self, name, value):
        self._log.append((self._name, "set", name, shown(value)))
        self._held[name] = value

    def __delattr__(self, name):
        self._log.append((self._name, "delete", name))
        try:
            del self._held[name]
        except KeyError:
            raise AttributeError(name) from None
