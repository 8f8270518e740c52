// tests/tidy/cpp_text.h
// Splits a C++ source into names, includes and literals, so that each can be checked on its own.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::test {

// A string or character literal. Adjacent strings are joined, as by the compiler.
struct Literal {
  std::string text;    // its bytes, with the escapes resolved
  std::size_t offset;  // of its opening quote
};

struct Include {
  std::string path;
  bool angled;
  std::size_t offset;
};

struct CppText {
  // The source with comments and the insides of literals blanked out: same length, same lines.
  std::string code;
  std::vector<Literal> literals;
  std::vector<Include> includes;
};

[[nodiscard]] CppText takeApart(std::string_view source);

// Every name, including keywords, with its offset.
void forEachName(std::string_view code, const std::function<void(std::string_view, std::size_t)>& visit);

// True when the name at `offset` is followed by an argument list, belongs to no object and is not being
// declared.
[[nodiscard]] bool isCalledFreely(std::string_view code, std::size_t offset);

// Counted from 1.
[[nodiscard]] std::size_t lineOf(std::string_view text, std::size_t offset);

}  // namespace brisko::test
