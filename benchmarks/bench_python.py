#!/usr/bin/env python3
"""What calls of the Python module cost, beside plain Python versions of the same functions.

    build/venv/bin/python benchmarks/bench_python.py

Both are timed in one run, in turns, on equal arguments; a figure is the least of several rounds.
The host does nothing, so that what is timed is the search's own work and the way to it and back.
"""

import copy
import subprocess
import sys
import time
import types
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
STAGED = ROOT / "build" / "release" / "python"
TESTS = ROOT / "tests" / "python"
sys.path[:0] = [str(TESTS / "host"), str(STAGED), str(TESTS / "reference")]

import plain_failures  # noqa: E402
import plain_graph  # noqa: E402
import plain_population  # noqa: E402
import plain_results  # noqa: E402
import plain_search  # noqa: E402
import plain_submission  # noqa: E402
from varnholt.search_templates import genetic  # noqa: E402

ROUNDS = 7
ROUND_SECONDS = 0.05


def graph(number, depth=3):
    """A graph of about 20 nodes."""
    node = {"node": f"ts_mean_{number % 7}", "type": "function", "window": 5 + number}
    if depth:
        node["children"] = [graph(number + i, depth - 1) for i in range(2 + (depth == 2))]
    else:
        node["type"] = "feature"
    return node


def size_of(node):
    return 1 + sum(map(size_of, node.get("children", ())))


def result(number):
    return {
        "graph": graph(number), "stats": None, "passes": False,
        "failures": {"turnover_max": {"value": 1.5, "threshold": 1.0}},
        "sharpe": 0.5 + number / 1000, "quality_score": 0.25, "correlation": 0.1,
        "candidate_index": number, "improvement_depth": 0, "tracking_metric_kwargs": {},
    }


def per_call(call):
    count = 1
    while True:
        start = time.perf_counter()
        for _ in range(count):
            call()
        seconds = time.perf_counter() - start
        if seconds >= ROUND_SECONDS:
            return seconds / count
        count = max(count + 1, int(count * ROUND_SECONDS / max(seconds, 1e-9)))


def compare(name, ours, plain):
    own = other = float("inf")
    for _ in range(ROUNDS):
        own = min(own, per_call(ours))
        other = min(other, per_call(plain))
    print(f"{name:52} {own * 1e6:10.2f} {other * 1e6:10.2f} {other / own:7.2f}")


def compare_pure(name, plain, *args):
    compare(name, lambda: getattr(genetic, name)(*args), lambda: getattr(plain, name)(*args))


def single_calls():
    one, other = graph(1), graph(4)
    frozen = plain_graph._freeze_graph_data(one)
    record = result(1)
    compare_pure("_plain_graph_data", plain_graph, one)
    compare_pure("_freeze_graph_data", plain_graph, one)
    compare_pure("_thaw_graph_data", plain_graph, frozen)
    compare_pure("_structural_key", plain_graph, one)
    compare_pure("_canonical_graph_string", plain_graph, one)
    compare_pure("_graph_node_names", plain_population, one)
    compare_pure("_graph_similarity", plain_population, one, other)
    compare_pure("_data_graph_child_count", plain_population, one)
    compare_pure("_number", plain_results, "0.5")
    compare_pure("_positive_int_or_none", plain_results, 7)
    compare_pure("_has_reaction_failure", plain_failures, record)
    compare_pure("_failure_metric_pair", plain_failures, {"detail": {"value": 1.5}})
    compare_pure("_candidate_eval_id", plain_submission, {"graph": one})
    context = types.SimpleNamespace(_safe_record=lambda *_, **__: "id")

    def recording(part):
        return lambda: part._record_candidate_result_in_parent(
            context, {**record, "_parent_recorded": False})

    compare("_record_candidate_result_in_parent, failing", recording(genetic),
            recording(plain_submission))
    error = RuntimeError("lost")
    compare_pure("_candidate_process_evaluation_error_result", plain_results, one, error)


def batches():
    graphs = [graph(number % 150) for number in range(300)]
    compare_pure("_deduplicate_graphs", plain_graph, graphs)
    prior = [result(number) for number in range(200)]
    genetic.score_candidate = lambda candidate, **_: candidate["sharpe"]
    plain_search.bind(genetic)
    compare("_diverse_parent_pool, 200",
            lambda: genetic._diverse_parent_pool(prior),
            lambda: plain_population._diverse_parent_pool(prior))
    compare_pure("rank_submittable_candidates", plain_submission,
                 [{**one, "passes": True} for one in prior])
    compare("_annotate_candidate_results, 200",
            lambda: genetic._annotate_candidate_results(
                prior, start_index=0, improvement_depth=0),
            lambda: plain_search._annotate_candidate_results(
                prior, start_index=0, improvement_depth=0))
    ours, plain = copy.deepcopy(prior[:40]), copy.deepcopy(prior[:40])
    source = prior[0]
    compare("_reaction_peer_graphs, 40",
            lambda: genetic._reaction_peer_graphs(ours, source),
            lambda: plain_search.improvement.peer_graphs(plain, source))


def import_time():
    """Milliseconds that the module takes beyond the host's own modules."""
    names = (
        "varnholt.config.search_settings", "varnholt.search_templates._engine",
        "varnholt.search_templates.process_evaluation",
        "varnholt.search_templates.reaction_planning", "varnholt.search_templates.eliteness",
        "varnholt.search_templates.genetic_ops", "varnholt.search_templates.random_weighted",
    )
    code = (
        "import importlib, sys, time\n"
        f"sys.path[:0] = {[str(TESTS / 'host'), str(STAGED)]!r}\n"
        f"for name in {names!r}: importlib.import_module(name)\n"
        "start = time.perf_counter()\n"
        "import varnholt.search_templates.genetic\n"
        "print((time.perf_counter() - start) * 1e3)\n"
    )
    runs = [
        float(subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                             check=True).stdout)
        for _ in range(9)
    ]
    print(f"import, beyond the host's modules: {min(runs):.1f} ms")


def main():
    plain_search.bind(genetic)
    print(f"graphs of {size_of(graph(1))} nodes; microseconds a call")
    print(f"{'':52} {'module':>10} {'plain':>10} {'ratio':>7}")
    single_calls()
    batches()
    import_time()


if __name__ == "__main__":
    main()
