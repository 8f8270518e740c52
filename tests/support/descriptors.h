// tests/support/descriptors.h
#pragma once

#include <cstddef>

namespace brisko::test {

// How many descriptors this process has open. The one that is needed to count them is always included.
[[nodiscard]] std::size_t openDescriptors();

}  // namespace brisko::test
