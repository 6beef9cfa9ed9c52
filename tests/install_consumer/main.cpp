// Uses the installed headers and libraries only; prints the text form of an empty mapping.
#include <iostream>

#include "MorvikLib/MemoryMapping.h"

int main() {
  std::cout << MorvikLib::valueToStrep(MorvikLib::MemoryMapping()) << '\n';
  return 0;
}
