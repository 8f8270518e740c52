// tools/demo/demo_mac.h
// The stage of the demonstration: a virtual Mac in a temporary folder, the real daemon booted on it, and a
// live view. Whatever is claimed at the end was looked for in the machine and in the log, with a deadline.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include "sim/machine/machine_store.h"
#include "tools/live_view/live_view.h"

namespace brisko::demo {

class DemoMac {
 public:
  DemoMac();
  ~DemoMac();  // ends what still runs and removes the folder
  DemoMac(const DemoMac&) = delete;
  DemoMac& operator=(const DemoMac&) = delete;

  // Runs "brisko-vmac WORDS…", with the machine's folder as the word after the first, and shows the command.
  // False when it failed.
  [[nodiscard]] bool vmac(std::vector<std::string> words);

  // Makes the machine, and boots it with the daemon in the background.
  [[nodiscard]] bool make(std::vector<std::string> options);
  [[nodiscard]] bool boot();
  // Shuts the machine down; true when the daemon ended in time.
  [[nodiscard]] bool shutDown();

  // Overwrites the daemon's configuration, as a person with an editor would.
  [[nodiscard]] bool edit(const std::string& settings);

  void title(const std::string& text);

  // Watches until `seen` holds of the machine, at most `seconds`. False when the time ran out; `what` is
  // then told as missing.
  using Look = std::function<bool(const virtual_mac::Machine&)>;
  [[nodiscard]] bool await(const std::string& what, double seconds, const Look& seen);

  // Watches for a while, and that `stays` holds all the time.
  [[nodiscard]] bool observe(const std::string& what, double seconds, const Look& stays);

  // Whether a log line with `text` has appeared since the last title().
  [[nodiscard]] bool logged(const std::string& text) const;

 private:
  void say(const std::string& text);
  void refresh();
  [[nodiscard]] virtual_mac::Machine machine();
  [[nodiscard]] bool missing(const std::string& what);

  std::string folder_;
  std::unique_ptr<virtual_mac::MachineStore> store_;
  std::unique_ptr<vmac::LiveView> view_;
  std::vector<std::string> lines_;  // of the log, in this scene
  pid_t boot_ = 0;
};

}  // namespace brisko::demo
