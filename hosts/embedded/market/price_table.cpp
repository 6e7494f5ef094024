#include "hosts/embedded/market/price_table.hpp"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/market/price_panel.hpp"

namespace varnholt::embedded {
namespace {

// Where the rows and columns of one table stand among those of all.
struct Places {
  std::vector<Eigen::Index> days;
  std::vector<Eigen::Index> instruments;
};

template <typename Item>
std::vector<Eigen::Index> places_of(const std::vector<Item>& items, const std::vector<Item>& all) {
  std::vector<Eigen::Index> places;
  places.reserve(items.size());
  for (const Item& item : items)
    places.push_back(std::lower_bound(all.begin(), all.end(), item) - all.begin());
  return places;
}

template <typename Item>
std::vector<Item> union_of(const std::vector<PriceTable>& tables,
                           std::vector<Item> MarketData::*items) {
  std::vector<Item> all;
  for (const PriceTable& table : tables)
    all.insert(all.end(), (table.data.*items).begin(), (table.data.*items).end());
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

// Calls `act` with the row and column of each entry that the table has, in the table and in all.
template <typename Act>
void for_each_given(const PriceTable& table, const Places& places, const Act& act) {
  for (std::size_t column = 0; column < places.instruments.size(); ++column) {
    for (std::size_t row = 0; row < places.days.size(); ++row) {
      const auto day = static_cast<Eigen::Index>(row);
      const auto instrument = static_cast<Eigen::Index>(column);
      if (table.lines(day, instrument) == 0) continue;
      act(day, instrument, places.days[row], places.instruments[column]);
    }
  }
}

// The row of a table that stands at this place of all.
Eigen::Index row_of(const std::vector<Eigen::Index>& places, Eigen::Index place) {
  return std::lower_bound(places.begin(), places.end(), place) - places.begin();
}

// Throws where a day of an instrument stands in two tables.
void refuse_repeats(const std::vector<PriceTable>& tables, const std::vector<Places>& places,
                    const MarketData& all) {
  // Of each day and instrument the table that has it, counted from 1.
  LinePanel owners = LinePanel::Zero(static_cast<Eigen::Index>(all.dates.size()),
                                     static_cast<Eigen::Index>(all.symbols.size()));
  MistakeList mistakes;
  for (std::size_t number = 0; number < tables.size(); ++number) {
    const PriceTable& table = tables[number];
    for_each_given(
        table, places[number],
        [&](Eigen::Index row, Eigen::Index column, Eigen::Index day, Eigen::Index instrument) {
          std::uint32_t& owner = owners(day, instrument);
          if (owner == 0) {
            owner = static_cast<std::uint32_t>(number + 1);
            return;
          }
          const std::size_t other = owner - 1;
          const auto line = tables[other].lines(row_of(places[other].days, day),
                                                row_of(places[other].instruments, instrument));
          mistakes.add(
              PriceFileError({.file = table.file, .line = table.lines(row, column)},
                             date_text(all.dates[static_cast<std::size_t>(day)]) + " of \"" +
                                 all.symbols[static_cast<std::size_t>(instrument)] +
                                 "\" is given a second time (first in " + tables[other].file +
                                 ", line " + std::to_string(line) + ")",
                             "keep it in one of the two files"));
        });
  }
  mistakes.throw_if_any();
}

// Copies the entries of each table's panel into one, and lets each go as soon as it is copied.
// `take` gives a table's panel, or null.
template <typename AnyPanel, typename Take>
AnyPanel joined_panel(std::vector<PriceTable>& tables, const std::vector<Places>& places,
                      AnyPanel all, const Take& take) {
  for (std::size_t number = 0; number < tables.size(); ++number) {
    AnyPanel* const part = take(tables[number]);
    if (part == nullptr) continue;
    for_each_given(tables[number], places[number],
                   [&](Eigen::Index row, Eigen::Index column, Eigen::Index day,
                       Eigen::Index instrument) { all(day, instrument) = (*part)(row, column); });
    part->resize(0, 0);
  }
  return all;
}

// The numbers of the names of one group in all tables: a name has the same number in each.
void number_groups_alike(std::vector<PriceTable>& tables, const std::string& group) {
  std::map<std::string, int> numbers;
  for (PriceTable& table : tables) {
    const auto panel = table.data.groups.find(group);
    if (panel == table.data.groups.end()) continue;
    std::vector<int> renumbered;
    for (const std::string& name : table.group_names[group])
      renumbered.push_back(numbers.emplace(name, static_cast<int>(numbers.size())).first->second);
    for (int& number : panel->second.reshaped()) {
      if (number != kNoGroup) number = renumbered[static_cast<std::size_t>(number)];
    }
  }
}

// Counts the groups anew, in the order of the days and instruments in which they stand first: so
// neither the order of rows and files nor a later day changes a number.
void number_by_appearance(GroupPanel& panel) {
  std::vector<int> numbers;
  int next = 0;
  for (Eigen::Index day = 0; day < panel.rows(); ++day) {
    for (Eigen::Index instrument = 0; instrument < panel.cols(); ++instrument) {
      int& number = panel(day, instrument);
      if (number == kNoGroup) continue;
      const auto old = static_cast<std::size_t>(number);
      if (old >= numbers.size()) numbers.resize(old + 1, kNoGroup);
      if (numbers[old] == kNoGroup) numbers[old] = next++;
      number = numbers[old];
    }
  }
}

// A name is that of numbers or of groups in all tables.
void refuse_two_kinds(const std::vector<PriceTable>& tables) {
  for (const PriceTable& table : tables) {
    for (const auto& group : table.data.groups) {
      const std::string& name = group.first;
      const auto other = std::find_if(tables.begin(), tables.end(), [&name](const PriceTable& at) {
        return at.data.features.contains(name);
      });
      if (other == tables.end()) continue;
      throw PriceFileError(
          {.file = table.file},
          fmt::format("the column \"{}\" holds names, and numbers in {}", name, other->file),
          fmt::format("say what it is with --columns feature:{}=HEADER or group:{}=HEADER", name,
                      name));
    }
  }
}

void join_panels(std::vector<PriceTable>& tables, const std::vector<Places>& places,
                 MarketData& all) {
  const std::size_t days = all.dates.size();
  const std::size_t instruments = all.symbols.size();
  all.close = joined_panel(tables, places, empty_panel(days, instruments),
                           [](PriceTable& table) { return &table.data.close; });
  for (const NamedPanel& named : kOptionalPanels) {
    const auto has = [&](const PriceTable& table) { return (table.data.*named.panel).has_value(); };
    if (std::none_of(tables.begin(), tables.end(), has)) continue;
    all.*named.panel =
        joined_panel(tables, places, empty_panel(days, instruments), [&](PriceTable& table) {
          auto& panel = table.data.*named.panel;
          return panel ? &*panel : nullptr;
        });
  }
  std::set<std::string> features;
  for (const PriceTable& table : tables) {
    for (const auto& [name, panel] : table.data.features)
      features.insert(name);
  }
  for (const std::string& feature : features) {
    all.features.emplace(
        feature,
        joined_panel(tables, places, empty_panel(days, instruments), [&](PriceTable& table) {
          const auto panel = table.data.features.find(feature);
          return panel == table.data.features.end() ? nullptr : &panel->second;
        }));
  }
  std::set<std::string> groups;
  for (const PriceTable& table : tables) {
    for (const auto& [name, panel] : table.data.groups)
      groups.insert(name);
  }
  for (const std::string& group : groups) {
    number_groups_alike(tables, group);
    all.groups.emplace(
        group,
        joined_panel(tables, places,
                     GroupPanel(GroupPanel::Constant(all.close.rows(), all.close.cols(), kNoGroup)),
                     [&](PriceTable& table) {
                       const auto panel = table.data.groups.find(group);
                       return panel == table.data.groups.end() ? nullptr : &panel->second;
                     }));
  }
}

}  // namespace

MarketData merged_tables(std::vector<PriceTable> tables) {
  MarketData all;
  if (tables.size() == 1) {
    all = std::move(tables.front().data);
  } else {
    all.dates = union_of(tables, &MarketData::dates);
    all.symbols = union_of(tables, &MarketData::symbols);
    check_panel_size(tables.front().file, all.dates.size(), all.symbols.size());
    std::vector<Places> places;
    places.reserve(tables.size());
    for (const PriceTable& table : tables) {
      places.push_back(
          {places_of(table.data.dates, all.dates), places_of(table.data.symbols, all.symbols)});
    }
    refuse_repeats(tables, places, all);
    refuse_two_kinds(tables);
    join_panels(tables, places, all);
  }
  for (auto& [name, panel] : all.groups)
    number_by_appearance(panel);
  return all;
}

}  // namespace varnholt::embedded
