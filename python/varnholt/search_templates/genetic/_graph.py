"""Graphs as plain data, their frozen form, and the filters that keep a graph out of a batch."""

from varnholt.search_templates.genetic import _host, _native


def _plain_graph_data(value):
    """Return a deep copy made of new dicts and lists; TypeError for what is no plain data."""
    return _native.plain_graph_data(value)


def _freeze_graph_data(value):
    """Return the frozen form: nested pairs of a kind and a payload, in the order of the keys."""
    return _native.freeze_graph_data(value)


def _thaw_graph_data(value):
    """Return a new plain value from a frozen form."""
    return _native.thaw_graph_data(value)


def _plain_initial_candidates(initial_candidates):
    """Return None, or the frozen candidates of a list as a tuple."""
    return _native.plain_initial_candidates(initial_candidates)


def _structural_key(graph):
    """Return the graph's structural identity: the frozen form of its plain data."""
    return _native.structural_key(graph)


def _canonical_graph_string(graph):
    """Return the JSON text of the graph's plain data, keys sorted, without blanks."""
    return _native.canonical_graph_string(graph)


def _graph_within_max_depth(graph, max_depth):
    """Tell whether the host counts the graph's depth as at most max_depth; None is no limit."""
    return _native.graph_within_max_depth(_host, graph, max_depth)


def _candidate_item_within_max_depth(item, max_depth):
    """Tell the same for an item's graph; False for anything but a mapping."""
    return _native.candidate_item_within_max_depth(_host, item, max_depth)


def _reaction_improvement_within_graph_max_depth(improvement, max_depth):
    """Tell the same for an improvement's graph; False for anything but a mapping."""
    return _native.reaction_improvement_within_graph_max_depth(_host, improvement, max_depth)


def _graph_passes_validator(graph, validator):
    """Tell whether the validator accepts a copy of the graph; None accepts all."""
    return _native.graph_passes_validator(graph, validator)


def _candidate_item_passes_validator(item, validator):
    """Tell the same for an item's graph; False for anything but a mapping."""
    return _native.candidate_item_passes_validator(item, validator)


def _lineage_candidate_item(factory, lineage, max_depth, validator=None):
    """Return a copy of what the factory makes, with its lineage, or None when it is refused."""
    return _native.lineage_candidate_item(_host, factory, lineage, max_depth, validator)


def _context_max_depth(ctx):
    """Return the context's depth limit of graphs, or None: 0 is no limit here."""
    return _native.context_max_depth(ctx)


def _graph_validator(ctx):
    """Return the context's validator of graphs, or the backtester's, or None."""
    return _native.graph_validator(ctx)
