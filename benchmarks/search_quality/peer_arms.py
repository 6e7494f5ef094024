"""The searches that ours is compared with: gplearn, and a plain loop of DEAP.

Each searches signals of the same features and functions for the greatest Sharpe ratio that the
judge tells, until the judge has no backtests left; where it has had its generations before, it
begins anew. The settings follow what the documents of each library advise, with populations for
some thousand backtests.
"""

from __future__ import annotations

import operator
import random
from collections.abc import Callable, Iterable
from dataclasses import dataclass

import numpy as np

from panel_kernels import PLAIN, WINDOWED, WINDOWS, Panel
from planted_market import Judge, Market


@dataclass(frozen=True)
class Search:
    """What a search of a library leaves: its structures, and how to get the signal of one of its
    programs on all days."""

    structures: int
    signal: Callable[[object], Panel]


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


def gplearn_functions(instruments: int) -> list[object]:
    """Each function over time once for each window, because gplearn has no arguments that are no
    panels; the others as many times, so that each function is drawn as often as another."""
    from gplearn.functions import make_function

    def made(name: str, panels: int, kernel: Callable[..., Panel]) -> object:
        def one(x):
            return kernel(x.reshape(-1, instruments)).ravel()

        def two(x, y):
            return kernel(x.reshape(-1, instruments), y.reshape(-1, instruments)).ravel()

        # gplearn asks a function for finite answers to ten numbers. What is not known here is NaN,
        # as the vocabulary has it, so a stand-in answers.
        stand_in = (lambda x: x) if panels == 1 else (lambda x, y: x)
        function = make_function(function=stand_in, name=name, arity=panels, wrap=False)
        function.function = one if panels == 1 else two
        return function

    functions = []
    for name, (panels, kernel) in PLAIN.items():
        functions += [made(name, panels, kernel)] * len(WINDOWS)
    for name, (panels, kernel) in WINDOWED.items():
        for window in WINDOWS:
            if panels == 1:
                fixed = lambda x, k=kernel, w=window: k(x, w)
            else:
                fixed = lambda x, y, k=kernel, w=window: k(x, y, w)
            functions.append(made(f"{name}_{window}", panels, fixed))
    return functions


def as_samples(features: dict[str, Panel]) -> np.ndarray:
    """A row for each instrument of each day, a column for each feature."""
    return np.asfortranarray(np.column_stack([panel.ravel() for panel in features.values()]))


def search_with_gplearn(market: Market, judge: Judge, seed: int, progress: Progress) -> Search:
    from gplearn.fitness import make_fitness
    from gplearn.genetic import SymbolicRegressor
    from sklearn import config_context

    instruments = market.close.shape[1]
    samples = as_samples(market.searched_features())
    all_samples = as_samples(market.features)
    nothing_to_fit = np.zeros(len(samples))
    structures: set[str] = set()

    # Programs are named by their place in the order of evaluation until gplearn shows them.
    evaluated = 0
    programs: list[object] = []

    def judged(_y, signal, _weights):
        nonlocal evaluated
        fitness = judge.fitness(signal.reshape(-1, instruments), evaluated)
        evaluated += 1
        return NO_FITNESS if fitness is None else fitness

    metric = make_fitness(function=lambda y, signal, w: 0.0, greater_is_better=True, wrap=False)
    metric.function = judged
    functions = gplearn_functions(instruments)
    attempt = 0
    while not judge.is_spent:
        regressor = SymbolicRegressor(
            function_set=functions, metric=metric, feature_names=list(market.features),
            random_state=seed + 1_000_000 * attempt, stopping_criteria=np.inf, warm_start=True,
            low_memory=True, **GPLEARN,
        )
        attempt += 1
        for generation in range(1, GPLEARN_GENERATIONS + 1):
            regressor.set_params(generations=generation)
            # The features are not known on the first day.
            with config_context(assume_finite=True):
                regressor.fit(samples, nothing_to_fit)
            # Each program of a generation is evaluated once, in this order.
            programs += regressor._programs[-1]
            structures.update(map(str, regressor._programs[-1]))
            progress()
            if judge.is_spent:
                break
    return Search(
        len(structures),
        lambda place: programs[place].execute(all_samples).reshape(-1, instruments),
    )


# --- DEAP.

DEAP_POPULATION = 128
DEAP_GENERATIONS = 20
DEAP_CROSSOVER = 0.7
DEAP_MUTATION = 0.3
DEAP_TOURNAMENT = 3
# As the program's expressions: a depth of five nodes, and twenty-five of them.
DEAP_HEIGHT = 4
DEAP_NODES = 25


class Series:
    """The type of panels in a tree."""


class Days:
    """The type of windows in a tree."""


class Spent(Exception):
    """There is no backtest left."""


def deap_primitives(features: Iterable[str]):
    from deap import gp

    names = list(features)
    primitives = gp.PrimitiveSetTyped("signal", [Series] * len(names), Series)
    primitives.renameArguments(**{f"ARG{i}": name for i, name in enumerate(names)})
    for name, (panels, kernel) in PLAIN.items():
        primitives.addPrimitive(kernel, [Series] * panels, Series, name=name)
    for name, (panels, kernel) in WINDOWED.items():
        primitives.addPrimitive(kernel, [Series] * panels + [Days], Series, name=name)
    for window in WINDOWS:
        primitives.addTerminal(window, Days, name=f"days_{window}")
    return primitives


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


def search_with_deap(market: Market, judge: Judge, seed: int, progress: Progress) -> Search:
    from deap import algorithms, gp

    primitives = deap_primitives(market.features)
    searched = list(market.searched_features().values())
    structures: set[str] = set()

    def evaluate(tree) -> tuple[float]:
        structures.add(str(tree))
        fitness = judge.fitness(gp.compile(tree, primitives)(*searched), str(tree))
        if fitness is None:
            raise Spent
        progress()
        return (fitness,)

    toolbox = deap_toolbox(primitives, evaluate)
    random.seed(seed)  # DEAP draws from the generator of the module.
    try:
        while not judge.is_spent:
            algorithms.eaSimple(
                toolbox.population(n=DEAP_POPULATION), toolbox, DEAP_CROSSOVER, DEAP_MUTATION,
                DEAP_GENERATIONS, verbose=False,
            )
    except Spent:
        pass
    return Search(
        len(structures),
        lambda text: gp.compile(text, primitives)(*market.features.values()),
    )


ARMS = {"gplearn": search_with_gplearn, "deap": search_with_deap}
