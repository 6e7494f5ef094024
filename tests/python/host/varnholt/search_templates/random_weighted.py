"""An endless source of random graphs."""


def _random_weighted_graphs(ctx, *, rng, log_context, template_name):
    while True:
        yield {
            "node": "rank",
            "type": "rotation",
            "children": [{"node": f"feature_{rng.randrange(10**9)}", "type": "feature"}],
        }
