// tools/demo/demo_mac.h
// The demonstration's setup: a virtual Mac in a temporary folder, the real daemon running on it, and a live
// view. Every statement of the final summary was checked in the machine and in the log, with a deadline.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include "sim/machine/machine_store.h"
#include "sim/process/scratch.h"
#include "tools/live_view/live_view.h"

namespace brisko::demo {

class DemoMac {
 public:
  DemoMac() = default;
  ~DemoMac();  // ends what still runs and removes the folder
  DemoMac(const DemoMac&) = delete;
  DemoMac& operator=(const DemoMac&) = delete;

  // Runs "brisko-vmac WORDS…", with the machine's folder inserted after the first word, and shows the
  // command. Returns false when it failed.
  [[nodiscard]] bool vmac(std::vector<std::string> words);

  // Makes the machine and boots it, with the daemon, in the background.
  [[nodiscard]] bool make(std::vector<std::string> options);
  [[nodiscard]] bool boot();
  // Shuts the machine down. Returns true when the daemon ended in time.
  [[nodiscard]] bool shutDown();

  // Runs "brisko WORDS…" on the machine and shows the command. Returns false when it failed.
  [[nodiscard]] bool brisko(std::vector<std::string> words);

  void title(const std::string& text);

  // Watches the machine until `seen` returns true, for at most `seconds`. Returns false on a timeout, and
  // then reports `what` as not seen.
  using Condition = std::function<bool(const virtual_mac::Machine&)>;
  [[nodiscard]] bool await(const std::string& what, double seconds, const Condition& seen);

  // Watches for a while. Returns true when `stays` held all the time.
  [[nodiscard]] bool observe(const std::string& what, double seconds, const Condition& stays);

  // Whether a log line with `text` has appeared since the last title().
  [[nodiscard]] bool logged(const std::string& text) const;

 private:
  void say(const std::string& text);
  void refresh();
  [[nodiscard]] virtual_mac::Machine machine();
  [[nodiscard]] bool missing(const std::string& what);

  // Shows the machine until `continues` returns false. Returns true when the time is over before that.
  [[nodiscard]] bool watch(double seconds, const std::function<bool()>& continues);

  sim::ScratchFolder folder_{"brisko-demo"};
  std::unique_ptr<virtual_mac::MachineStore> store_;
  std::unique_ptr<vmac::LiveView> view_;
  std::vector<std::string> lines_;  // of the log, since the last title()
  pid_t boot_ = 0;
};

}  // namespace brisko::demo
