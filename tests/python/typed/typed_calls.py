"""A host's developer calls the module with types: checked by mypy, and run as it stands.

A call that is wrong has to be found wrong: its line ignores the very error that it makes, and an
ignored error that does not arise is an error too.
"""

from random import Random
from typing import Any, assert_type

from varnholt.search_templates import genetic
from varnholt.search_templates.genetic import compose_next_batch, rank_submittable_candidates
from varnholt.search_templates.genetic import with_config

Graph = dict[str, Any]

CLOSE: Graph = {"node": "close", "type": "feature"}
RANK: Graph = {"node": "rank", "type": "rotation", "children": [CLOSE]}


class Context:
    """What the calls below read."""

    max_depth = 4
    market_id = 3
    _era_config = {"id": 5}


def templates() -> None:
    template = with_config(batch_size=8, elite_fraction="0.5", operator_rates={"crossover": 1.0})
    assert_type(template, genetic._GeneticTemplate)
    assert_type(template.batch_size, int)
    assert_type(template._batch_size, int)
    assert_type(template.rng, Random)
    assert_type(template.initial_candidates, list[Any] | None)
    assert_type(template.operator_rates, dict[str, float])
    template._store_rng_state(template._rng_for_batch())
    genetic._run_deduplicated_batch(Context(), template, [], set())
    genetic._default_genetic_template.seed
    assert genetic.genetic._varnholt_manages_evaluation  # type: ignore[attr-defined]
    try:
        with_config(batch_size="8")  # type: ignore[arg-type]
        raise AssertionError("a text is no batch size")
    except TypeError:
        pass
    try:
        template.batch_size = 3  # type: ignore[misc]
        raise AssertionError("a template is immutable")
    except AttributeError:
        pass


def graphs() -> None:
    key = genetic._structural_key(RANK)
    assert_type(key, tuple[str, Any])
    assert_type(genetic._canonical_graph_string(RANK), str)
    assert_type(genetic._deduplicate_graphs([RANK, CLOSE]), list[Graph])
    assert_type(genetic._graph_within_max_depth(RANK, 2), bool)
    assert_type(genetic._graph_node_names(RANK), set[str])
    assert_type(genetic._context_max_depth(Context()), int | None)
    genetic._thaw_graph_data(genetic._freeze_graph_data(RANK))
    item = genetic._lineage_candidate_item(lambda: RANK, {"kind": "fresh"}, 3)
    assert_type(item, dict[str, Any] | None)


def breeding() -> None:
    batch = compose_next_batch(
        None, 2, rng=Random(1), fresh_random_factory=lambda: RANK,
        elite_factory=lambda parents, rng: parents[0]["graph"], max_depth=3,
        validator=lambda graph: True,
    )
    assert_type(batch, list[dict[str, Any]])
    assert_type(genetic._choose_operator({"crossover": 1.0}, Random(1)), str)
    assert_type(genetic._diverse_parent_pool([CLOSE][:0], elite_fraction=0.5), list[Graph])


def results() -> None:
    failed: dict[str, Any] = {
        "graph": RANK, "passes": False, "failures": {"sharpe_min": {"reason": "sharpe_min"}}}
    assert_type(genetic._optional_correlation("0.5"), float | None)
    assert_type(genetic._has_reaction_failure(failed), bool)
    assert_type(genetic._failure_metric_pair(None), tuple[Any, Any])
    assert_type(genetic._reaction_priority_key(failed), tuple[float, int, int])
    assert_type(genetic._graph_feature_names(RANK), set[str])
    assert_type(rank_submittable_candidates([failed]), list[dict[str, Any]])
    payload = genetic._ensure_payload_market_era({"market_id": 1}, Context())
    assert_type(payload, dict[str, int])
    annotated = genetic._annotate_candidate_results([failed], start_index=0, improvement_depth=0)
    assert annotated[0] is failed
    try:
        genetic._derive_improvement_batch(Context(), [], set())  # type: ignore[call-arg]
        raise AssertionError("the limits are required")
    except TypeError:
        pass


def ledgers() -> None:
    ledger = genetic._ProcessAttemptLedger(Context(), [(0, RANK)])
    assert_type(ledger._states, dict[tuple[int, int], dict[str, Any]])
    snapshot = genetic._ChildSyncSnapshot(None, ["found.pnl"])
    assert_type(snapshot.request_for_sync(), tuple[Any, ...])


def main() -> None:
    templates()
    graphs()
    breeding()
    results()
    ledgers()


if __name__ == "__main__":
    main()
