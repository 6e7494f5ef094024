"""What a search context says of market, era and thresholds."""

from varnholt.search_templates.genetic import _host, _native


def _field_value(value, key, default=None):
    """Return a mapping's entry, or any other object's attribute, or the default."""
    return _native.field_value(value, key, default)


def _positive_int_or_none(value):
    """Return int(value) where that is above 0; None for all else, booleans among it."""
    return _native.positive_int_or_none(value)


def _context_era_config(ctx):
    """Return the context's era configuration: "_era_config", then "era_config", then None."""
    return _native.context_era_config(ctx)


def _context_market_id(ctx):
    """Return the market of the context or of its era configuration, or None."""
    return _native.context_market_id(ctx)


def _context_era_number(ctx):
    """Return the era of the context or of its era configuration, or None."""
    return _native.context_era_number(ctx)


def _ensure_payload_market_era(payload, ctx):
    """Write market and era into the payload, as far as they are known; return the payload."""
    return _native.ensure_payload_market_era(payload, ctx)


def _context_thresholds(ctx):
    """Return the host's threshold set of the context's merged thresholds."""
    return _native.context_thresholds(_host, ctx)
