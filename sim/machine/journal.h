// sim/machine/journal.h
// Adds entries to the journal. Only the machine's own files include this.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// A new entry with time, process and command; it overwrites the oldest.
JournalEntry& newEntry(const Machine& machine, Journal& journal, std::uint8_t command);

}  // namespace brisko::virtual_mac
