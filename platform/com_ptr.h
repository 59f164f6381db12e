// Owning COM references.
#pragma once

#include <utility>

#include "platform/com.h"

namespace platform {

// One reference to a COM object, released when it goes out of scope.
template <class Interface>
class ComPtr {
 public:
  ComPtr() = default;
  ~ComPtr() { Reset(); }
  ComPtr(ComPtr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
  ComPtr& operator=(ComPtr&& other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }

  static ComPtr Attach(Interface* pointer) {  // takes over the caller's reference
    ComPtr result;
    result.pointer_ = pointer;
    return result;
  }
  static ComPtr Share(Interface* pointer) {  // adds a reference of its own; null is allowed
    if (pointer != nullptr) pointer->AddRef();
    return Attach(pointer);
  }

  Interface* Get() const { return pointer_; }
  Interface* operator->() const { return pointer_; }
  explicit operator bool() const { return pointer_ != nullptr; }
  Interface** Receive() {  // for a call that hands out a reference
    Reset();
    return &pointer_;
  }
  Interface* Detach() { return std::exchange(pointer_, nullptr); }  // the caller takes the reference over
  void Reset() {
    if (Interface* const pointer = std::exchange(pointer_, nullptr)) pointer->Release();
  }

 private:
  Interface* pointer_ = nullptr;
};

}  // namespace platform
