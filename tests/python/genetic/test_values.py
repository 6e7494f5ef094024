"""Values cross the boundary and come back as what they were.

Goal: identity, kinds and changes in place survive between Python and the library. Method: objects
go through functions that hand a value on unseen (`_number` with its default), copy it
(`_plain_graph_data`) or write to it (`_annotate_candidate_results`), and are compared with what
plain Python does to the same objects.
"""

import collections
import enum
import math
import types
from collections.abc import Mapping

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st


def through(genetic, value):
    """The value after a way into the library and back."""
    return genetic._number("no number", value)


class Text(str):
    pass


class Record(dict):
    pass


class Number(float):
    pass


class Plain:
    pass


Pair = collections.namedtuple("Pair", "left right")


@pytest.mark.parametrize(
    "value",
    [
        None, True, False, 0, -1, 2**63 - 1, -(2**63), 2**63, -(2**63) - 1, 10**400,
        0.0, -0.0, 1.5, -1e308, 5e-324, math.inf, -math.inf,
        "", "a", "näïve", "\U0001f40d", "\0", "\ud800", "a\udcffb",
        (), (1,), (None, "x", (2.5, ())),
    ],
    ids=repr,
)
def test_plain_values_come_back_equal_and_of_the_same_type(genetic, value):
    back = through(genetic, value)
    assert type(back) is type(value)
    assert back == value
    assert repr(back) == repr(value)


@pytest.mark.parametrize(
    "value",
    [
        [], {}, [1, [2]], {"a": {}}, Plain(), Text("a"), Record(a=1), Number(1), Pair(1, 2),
        math.nan, set(), frozenset(), b"bytes", object, len, 1j, 2**64,
        types.MappingProxyType({}), range(3), ValueError("x"),
    ],
    ids=lambda value: type(value).__name__,
)
def test_objects_and_containers_keep_their_identity(genetic, value):
    assert through(genetic, value) is value


def test_the_items_of_a_tuple_keep_their_identity(genetic):
    items = ([], {}, Plain(), math.nan)
    back = through(genetic, items)
    assert [id(item) for item in back] == [id(item) for item in items]


def test_a_tuple_nested_too_deep_is_a_recursion_error_and_no_crash(genetic):
    nested = ()
    for _ in range(2900):
        nested = (nested,)
    assert type(through(genetic, nested)) is tuple
    for _ in range(100_000):
        nested = (nested,)
    with pytest.raises(RecursionError):
        through(genetic, nested)


def test_a_written_record_is_the_hosts_own_dict(genetic):
    result = {"passes": True, "own": 1}
    held = {"result": result}
    results = [result]
    back = genetic._annotate_candidate_results(results, start_index=5, improvement_depth=2.9)
    assert back is results
    assert held["result"] == {
        "passes": True, "own": 1, "candidate_index": 5, "improvement_depth": 2
    }
    assert list(result) == ["passes", "own", "candidate_index", "improvement_depth"]


def test_replacing_an_entry_keeps_its_place(genetic):
    result = {"candidate_index": None, "last": 0}
    genetic._annotate_candidate_results([result], start_index=0, improvement_depth=0)
    assert list(result) == ["candidate_index", "last", "improvement_depth"]


def test_values_of_the_host_are_stored_as_they_are(genetic):
    plan, graph, index = Plain(), {"node": "x"}, Text("7")
    improvement = {
        "source_result": {"candidate_index": index, "graph": graph},
        "reaction_plan": plan,
        "improvement_depth": 1,
    }
    result = {}
    genetic._annotate_candidate_results(
        [result], start_index=0, improvement_depth=0, improvements=[improvement]
    )
    assert result["reaction_plan"] is plan
    assert result["source_graph"] is graph
    assert result["source_candidate_index"] is index


class UserMapping(Mapping):
    """A mapping that is no dict, and notes how it is asked."""

    def __init__(self, entries):
        self.entries = entries
        self.asked = []

    def __getitem__(self, key):
        self.asked.append(key)
        return self.entries[key]

    def __iter__(self):
        return iter(self.entries)

    def __len__(self):
        return len(self.entries)


def test_every_kind_of_mapping_is_read_as_a_mapping(genetic, make_context):
    for make in (dict, Record, UserMapping, types.MappingProxyType, collections.OrderedDict):
        record = make({"rejection_reason": "turnover_max"})
        reason, detail, tracking = genetic._derive_candidate_failure(make_context(), record, None)
        assert (reason, detail) == ("turnover_max", None)
        assert tracking == {"failure_reason": "turnover_max"}
        assert type(tracking) is dict


def test_what_a_subclass_overrides_counts(genetic, make_context):
    class Loud(dict):
        def get(self, key, default=None):
            return "loud" if key == "rejection_reason" else super().get(key, default)

    assert genetic._derive_candidate_failure(make_context(), Loud(), None)[0] == "loud"


def test_reading_a_default_dict_makes_no_entries(genetic, make_context):
    record = collections.defaultdict(list)
    genetic._derive_candidate_failure(make_context(), record, None)
    assert not record


def test_a_read_only_mapping_refuses_a_write_with_pythons_error(genetic):
    with pytest.raises(TypeError, match="does not support item assignment"):
        genetic._annotate_candidate_results(
            [types.MappingProxyType({})], start_index=0, improvement_depth=0
        )


def test_what_is_no_mapping_has_no_get(genetic, make_context):
    with pytest.raises(AttributeError, match="'int' object has no attribute 'get'"):
        genetic._derive_candidate_failure(make_context(), 3, None)


class Trigger:
    """A number that does something when it is converted."""

    def __init__(self, action):
        self.action = action

    def __float__(self):
        self.action()
        return 0.5


def rates_with(action):
    rates = {"crossover": Trigger(lambda: action(rates)), "point_mutation": 1.0}
    return rates


def test_a_dict_that_grows_under_a_walk_fails_as_in_python(genetic):
    with pytest.raises(RuntimeError, match="^dictionary changed size during iteration$"):
        genetic._operator_rates(rates_with(lambda rates: rates.update(hoist_mutation=1.0)))


def test_a_dict_that_shrinks_under_a_walk_fails_as_in_python(genetic):
    with pytest.raises(RuntimeError, match="^dictionary changed size during iteration$"):
        genetic._operator_rates(rates_with(lambda rates: rates.clear()))


def test_a_dict_whose_keys_are_exchanged_under_a_walk_fails_as_in_python(genetic):
    def exchange(rates):
        del rates["crossover"]
        rates["subtree_mutation"] = 1.0

    def walk_in_python():
        for rate in rates_with(exchange).values():
            float(rate)

    with pytest.raises(RuntimeError) as python:
        walk_in_python()
    with pytest.raises(RuntimeError) as library:
        genetic._operator_rates(rates_with(exchange))
    assert str(library.value) == str(python.value) == "dictionary keys changed during iteration"


def test_a_user_mapping_that_changes_under_a_walk_fails_as_in_python(genetic):
    entries = {}
    entries.update({"crossover": Trigger(lambda: entries.clear()), "point_mutation": 1.0})
    with pytest.raises(RuntimeError, match="changed size"):
        genetic._operator_rates(UserMapping(entries))


def test_a_list_that_grows_under_a_walk_shows_its_new_items(genetic):
    results = []
    results.append(
        {"elapsed_simulation_seconds": Trigger(lambda: results.append(
            {"elapsed_simulation_seconds": 2}))}
    )
    assert genetic._elapsed_candidate_seconds(results) == 2.5


def test_a_list_that_shrinks_under_a_walk_ends_it(genetic):
    results = []
    results.extend([{"elapsed_simulation_seconds": Trigger(results.clear)}, {}, {}])
    assert genetic._elapsed_candidate_seconds(results) == 0.5


def test_new_containers_are_plain_and_belong_to_the_caller(genetic):
    frozen = genetic._freeze_graph_data({"a": [1, {}]})
    first, second = genetic._thaw_graph_data(frozen), genetic._thaw_graph_data(frozen)
    assert type(first) is dict and type(first["a"]) is list and type(first["a"][1]) is dict
    assert first == second and first["a"] is not second["a"]
    first["a"].append(first)
    assert genetic._thaw_graph_data(frozen) == second


def test_a_native_record_handed_to_the_host_is_one_object_from_then_on(genetic, make_context):
    """The tracking values are made by the library, and read on after the host has seen them."""
    seen = []

    def record(graph, passed, *, rejection_reason, tracking_metric_kwargs):
        seen.append(tracking_metric_kwargs)
        context._last_evaluation_record = {"tracking_metric_kwargs": tracking_metric_kwargs}

    context = make_context(_safe_record=record, _current_attempt_evidence=lambda: seen[0])
    result = genetic._candidate_exception_result(context, {}, ValueError("bad"))
    assert result["attempt_evidence"] is seen[0]
    assert seen[0] == {"failure_reason": "evaluate_exception", "failure_detail": "bad"}


def test_subclasses_answer_as_their_base(genetic):
    class Reason(str, enum.Enum):
        STOPPED = "stopped"

    assert genetic._positive_float(Text("0.5"), "x") == 0.5
    assert genetic._positive_float(Number(2), Text("x")) == 2.0
    rates = {Text("crossover"): 1}
    assert genetic._operator_rates(rates)["crossover"] == 1.0
    assert genetic._thaw_graph_data((Text("scalar"), 5)) == 5
    assert genetic._thaw_graph_data(Pair("scalar", 5)) == 5
    assert genetic._thaw_graph_data(["list", [Pair("scalar", 5)]]) == [5]
    with pytest.raises(TypeError, match="invalid frozen"):
        genetic._thaw_graph_data((Reason.STOPPED, 5))


def test_a_subclass_of_a_text_is_the_same_key_in_a_large_record_too(genetic, make_context):
    """Large records are found by hash, which has to be that of the plain text."""
    key = Text("failure_reason")
    tracking = {f"key {number}": number for number in range(40)}
    tracking[key] = "kept"
    record = {"rejection_reason": "turnover_max", "tracking_metric_kwargs": tracking}
    copied = genetic._derive_candidate_failure(make_context(), record, None)[2]
    assert copied == tracking and copied["failure_reason"] == "kept"
    assert [type(one) for one in copied] == [type(one) for one in tracking]


scalars = st.one_of(
    st.none(), st.booleans(), st.integers(), st.floats(), st.text(), st.text(
        alphabet=st.characters(categories=["Cs"])
    )
)
trees = st.recursive(
    scalars,
    lambda children: st.lists(children, max_size=4)
    | st.dictionaries(st.text(max_size=4), children, max_size=4),
    max_leaves=20,
)


@settings(max_examples=200, deadline=None)
@given(tree=trees)
def test_any_plain_tree_is_copied_as_python_copies_it(tree):
    from varnholt.search_templates import genetic

    copy = genetic._plain_graph_data(tree)
    assert repr(copy) == repr(tree)
