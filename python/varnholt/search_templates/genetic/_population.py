"""Batches of candidate graphs: fresh ones, the next batch, and what is left without duplicates."""

from varnholt.search_templates.genetic import _host, _native


def _deduplicate_graphs(graphs):
    """Return a new list with the first graph of each structure, in order."""
    return _native.deduplicate_graphs(graphs)


def _run_deduplicated_batch(ctx, config, graphs, seen_graph_keys):
    """Drop the graphs whose structure was seen, and replace them by fresh ones.

    Returns a dict with "graphs", "generated_count" and "duplicate_count". The key of an accepted
    graph is added to seen_graph_keys at once.
    """
    return _native.run_deduplicated_batch(_host, ctx, config, graphs, seen_graph_keys)


def _fresh_random_candidates(ctx, batch_size, rng=None):
    """Return at most batch_size graphs from the host's generator. A host may replace this."""
    return _native.fresh_random_candidates(_host, ctx, batch_size, rng)


def _fresh_random_candidates_for_rng(ctx, batch_size, rng):
    """Return the same from whatever `_fresh_random_candidates` is now, with rng if it takes it."""
    return _native.fresh_random_candidates_for_rng(_host, ctx, batch_size, rng)


def _candidate_batch(ctx, config, batch_index, prior_results, force_restart=False):
    """Return the graphs of the next batch: the seeds, fresh ones, or those bred."""
    return _native.candidate_batch(_host, ctx, config, batch_index, prior_results, force_restart)
