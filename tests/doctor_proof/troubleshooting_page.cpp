// Prints the page that is made from the checks of brisko doctor.
#include <cstdio>

#include "client/doctor/diagnosis.h"

int main() { return std::fputs(brisko::client::troubleshootingPage().c_str(), stdout) < 0 ? 1 : 0; }
