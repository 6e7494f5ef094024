#include "search_templates/genetic/driver/module.hpp"

#include <utility>

namespace varnholt::genetic {

Module::Module(Host& host)
    : Module(host,
             std::make_unique<LoadedConstants>(host.search_settings(), host.process_evaluation()),
             std::make_unique<HostFreshCandidates>(host.random_weighted())) {}

Module::Module(Host& host, std::unique_ptr<ModuleConstants> constants,
               std::unique_ptr<FreshCandidates> fresh_candidates)
    : host_(host),
      constants_(std::move(constants)),
      fresh_candidates_(std::move(fresh_candidates)),
      default_arguments_(default_template_arguments(*constants_, host_.process_evaluation())) {}

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
