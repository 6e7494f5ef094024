"""Settings, validators and templates once more, in plain Python."""

import math
import random
import secrets
from collections.abc import Mapping

import plain_host as host
from plain_graph import CONVERSION, _plain_initial_candidates, _thaw_graph_data

NO_RATE = "genetic operator_rates must contain at least one positive rate"


def _positive_int(value, name):
    if type(value) is not int:
        raise TypeError(f"genetic {name} must be an integer")
    if value <= 0:
        raise ValueError(f"genetic {name} must be positive")
    return value


def _optional_nonnegative_int(value, name):
    if value is None:
        return None
    if type(value) is not int:
        raise TypeError(f"genetic {name} must be an integer or None")
    if value < 0:
        raise ValueError(f"genetic {name} must be non-negative")
    return value


def finite(value, name, kind):
    try:
        number = float(value)
    except CONVERSION:
        raise TypeError(f"genetic {name} must be {kind}")
    if not math.isfinite(number):
        raise ValueError(f"genetic {name} must be finite")
    return number


def _positive_float(value, name):
    number = finite(value, name, "a finite number")
    if number <= 0:
        raise ValueError(f"genetic {name} must be positive")
    return number


def _optional_nonnegative_float(value, name):
    if value is None:
        return None
    number = finite(value, name, "a finite number or None")
    if number < 0:
        raise ValueError(f"genetic {name} must be non-negative")
    return number


def _nonnegative_float(value, name):
    number = finite(value, name, "a finite number")
    if number < 0:
        raise ValueError(f"genetic {name} must be non-negative")
    return number


def _operator_rates(operator_rates):
    if operator_rates is None:
        return dict(host.DEFAULT_OPERATOR_RATES)
    if not isinstance(operator_rates, Mapping):
        raise TypeError("genetic operator_rates must be a dictionary")
    rates = dict(host.DEFAULT_OPERATOR_RATES)
    allowed = set(rates)
    unknown = sorted(str(key) for key in operator_rates if key not in allowed)
    if unknown:
        raise ValueError("genetic operator_rates has unknown keys: " + ", ".join(unknown))
    for key, value in operator_rates.items():
        rates[str(key)] = _nonnegative_float(value, "operator_rates." + str(key))
    if sum(rates.values()) <= 0.0:
        raise ValueError(NO_RATE)
    return rates


def _generate_run_seed():
    seed = secrets.randbits(63)
    return 1 if seed == 0 else seed


def _managed_rng_state(seed):
    return random.Random(seed).getstate()


def _rng_from_state(state):
    if state is None:
        return None
    rng = random.Random()
    rng.setstate(state)
    return rng


SETTINGS = (
    "batch_size", "seed", "restart_threshold", "elite_fraction", "diversity_weight",
    "parsimony_weight", "max_improvement_depth", "max_improvement_candidates",
    "max_improvement_rounds", "process_timeout_seconds",
)


class PlainTemplate:
    """The settings of one search. `run` conducts it."""

    run = None

    def __init__(
        self, batch_size, initial_candidates, restart_threshold, elite_fraction, diversity_weight,
        parsimony_weight, operator_rates, max_improvement_depth, max_improvement_candidates,
        max_improvement_rounds, process_timeout_seconds,
    ):
        self._frozen = False
        self._batch_size = _positive_int(batch_size, "batch_size")
        self._initial_candidates = _plain_initial_candidates(initial_candidates)
        seed = _generate_run_seed()
        self._seed = seed
        self._rng_state = _managed_rng_state(seed)
        self._restart_threshold = _positive_int(restart_threshold, "restart_threshold")
        self._elite_fraction = _positive_float(elite_fraction, "elite_fraction")
        if self._elite_fraction > 1.0:
            raise ValueError("genetic elite_fraction must be <= 1")
        self._diversity_weight = _nonnegative_float(diversity_weight, "diversity_weight")
        self._parsimony_weight = _nonnegative_float(parsimony_weight, "parsimony_weight")
        self._operator_rates = _operator_rates(operator_rates)
        self._max_improvement_depth = _optional_nonnegative_int(
            max_improvement_depth, "max_improvement_depth"
        )
        self._max_improvement_candidates = _optional_nonnegative_int(
            max_improvement_candidates, "max_improvement_candidates"
        )
        self._max_improvement_rounds = _optional_nonnegative_int(
            max_improvement_rounds, "max_improvement_rounds"
        )
        self._process_timeout_seconds = _positive_float(
            process_timeout_seconds, "process_timeout_seconds"
        )
        self._frozen = True

    def __setattr__(self, name, value):
        if getattr(self, "_frozen", False):
            raise AttributeError("genetic template configuration is immutable")
        object.__setattr__(self, name, value)

    def __getattr__(self, name):
        if name in SETTINGS:
            return self.__dict__["_" + name]
        raise AttributeError(name)

    @property
    def initial_candidates(self):
        if self._initial_candidates is None:
            return None
        return [_thaw_graph_data(candidate) for candidate in self._initial_candidates]

    @property
    def operator_rates(self):
        return dict(self._operator_rates)

    def _rng_for_batch(self):
        return _rng_from_state(self._rng_state)

    def _store_rng_state(self, rng):
        if rng is None:
            return
        object.__setattr__(self, "_rng_state", rng.getstate())


def plain_template(
    batch_size=None, initial_candidates=None, restart_threshold=None, elite_fraction=None,
    diversity_weight=None, parsimony_weight=None, operator_rates=None, max_improvement_depth=8,
    max_improvement_candidates=96, max_improvement_rounds=10, process_timeout_seconds=None,
):
    """A template with the module's defaults; here None stands for them."""

    def default(value, name):
        return getattr(host, name) if value is None else value

    if process_timeout_seconds is None:
        process_timeout_seconds = host._process_evaluation.DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS
    return PlainTemplate(
        default(batch_size, "DEFAULT_BATCH_SIZE"), initial_candidates,
        default(restart_threshold, "DEFAULT_RESTART_THRESHOLD"),
        default(elite_fraction, "DEFAULT_ELITE_FRACTION"),
        default(diversity_weight, "DEFAULT_DIVERSITY_WEIGHT"),
        default(parsimony_weight, "DEFAULT_PARSIMONY_WEIGHT"), operator_rates,
        max_improvement_depth, max_improvement_candidates, max_improvement_rounds,
        process_timeout_seconds,
    )
