"""The searches that ours is compared with: gplearn, and a plain loop of DEAP.

Each searches formulas of the same features, functions and windows for the greatest fitness that the
judge tells, until the judge has no backtests left; where it has had its generations before, it
begins anew. The settings follow what the documents of each library advise, with populations for
some thousand backtests.
"""

from __future__ import annotations

import operator
import random
import re
from collections.abc import Callable, Sequence
from unittest import mock

import numpy as np

from formula_service import Vocabulary
from peer_judge import Judge

Progress = Callable[[], None]

# --- gplearn.

GPLEARN = {
    "population_size": 128,
    "tournament_size": 8,
    "init_depth": (2, 4),
    "init_method": "half and half",
    "const_range": None,
    "p_crossover": 0.6,
    "p_subtree_mutation": 0.2,
    "p_hoist_mutation": 0.05,
    "p_point_mutation": 0.1,
    "p_point_replace": 0.1,
    "parsimony_coefficient": 0.005,
}
GPLEARN_GENERATIONS = 20
# What a program gets for which there is no backtest left.
NO_FITNESS = -1e3


def gplearn_functions(vocabulary: Vocabulary) -> list[object]:
    """Each function over time once for each window, because gplearn has no arguments that are no
    panels; the others as many times, so that each function is drawn as often as another."""
    from gplearn.functions import make_function

    # gplearn asks a function for finite answers to ten numbers, so a stand-in answers. Programs are
    # judged by their formulas, and no function is called.
    stand_ins = {1: lambda x: x, 2: lambda x, y: x}
    functions = []
    for name, kind in vocabulary.functions.items():
        for window in vocabulary.windows:
            full_name = f"{name}_{window}" if kind.has_window else name
            functions.append(
                make_function(
                    function=stand_ins[kind.panels], name=full_name, arity=kind.panels, wrap=False
                )
            )
    return functions


def gplearn_formula(nodes: Sequence[object], features: Sequence[str]) -> str:
    """Of a program's nodes, each before its arguments: functions, and the numbers of features."""
    from gplearn.functions import _Function

    rest = iter(nodes)

    def text() -> str:
        node = next(rest)
        if not isinstance(node, _Function):
            return features[node]
        arguments = [text() for _ in range(node.arity)]
        name, window = re.fullmatch(r"(.*?)(?:_(\d+))?", node.name).groups()
        return f"{name}({', '.join(arguments + ([window] if window else []))})"

    return text()


def search_with_gplearn(
    vocabulary: Vocabulary, judge: Judge, seed: int, progress: Progress
) -> None:
    from gplearn import genetic
    from gplearn.fitness import make_fitness

    class JudgedProgram(genetic._Program):
        """Where gplearn runs a program and compares the outcome, this one tells its formula."""

        def raw_fitness(self, _x, _y, _weights) -> float:
            fitness = judge.fitness(gplearn_formula(self.program, vocabulary.features))
            progress()
            return NO_FITNESS if fitness is None else fitness

    # Says which fitness is the better one; nothing is predicted, so it is never called.
    metric = make_fitness(function=lambda y, signal, w: 0.0, greater_is_better=True, wrap=False)
    functions = gplearn_functions(vocabulary)
    samples = np.zeros((2, len(vocabulary.features)))
    attempt = 0
    with mock.patch.object(genetic, "_Program", JudgedProgram):
        while not judge.is_spent:
            regressor = genetic.SymbolicRegressor(
                function_set=functions, metric=metric, feature_names=list(vocabulary.features),
                random_state=seed + 1_000_000 * attempt, stopping_criteria=np.inf,
                warm_start=True, low_memory=True, **GPLEARN,
            )
            attempt += 1
            for generation in range(1, GPLEARN_GENERATIONS + 1):
                regressor.set_params(generations=generation)
                regressor.fit(samples, np.zeros(len(samples)))
                if judge.is_spent:
                    break


# --- DEAP.

DEAP_POPULATION = 128
DEAP_GENERATIONS = 20
DEAP_CROSSOVER = 0.7
DEAP_MUTATION = 0.3
DEAP_TOURNAMENT = 3
# As the program's expressions: a depth of five nodes, and twenty-five of them.
DEAP_HEIGHT = 4
DEAP_NODES = 25


class Kind(type):
    """DEAP draws from sets of types, whose order is that of their hashes: these are the same in
    every process, so that a seed repeats a search."""

    def __hash__(cls) -> int:
        return len(cls.__name__)


class Series(metaclass=Kind):
    """The type of panels in a tree."""


class Days(metaclass=Kind):
    """The type of windows in a tree."""


class Spent(Exception):
    """There is no backtest left."""


def no_kernel(*_arguments: object) -> None:
    raise NotImplementedError("trees are judged by their formulas, and no function is called")


def deap_primitives(vocabulary: Vocabulary, kernels: dict[str, Callable] | None = None):
    """With kernels a tree can be compiled; without them it is nothing but its formula."""
    from deap import gp

    names = vocabulary.features
    primitives = gp.PrimitiveSetTyped("signal", [Series] * len(names), Series)
    primitives.renameArguments(**{f"ARG{i}": name for i, name in enumerate(names)})
    for name, kind in vocabulary.functions.items():
        taken = [Series] * kind.panels + [Days] * kind.has_window
        kernel = kernels[name] if kernels else no_kernel
        primitives.addPrimitive(kernel, taken, Series, name=name)
    for window in vocabulary.windows:
        primitives.addTerminal(window, Days, name=f"days_{window}")
    return primitives


def deap_formula(tree: object) -> str:
    return re.sub(r"\bdays_(\d+)", r"\1", str(tree))


def random_tree(pset, least: int, most: int, type_=None) -> list[object]:
    """Half of the trees full, half grown, as gp.genHalfAndHalf; but a window, of whose type there
    is no function, is a leaf wherever it stands, where that one ends with an error."""
    height = random.randint(least, most)
    full = random.random() < 0.5

    def below(wanted, depth: int) -> list[object]:
        early = not full and depth >= least and random.random() < pset.terminalRatio
        if depth == height or early or not pset.primitives[wanted]:
            return [random.choice(pset.terminals[wanted])]
        chosen = random.choice(pset.primitives[wanted])
        return [chosen, *(node for type_ in chosen.args for node in below(type_, depth + 1))]

    return below(type_ or pset.ret, 0)


def deap_toolbox(primitives, evaluate: Callable[[object], tuple[float]]):
    from deap import base, creator, gp, tools

    if not hasattr(creator, "SignalTree"):
        creator.create("SignalFitness", base.Fitness, weights=(1.0,))
        creator.create("SignalTree", gp.PrimitiveTree, fitness=creator.SignalFitness)
    toolbox = base.Toolbox()
    toolbox.register("tree", random_tree, pset=primitives, least=1, most=3)
    toolbox.register("individual", tools.initIterate, creator.SignalTree, toolbox.tree)
    toolbox.register("population", tools.initRepeat, list, toolbox.individual)
    toolbox.register("evaluate", evaluate)
    toolbox.register("select", tools.selTournament, tournsize=DEAP_TOURNAMENT)
    toolbox.register("mate", gp.cxOnePoint)
    toolbox.register("expr_mut", random_tree, least=0, most=2)
    toolbox.register("mutate", gp.mutUniform, expr=toolbox.expr_mut, pset=primitives)
    for name in ("mate", "mutate"):
        toolbox.decorate(name, gp.staticLimit(operator.attrgetter("height"), DEAP_HEIGHT))
        toolbox.decorate(name, gp.staticLimit(len, DEAP_NODES))
    return toolbox


def search_with_deap(vocabulary: Vocabulary, judge: Judge, seed: int, progress: Progress) -> None:
    from deap import algorithms

    def evaluate(tree) -> tuple[float]:
        fitness = judge.fitness(deap_formula(tree))
        if fitness is None:
            raise Spent
        progress()
        return (fitness,)

    toolbox = deap_toolbox(deap_primitives(vocabulary), evaluate)
    random.seed(seed)  # DEAP draws from the generator of the module.
    try:
        while not judge.is_spent:
            algorithms.eaSimple(
                toolbox.population(n=DEAP_POPULATION), toolbox, DEAP_CROSSOVER, DEAP_MUTATION,
                DEAP_GENERATIONS, verbose=False,
            )
    except Spent:
        pass


ARMS = {"gplearn": search_with_gplearn, "deap": search_with_deap}
