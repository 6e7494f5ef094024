"""What a host with a filled pool answers, for tests of pool metrics."""

import types

PENDING = "pool_metrics_refresh_required"
POOL_REASONS = [
    "pnl_mi", "pnl_mi_below_threshold", "correlation_exceeded", "missing_is_pnl_mi",
    "missing_is_correlation", "agent_pool_pnl_sync_missing",
]


class SyncMissing(Exception):
    pass


class NotComputable(ValueError):
    pass


def answers(**others):
    """What a host with a filled pool answers; a candidate passes both gates."""
    return {
        "_stats_gate_threshold_set": lambda thresholds, era: ("set", thresholds, era),
        "_submission_mi_threshold_and_pool": (0.25, "pool"),
        "_submission_correlation_threshold_and_pool": (0.5, "pool"),
        "_recorded_failure_detail": lambda *args, **keywords: {
            "value": args[2], "threshold": args[3], **keywords
        },
        "_failed_gate_verdict": lambda reason, **figures: {"failed": reason, **figures},
        "_gate_verdict": lambda *args, **figures: {"passed": args[0], **figures},
        "_refresh_submission_manifest_membership": True,
        "_selected_pool_has_synced_found_signal_ids": False,
        "_normalize_required_pool_pnl_matrix": None,
        "_evaluation_metaparameters_for_pool": lambda pool, given: {"of": pool, **given},
        "_call_backtester_with_transform_context": lambda *args, extra_kwargs: {"again": args},
        "_submission_pnl_mi_from_backtest_or_compute": (0.75, True),
        "_submission_correlation_from_backtest_or_compute": (0.125, True),
        "_submitted_stats_payload_from_backtest": lambda stats, era: ({"sharpe": 1.0}, None),
        "AgentPoolPnlSyncMissingError": SyncMissing,
        "PoolMetricNotYetComputableError": NotComputable,
        **others,
    }


def without(*names, **others):
    return {name: answer for name, answer in answers(**others).items() if name not in names}


def pool_context(**attributes):
    backtester = types.SimpleNamespace(run_backtest=lambda *args, **keywords: None)
    return types.SimpleNamespace(**{
        "_backtester": backtester, "_era_config": {"era": 1}, "_signal_pool_name": "pool",
        "_sync_mgr": object(), **attributes,
    })
