// The content of an XML document, read by a strict parser.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brisko::lab {

// The texts of the nodes that the XPath selects, in the order of the document. SVG elements have the prefix
// "s:". Missing if the document is not well-formed.
[[nodiscard]] std::optional<std::vector<std::string>> textsAt(const std::string& document,
                                                              const std::string& xpath);

}  // namespace brisko::lab
