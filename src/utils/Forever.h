// An object that is made where it stands and never destroyed. Process-wide objects are held in one: threads of the
// library may still use them while the process runs its exit handlers.
#pragma once

#include <new>
#include <utility>

namespace libzel {

template <typename T>
class Forever {
 public:
  template <typename... Args>
  explicit Forever(Args&&... args) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
  }
  Forever(const Forever&) = delete;
  Forever& operator=(const Forever&) = delete;

  T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }
  T* operator->() { return &**this; }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace libzel
