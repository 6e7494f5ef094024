"""Exceptions cross the boundary as the same objects, or as the built-in ones of their kind.

Goal: what a host raises leaves the library unchanged, what is no `Exception` is handled by nobody
on its way, and the library's own errors are Python's. Method: host operations that raise, called
through rules that pass, swallow or log errors.
"""

import sys
import traceback
import types

import pytest


class Odd(Exception):
    pass


class OddKey(KeyError):
    pass


class Both(TypeError, ValueError):
    pass


class OutOfRange(ValueError, IndexError):
    pass


class NotWritten(NotImplementedError, TypeError):
    pass


class NotHeld(KeyError, OverflowError):
    pass


TWO_KINDS = [OutOfRange("axis"), NotWritten("not yet"), NotHeld("big")]


class OddBase(BaseException):
    pass


def raiser(error):
    def raise_it(*args, **kwargs):
        raise error

    return raise_it


ORDINARY = [
    Odd("a", 1), OddKey("k"), Both("b"), ValueError(), TypeError("t"), OverflowError("o"),
    AttributeError("a"), LookupError("l"), IndexError("i"), RuntimeError("r"),
    RecursionError("d"), ZeroDivisionError("z"), MemoryError("m"), StopIteration(3),
    UnicodeDecodeError("utf-8", b"\xff", 0, 1, "bad"), OSError(2, "no file"), AssertionError(),
    *TWO_KINDS,
]
INTERRUPTS = [KeyboardInterrupt("now"), SystemExit(3), GeneratorExit(), OddBase("base")]


@pytest.mark.parametrize("error", ORDINARY + INTERRUPTS, ids=lambda error: type(error).__name__)
def test_an_error_of_the_host_leaves_as_the_same_object_with_its_traceback(
    genetic, make_context, error
):
    # The evidence operation is the one whose failure always passes to the caller.
    context = make_context(
        _last_evaluation_record={}, _current_attempt_evidence=raiser(error)
    )
    error.__traceback__ = None
    with pytest.raises(type(error)) as caught:
        genetic._candidate_exception_result(context, {}, ValueError("x"))
    assert caught.value is error
    assert caught.value.__cause__ is None
    names = [frame.name for frame in traceback.extract_tb(caught.value.__traceback__)]
    assert names[-1] == "raise_it"
    assert "_candidate_exception_result" in names


@pytest.mark.parametrize("error", ORDINARY, ids=lambda error: type(error).__name__)
def test_an_ordinary_error_of_a_validator_is_its_refusal(genetic, error):
    assert genetic._graph_passes_validator({}, raiser(error)) is False
    assert genetic._lineage_candidate_item(raiser(error), "x", None) is None


@pytest.mark.parametrize("error", INTERRUPTS, ids=lambda error: type(error).__name__)
def test_what_is_no_exception_is_never_swallowed(genetic, make_context, error):
    for call in (
        lambda: genetic._graph_passes_validator({}, raiser(error)),
        lambda: genetic._lineage_candidate_item(raiser(error), "x", None),
        lambda: genetic._number(type("N", (), {"__float__": raiser(error)})()),
        lambda: genetic._candidate_exception_result(
            make_context(_safe_record=raiser(error)), {}, ValueError()
        ),
        lambda: genetic._callable_accepts_keyword(
            type("C", (), {"__call__": None, "__signature__": property(raiser(error))})(), "x"
        ),
    ):
        with pytest.raises(type(error)) as caught:
            call()
        assert caught.value is error


@pytest.mark.parametrize(
    "error", [TypeError("x"), ValueError("x"), OverflowError("x"), Both("x"), *TWO_KINDS],
    ids=lambda error: type(error).__name__,
)
def test_the_three_tolerated_kinds_and_their_subclasses_are_tolerated(genetic, error):
    value = type("N", (), {"__float__": raiser(error), "__int__": raiser(error)})()
    assert genetic._number(value, 7) == 7
    assert genetic._parallel_evaluation_requested_jobs(types.SimpleNamespace(_n_jobs=value)) == 1
    assert genetic._positive_int_or_none(value) is None
    with pytest.raises(ValueError, match="candidate correlation must be a finite number or None"):
        genetic._optional_correlation(value)


def test_an_error_of_two_kinds_below_type_error_leads_to_the_second_derivation(
    genetic, make_context
):
    asked = []

    def derive(*args, **keywords):
        asked.append(keywords)
        if keywords:
            raise NotWritten("without keywords")
        return "turnover_max", None

    context = make_context(_derive_rejection_reason_detail=derive)
    assert genetic._derive_candidate_failure(context, {}, object())[0] == "turnover_max"
    assert asked == [{"include_correlation": False}, {}]

    def out_of_range(*args, **keywords):
        asked.append(keywords)
        raise OutOfRange("no second call")

    asked.clear()
    context = make_context(_derive_rejection_reason_detail=out_of_range)
    assert genetic._derive_candidate_failure(context, {}, object())[0] is None
    assert asked == [{"include_correlation": False}]


@pytest.mark.parametrize("error", TWO_KINDS, ids=lambda error: type(error).__name__)
def test_a_bad_timing_may_be_told_by_an_error_of_two_kinds(genetic, make_timings, error):
    make_timings(validate_backtest_timing_payload=error)
    with pytest.raises(RuntimeError) as caught:
        genetic._validated_process_backtest_timing({})
    assert type(caught.value) is RuntimeError and caught.value.__cause__ is error
    assert str(caught.value) == f"genetic candidate has invalid backtest timing: {error}"


def test_an_unsigned_callable_may_be_told_by_an_error_of_two_kinds(genetic):
    class Unsigned:
        @property
        def __signature__(self):
            raise OutOfRange("none")

        def __call__(self):
            pass

    assert genetic._callable_accepts_keyword(Unsigned(), "x") is True



@pytest.mark.parametrize("error", [Odd("x"), RuntimeError("x"), KeyError("x"), AttributeError("x")])
def test_no_other_kind_is_tolerated(genetic, error):
    value = type("N", (), {"__float__": raiser(error), "__int__": raiser(error)})()
    with pytest.raises(type(error)) as caught:
        genetic._number(value)
    assert caught.value is error


def test_the_librarys_own_errors_are_the_built_in_exceptions(genetic):
    with pytest.raises(TypeError) as caught:
        genetic._freeze_graph_data({1: 2})
    assert type(caught.value) is TypeError
    assert caught.value.args == ("genetic initial candidate graph keys must be strings",)
    with pytest.raises(ValueError) as caught:
        genetic._positive_int(0, "size")
    assert caught.value.args == ("genetic size must be positive",)
    nested = []
    for _ in range(5000):
        nested = [nested]
    with pytest.raises(RecursionError) as caught:
        genetic._plain_graph_data(nested)
    assert type(caught.value) is RecursionError


def test_an_own_error_has_what_the_caller_handles_as_its_context(genetic):
    outer = LookupError("outer")
    try:
        raise outer
    except LookupError:
        with pytest.raises(ValueError) as caught:
            genetic._positive_int(0, "size")
    assert caught.value.__context__ is outer and caught.value.__cause__ is None
    with pytest.raises(ValueError) as caught:
        genetic._positive_int(0, "size")
    assert caught.value.__context__ is None


def test_an_error_of_the_host_keeps_the_context_that_it_has(genetic, make_context):
    outer, error = LookupError("outer"), ValueError("inner")
    context = make_context(
        _last_evaluation_record={}, _current_attempt_evidence=raiser(error)
    )
    try:
        raise outer
    except LookupError:
        with pytest.raises(ValueError) as caught:
            genetic._candidate_exception_result(context, {}, KeyError("x"))
    assert caught.value is error and error.__context__ is outer


def test_a_missing_key_is_told_as_python_tells_it(genetic):
    with pytest.raises(KeyError) as caught:
        genetic._annotate_candidate_results(
            [{}], start_index=0, improvement_depth=0, improvements=[{}]
        )
    assert caught.value.args == ("source_result",)


def test_the_exception_being_handled_is_shown_to_the_log_and_put_back(
    genetic, make_context, monkeypatch
):
    error = Odd("recording failed")
    shown = []

    class Log:
        def warning(self, *args, **kwargs):
            shown.append((args, kwargs, sys.exc_info()))

    monkeypatch.setattr(
        genetic, "_engine",
        types.SimpleNamespace(logger=Log(), SdkRuntimeNotReadyError=ZeroDivisionError),
    )
    context = make_context(_safe_record=raiser(error), _current_attempt_evidence=lambda: None)
    outer = LookupError("outer")
    try:
        raise outer
    except LookupError:
        genetic._candidate_exception_result(context, {}, ValueError("evaluator"))
        assert sys.exc_info()[1] is outer
    assert sys.exc_info() == (None, None, None)
    ((args, kwargs, (kind, value, trace)),) = shown
    assert args == ("Genetic candidate evaluation failure recording failed",)
    assert kwargs == {"exc_info": True}
    assert kind is Odd and value is error
    assert traceback.extract_tb(trace)[-1].name == "raise_it"


def test_the_evaluators_error_is_handled_while_its_record_is_made(genetic, make_context):
    error, shown = Odd("no data"), []

    def show(*args, **keywords):
        shown.append((sys.exc_info()[1], traceback.format_exc()))

    failure = LookupError("evidence")

    def fail():
        show()
        raise failure

    context = make_context(
        _evaluate_for_template=raiser(error), _safe_record=show, _current_attempt_evidence=show
    )
    outer = KeyError("outer")
    try:
        raise outer
    except KeyError:
        genetic._simulate_candidate(context, {})
        assert sys.exc_info()[1] is outer
    assert len(shown) == 2
    for value, text in shown:
        assert value is error
        assert "raise_it" in text and text.endswith("Odd: no data\n")
    context._current_attempt_evidence = fail
    with pytest.raises(LookupError) as caught:
        genetic._simulate_candidate(context, {})
    assert caught.value is failure
    assert failure.__context__ is error and failure.__cause__ is None
    assert sys.exc_info() == (None, None, None)


def test_what_fails_in_the_recording_has_the_evaluators_error_as_context(
    genetic, make_context, monkeypatch
):
    error, failure, shown = Odd("no data"), LookupError("recording"), []
    log = types.SimpleNamespace(warning=lambda *args, **keywords: shown.append(sys.exc_info()[1]))
    monkeypatch.setattr(
        genetic, "_engine",
        types.SimpleNamespace(logger=log, SdkRuntimeNotReadyError=ZeroDivisionError),
    )
    context = make_context(
        _evaluate_for_template=raiser(error), _safe_record=raiser(failure),
        _current_attempt_evidence=lambda: shown.append(sys.exc_info()[1]),
    )
    genetic._simulate_candidate(context, {})
    assert shown == [failure, error] and failure.__context__ is error


@pytest.mark.parametrize("first", [TypeError("keyword"), NotWritten("x"), 5], ids=repr)
def test_the_first_derivations_error_is_handled_in_the_second(genetic, make_context, first):
    shown, failure = [], LookupError("second")

    def derive(stats, **keywords):
        shown.append(sys.exc_info()[1])
        if not keywords:
            raise failure
        if isinstance(first, Exception):
            raise first
        return first

    context = make_context(_derive_rejection_reason_detail=derive)
    assert genetic._derive_candidate_failure(context, {}, object())[0] is None
    assert len(shown) == 2 and shown[0] is None and failure.__context__ is shown[1]
    if isinstance(first, Exception):
        assert shown[1] is first
    else:
        # What cannot be unpacked is the library's own error, which is Python's for the host.
        assert repr(shown[1]) == "TypeError('cannot unpack non-iterable int object')"
    assert sys.exc_info() == (None, None, None)


def test_only_an_attribute_error_means_that_an_attribute_is_missing(genetic):
    def context_raising(error):
        return type("C", (), {"max_depth": property(raiser(error))})()

    assert genetic._context_max_depth(context_raising(AttributeError("inner"))) is None
    assert genetic._context_max_depth(context_raising(TypeError("guarded"))) is None
    error = Odd("passes")
    with pytest.raises(Odd) as caught:
        genetic._context_max_depth(context_raising(error))
    assert caught.value is error


def test_the_text_of_an_error_is_asked_for_where_a_rule_shows_it_and_not_before(
    genetic, make_context
):
    asked = []

    class Counting(Exception):
        def __str__(self):
            asked.append(1)
            return "counted"

    genetic._graph_passes_validator({}, raiser(Counting()))
    assert asked == []
    assert genetic._evaluation_exception_failure(Counting()) == ("evaluate_exception", "counted")
    assert asked == [1]


def test_an_error_text_with_surrogates_keeps_them(genetic):
    reason, detail = genetic._evaluation_exception_failure(ValueError("file \udcff"))
    assert detail == "file \udcff"


def test_a_wrong_number_of_arguments_is_pythons_own_complaint(genetic):
    with pytest.raises(TypeError, match=r"_number\(\) missing 1 required positional argument"):
        genetic._number()
    with pytest.raises(TypeError, match="unexpected keyword argument 'seed'"):
        genetic.with_config(seed=1)
