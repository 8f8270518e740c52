#include "fakes/objects.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace brisko::fakes {

namespace {

Object* gNewest = nullptr;  // of all existing objects

constexpr int leakStatus = 97;

void checkAtExit() {
  const std::string held = unreleased();
  if (held.empty()) return;
  std::fprintf(stderr, "not released: %s\n", held.c_str());
  std::fflush(nullptr);
  ::_exit(leakStatus);
}

// Registered before all other exit hooks, so that it runs after them.
[[maybe_unused]] const int gRegistered = std::atexit(checkAtExit);

std::string nameOf(TypeId type) {
  switch (type) {
    case booleanType:
      return "CFBoolean";
    case numberType:
      return "CFNumber";
    case stringType:
      return "CFString";
    case dataType:
      return "CFData";
    case dateType:
      return "CFDate";
    case arrayType:
      return "CFArray";
    case dictionaryType:
      return "CFDictionary";
    case sourceType:
      return "CFRunLoopSource";
    case timerType:
      return "CFRunLoopTimer";
    case codeType:
      return "SecCode";
    case dispatchSourceType:
      return "dispatch source";
  }
  return "?";
}

std::string counted(long count, const std::string& what) { return std::to_string(count) + " " + what + " "; }

}  // namespace

void misuse(const std::string& what) {
  std::fprintf(stderr, "wrong use of the system: %s\n", what.c_str());
  std::abort();
}

Object::Object(TypeId type) : type_(type), next_(gNewest) {
  if (gNewest != nullptr) gNewest->previous_ = this;
  gNewest = this;
}

Object::~Object() {
  mark_ = 0;
  if (next_ != nullptr) next_->previous_ = previous_;
  (previous_ != nullptr ? previous_->next_ : gNewest) = next_;
}

void Object::release() {
  if (programsReferences() <= 0) misuse(nameOf(type_) + " is released more often than it was retained");
  references_ -= 1;
  if (references_ == 0) delete this;
}

void Object::holdForSystem() {
  references_ += 1;
  systemReferences_ += 1;
}

void Object::dropForSystem() {
  references_ -= 1;
  systemReferences_ -= 1;
  if (references_ == 0) delete this;
}

Object& objectAt(const void* reference) {
  if (reference == nullptr) misuse("there is no object");
  auto* object = const_cast<Object*>(static_cast<const Object*>(reference));
  if (!object->isLiving()) misuse("this is no object, or one that was released");
  return *object;
}

std::string unreleased() {
  std::string found;
  for (const Object* object = gNewest; object != nullptr; object = object->next()) {
    const long beyond = object->programsReferences() - object->mayBeKept();
    if (beyond > 0) found += counted(beyond, nameOf(object->type()));
  }
  if (servicesHeld() > 0) found += counted(servicesHeld(), "io_service_t");
  if (outsideCommonModes() > 0) found += counted(outsideCommonModes(), "outside the common modes");
  return found;
}

}  // namespace brisko::fakes

extern "C" {

CFTypeRef CFRetain(CFTypeRef object) {
  brisko::fakes::objectAt(object).retain();
  return object;
}

void CFRelease(CFTypeRef object) { brisko::fakes::objectAt(object).release(); }

CFTypeID CFGetTypeID(CFTypeRef object) { return brisko::fakes::objectAt(object).type(); }
}
