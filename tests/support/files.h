// tests/support/files.h
// What a test does with files and asks about them. What cannot be set up ends the test by an exception.
#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace brisko::test {

void put(const std::string& path, std::string_view bytes);
// For who puts them by other means.
void notePut(const std::string& path, std::string_view bytes);
// Whether this process has put exactly these bytes into a file, whichever: files get renamed.
[[nodiscard]] bool wasPut(std::string_view bytes);
[[nodiscard]] std::string lastPut(const std::string& path);   // "" when nothing was
[[nodiscard]] std::string contents(const std::string& path);  // "" when missing
[[nodiscard]] bool exists(const std::string& path);           // also a link that leads nowhere
[[nodiscard]] mode_t modeOf(const std::string& path);         // low 12 bits; follows links
[[nodiscard]] ino_t inodeOf(const std::string& path);
void setMode(const std::string& path, mode_t mode);
void makeFolder(const std::string& path);
void makeLink(const std::string& path, const std::string& target);
void makePipe(const std::string& path);

}  // namespace brisko::test
