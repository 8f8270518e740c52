// report/terminal_text.h
// Texts that come from files, for a terminal: whoever wrote the file must not be able to command it.
#pragma once

#include <string>
#include <string_view>

namespace brisko::lab {

// `text` with "?" in place of every control character except line feeds and tabs, of the marks that change
// the direction of writing, and of bytes that are not UTF-8, which some terminals take for controls.
[[nodiscard]] std::string forTerminal(std::string_view text);

}  // namespace brisko::lab
