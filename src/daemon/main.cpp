#include <string>
#include <vector>

#include "daemon/entry.h"

int main(int count, char** arguments) {
  return brisko::enter(std::vector<std::string>(arguments, arguments + count));
}
