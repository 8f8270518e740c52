// tests/fakes/objects.h
// The objects that the fakes of the Mac's frameworks hand out, and the count of who holds them. A pointer
// that is no object, or no longer one, ends the process with a word about it; so does one of another type.
#pragma once

#include <cstdint>
#include <string>

#include <CoreFoundation/CoreFoundation.h>

namespace brisko::fakes {

// A wrong call: says what was wrong and aborts.
[[noreturn]] void misuse(const std::string& what);

enum TypeId : CFTypeID {
  booleanType = 1,
  numberType,
  stringType,
  dataType,
  dateType,
  arrayType,
  dictionaryType,
  sourceType,
  timerType,
  codeType,
  dispatchSourceType,
};

class Object {
 public:
  // Held by who made it.
  explicit Object(TypeId type);
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  [[nodiscard]] TypeId type() const { return type_; }
  [[nodiscard]] bool isLiving() const { return mark_ == living; }
  [[nodiscard]] const Object* next() const { return next_; }  // of all that live

  void retain() { references_ += 1; }
  // Deletes it with the last reference.
  void release();

  // The same references, told apart: those of the frameworks themselves are no business of the program.
  void holdForSystem();
  void dropForSystem();
  // The reference of the one who made it is the system's, for ever: a constant.
  void makeConstant() { systemReferences_ = references_; }

  [[nodiscard]] long programsReferences() const { return references_ - systemReferences_; }
  // How many the program may keep without having forgotten any.
  [[nodiscard]] virtual long mayBeKept() const { return 0; }

 private:
  static constexpr std::uint64_t living = 0x6C6976696E672121;  // what no text and no number looks like

  volatile std::uint64_t mark_ = living;  // also once its destructor has run
  TypeId type_;
  long references_ = 1;
  long systemReferences_ = 0;
  Object* previous_ = nullptr;
  Object* next_ = nullptr;
};

// The object behind a reference of the program's.
[[nodiscard]] Object& objectAt(const void* reference);

// Each kind of object says in `kind` which type is its own.
template <class Kind>
[[nodiscard]] bool is(const Object& object) {
  return object.type() == Kind::kind;
}

template <class Kind>
[[nodiscard]] Kind& as(const void* reference) {
  Object& object = objectAt(reference);
  if (!is<Kind>(object)) misuse("an object of another type was expected");
  return static_cast<Kind&>(object);
}

// The object as the program knows it.
template <class Ref>
[[nodiscard]] Ref refTo(Object* object) {
  return reinterpret_cast<Ref>(object);
}

// What the program still holds and should have released; empty when all is well. Also told at the end of
// every process that ends by exit(), which then ends with another status.
[[nodiscard]] std::string unreleased();

// Services of the registry that are not released yet; kept by io_kit.cpp.
[[nodiscard]] long servicesHeld();

// What the run loop was given to serve in other modes than the common ones.
[[nodiscard]] long outsideCommonModes();

}  // namespace brisko::fakes
