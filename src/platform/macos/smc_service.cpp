#include "platform/smc_service.h"

#include <algorithm>

#include "platform/macos/handled_signals.h"
#include "platform/macos/owned.h"

namespace brisko::platform {
namespace {

constexpr std::uint32_t userClientType = 0;
constexpr std::uint32_t exchangeSelector = 2;

KernelStatus statusOf(kern_return_t result) { return static_cast<KernelStatus>(result); }

}  // namespace

SmcOpening openSmc() {
  const OwnedService service = firstService("AppleSMC");
  if (!service) return {.status = kernelNotFound, .connection = 0};
  io_connect_t connection = IO_OBJECT_NULL;
  const KernelStatus status =
      statusOf(IOServiceOpen(service.get(), mach_task_self(), userClientType, &connection));
  return {.status = status, .connection = status == kernelSuccess ? connection : 0};
}

KernelStatus closeSmc(SmcConnection connection) { return statusOf(IOServiceClose(connection)); }

SmcExchange exchangeSmc(SmcConnection connection, const SmcRecord& input, SmcRecord& output) {
  // Every key is written through here, so a thread that may not write any more stops here.
  stopIfStandbyTookOver();
  std::size_t answered = output.size();
  const KernelStatus status = statusOf(IOConnectCallStructMethod(connection, exchangeSelector, input.data(),
                                                                 input.size(), output.data(), &answered));
  // After a failed call the output and its size are undefined.
  if (status != kernelSuccess) answered = 0;
  const std::size_t given = std::min(answered, output.size());
  std::fill(output.begin() + static_cast<std::ptrdiff_t>(given), output.end(), std::uint8_t{0});
  return {.status = status, .answered = given};
}

}  // namespace brisko::platform
