// platform/host.h
// What the process can find out about its environment.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brisko::platform {

// Major version of the running macOS, e.g. 26; the real one, whatever SDK the program was built with.
[[nodiscard]] std::int64_t osMajor();

// The value of an environment variable; none when it is not set (an empty one is a value).
[[nodiscard]] std::optional<std::string> environment(const char* name);

// The path of the running executable with symbolic links resolved, and on a Mac without a leading /private if
// the rest of the path exists too; none if it is unavailable or its unresolved form needs 4096 bytes or more.
[[nodiscard]] std::optional<std::string> executablePath();

// 0 is root.
[[nodiscard]] std::uint32_t effectiveUserId();

[[nodiscard]] std::int64_t processId();

// The folder for temporary files, without a trailing slash.
[[nodiscard]] std::string temporaryDirectory();

// The folder that is the root of the volume on a virtual Mac, without a trailing slash; empty on a Mac. Only
// base/volume_path may call this: everything else maps its paths there. The reference stays valid.
[[nodiscard]] const std::string& volumeRoot();

}  // namespace brisko::platform
