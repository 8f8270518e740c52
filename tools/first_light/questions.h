// tools/first_light/questions.h
// The questions that packaging/first-mac.sh asks through this program, each in a process of its own. An
// answer is lines of "name: value" on standard output, each written at once, so that a call that blocks shows
// which answers came before it. Nothing here writes a key or a setting. The result is the exit status.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brisko::first_light {

// One line of an answer.
void answer(std::string_view name, std::string_view value);
// With the milliseconds of uptime since `start`.
void answerAfter(std::string_view name, std::string_view value, double start);
[[nodiscard]] std::string milliseconds(double seconds);

// How the client of macOS's limit answers a call from `caller`: "main", the main thread without a run loop;
// "thread", another thread while the main thread waits for it; "loop", the main thread from its run loop.
[[nodiscard]] int askLimitClient(const std::string& caller);

// Whether watches on a file and on a folder like an app report their removal. Both are made in `folder`.
[[nodiscard]] int watchRemovals(const std::string& folder);

// Runs a command, and how long it takes until charging is allowed and the adapter is connected.
[[nodiscard]] int awaitGivenBack(const std::vector<std::string>& command);

// The messages of sleep and wake, and the capabilities and the time that the Mac slept, until a signal ends
// it.
[[nodiscard]] int listenForPower();

}  // namespace brisko::first_light
