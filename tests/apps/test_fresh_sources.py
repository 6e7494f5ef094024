"""Where fresh expressions come from: --no-known-formulas, --no-archive, and repeats of behaviour.

Method: runs with one source left out each, of which the lineages in the store tell what there was.
"""

from __future__ import annotations

import json
from pathlib import Path

from program import NO_GATES, call, rows


def stored(tmp_path: Path, prices: Path, *more: str) -> list[tuple[dict, str, str]]:
    store = tmp_path / f"runs{len(list(tmp_path.iterdir()))}.db"
    ended = call(
        "run", "--prices", prices, "--db", store, "--generations", "4", "--batch-size", "24",
        "--seed", "5", *NO_GATES, *more,
    )
    assert ended.returncode == 0, ended.stderr
    found = rows(
        store,
        "SELECT lineage, coalesce(failure_reason, ''), coalesce(failure_detail, ''), statistics "
        "FROM evaluations ORDER BY id",
    )
    for _, reason, detail, figures in found:
        if reason == "behaviour_repeated":
            assert figures == "null"
            earlier = int(detail.rsplit("candidate ", 1)[1].split()[0])
            assert found[earlier - 1][3] != "null"
    return [(json.loads(lineage), reason, detail) for lineage, reason, detail, _ in found]


def formulas(candidates: list[tuple[dict, str, str]]) -> list[str]:
    return [lineage["formula"] for lineage, _, _ in candidates if lineage["origin"] == "known"]


def test_known_formulas_are_tried_once_each_unless_they_are_left_out(
        tmp_path: Path, prices: Path):
    candidates = stored(tmp_path, prices)
    known = formulas(candidates)
    assert len(known) > 5 and len(set(known)) == len(known)
    assert any(lineage["origin"] == "fresh" for lineage, _, _ in candidates)
    without = stored(tmp_path, prices, "--no-known-formulas")
    assert not any("formula" in lineage for lineage, _, _ in without)


def test_without_the_archive_formulas_are_offered_all_the_same(tmp_path: Path, prices: Path):
    candidates = stored(tmp_path, prices, "--no-archive")
    assert len(formulas(candidates)) > 5


def test_repeats_name_an_earlier_candidate(tmp_path: Path, prices: Path):
    candidates = stored(tmp_path, prices)
    assert any(reason == "behaviour_repeated" for _, reason, _ in candidates)
