// platform/macos/owned.h
// Owners of reference-counted objects of the system, which are released once, in the owner's destructor.
#pragma once

#include <utility>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

namespace brisko::platform {

// A Core Foundation object that a function with Create or Copy in its name returned. Objects from a Get
// function are not ours and must not be owned.
template <typename Ref>
class Owned {
 public:
  Owned() = default;
  explicit Owned(Ref ref) : ref_(ref) {}
  ~Owned() {
    if (ref_ != nullptr) CFRelease(ref_);
  }
  Owned(Owned&& other) noexcept : ref_(std::exchange(other.ref_, nullptr)) {}
  Owned& operator=(Owned&& other) noexcept {
    std::swap(ref_, other.ref_);
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

  [[nodiscard]] Ref get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }
  // For functions that return an object through their last argument. Only while it owns nothing.
  [[nodiscard]] Ref* out() { return &ref_; }

 private:
  Ref ref_ = nullptr;
};

// A service of the registry, likewise.
class OwnedService {
 public:
  explicit OwnedService(io_service_t service) : service_(service) {}
  ~OwnedService() {
    if (service_ != IO_OBJECT_NULL) IOObjectRelease(service_);
  }
  OwnedService(const OwnedService&) = delete;
  OwnedService& operator=(const OwnedService&) = delete;

  [[nodiscard]] io_service_t get() const { return service_; }
  explicit operator bool() const { return service_ != IO_OBJECT_NULL; }

 private:
  io_service_t service_;
};

// The first service of that class; owns nothing when there is none.
[[nodiscard]] OwnedService firstService(const char* name);

}  // namespace brisko::platform
