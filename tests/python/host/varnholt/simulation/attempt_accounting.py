"""Accounts of attempts."""

import json


def build_column_inventory(expected_columns, per_column_stats):
    return {column: column in per_column_stats for column in expected_columns}


def json_ready(value):
    return json.loads(json.dumps(value))
