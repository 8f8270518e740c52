// What a strict parser makes of an XML document.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brisko::lab {

// The texts of what the path leads to, in the order of the document; elements of SVG are named "s:text". None
// when the document is not well-formed.
[[nodiscard]] std::optional<std::vector<std::string>> textsAt(const std::string& document,
                                                              const std::string& xpath);

}  // namespace brisko::lab
