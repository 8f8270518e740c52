// tests/support/files.h
// Functions that create and inspect files. A failed setup ends the test by an exception.
#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace brisko::test {

void put(const std::string& path, std::string_view bytes);
// For callers that write the bytes in another way.
void notePut(const std::string& path, std::string_view bytes);
// Whether this process has put exactly these bytes into any file, since files may be renamed.
[[nodiscard]] bool wasPut(std::string_view bytes);
[[nodiscard]] std::string lastPut(const std::string& path);   // "" if nothing was put there
[[nodiscard]] std::string contents(const std::string& path);  // "" when missing
[[nodiscard]] bool exists(const std::string& path);           // also true for a dangling link
[[nodiscard]] mode_t modeOf(const std::string& path);         // low 12 bits; follows links
[[nodiscard]] ino_t inodeOf(const std::string& path);
void setMode(const std::string& path, mode_t mode);
void makeFolder(const std::string& path);
void makeLink(const std::string& path, const std::string& target);
void makePipe(const std::string& path);

}  // namespace brisko::test
