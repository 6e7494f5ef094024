#include "search_templates/genetic/process/found_pnl_files.hpp"

#include <exception>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::string_view kRequestForSync = "request_for_sync";
constexpr std::string_view kGetManifest = "get_manifest";
constexpr std::string_view kRequestFailed = "Failed to request sync files: %s";

Callable operation_of(const Value& object, std::string_view name) {
  return callable_of(attribute(object, name).value_or(Value()));
}

class ChildSyncSnapshot : public HostObject {
 public:
  ChildSyncSnapshot(Value sync_manager, Value found_pnl_paths)
      : sync_manager_(std::move(sync_manager)), found_pnl_paths_(std::move(found_pnl_paths)) {}

  [[nodiscard]] std::string type_name() const override { return "_ChildSyncSnapshot"; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    if (name == "_sync_mgr") return sync_manager_;
    if (name == "_found_pnl_paths") return found_pnl_paths_;
    if (name == kRequestForSync) {
      return answering([paths = found_pnl_paths_] { return paths; });
    }
    if (name == kGetManifest) {
      return answering([manager = sync_manager_] { return manifest_of(manager); });
    }
    return std::nullopt;
  }

 private:
  template <typename Answer>
  static Value answering(Answer answer) {
    return callable_value(make_callable(
        [answer = std::move(answer)](std::span<const Value>, const Mapping&) { return answer(); }));
  }

  Value sync_manager_;
  Value found_pnl_paths_;
};

}  // namespace

Value prefetch_found_pnl_files(Host& host, SearchContext& context) {
  const Value sync_manager =
      context.opaque_attribute(context_names::kSyncManager.view()).value_or(Value());
  const Callable request = operation_of(sync_manager, kRequestForSync);
  if (!request) return Tuple();
  try {
    return found_paths(request({}));
  } catch (const std::exception& error) {
    const auto handled = context.handling(std::current_exception());
    host.logger().warning(kRequestFailed, {error_object(error)});
    return Tuple();
  }
}

Value found_paths(const Value& paths) {
  if (!truth(paths)) return Tuple();
  if (paths.is_tuple()) return paths;
  std::vector<Value> items;
  const auto walk = iterate(paths);
  while (std::optional<Value> path = walk->next())
    items.push_back(*std::move(path));
  return Tuple(items);
}

Value manifest_of(const Value& sync_manager) {
  const Callable get_manifest = operation_of(sync_manager, kGetManifest);
  return get_manifest ? get_manifest({}) : Value();
}

Value child_sync_snapshot(const Value& sync_manager, const Value& found_pnl_paths) {
  return make_object<ChildSyncSnapshot>(sync_manager, found_paths(found_pnl_paths));
}

}  // namespace varnholt::genetic
