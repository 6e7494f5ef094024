"""The template: its settings, its immutability, its random state; the default template.

Goal: construction validates in the order told, and nothing but the random state changes after it.
Method: doubly bad arguments, attribute reads and writes, replaced module constants.
"""

import copy
import pickle
import random
import secrets

import pytest

SETTINGS = [
    "batch_size", "initial_candidates", "restart_threshold", "elite_fraction", "diversity_weight",
    "parsimony_weight", "operator_rates", "max_improvement_depth", "max_improvement_candidates",
    "max_improvement_rounds", "process_timeout_seconds",
]
# In the order of validation: a value that fails, and the error that it gives.
BAD = {
    "batch_size": (True, TypeError, "genetic batch_size must be an integer"),
    "initial_candidates": ((), TypeError,
                           "genetic initial_candidates must be a list of graph dictionaries"),
    "restart_threshold": (0, ValueError, "genetic restart_threshold must be positive"),
    "elite_fraction": (1.0000001, ValueError, "genetic elite_fraction must be <= 1"),
    "diversity_weight": ("x", TypeError, "genetic diversity_weight must be a finite number"),
    "parsimony_weight": (-1, ValueError, "genetic parsimony_weight must be non-negative"),
    "operator_rates": ([], TypeError, "genetic operator_rates must be a dictionary"),
    "max_improvement_depth": (1.0, TypeError,
                              "genetic max_improvement_depth must be an integer or None"),
    "max_improvement_candidates": (-1, ValueError,
                                   "genetic max_improvement_candidates must be non-negative"),
    "max_improvement_rounds": ("1", TypeError,
                               "genetic max_improvement_rounds must be an integer or None"),
    "process_timeout_seconds": (float("inf"), ValueError,
                                "genetic process_timeout_seconds must be finite"),
}


def test_the_defaults(genetic):
    template = genetic.with_config()
    assert type(template) is genetic._GeneticTemplate
    assert {name: getattr(template, name) for name in SETTINGS} == {
        "batch_size": 4, "initial_candidates": None, "restart_threshold": 3,
        "elite_fraction": 0.25, "diversity_weight": 0.5, "parsimony_weight": 0.125,
        "operator_rates": genetic.DEFAULT_OPERATOR_RATES, "max_improvement_depth": 8,
        "max_improvement_candidates": 96, "max_improvement_rounds": 10,
        "process_timeout_seconds": 30.0,
    }


@pytest.mark.parametrize("name", BAD)
def test_a_bad_setting_is_named(genetic, name):
    value, kind, text = BAD[name]
    with pytest.raises(kind) as caught:
        genetic.with_config(**{name: value})
    assert str(caught.value) == text and type(caught.value) is kind


def test_the_first_bad_setting_in_the_order_of_validation_is_told(genetic):
    names = list(BAD)
    for first, name in enumerate(names):
        arguments = {other: BAD[other][0] for other in reversed(names[first:])}
        with pytest.raises(BAD[name][1]) as caught:
            genetic._GeneticTemplate(**arguments)
        assert str(caught.value) == BAD[name][2]


def test_the_seed_is_drawn_between_the_candidates_and_the_threshold(genetic, monkeypatch):
    drawn = []
    monkeypatch.setattr(secrets, "randbits", lambda count: drawn.append(count) or 7)
    for name, count in (("initial_candidates", 0), ("restart_threshold", 1)):
        drawn.clear()
        with pytest.raises(BAD[name][1]):
            genetic.with_config(**{name: BAD[name][0]})
        assert len(drawn) == count


def test_settings_become_sound_values(genetic):
    template = genetic.with_config(
        1, [{"n": 1}], 2, "1.0", "0", True, {"crossover": "0.5"}, 0, None, 2**70, "5"
    )
    assert [getattr(template, name) for name in SETTINGS] == [
        1, [{"n": 1}], 2, 1.0, 0.0, 1.0, {**genetic.DEFAULT_OPERATOR_RATES, "crossover": 0.5},
        0, None, 2**70, 5.0,
    ]
    for name in SETTINGS:
        if name != "initial_candidates":
            assert getattr(template, "_" + name) == getattr(template, name)
    assert template._initial_candidates == (("dict", (("n", ("scalar", 1)),)),)
    assert template._frozen is True
    assert list(vars(template)) == [
        "_frozen", "_batch_size", "_initial_candidates", "_seed", "_rng_state",
        "_restart_threshold", "_elite_fraction", "_diversity_weight", "_parsimony_weight",
        "_operator_rates", "_max_improvement_depth", "_max_improvement_candidates",
        "_max_improvement_rounds", "_process_timeout_seconds",
    ]


def test_the_seed_graphs_cannot_be_reached_from_outside(genetic):
    graph = {"children": [{}]}
    template = genetic.with_config(initial_candidates=[graph])
    graph["children"].append("changed")
    first = template.initial_candidates
    assert first == [{"children": [{}]}]
    first[0]["children"].clear()
    assert template.initial_candidates == [{"children": [{}]}]
    assert genetic.with_config(initial_candidates=[]).initial_candidates == []


def test_rates_are_copied_in_and_out(genetic):
    given = {"crossover": 1.0}
    template = genetic.with_config(operator_rates=given)
    given["crossover"] = 5.0
    template.operator_rates["crossover"] = 9.0
    assert template.operator_rates["crossover"] == 1.0
    assert template._operator_rates is not genetic.DEFAULT_OPERATOR_RATES


@pytest.mark.parametrize("name", ["batch_size", "_batch_size", "_frozen", "_rng_state", "new"])
def test_a_template_cannot_be_changed(genetic, name):
    template = genetic.with_config()
    with pytest.raises(AttributeError) as caught:
        setattr(template, name, 3)
    assert str(caught.value) == "genetic template configuration is immutable"
    with pytest.raises(AttributeError):
        template.__init__()


def test_the_guard_stands_only_while_it_is_frozen(genetic):
    blank = object.__new__(genetic._GeneticTemplate)
    blank._frozen = 0
    blank._anything = 1
    assert blank._anything == 1
    blank._frozen = "yes"
    with pytest.raises(AttributeError):
        blank._anything = 2


def test_deletion_is_not_guarded(genetic):
    template = genetic.with_config()
    del template._seed
    with pytest.raises(AttributeError):
        template.seed


def test_each_template_has_a_seed_of_its_own(genetic):
    seeds = {genetic.with_config().seed for _ in range(5)}
    assert len(seeds) == 5 and all(0 < seed < 2**63 for seed in seeds)


def test_the_random_state(genetic):
    template = genetic.with_config()
    reference = random.Random(template.seed)
    assert template._rng_state == reference.getstate()
    assert template.rng is not template.rng
    assert [template.rng.random(), template.rng.random()] == [reference.random()] * 2

    rng = template._rng_for_batch()
    rng.random()
    assert template._rng_state != rng.getstate(), "draws that are not stored are forgotten"
    state = template._rng_state
    template._store_rng_state(None)
    assert template._rng_state is state
    template._store_rng_state(rng)
    assert template.rng.random() == reference.random()


def test_storing_a_state_asks_the_generator_once_and_nothing_else(genetic):
    template = genetic.with_config()

    class Generator:
        asked = 0

        def getstate(self):
            self.asked += 1
            return "opaque"

    generator = Generator()
    template._store_rng_state(generator)
    assert generator.asked == 1 and template._rng_state == "opaque"


def test_a_template_is_copied_and_pickled_as_any_object(genetic):
    template = genetic.with_config(batch_size=7, initial_candidates=[{"n": 1}])
    for other in (copy.copy(template), copy.deepcopy(template),
                  pickle.loads(pickle.dumps(template))):
        assert vars(other) == vars(template) and other is not template
        assert other.rng.random() == template.rng.random()
        with pytest.raises(AttributeError):
            other.batch_size = 1


def test_a_subclass_may_answer_for_itself(genetic, make_context, make_event):
    class Own(genetic._GeneticTemplate):
        def _rng_for_batch(self):
            raise LookupError("own generator")

    with pytest.raises(LookupError, match="own generator"):
        Own()(make_context(_stop_event=make_event(set_after=9)))


def test_the_default_template_reads_a_setting_when_it_is_asked(genetic, monkeypatch):
    template = genetic._default_genetic_template
    assert type(template) is genetic._DefaultGeneticTemplate
    assert (template.initial_candidates, template.rng, template.seed) == (None, None, None)
    for name in SETTINGS[2:6] + SETTINGS[7:10] + ["batch_size"]:
        monkeypatch.setattr(genetic, "DEFAULT_" + name.upper(), object())
        assert getattr(template, name) is getattr(genetic, "DEFAULT_" + name.upper())
    monkeypatch.setattr(genetic, "DEFAULT_OPERATOR_RATES", {"own": 1})
    assert template.operator_rates == {"own": 1}
    assert template.operator_rates is not genetic.DEFAULT_OPERATOR_RATES
    monkeypatch.setattr(genetic._process_evaluation, "DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS", 3)
    assert template.process_timeout_seconds == 3
    # The default arguments are those of load time all the same.
    configured = genetic.with_config(operator_rates={"own": 2})
    assert configured.batch_size == 4 and configured.process_timeout_seconds == 30.0


def test_the_default_template_cannot_be_written_by_its_properties(genetic):
    with pytest.raises(AttributeError):
        genetic._default_genetic_template.batch_size = 3
