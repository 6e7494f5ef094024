"""The same search from C++ and from Python gives the same batches.

Goal: neither the boundary nor its objects change what is searched: from the same random state come
the same graphs in the same order, generation by generation. Method: one small host written twice,
in C++ (tests/driver/print_batches.cpp, which evaluates in its own process) and in Python, where
each candidate is evaluated in a forked child; both note their batches, repairs and metrics.
"""

import json
import subprocess

import conftest
import pytest
from formula_host import FormulaHost

PROGRAM = conftest.ROOT / "build" / "release" / "bin" / "print_batches"
# What depends on the machine, or names the generator before it was given another state.
OWN_METRICS = ("elapsed_simulation_seconds", "process_count", "determinism_metadata", "seed")


def of_cpp(seed, batch_size, generations):
    done = subprocess.run(
        [PROGRAM, *map(str, (seed, batch_size, generations))],
        capture_output=True, text=True, timeout=60,
    )
    assert (done.returncode, done.stderr) == (0, "")
    return json.loads(done.stdout)


def shared(metrics):
    return {name: value for name, value in metrics.items() if name not in OWN_METRICS}


def texts(generations):
    return [text for rounds in generations for batch in rounds for text in batch]


@pytest.mark.parametrize(("seed", "batch_size", "generations"), [(1, 4, 8), (20, 12, 3)])
def test_batches(genetic, monkeypatch, seed, batch_size, generations):
    host = FormulaHost(genetic, generations)
    host.bind(monkeypatch)
    python, cpp = host.run(seed, batch_size), of_cpp(seed, batch_size, generations)
    check_that_all_was_exercised(genetic, host)
    for number, (ours, theirs) in enumerate(zip(python["generations"], cpp["generations"])):
        assert ours == theirs, f"generation {number}"
    assert python["generations"] == cpp["generations"]
    assert python["plans"] == cpp["plans"]
    assert shared(python["metrics"]) == shared(cpp["metrics"])
    assert python["next_draw"] == cpp["next_draw"]


def check_that_all_was_exercised(genetic, host):
    """The search has bred, drawn afresh, repaired in several rounds, and dropped what it knew."""
    *generations, unfinished = host.generations
    assert unfinished == [[]]
    evaluated = texts(generations)
    assert len(set(evaluated)) == len(evaluated) == host.metrics["candidate_count"]
    assert host.metrics["duplicate_graph_count"] > 0
    assert max(len(rounds) for rounds in generations) > 2
    later = set(texts([rounds[:1] for rounds in generations[1:]]))
    bred = later & {genetic._canonical_graph_string(graph) for graph in host.bred}
    assert bred and later - bred
