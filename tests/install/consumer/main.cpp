// Uses the installed package as a stranger would: headers by their paths, targets by their names.
#include <iostream>

// Made when the library is installed, so it is no file of this repository.
#include <search_templates/genetic/version.hpp>

#ifdef EMBEDDED_HOST
// Searches in a folder and prints what was stored there.
void search(const char* folder);
#endif

int main(int /*count*/, char** arguments) {
  std::cout << "version " << varnholt::genetic::kVersion << "\n";
#ifdef EMBEDDED_HOST
  search(arguments[1]);
#else
  static_cast<void>(arguments);
#endif
}
