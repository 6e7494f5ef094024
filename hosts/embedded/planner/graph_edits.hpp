// The changes to a graph that repairs are made of.
//
// Each takes graphs that follow the rules of graph_check.hpp and gives one that follows them. The
// new graph may share nodes with the old ones, which stay as they are: deep_copy parts them.
#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The rotations that an edit may put into a graph. Those that a graph has already may stay.
using FunctionNames = std::set<std::string, std::less<>>;

// The function applied to panels, the window last: rotation_of("ts_mean", {graph}, 20).
[[nodiscard]] genetic::Value rotation_of(std::string_view name,
                                         std::initializer_list<genetic::Value> panels,
                                         std::optional<int> window = std::nullopt);

// The reversed signal: its value is the negative of the graph's wherever that is known. Of the ways
// to say it the flattest is taken, and of those the one with the fewest nodes, so that a graph at
// its limit of depth can mostly be reversed as well: arith_sub(a, b) becomes arith_sub(b, a), an
// odd function of a difference becomes the function of the reversed difference. Nothing where none
// of the ways is among the functions.
[[nodiscard]] std::optional<genetic::Value> reversed(const genetic::Value& graph,
                                                     const FunctionNames& functions);

// Every window `steps` places further on in `windows`, which ascend; the last one is the longest
// that there is. Below zero the windows become shorter. A window that is not among them becomes
// half as long again a step, within the first and the last of them or its own length.
[[nodiscard]] genetic::Value with_other_windows(const genetic::Value& graph,
                                                std::span<const int> windows, int steps);

// The graph within `depth` levels, at least 1: a rotation that has no room for its children gives
// way to its first panel that is no constant. The innermost part is left out, so the signal keeps
// its form.
[[nodiscard]] genetic::Value cut_to_depth(const genetic::Value& graph, int depth);

// Comparisons become differences: comparison_gt(a, b), which is 0 on many a day, becomes
// arith_sub(a, b), which is positive on the same days and not 0 on the others.
[[nodiscard]] genetic::Value with_differences(const genetic::Value& graph);

// Whether the absolute values of the graph's panel are of one size from day to day, because its
// outermost function ranks or scales across the instruments.
[[nodiscard]] bool is_scaled(const genetic::Value& graph);

}  // namespace varnholt::embedded
