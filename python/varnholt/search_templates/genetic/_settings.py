"""Validators of settings, and the seeds and states of random numbers."""

from varnholt.search_templates.genetic import _host, _native


def _positive_int(value, name):
    """Return an integer above 0, of the exact type, or fail under the setting's name."""
    return _native.positive_int(value, name)


def _optional_nonnegative_int(value, name):
    """Return None or an integer from 0, of the exact type, or fail under the setting's name."""
    return _native.optional_nonnegative_int(value, name)


def _positive_float(value, name):
    """Return float(value) when it is finite and above 0, or fail under the setting's name."""
    return _native.positive_float(value, name)


def _optional_nonnegative_float(value, name):
    """Return None, or float(value) when it is finite and not below 0, or fail."""
    return _native.optional_nonnegative_float(value, name)


def _nonnegative_float(value, name):
    """Return float(value) when it is finite and not below 0, or fail under the setting's name."""
    return _native.nonnegative_float(value, name)


def _operator_rates(operator_rates):
    """Return a rate for every operator: the given ones over the defaults, in a new dict."""
    return _native.operator_rates(_host, operator_rates)


def _generate_run_seed():
    """Draw a run's seed from the operating system: 63 bits, and 1 in place of 0."""
    return _native.generate_run_seed(_host)


def _managed_rng_state(seed):
    """Return the state of a new random.Random with this seed."""
    return _native.managed_rng_state(_host, seed)


def _rng_from_state(state):
    """Return a new random.Random on this state, or None without one."""
    return _native.rng_from_state(_host, state)
