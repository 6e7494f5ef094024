-- What must hold in every store, whatever happened to the processes that wrote it. Each statement
-- gives one row a violation, with one text column; the comment above it is its name. It knows the
-- tables from docs/store-schema.md alone, and none of the code that writes them.

-- An attempt of a run that is over has one end, and one that has an end has it once.
SELECT 'attempt ' || a.id || ' of run ' || a.run_id || ': ' ||
  coalesce(a.terminal_disposition, 'open') || ' with ' || count(e.id) || ' ends'
FROM attempts a JOIN runs r ON r.id = a.run_id
LEFT JOIN attempt_events e ON e.attempt_id = a.id AND e.step = 'ended'
GROUP BY a.id
HAVING count(e.id) <> (a.terminal_disposition IS NOT NULL)
  OR (r.ended_at IS NOT NULL AND a.terminal_disposition IS NULL);

-- The steps of an attempt come in their order, each after the one before it; no step is skipped.
SELECT 'attempt ' || e.attempt_id || ': ' || e.step || ' out of order'
FROM attempt_events e
WHERE e.step <> 'created' AND NOT EXISTS (
  SELECT 1 FROM attempt_events b WHERE b.attempt_id = e.attempt_id AND b.id < e.id
  AND b.step = CASE e.step WHEN 'dispatched' THEN 'created'
    WHEN 'backtest_started' THEN 'dispatched' ELSE 'created' END);

-- Nothing happens to an attempt after its end.
SELECT 'attempt ' || e.attempt_id || ': ' || e.step || ' after its end'
FROM attempt_events e JOIN attempt_events n ON n.attempt_id = e.attempt_id AND n.step = 'ended'
WHERE e.id > n.id;

-- There is no event without its attempt, and no attempt without its creation.
SELECT 'event ' || e.id || ' of no attempt' FROM attempt_events e
WHERE NOT EXISTS (SELECT 1 FROM attempts a WHERE a.id = e.attempt_id)
UNION ALL
SELECT 'attempt ' || a.id || ' was never created' FROM attempts a
WHERE NOT EXISTS (SELECT 1 FROM attempt_events e WHERE e.attempt_id = a.id AND e.step = 'created');

-- A candidate has one attempt at a time: the next is created after the one before has ended.
SELECT 'attempts ' || a.id || ' and ' || b.id || ' of ' || a.rotation_identifier || ' overlap'
FROM attempts a
JOIN attempts b ON b.run_id = a.run_id AND b.rotation_identifier = a.rotation_identifier
  AND b.id > a.id
JOIN attempt_events c ON c.attempt_id = b.id AND c.step = 'created'
LEFT JOIN attempt_events n ON n.attempt_id = a.id AND n.step = 'ended'
WHERE n.id IS NULL OR n.id > c.id;

-- An attempt is ended by at most one evaluation, of its own run and graph, and an evaluation ends
-- at most one attempt.
SELECT 'attempt ' || a.id || ' was ended by evaluation ' || a.eval_id || ', which ' ||
  CASE WHEN v.id IS NULL THEN 'is not there' ELSE 'is of another run or graph' END
FROM attempts a LEFT JOIN evaluations v ON v.eval_id = a.eval_id
WHERE a.eval_id IS NOT NULL
  AND (v.id IS NULL OR v.run_id <> a.run_id OR v.graph_key <> a.graph_key)
UNION ALL
SELECT 'evaluation ' || eval_id || ' ended ' || count(*) || ' attempts' FROM attempts
WHERE eval_id IS NOT NULL GROUP BY eval_id HAVING count(*) > 1;

-- What an attempt passed as, its evaluation passed as.
SELECT 'attempt ' || a.id || ' is ' || a.terminal_disposition || ', evaluation ' || a.eval_id ||
  CASE v.passed WHEN 1 THEN ' passed' ELSE ' did not' END
FROM attempts a JOIN evaluations v ON v.eval_id = a.eval_id
WHERE (a.terminal_disposition = 'passed') <> (v.passed = 1);

-- An evaluation is submitted to a pool at most once, after it was recorded.
SELECT 'evaluation ' || eval_id || ' has ' || count(*) || ' submissions to ' || signal_pool_name
FROM submissions GROUP BY evaluation_id, signal_pool_name, market_id
HAVING count(*) > 1
UNION ALL
SELECT 'submission ' || s.id || ' of no recorded evaluation' FROM submissions s
WHERE NOT EXISTS (SELECT 1 FROM evaluations v WHERE v.id = s.evaluation_id);

-- In a pool a structure stands at most once.
SELECT 'structure ' || graph_key || ' stands ' || count(*) || ' times in ' || signal_pool_name
FROM submissions WHERE state <> 'refused'
GROUP BY graph_key, signal_pool_name, market_id HAVING count(*) > 1;

-- A pool has a hold-out for good from its first run on, and every run on it had that one.
SELECT 'submission ' || s.id || ' is in the pool ' || s.signal_pool_name || ' of market ' ||
  s.market_id || ', which keeps no hold-out'
FROM submissions s JOIN runs r ON r.id = s.run_id WHERE r.eras <> 'null' AND NOT EXISTS (
  SELECT 1 FROM pools p WHERE p.signal_pool_name = s.signal_pool_name AND p.market_id = s.market_id)
UNION ALL
SELECT 'run ' || r.id || ' searched up to ' || (r.eras ->> '$.holdout.first_date') ||
  ' for the pool ' || p.signal_pool_name || ', which holds out from ' || p.holdout_from
FROM pools p JOIN submissions s ON s.signal_pool_name = p.signal_pool_name
  AND s.market_id = p.market_id
JOIN runs r ON r.id = s.run_id
WHERE r.eras <> 'null' AND r.eras ->> '$.holdout.first_date' < p.holdout_from
  AND (r.settings ->> '$.eras.holdout_from') IS NOT NULL;

-- A measure is that of a submission on other days than its own, once, by a run that is not before
-- its own: it has figures or a reason.
SELECT 'measure ' || m.id || ' of submission ' || m.submission_id || ' on its own days'
FROM member_measures m JOIN submissions s ON s.id = m.submission_id
WHERE s.data_key = m.data_key
UNION ALL
SELECT 'measure ' || m.id || ' of no submission or no run' FROM member_measures m
WHERE NOT EXISTS (SELECT 1 FROM submissions s WHERE s.id = m.submission_id)
  OR NOT EXISTS (SELECT 1 FROM runs r WHERE r.id = m.run_id)
UNION ALL
SELECT 'measure ' || id || ' has figures and a reason, or neither' FROM member_measures
WHERE (pnl IS NULL) <> (problem IS NOT NULL) OR (pnl IS NULL) <> (statistics IS NULL)
UNION ALL
SELECT 'submission ' || submission_id || ' is measured ' || count(*) || ' times under one key'
FROM member_measures GROUP BY submission_id, data_key HAVING count(*) > 1;

-- Nothing joins a pool before all its members are known on the days that it is compared on: each
-- member that joined earlier has a measure there, or one that says why not.
SELECT 'submission ' || s.id || ' joined beside submission ' || e.id || ', unknown on its days'
FROM submissions s JOIN submissions e ON e.signal_pool_name = s.signal_pool_name
  AND e.market_id = s.market_id AND e.state = 'submitted' AND e.settled_order < s.settled_order
WHERE s.state = 'submitted' AND e.data_key <> s.data_key
  AND (SELECT r.settings ->> '$.eras.holdout_from' FROM runs r WHERE r.id = s.run_id) IS NOT NULL
  AND NOT EXISTS (SELECT 1 FROM member_measures m
    WHERE m.submission_id = e.id AND m.data_key = s.data_key)
  AND NOT EXISTS (SELECT 1 FROM member_measures m WHERE m.submission_id = s.id);

-- What passed in a run with a pool was submitted, or will be by the next run that opens the store.
SELECT 'evaluation ' || v.eval_id || ' passed, and nothing of its structure was submitted'
FROM evaluations v JOIN runs r ON r.id = v.run_id
WHERE v.passed = 1 AND r.ended_at IS NOT NULL
  AND NOT EXISTS (SELECT 1 FROM submissions s WHERE s.graph_key = v.graph_key)
  AND NOT EXISTS (SELECT 1 FROM announced_submissions n WHERE n.evaluation_id = v.id);

-- The classification follows from what happened: whether the backtest had begun.
SELECT 'attempt ' || a.id || ' is ' || a.terminal_disposition || ' (' || a.failure_category ||
  ', ' || a.classification_source || ')' ||
  CASE WHEN e.id IS NULL THEN '' ELSE ', and its backtest had begun' END
FROM attempts a
LEFT JOIN attempt_events e ON e.attempt_id = a.id AND e.step = 'backtest_started'
WHERE (a.classification_source = 'process_evaluation' AND
    (a.terminal_disposition, a.failure_category) IS NOT
    (CASE WHEN e.id IS NULL THEN 'resource_blocked' ELSE 'backtest_failed' END,
     CASE WHEN e.id IS NULL THEN 'resource' ELSE 'execution' END))
  OR (a.classification_source = 'client_lifecycle') <> (a.terminal_disposition = 'cancelled')
  OR (a.terminal_disposition = 'cancelled' AND
    (a.failure_category, a.failure_reason) IS NOT ('operator', 'search_stopped'));

-- No marker of a run that is over is open.
SELECT 'marker ' || m.id || ' of run ' || m.run_id || ' is open' FROM evaluation_markers m
JOIN runs r ON r.id = m.run_id WHERE r.ended_at IS NOT NULL AND m.closed_at IS NULL;

-- Only the process of its run writes what happens to an attempt; the sweep alone is another's.
SELECT 'attempt ' || e.attempt_id || ': ' || e.step || ' was written by process ' || e.process_id ||
  ' and the run is that of ' || r.process_id
FROM attempt_events e JOIN attempts a ON a.id = e.attempt_id JOIN runs r ON r.id = a.run_id
WHERE e.process_id <> r.process_id
  AND NOT (e.step = 'ended' AND a.classification_source = 'store_sweep');

-- No child evaluated in the parent's process.
SELECT 'evaluation ' || v.eval_id || ' was evaluated by the process of its run'
FROM evaluations v JOIN runs r ON r.id = v.run_id WHERE v.worker_pid = r.process_id;

-- The file is whole.
SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check <> 'ok';
