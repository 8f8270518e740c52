#include "tools/live_view/live_view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

#include "base/json_file.h"
#include "base/settings.h"
#include "policy/charge_bounds.h"
#include "sim/machine/machine_text.h"

namespace brisko::vmac {
namespace {

using virtual_mac::Machine;

constexpr std::size_t logLinesShown = 6;
constexpr int barCells = 50;  // two percent each

constexpr const char* plain = "\x1b[0m";
constexpr const char* dim = "\x1b[2m";
constexpr const char* bold = "\x1b[1m";
constexpr const char* green = "\x1b[32m";
constexpr const char* yellow = "\x1b[33m";

template <typename... Values>
std::string formatted(const char* format, Values... values) {
  std::array<char, 160> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), format, values...));
  return text.data();
}

// The band of the settings. The daemon may aim elsewhere for a while; its log shows that.
Bounds bandOf(const std::string& volumeRoot) {
  const auto object = readJsonObject(volumeRoot + "/Library/Application Support/Brisko/config.json");
  const Settings settings = object ? parseConfig(*object) : Settings{};
  return bounds(settings.limit, -1, settings.hysteresis);
}

int cellOf(double percent) { return static_cast<int>(std::floor(percent * barCells / 100.0 + 0.5)); }

std::string bar(double level, const Bounds& band) {
  std::string text;
  const int filled = cellOf(level);
  for (int cell = 0; cell < barCells; ++cell) {
    const bool inBand =
        cell >= cellOf(static_cast<double>(band.lower)) && cell < cellOf(static_cast<double>(band.upper));
    if (cell < filled) {
      text += std::string(inBand ? green : "") + "█" + plain;
    } else {
      text += std::string(inBand ? green : dim) + (inBand ? "▒" : "·") + plain;
    }
  }
  return text;
}

std::string lightText(const Machine& machine) {
  const auto* key = virtual_mac::findKey(machine, virtual_mac::keyCode("ACLC"));
  if (key == nullptr || !machine.adapter.present) return "–";
  switch (key->bytes[0]) {
    case 1:
      return "off";
    case 3:
      return "green";
    case 4:
      return "orange";
    default:
      return "the system's";
  }
}

int terminalWidth(std::FILE* out) {
  winsize size{};
  if (::ioctl(::fileno(out), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 100;
  return size.ws_col;
}

// Truncates to `width` characters, however many bytes they have.
std::string cut(const std::string& text, int width) {
  int characters = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const bool begins = (static_cast<unsigned char>(text[index]) & 0xC0U) != 0x80U;
    if (begins && ++characters > width) return text.substr(0, index);
  }
  return text;
}

}  // namespace

LiveView::LiveView(virtual_mac::MachineStore& store, std::FILE* out)
    : store_(store),
      out_(out),
      terminal_(::isatty(::fileno(out)) == 1),
      log_(store.volumeRoot() + "/Library/Logs/Brisko/daemon.log") {}

LiveView::~LiveView() { static_cast<void>(std::fflush(out_)); }

Machine LiveView::machineNow() {
  const auto update = store_.update();
  virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
  return update.machine();
}

std::vector<std::string> LiveView::refresh() {
  const Machine machine = machineNow();
  std::vector<std::string> lines = log_.newLines();
  for (const std::string& line : lines) {
    lastLines_.push_back(line);
    if (lastLines_.size() > logLinesShown) lastLines_.pop_front();
    if (!terminal_) static_cast<void>(std::fprintf(out_, "  %s\n", line.c_str()));
  }
  if (terminal_) draw(machine);
  static_cast<void>(std::fflush(out_));
  return lines;
}

void LiveView::say(const std::string& text) {
  erase();
  static_cast<void>(std::fprintf(out_, "%s\n", text.c_str()));
  static_cast<void>(std::fflush(out_));
}

void LiveView::erase() {
  if (!terminal_ || drawn_ == 0) return;
  // Moves up to the first line of the picture and clears everything from there on.
  static_cast<void>(std::fprintf(out_, "\x1b[%dA\x1b[J", drawn_));
  drawn_ = 0;
}

void LiveView::draw(const Machine& machine) {
  const Bounds band = bandOf(store_.volumeRoot());
  const int width = terminalWidth(out_) - 1;
  const double level = virtual_mac::level(machine);
  std::vector<std::string> picture;
  picture.push_back(formatted("%s%s%s  %s  × %g", bold, virtual_mac::textOf(machine.model).data(), plain,
                              timeText(virtual_mac::wallClock(machine)).c_str(), machine.speed));
  picture.emplace_back();
  picture.push_back(bar(level, band) + formatted("  %s%.1f %%%s", bold, level, plain));
  picture.push_back(
      formatted("band %lld–%lld %%", static_cast<long long>(band.lower), static_cast<long long>(band.upper)));
  picture.emplace_back();
  const bool present = machine.adapter.present;
  const std::string adapter = present ? formatted("%.0f W", machine.adapter.watts) : std::string("unplugged");
  picture.push_back(formatted("hardware %s%-9s%s  current %+6.0f mA   battery %.1f °C", yellow,
                              gateText(machine), plain, machine.battery.currentMA,
                              machine.battery.temperatureC));
  picture.push_back("adapter " + adapter +
                    (present && !virtual_mac::adapterReachesBattery(machine) ? " (cut)" : "") + "   light " +
                    lightText(machine));
  picture.emplace_back();
  for (std::size_t line = 0; line < logLinesShown; ++line) {
    picture.emplace_back(line < lastLines_.size() ? dim + cut(lastLines_[line], width) + plain : "");
  }
  erase();
  for (const std::string& line : picture) static_cast<void>(std::fprintf(out_, "%s\n", line.c_str()));
  drawn_ = static_cast<int>(picture.size());
}

}  // namespace brisko::vmac
