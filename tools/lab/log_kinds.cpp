#include "tools/lab/log_kinds.h"

#include "client/log_catalogue.h"

namespace brisko::lab {

LogKinds documentedLogKinds() {
  LogKinds kinds;
  for (const client::LogEntry& entry : client::logCatalogue()) kinds.known.push_back(entry.id);
  kinds.kindOf = [](std::string_view line) -> std::optional<std::string> {
    const auto match = client::findEntry(line);
    if (!match) return std::nullopt;
    return match->entry->id;
  };
  return kinds;
}

}  // namespace brisko::lab
