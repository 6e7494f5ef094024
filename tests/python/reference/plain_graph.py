"""Graph data, its filters and its identity once more, in plain Python."""

import copy
import inspect
import json
from collections.abc import Mapping

import plain_host as host

KEYS = "genetic initial candidate graph keys must be strings"
DATA = "genetic initial candidates must contain only plain graph data"
SCALARS = (str, int, float, bool)
CONVERSION = (TypeError, ValueError, OverflowError)


def _plain_graph_data(value):
    if type(value) is dict:
        plain = {}
        for key, item in value.items():
            if type(key) is not str:
                raise TypeError(KEYS)
            plain[key] = _plain_graph_data(item)
        return plain
    if type(value) is list:
        return [_plain_graph_data(item) for item in value]
    if value is None or type(value) in SCALARS:
        return value
    raise TypeError(DATA)


def _freeze_graph_data(value):
    if type(value) is dict:
        pairs = []
        for key, item in value.items():
            if type(key) is not str:
                raise TypeError(KEYS)
            pairs.append((key, _freeze_graph_data(item)))
        return ("dict", tuple(pairs))
    if type(value) is list:
        return ("list", tuple([_freeze_graph_data(item) for item in value]))
    if value is None or type(value) in SCALARS:
        return ("scalar", value)
    raise TypeError(DATA)


def _thaw_graph_data(value):
    kind, payload = value[0], value[1]
    if kind == "dict":
        return {key: _thaw_graph_data(item) for key, item in payload}
    if kind == "list":
        return [_thaw_graph_data(item) for item in payload]
    if kind == "scalar":
        return payload
    raise TypeError("invalid frozen genetic graph data")


def _plain_initial_candidates(initial_candidates):
    if initial_candidates is None:
        return None
    if type(initial_candidates) is not list:
        raise TypeError("genetic initial_candidates must be a list of graph dictionaries")
    return tuple([_freeze_graph_data(candidate) for candidate in initial_candidates])


def _graph_within_max_depth(graph, max_depth):
    if max_depth is None:
        return True
    if not isinstance(graph, Mapping):
        return False
    try:
        return int(host._engine._graph_depth_for_attempt_marker(graph)) <= int(max_depth)
    except CONVERSION:
        return False


def _candidate_item_within_max_depth(item, max_depth):
    if not isinstance(item, Mapping):
        return False
    return _graph_within_max_depth(item.get("graph"), max_depth)


def _reaction_improvement_within_graph_max_depth(improvement, max_depth):
    if not isinstance(improvement, Mapping):
        return False
    return _graph_within_max_depth(improvement.get("graph"), max_depth)


def _graph_passes_validator(graph, validator):
    if validator is None:
        return True
    if not isinstance(graph, Mapping):
        return False
    try:
        return bool(validator(copy.deepcopy(graph)))
    except Exception:
        return False


def _candidate_item_passes_validator(item, validator):
    if not isinstance(item, Mapping):
        return False
    return _graph_passes_validator(item.get("graph"), validator)


def _lineage_candidate_item(factory, lineage, max_depth, validator=None):
    try:
        item = dict(factory())
    except Exception:
        return None
    item["lineage"] = lineage
    if _candidate_item_within_max_depth(item, max_depth) and _candidate_item_passes_validator(
        item, validator
    ):
        return item
    return None


def _context_max_depth(ctx):
    try:
        max_depth = int(getattr(ctx, "max_depth", 0))
    except CONVERSION:
        return None
    return None if max_depth < 1 else max_depth


def _graph_validator(ctx):
    validator = getattr(ctx, "_graph_validator", None)
    if callable(validator):
        return validator
    validator = getattr(getattr(ctx, "_backtester", None), "validate_graph", None)
    return validator if callable(validator) else None


# Identity.


def _structural_key(graph):
    return _freeze_graph_data(_plain_graph_data(graph))


def _canonical_graph_string(graph):
    return json.dumps(_plain_graph_data(graph), sort_keys=True, separators=(",", ":"))


def _deduplicate_graphs(graphs):
    keys, kept = set(), []
    for graph in graphs:
        key = _structural_key(graph)
        if key in keys:
            continue
        keys.add(key)
        kept.append(graph)
    return kept


def _run_deduplicated_batch(ctx, config, graphs, seen_graph_keys):
    target_size = min(config._batch_size, len(graphs))
    pending = list(graphs)
    local_seen, deduped = set(), []
    generated_count = len(pending)
    duplicate_count = backfill_attempt_count = 0
    rng = None
    max_backfill_attempts = max(config._batch_size * 20, 20)
    while len(deduped) < target_size:
        if pending:
            graph = pending.pop(0)
        else:
            if backfill_attempt_count >= max_backfill_attempts:
                break
            if rng is None:
                rng = config._rng_for_batch()
            fresh = _fresh_random_candidates(ctx, 1, rng=rng)
            generated_count += len(fresh)
            if not fresh:
                break
            graph = fresh[0]
            backfill_attempt_count += 1
        key = _structural_key(graph)
        if key in local_seen or key in seen_graph_keys:
            duplicate_count += 1
            continue
        local_seen.add(key)
        seen_graph_keys.add(key)
        deduped.append(graph)
    if rng is not None:
        config._store_rng_state(rng)
    return {
        "graphs": deduped, "generated_count": generated_count, "duplicate_count": duplicate_count,
    }


# Fresh graphs.

_GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT = {
    "template": "genetic", "stage": "fresh_candidates", "generator": "random_weighted_graphs",
}


def _fresh_random_candidates(ctx, batch_size, rng=None):
    generator = host._random_weighted_graphs(
        ctx, rng=rng, log_context=_GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT, template_name="genetic"
    )
    if generator is None:
        return []
    candidates = []
    for _idx in range(batch_size):
        try:
            candidates.append(next(generator))
        except StopIteration:
            break
    return candidates


_DEFAULT_FRESH_RANDOM_CANDIDATES = _fresh_random_candidates


def _fresh_random_candidates_for_rng(ctx, batch_size, rng):
    if _fresh_random_candidates is not _DEFAULT_FRESH_RANDOM_CANDIDATES:
        try:
            signature = inspect.signature(_fresh_random_candidates)
        except (TypeError, ValueError):
            signature = None
        if signature is not None and not any(
            parameter.name == "rng" or parameter.kind is inspect.Parameter.VAR_KEYWORD
            for parameter in signature.parameters.values()
        ):
            return _fresh_random_candidates(ctx, batch_size)
    return _fresh_random_candidates(ctx, batch_size, rng=rng)
