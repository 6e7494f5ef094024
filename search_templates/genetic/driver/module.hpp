// The module as a whole: its constants, its entry points, and what a host may replace on it.
//
// A module is made over a host, reads the host's settings once when it is made, and holds no other
// state. Nothing of it is global: two modules over two hosts are independent.
#pragma once

#include <memory>

#include "search_templates/genetic/driver/genetic_template.hpp"
#include "search_templates/genetic/driver/search_loop.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class Module {
 public:
  // The host must outlive the module.
  explicit Module(Host& host);
  // With constants or a source of fresh candidates of the caller's own.
  Module(Host& host, std::unique_ptr<ModuleConstants> constants,
         std::unique_ptr<FreshCandidates> fresh_candidates);

  // The arguments of `with_config` that a caller leaves out, as they were at load.
  [[nodiscard]] const TemplateArguments& default_arguments() const { return default_arguments_; }

  // A template with these settings; TypeError or ValueError names the first bad one.
  [[nodiscard]] GeneticTemplate with_config(const TemplateArguments& arguments) const;

  // Runs a search with all defaults, on a template of its own and so with a seed of its own.
  void genetic(SearchContext& context);
  // Runs a search with the settings of a template, or of anything that answers like one.
  void run(SearchContext& context, SearchConfig& config);

  // The default timeout, read from the host at each call.
  [[nodiscard]] Value default_process_timeout_seconds() const;

  [[nodiscard]] Host& host() const { return host_; }
  [[nodiscard]] const ModuleConstants& constants() const { return *constants_; }
  [[nodiscard]] FreshCandidates& fresh_candidates() const { return *fresh_candidates_; }
  // Replaces the source of fresh random graphs.
  void replace_fresh_candidates(std::unique_ptr<FreshCandidates> fresh_candidates);

 private:
  Host& host_;
  std::unique_ptr<ModuleConstants> constants_;
  std::unique_ptr<FreshCandidates> fresh_candidates_;
  TemplateArguments default_arguments_;
};

}  // namespace varnholt::genetic
