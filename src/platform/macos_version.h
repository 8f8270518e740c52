// platform/macos_version.h
// The version of macOS, from what the kernel reports.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisko::platform {

// Major version, e.g. 26, from the build ("25G83") or, when that cannot be read, from the product version
// ("26.6.1"); 0 when neither can.
//
// The build comes first because it is never adjusted. A program that was linked with an SDK older than macOS
// 26 gets a compatibility version instead of the product version, by the kernel and by
// `operatingSystemVersion` alike: 16 on macOS 26, and something below 27 on macOS 27. Such a program would
// not notice that the system has closed its keys.
[[nodiscard]] std::int64_t macOSMajor(std::string_view build, std::string_view productVersion);

}  // namespace brisko::platform
