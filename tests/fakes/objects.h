// tests/fakes/objects.h
// The objects of the fake frameworks, and their reference counts. A pointer that is not an object, or to a
// released one or one of another type, ends the process with an error message.
#pragma once

#include <cstdint>
#include <string>

#include <CoreFoundation/CoreFoundation.h>

namespace brisko::fakes {

// Reports a wrong call and aborts.
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
  // Created with one reference, that of its creator.
  explicit Object(TypeId type);
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  [[nodiscard]] TypeId type() const { return type_; }
  [[nodiscard]] bool isLiving() const { return mark_ == living; }
  [[nodiscard]] const Object* next() const { return next_; }  // in the list of all objects

  void retain() { references_ += 1; }
  // Deletes it with the last reference.
  void release();

  // References of the frameworks themselves, counted separately, because the program need not release them.
  void holdForSystem();
  void dropForSystem();
  // Makes it a constant: the reference of its creator belongs to the system and is never released.
  void makeConstant() { systemReferences_ = references_; }

  [[nodiscard]] long programsReferences() const { return references_ - systemReferences_; }
  // How many references the program may still hold at its end.
  [[nodiscard]] virtual long mayBeKept() const { return 0; }

 private:
  static constexpr std::uint64_t living = 0x6C6976696E672121;  // unlike any text or number

  volatile std::uint64_t mark_ = living;  // volatile, so that it can be read after the destructor
  TypeId type_;
  long references_ = 1;
  long systemReferences_ = 0;
  Object* previous_ = nullptr;
  Object* next_ = nullptr;
};

// The object to which a reference of the program points.
[[nodiscard]] Object& objectAt(const void* reference);

// Each class names its type in `kind`.
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

// The reference that the program gets for an object.
template <class Ref>
[[nodiscard]] Ref refTo(Object* object) {
  return reinterpret_cast<Ref>(object);
}

// The objects that the program still holds and should have released; empty if there are none. Every process
// that ends by exit() reports them too, and then ends with another status.
[[nodiscard]] std::string unreleased();

// Services of the registry that are not released yet; kept by io_kit.cpp.
[[nodiscard]] long servicesHeld();

// What was added to the run loop for other modes than the common ones.
[[nodiscard]] long outsideCommonModes();

}  // namespace brisko::fakes
