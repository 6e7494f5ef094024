// Uses the installed library as a stranger would: the header by its path, the target by its name.
#include <iostream>

#include "search_templates/genetic/value/errors.hpp"

int main() {
  const varnholt::genetic::TypeError error("hello");
  std::cout << error.type_name() << ": " << error.text() << "\n";
}
