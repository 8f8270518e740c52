#include "sim/machine/client_requirement.h"

#include <algorithm>
#include <array>
#include <optional>

namespace brisko::virtual_mac {
namespace {

// Reads a text from the beginning.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  // Reads up to the next quotation mark and consumes that too; none when the text is empty or needs escapes.
  [[nodiscard]] std::optional<std::string_view> takeQuoted() {
    const std::size_t end = rest_.find('"');
    if (end == std::string_view::npos || end == 0) return std::nullopt;
    const std::string_view quoted = rest_.substr(0, end);
    if (quoted.find('\\') != std::string_view::npos) return std::nullopt;
    rest_.remove_prefix(end + 1);
    return quoted;
  }

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

}  // namespace

bool meets(const ClientSignature& signature, std::string_view requirement) {
  Reader reader(requirement);
  if (!reader.take("anchor apple generic and identifier \"")) return false;
  const auto identifier = reader.takeQuoted();
  if (!identifier || !reader.take(" and certificate leaf[subject.OU] = \"")) return false;
  const auto team = reader.takeQuoted();
  if (!team || !reader.atEnd()) return false;
  return signature.signedByApple && signature.identifier == *identifier && signature.team == *team;
}

std::span<const KnownClient> knownClients() {
  // Exit hooks may still use it, so it is never destroyed.
  static const auto& clients = *new std::array<KnownClient, 4>{{
      {"app", {true, std::string(appTeam), "com.brisko.Brisko"}},
      {"wrong-team", {true, "3ZD8MW61RC", "com.brisko.Brisko"}},
      {"wrong-app", {true, std::string(appTeam), "com.brisko.Helper"}},
      {"unsigned", {}},
  }};
  return clients;
}

std::uint32_t clientNumber(std::string_view name) {
  const auto clients = knownClients();
  const auto found = std::find_if(clients.begin(), clients.end(),
                                  [name](const KnownClient& client) { return client.name == name; });
  return static_cast<std::uint32_t>(found - clients.begin());
}

const KnownClient* findClient(std::string_view name) {
  const std::uint32_t number = clientNumber(name);
  return number < knownClients().size() ? &knownClients()[number] : nullptr;
}

}  // namespace brisko::virtual_mac
