// client/log_document.h
#pragma once

namespace brisko::client {

// docs/log.md, which explains every line of the log, as it was when the program was built.
extern const char* const logDocument;

}  // namespace brisko::client
