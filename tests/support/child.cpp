#include "support/child.h"

#include <array>
#include <cstdio>
#include <exception>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/process/default_signals.h"

namespace brisko::test {
namespace {

std::string everythingIn(std::FILE* file) {
  std::rewind(file);
  std::string text;
  std::array<char, 4096> piece{};
  while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file)) {
    text.append(piece.data(), size);
  }
  return text;
}

[[noreturn]] void runAndEnd(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "uncaught: %s\n", failure.what());
    ::_exit(125);
  }
  ::_exit(0);
}

}  // namespace

Ended inChild(const std::function<void()>& body) {
  std::FILE* output = std::tmpfile();
  std::FILE* errors = std::tmpfile();
  std::fflush(nullptr);
  const pid_t child = sim::forkWithDefaultSignals();
  if (child == 0) {
    ::dup2(::fileno(output), STDOUT_FILENO);
    ::dup2(::fileno(errors), STDERR_FILENO);
    runAndEnd(body);
  }
  Ended ended;
  int status = 0;
  if (::waitpid(child, &status, 0) == child) {
    if (WIFEXITED(status)) ended.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) ended.signal = WTERMSIG(status);
  }
  ended.output = everythingIn(output);
  ended.errors = everythingIn(errors);
  std::fclose(output);
  std::fclose(errors);
  return ended;
}

void tell(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

void becomeNobody() {
  if (::geteuid() != 0) return;
  constexpr uid_t nobody = 65534;
  if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) ::_exit(126);
}

}  // namespace brisko::test
