// sim/process/shared_memory.h
// An object in memory that this process shares with its forked children.
#pragma once

#include <cerrno>
#include <new>
#include <system_error>
#include <type_traits>

#include <sys/mman.h>

namespace brisko::sim {

template <class T>
class SharedMemory {
 public:
  // Throws std::system_error if there is no memory.
  SharedMemory() {
    static_assert(std::is_trivially_destructible_v<T>, "nobody destroys it");
    void* memory = ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    object_ = new (memory) T{};
  }
  ~SharedMemory() { ::munmap(object_, sizeof(T)); }
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  // Const like a pointer: the object can still be changed.
  [[nodiscard]] T& operator*() const { return *object_; }
  [[nodiscard]] T* operator->() const { return object_; }

 private:
  T* object_;
};

}  // namespace brisko::sim
