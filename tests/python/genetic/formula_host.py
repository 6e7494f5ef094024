"""The host of tests/driver/print_batches.cpp once more, in Python.

Signals are formulas; how good one is follows from its text alone. Both hosts draw the same numbers
in the same order, so that a difference in what they print is one of the two searches.
"""

import copy
import random
import types
from types import SimpleNamespace

# The first three are features; of the functions the last two have two arguments.
NAMES = ("open", "close", "volume", "mean", "rank", "neg", "add", "sub")
FEATURES = 3
FIRST_BINARY = 6

SETTINGS = {
    "restart_threshold": 3,
    "elite_fraction": 0.25,
    "diversity_weight": 0.5,
    "parsimony_weight": 0.125,
    "operator_rates": {
        "crossover": 0.4, "hoist_mutation": 0.2, "point_mutation": 0.3, "subtree_mutation": 0.1,
    },
}


def arity_of(name):
    return 0 if name < FEATURES else 1 if name < FIRST_BINARY else 2


def name_of(graph):
    return NAMES.index(graph["node"])


def node(name, children):
    kind = "feature" if name < FEATURES else "rotation"
    return {"node": NAMES[name], "type": kind, "children": children}


def nodes_of(graph):
    """All nodes, breadth first."""
    nodes = [graph]
    for one in nodes:
        nodes.extend(one["children"])
    return nodes


def depth_of(graph):
    return 1 + max(map(depth_of, graph["children"]), default=0)


def quality_of(graph):
    total = 31 * (97 * name_of(graph) + 13)
    for place, child in enumerate(graph["children"]):
        total += (7 + 4 * place) * quality_of(child)
    return total % 1009


def validate(graph):
    if len(graph["children"]) != arity_of(name_of(graph)):
        raise ValueError("a wrong number of children")
    return all(map(validate, graph["children"]))


def random_graph(rng, depth):
    if depth == 1 or rng.randrange(4) == 0:
        return node(rng.randrange(FEATURES), [])
    name = FEATURES + rng.randrange(len(NAMES) - FEATURES)
    return node(name, [random_graph(rng, depth - 1) for _ in range(arity_of(name))])


def random_part(graph, rng):
    nodes = nodes_of(graph)
    return nodes[rng.randrange(len(nodes))]


def with_part(graph, part, rng):
    graph = copy.deepcopy(graph)
    random_part(graph, rng).update(copy.deepcopy(part))
    return graph


class FormulaHost:
    """What the module is bound to for one search, and what it was asked."""

    def __init__(self, genetic, generations):
        self._genetic = genetic
        self._end = generations
        self.generations = [[[]]]
        self.plans = []
        self.metrics = None
        self.bred = []
        self.context = self._make_context()

    def bind(self, monkeypatch):
        for name in ("score_candidate", "crossover", "hoist_mutation", "point_mutation",
                     "subtree_mutation", "_random_weighted_graphs"):
            monkeypatch.setattr(self._genetic, name, getattr(self, name))
        monkeypatch.setattr(self._genetic, "_reaction_planning", SimpleNamespace(
            derive_reaction_improvements=self.derive_reaction_improvements))

    def run(self, seed, batch_size):
        """Search, and return what the program in C++ prints."""
        config = self._genetic.with_config(batch_size=batch_size, **SETTINGS)
        rng = random.Random(seed)
        for _ in range(5):
            rng.random()
        config._store_rng_state(rng)
        config(self.context)
        return {
            "generations": self.generations, "plans": self.plans, "metrics": self.metrics,
            "next_draw": config.rng.random(),
        }

    # The host's modules.

    def score_candidate(self, candidate, **weights):
        return candidate["quality_score"]

    def crossover(self, elite, mate, *, rng, validator):
        return self._note(with_part(elite, random_part(mate, rng), rng))

    def point_mutation(self, elite, replacements, *, rng, validator):
        return self._note(with_part(elite, random_part(replacements[0], rng), rng))

    def subtree_mutation(self, elite, replacements, *, rng, validator):
        return self._note(with_part(elite, replacements[-1], rng))

    def hoist_mutation(self, elite, *, rng, validator):
        return self._note(random_part(elite, rng))

    def _note(self, graph):
        self.bred.append(graph)
        return graph

    def _random_weighted_graphs(self, ctx, *, rng, log_context, template_name):
        while True:
            yield random_graph(rng, 3)

    def derive_reaction_improvements(
        self, result, *, improvement_depth, max_plans, extra_data_graphs, **others
    ):
        graph = result["graph"]
        if self.generations[-1][-1]:
            self.generations[-1].append([])
        self.plans.append([
            self._genetic._canonical_graph_string(graph), improvement_depth, max_plans,
            len(extra_data_graphs),
        ])
        planned = [(node(3, [graph]), "smooth"), (node(5, [graph]), "turn")]
        planned += [(node(6, [graph, peer]), "blend") for peer in extra_data_graphs]
        return [
            {"graph": copy.deepcopy(repaired), "source_result": result, "reaction_plan": plan,
             "improvement_depth": improvement_depth}
            for repaired, plan in planned
        ]

    # The context.

    def _make_context(self):
        return SimpleNamespace(
            _stop_event=SimpleNamespace(is_set=self._is_over, wait=self._end_generation),
            _graph_validator=validate, max_depth=6,
            _market_id=1, _era_number=1, _product_run_id=1, _attempt_expected_columns=[],
            _template_evaluation_state=SimpleNamespace(attempt_id=None), _tracker=None,
            _evaluate_for_template=evaluate, _safe_record=self._record,
            _current_attempt_evidence=lambda: {"backtest_started": False},
            _activate_existing_attempt=lambda attempt_id, evidence: None,
            _enqueue_deferred_submission_payload=lambda payload: True,
            _submission_cancelled=lambda: False, record_search_run_metrics=self._take_metrics,
        )

    def _is_over(self):
        return len(self.generations) > self._end

    def _end_generation(self, seconds):
        self.generations.append([[]])
        return self._is_over()

    def _record(self, graph, passed, **others):
        text = self._genetic._canonical_graph_string(graph)
        self.generations[-1][-1].append(text)
        return text

    def _take_metrics(self, **metrics):
        self.metrics = metrics


def evaluate(graph):
    """The best sixth passes; the better half of the rest misses a limit that a plan is for."""
    quality = quality_of(graph)
    record = {
        "passed": quality >= 840,
        "stats": types.SimpleNamespace(
            quality_score=quality / 1009.0, correlation=quality % 7 / 10.0),
    }
    if not record["passed"]:
        reason = "turnover_max" if quality >= 420 else "drawdown_max"
        record["rejection_reason"] = reason
        record["tracking_metric_kwargs"] = {
            "failure_reason": reason, "failure_detail": f"{36 + quality % 20} > 35",
        }
    return {"record": record, "attempt_evidence": {"backtest_started": False}}
