"""Values and thresholds of failures, and sharpe, on Python objects.

Goal: figures come back as they stand, JSON is what Python's reader makes of it, and sharpe is
looked for where it is told. Method: tables of failures and results, with engines that
note their calls.
"""

import json
import math
import types
from collections import OrderedDict

import pytest


class WithGet:
    """No mapping, but with the operation that a result is read by."""

    def __init__(self, **entries):
        self.entries = entries

    def get(self, key):
        return self.entries.get(key)


# Pairs of figures.


class Text(str):
    pass


DEEP = "[" * 100_000 + "]" * 100_000


@pytest.mark.parametrize(
    "failure, pair",
    [
        (None, (None, None)), ([], (None, None)), ("text", (None, None)), ({}, (None, None)),
        ({"value": None, "threshold": 1.5, "detail": {"value": 3}}, (None, 1.5)),
        ({"value": 0, "detail": {"threshold": 3}}, (0, None)),
        ({"value": "1", "threshold": []}, ("1", [])),
        ({"detail": {"value": 1}}, (1, None)), ({"detail": OrderedDict(threshold=2)}, (None, 2)),
        (OrderedDict(detail=types.MappingProxyType({"value": 3})), (3, None)),
        ({"detail": '{"value": 1, "threshold": "2"}'}, (1, "2")),
        ({"detail": Text('{"value": 1}')}, (1, None)),
        ({"detail": ' {"value": 1, "value": 2} '}, (2, None)),
        ({"detail": '{"value": Infinity, "threshold": -Infinity}'}, (math.inf, -math.inf)),
        ({"detail": '{"value": ' + "9" * 300 + "}"}, (int("9" * 300), None)),
        ({"detail": '{"value": ' + "9" * 4301 + "}"}, (None, None)),
        ({"detail": '{"value": "\\ud800"}'}, ("\ud800", None)),
        ({"detail": '{"value": "\ud800"}'}, ("\ud800", None)),
        ({"detail": '\ufeff{"value": 1}'}, (None, None)),
        ({"detail": DEEP}, (None, None)), ({"detail": ""}, (None, None)),
        ({"detail": '{"value": 1} x'}, (None, None)), ({"detail": '["value"]'}, (None, None)),
        ({"detail": b'{"value": 1}'}, (None, None)), ({"detail": [("value", 1)]}, (None, None)),
        ({"detail": types.SimpleNamespace(value=1)}, (None, None)),
    ],
    ids=lambda value: repr(value)[:40],
)
def test_the_figures_of_a_failure(genetic, failure, pair):
    result = genetic._failure_metric_pair(failure)
    assert type(result) is tuple and result == pair
    assert [type(one) for one in result] == [type(one) for one in pair]


def test_a_figure_that_is_not_a_number_is_one(genetic):
    value, threshold = genetic._failure_metric_pair({"detail": '{"value": NaN}'})
    assert type(value) is float and math.isnan(value) and threshold is None
    figure = object()
    assert genetic._failure_metric_pair({"value": figure})[0] is figure


def test_the_hosts_reader_is_looked_up_at_each_call(genetic, monkeypatch):
    read = []

    def loads(text):
        read.append(text)
        raise KeyError("any ordinary error")

    monkeypatch.setattr(json, "loads", loads)
    text = Text("{}")
    assert genetic._failure_metric_pair({"detail": text}) == (None, None)
    assert read[0] is text

    def interrupt(text):
        raise KeyboardInterrupt

    monkeypatch.setattr(json, "loads", interrupt)
    with pytest.raises(KeyboardInterrupt):
        genetic._failure_metric_pair({"detail": "{}"})


# Sharpe.


@pytest.mark.parametrize(
    "result, metrics, pair",
    [
        ({}, {}, (None, None)), ({"sharpe": "1.5"}, {}, (1.5, None)),
        ({"sharpe": "none"}, {"sharpe": -2}, (-2.0, None)), ({"sharpe": True}, {}, (1.0, None)),
        ({"sharpe": 1}, {"sharpe": 2}, (1.0, None)),
        ({"failures": {"sharpe_min": {"value": "-3", "threshold": "1"}}}, {}, (-3.0, 1.0)),
        ({"sharpe": 1, "failures": {"sharpe_min": {"value": -3, "threshold": 2}}}, {}, (1.0, 2.0)),
        ({"failures": {"sharpe_min": {"value": -3},
                       "gross_returns_sharpe_below_min": {"value": 4, "threshold": 2}}}, {},
         (-3.0, 2.0)),
        ({"failures": {"gross_returns_sharpe_below_min": {"threshold": 5},
                       "sharpe_min": {"threshold": 6}}}, {}, (None, 6.0)),
        ({"failures": {"sharpe_min": {"threshold": "x"}}}, {}, (None, None)),
        ({"failures": ["sharpe_min"]}, {}, (None, None)),
        (OrderedDict(sharpe=10**400), {"sharpe": b"1"}, (1.0, None)),
        (WithGet(sharpe=1, failures={"sharpe_min": {"threshold": 2}}), {}, (1.0, None)),
    ],
    ids=repr,
)
def test_the_sharpe_and_its_threshold(genetic, make_engine, result, metrics, pair):
    engine = make_engine(_stats_gate_metrics=metrics)
    found = genetic._sharpe_reaction_metric_pair(result)
    assert type(found) is tuple and found == pair
    assert genetic._sharpe_reaction_value(result) == pair[0]
    assert engine.called == ["_stats_gate_metrics"] * 2, "asked also when it will do without"


def test_results_and_metrics_are_read_by_their_own_operation(genetic, make_engine):
    make_engine(_stats_gate_metrics=WithGet(sharpe=3))
    assert genetic._sharpe_reaction_value({}) == 3.0
    with pytest.raises(AttributeError, match="'int' object has no attribute 'get'"):
        genetic._sharpe_reaction_metric_pair(5)
    for metrics, kind in ((None, AttributeError), (KeyError("k"), KeyError)):
        make_engine(_stats_gate_metrics=metrics)
        with pytest.raises(kind):
            genetic._sharpe_reaction_value({"sharpe": 1})


@pytest.mark.parametrize(
    "value, threshold, negative",
    [
        (-1.0, 1.0, True), (-0.99, 1.0, False), (1.5, 1.0, False), (-9, -0.5, False),
        (-1.0, 0.0, True), (0.0, 0.0, False), (-0.0, -0.0, False), (None, 1, False),
        (-1, None, False), ("nan", 1, False), (-2, "nan", False), ("-inf", "inf", True),
    ],
)
def test_a_strongly_negative_sharpe(genetic, make_engine, value, threshold, negative):
    make_engine(_stats_gate_metrics={})
    result = {"passes": True, "sharpe": value, "failures": {"sharpe_min": {"threshold": threshold}}}
    assert genetic._is_negative_sharpe_reaction_candidate(result) is negative


def test_without_a_sharpe_failure_the_host_is_not_asked(genetic, make_engine):
    engine = make_engine(_stats_gate_metrics={})
    for result in ({"sharpe": -9, "failures": {"turnover_max": {"threshold": 1}}}, 5, {}):
        assert genetic._is_negative_sharpe_reaction_candidate(result) is False
    assert engine.calls == []


def test_the_families_whose_results_are_no_numbers(genetic):
    assert genetic._NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES == frozenset({"comparison"})
    assert type(genetic._NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES) is frozenset
