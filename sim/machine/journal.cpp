#include "sim/machine/journal.h"

namespace brisko::virtual_mac {

JournalEntry& newEntry(const Machine& machine, Journal& journal, std::uint8_t command) {
  JournalEntry& entry = journal.entries[journal.written++ % Journal::capacity];
  entry = {};
  entry.time = machine.now;
  entry.process = static_cast<std::uint32_t>(machine.system.processes);
  entry.command = command;
  return entry;
}

}  // namespace brisko::virtual_mac
