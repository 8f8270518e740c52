// platform/macos_version.h
// Which macOS a Mac runs, from what its kernel says about itself.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisko::platform {

// Major version, e.g. 26, from the build ("25G83") or, when that cannot be read, from the product version
// ("26.6.1"); 0 when neither can.
//
// The build leads because it is the one that is never adjusted. A program that was linked with an SDK older
// than macOS 26 is given a compatibility version in place of the product version, by the kernel and by
// `operatingSystemVersion` alike: 16 on macOS 26, and something below 27 on macOS 27. Such a program would
// take a system that has closed its keys for one that has not.
[[nodiscard]] std::int64_t macOSMajor(std::string_view build, std::string_view productVersion);

}  // namespace brisko::platform
