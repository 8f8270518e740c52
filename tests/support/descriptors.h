// tests/support/descriptors.h
#pragma once

#include <cstddef>

namespace brisko::test {

// How many this process has open, give or take the one that it takes to look, which always counts alike.
[[nodiscard]] std::size_t openDescriptors();

}  // namespace brisko::test
