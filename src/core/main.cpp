#include <string>
#include <vector>

#include "core/entry.h"

int main(int count, char** arguments) {
  return brisko::enter(std::vector<std::string>(arguments, arguments + count));
}
