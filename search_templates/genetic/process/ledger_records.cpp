#include "search_templates/genetic/process/ledger_records.hpp"

#include <optional>
#include <utility>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

class OwnAcknowledgementQueues : public AcknowledgementQueues {
 public:
  explicit OwnAcknowledgementQueues(CandidateQueues queues) : queues_(std::move(queues)) {}

  [[nodiscard]] std::shared_ptr<MessageQueue> at(const Value& candidate_index) override {
    std::shared_ptr<MessageQueue> found = find(candidate_index);
    if (found == nullptr) throw KeyError(repr(candidate_index));
    return found;
  }
  [[nodiscard]] std::shared_ptr<MessageQueue> find(const Value& candidate_index) override {
    for (const auto& [index, queue] : queues_)
      if (is_same_key(index, candidate_index)) return queue;
    return nullptr;
  }

 private:
  CandidateQueues queues_;
};

}  // namespace

Mapping graphs_by_index(const Value& indexed_batch) {
  Mapping graphs;
  const auto pairs = iterate(indexed_batch);
  while (const std::optional<Value> pair = pairs->next()) {
    const auto [index, graph] = unpack_pair(*pair);
    graphs.set(to_integer(index), graph);
  }
  return graphs;
}

OwnLedgerRecords::OwnLedgerRecords(SearchContext& context, const Value& indexed_batch)
    // Shared without being owned: it outlives the records.
    : context_(std::shared_ptr<void>(), &context), graphs_(graphs_by_index(indexed_batch)) {}

void OwnLedgerRecords::set_backtest_acknowledgement_queues(const CandidateQueues& queues) {
  backtest_acknowledgement_queues_ = std::make_shared<OwnAcknowledgementQueues>(queues);
}

}  // namespace varnholt::genetic
