#include <string>
#include <vector>

#include "apps/genetic_search/program.hpp"
#include "hosts/embedded/search/search_run.hpp"

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + (count > 0 ? 1 : 0), arguments + count);
  return varnholt::app::run_program(words, varnholt::embedded::run_search);
}
