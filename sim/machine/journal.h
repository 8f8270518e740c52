// sim/machine/journal.h
// How an entry gets into the journal. Only the machine's own files include this.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// A fresh entry with time, life and command; the oldest makes room for it.
JournalEntry& newEntry(const Machine& machine, Journal& journal, std::uint8_t command);

}  // namespace brisko::virtual_mac
