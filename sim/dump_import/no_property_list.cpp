#include "sim/dump_import/property_list.h"

namespace brisko {

std::optional<platform::Value> readPropertyList(std::string_view /*text*/) { return std::nullopt; }

}  // namespace brisko
