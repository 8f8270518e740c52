// The main function of the test programs. Each test runs in a forked process, because nothing else resets
// process-wide state, and because a program takes longer to start under sanitizers than most tests take to
// run. The output of a test is shown only if it fails. The options are those of GoogleTest, and
//
//   --jobs=N   how many tests run at a time; default: one per processor

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <fnmatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A test that hangs ends with SIGALRM.
constexpr unsigned secondsPerTest = 120;
// GoogleTest ends with 0 or 1, a sanitizer with 99.
constexpr int skippedStatus = 77;

bool matchesAny(const std::string& name, std::string_view patterns) {
  while (!patterns.empty()) {
    const auto end = std::min(patterns.find(':'), patterns.size());
    if (::fnmatch(std::string(patterns.substr(0, end)).c_str(), name.c_str(), 0) == 0) return true;
    patterns.remove_prefix(std::min(end + 1, patterns.size()));
  }
  return false;
}

// The tests that GoogleTest's filter selects: patterns, and after a "-" those of tests that are left out.
std::vector<std::string> selectedTests() {
  const std::string filter = GTEST_FLAG_GET(filter);
  const auto dash = std::min(filter.find('-'), filter.size());
  const std::string chosen = dash == 0 ? "*" : filter.substr(0, dash);
  const std::string excluded = filter.substr(std::min(dash + 1, filter.size()));
  std::vector<std::string> selected;
  const auto& all = *testing::UnitTest::GetInstance();
  for (int suite = 0; suite < all.total_test_suite_count(); ++suite) {
    const auto& tests = *all.GetTestSuite(suite);
    for (int test = 0; test < tests.total_test_count(); ++test) {
      const auto name = std::string(tests.name()) + "." + tests.GetTestInfo(test)->name();
      if (matchesAny(name, chosen) && !matchesAny(name, excluded)) selected.push_back(name);
    }
  }
  return selected;
}

[[noreturn]] void runTest(const std::string& test) {
  ::alarm(secondsPerTest);
  GTEST_FLAG_SET(filter, test);
  const int failed = RUN_ALL_TESTS();
  const auto& ran = *testing::UnitTest::GetInstance();
  std::exit(failed == 0 && ran.skipped_test_count() > 0 ? skippedStatus : failed);
}

class Runner {
 public:
  explicit Runner(std::size_t jobs) : jobs_(jobs) {}

  // Whether no test failed.
  bool runAll(const std::vector<std::string>& tests) {
    for (const auto& test : tests) {
      if (running_.size() == jobs_) waitForOne();
      start(test);
    }
    while (!running_.empty()) waitForOne();
    list("Skipped", skipped_);
    list("Failed", failed_);
    std::cout << passed_ << " passed, " << failed_.size() << " failed, " << skipped_.size() << " skipped"
              << std::endl;
    return failed_.empty();
  }

 private:
  struct Test {
    std::string name;
    std::FILE* output;
  };

  void start(const std::string& name) {
    std::FILE* output = std::tmpfile();
    if (output == nullptr) stop("tmpfile");
    const pid_t process = ::fork();
    if (process < 0) stop("fork");
    if (process == 0) {
      ::dup2(::fileno(output), STDOUT_FILENO);
      ::dup2(::fileno(output), STDERR_FILENO);
      ::close(::fileno(output));
      for (const auto& [other, test] : running_) ::close(::fileno(test.output));
      runTest(name);
    }
    running_.emplace(process, Test{name, output});
  }

  void waitForOne() {
    int status = 0;
    const pid_t process = ::waitpid(-1, &status, 0);
    if (process < 0) stop("waitpid");
    const auto ended = running_.extract(process);
    if (ended.empty()) return;  // left behind by a test
    const auto& [name, output] = ended.mapped();
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
      ++passed_;
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == skippedStatus) {
      skipped_.push_back(name);
    } else {
      show(output);
      std::cout << "-- " << name << " ended with "
                << (WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                                      : "signal " + std::to_string(WTERMSIG(status)))
                << std::endl;
      failed_.push_back(name);
    }
    std::fclose(output);
  }

  static void show(std::FILE* output) {
    std::rewind(output);
    for (int character = 0; (character = std::getc(output)) != EOF;)
      std::cout.put(static_cast<char>(character));
  }

  static void list(const char* title, const std::vector<std::string>& tests) {
    if (!tests.empty()) std::cout << title << ":\n";
    for (const auto& test : tests) std::cout << "  " << test << '\n';
  }

  [[noreturn]] static void stop(const char* call) {
    std::perror(call);
    std::exit(EXIT_FAILURE);
  }

  std::size_t jobs_;
  std::map<pid_t, Test> running_;
  std::size_t passed_ = 0;
  std::vector<std::string> failed_;
  std::vector<std::string> skipped_;
};

std::size_t jobsIn(int count, char** arguments) {
  constexpr std::string_view option = "--jobs=";
  for (int index = 1; index < count; ++index) {
    const std::string_view argument = arguments[index];
    if (!argument.starts_with(option)) continue;
    const long jobs = std::strtol(arguments[index] + option.size(), nullptr, 10);
    if (jobs > 0) return static_cast<std::size_t>(jobs);
    std::cerr << argument << ": expected a number from 1 on\n";
    std::exit(2);
  }
  return static_cast<std::size_t>(std::max(1L, ::sysconf(_SC_NPROCESSORS_ONLN)));
}

}  // namespace

int main(int count, char** arguments) {
  testing::InitGoogleMock(&count, arguments);
  const auto tests = selectedTests();
  // A single one needs no other process: that of a debugger, or the one that a death test starts.
  if (tests.size() == 1 || GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  if (tests.empty()) {
    std::cerr << "No test matches " << GTEST_FLAG_GET(filter) << '\n';
    return EXIT_FAILURE;
  }
  return Runner(jobsIn(count, arguments)).runAll(tests) ? EXIT_SUCCESS : EXIT_FAILURE;
}
