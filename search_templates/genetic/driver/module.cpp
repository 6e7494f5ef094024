#include "search_templates/genetic/driver/module.hpp"

#include <utility>

namespace varnholt::genetic {
namespace {

TemplateArguments arguments_at_load(Host& host, const ModuleConstants& constants) {
  TemplateArguments arguments;
  arguments.batch_size = constants.default_batch_size();
  arguments.restart_threshold = constants.default_restart_threshold();
  arguments.elite_fraction = constants.default_elite_fraction();
  arguments.diversity_weight = constants.default_diversity_weight();
  arguments.parsimony_weight = constants.default_parsimony_weight();
  arguments.max_improvement_depth = constants.default_max_improvement_depth();
  arguments.max_improvement_candidates = constants.default_max_improvement_candidates();
  arguments.max_improvement_rounds = constants.default_max_improvement_rounds();
  arguments.process_timeout_seconds =
      host.process_evaluation().default_search_template_timeout_seconds();
  return arguments;
}

}  // namespace

Module::Module(Host& host)
    : Module(host,
             std::make_unique<LoadedConstants>(host.search_settings(), host.process_evaluation()),
             std::make_unique<HostFreshCandidates>(host.random_weighted())) {}

Module::Module(Host& host, std::unique_ptr<ModuleConstants> constants,
               std::unique_ptr<FreshCandidates> fresh_candidates)
    : host_(host),
      constants_(std::move(constants)),
      fresh_candidates_(std::move(fresh_candidates)),
      default_arguments_(arguments_at_load(host_, *constants_)) {}

GeneticTemplate Module::with_config(const TemplateArguments& arguments) const {
  return {host_, *constants_, arguments};
}

void Module::genetic(SearchContext& context) {
  GeneticTemplate config = with_config(default_arguments_);
  run(context, config);
}

void Module::run(SearchContext& context, SearchConfig& config) {
  run_genetic_search({host_, *constants_, *fresh_candidates_}, context, config);
}

Value Module::default_process_timeout_seconds() const {
  return host_.process_evaluation().default_search_template_timeout_seconds();
}

void Module::replace_fresh_candidates(std::unique_ptr<FreshCandidates> fresh_candidates) {
  fresh_candidates_ = std::move(fresh_candidates);
}

}  // namespace varnholt::genetic
