// The relations of the store: every column that is bound or read, once (docs/store-schema.md
// documents them; store_schema.hpp makes them).
#pragma once

#include "hosts/embedded/store/attempt_table.hpp"
#include "hosts/embedded/store/sqlite_relation.hpp"
#include "hosts/embedded/store/store_records.hpp"
#include "hosts/embedded/store/submission_table.hpp"

namespace varnholt::embedded {

[[nodiscard]] const Relation<RunRecord>& run_relation();
[[nodiscard]] const Relation<EvaluationRecord>& evaluation_relation();
[[nodiscard]] const Relation<SubmissionRecord>& submission_relation();
[[nodiscard]] const Relation<AttemptRecord>& attempt_relation();

}  // namespace varnholt::embedded
