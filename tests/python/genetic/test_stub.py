"""The type stub tells what the module is.

Goal: no name, parameter or default of the module is missing in `__init__.pyi`, and none there is
invented. Method: the stub is parsed and compared with what introspection shows.
"""

import ast
import inspect
import runpy
import sys
from pathlib import Path

import conftest
import pytest

# What the module needs for itself and nobody else should use.
INTERNAL = {
    "_host", "_native", "_sys", "_types", "_take_in",
    "_attempts", "_breeding", "_callbacks", "_context", "_evaluation", "_failures", "_graph",
    "_population", "_process", "_reaction", "_run", "_settings", "_submission", "_timing",
}


@pytest.fixture
def stub(genetic):
    return ast.parse(Path(genetic.__file__).with_suffix(".pyi").read_text())


def declared(body):
    """The names that a stub's body declares, with their nodes."""
    names = {}
    for node in body:
        if isinstance(node, ast.AnnAssign):
            names[node.target.id] = node
        elif isinstance(node, (ast.FunctionDef, ast.ClassDef)):
            names[node.name] = node
    return names


def shape(node):
    """A function's parameters: kind, name and default; "..." stands for any default."""
    arguments = node.args
    defaults = [None] * (len(arguments.args) - len(arguments.defaults)) + arguments.defaults
    parameters = [("plain", one.arg, default) for one, default in zip(arguments.args, defaults)]
    if arguments.vararg:
        parameters.append(("star", arguments.vararg.arg, None))
    parameters += [
        ("keyword", one.arg, default)
        for one, default in zip(arguments.kwonlyargs, arguments.kw_defaults)
    ]
    if arguments.kwarg:
        parameters.append(("double star", arguments.kwarg.arg, None))
    return parameters


KINDS = {
    inspect.Parameter.POSITIONAL_OR_KEYWORD: "plain",
    inspect.Parameter.VAR_POSITIONAL: "star",
    inspect.Parameter.KEYWORD_ONLY: "keyword",
    inspect.Parameter.VAR_KEYWORD: "double star",
}


def compare(node, function):
    parameters = list(inspect.signature(function).parameters.values())
    written = shape(node)
    assert [(kind, name) for kind, name, _ in written] == [
        (KINDS[one.kind], one.name) for one in parameters
    ], node.name
    for (_, name, default), one in zip(written, parameters):
        assert (default is None) == (one.default is one.empty), f"{node.name}: {name}"
        if default is not None and not (
            isinstance(default, ast.Constant) and default.value is ...
        ):
            assert ast.literal_eval(default) == one.default, f"{node.name}: {name}"


def test_the_stub_names_what_the_module_has(genetic, stub):
    present = {
        name for name in vars(genetic) if not name.startswith("__") and name not in INTERNAL
    }
    helpers = {
        "_T", "_Record", "_Graph", "_Frozen", "_Validator", "_SupportsSearch", "_AttemptKey",
        "_AttemptState",
    }
    assert set(declared(stub.body)) - helpers == present


def test_functions_have_the_parameters_that_the_stub_tells(genetic, stub):
    functions = [node for node in stub.body if isinstance(node, ast.FunctionDef)]
    assert len(functions) > 100
    for node in functions:
        compare(node, getattr(genetic, node.name))


@pytest.mark.parametrize(
    "name", ["_GeneticTemplate", "_DefaultGeneticTemplate", "_CallableGeneticModule"]
)
def test_classes_have_the_members_that_the_stub_tells(genetic, stub, name):
    members = declared(declared(stub.body)[name].body)
    real = {
        key: value
        for key, value in vars(getattr(genetic, name)).items()
        if key not in ("__module__", "__doc__", "__dict__", "__weakref__", "__firstlineno__",
                       "__static_attributes__")
    }
    attributes = {
        key for key, node in members.items()
        if isinstance(node, ast.AnnAssign) and "ClassVar" not in ast.unparse(node.annotation)
    }
    assert set(members) - attributes == set(real)
    if name == "_GeneticTemplate":
        assert attributes == set(vars(genetic.with_config()))
    for key in set(members) - attributes:
        node = members[key]
        if isinstance(real[key], property):
            assert [decorator.id for decorator in node.decorator_list] == ["property"]
        elif isinstance(node, ast.FunctionDef):
            compare(node, real[key])


def test_the_ledger_has_the_members_that_the_stub_tells(genetic, stub):
    members = declared(declared(stub.body)["_ProcessAttemptLedger"].body)
    attributes = {name for name, node in members.items() if isinstance(node, ast.AnnAssign)}
    ledger = genetic._ProcessAttemptLedger(object(), [])
    assert attributes == set(vars(ledger))
    operations = {name for name in vars(type(ledger)) if callable(getattr(ledger, name))}
    assert set(members) - attributes == operations - {"__class__"}
    for name in set(members) - attributes:
        compare(members[name], vars(type(ledger))[name])


@pytest.mark.skipif(sys.version_info < (3, 11), reason="typing has no assert_type")
def test_the_typed_program_runs():
    """mypy checks its types; here it does what it says."""
    runpy.run_path(str(conftest.ROOT / "tests/python/typed/typed_calls.py"), run_name="__main__")


def test_the_package_says_that_it_has_types(genetic):
    assert (Path(genetic.__file__).parent / "py.typed").read_bytes() == b""
