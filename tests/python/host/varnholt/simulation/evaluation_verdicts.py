"""Verdicts."""


def not_evaluated_verdict():
    return {"status": "not_evaluated"}
