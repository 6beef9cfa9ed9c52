#ifndef KEL_PTR_H
#define KEL_PTR_H

#include <cstddef>
#include <type_traits>
#include <utility>

#include "Kel/Assert.h"

namespace Kel {

// A strong, intrusive pointer: the count lives in the object (see PtrInterface).
template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}
  // Explicit: a raw pointer turned into a Ptr by accident, and dropped, would release a reference
  // nobody took.
  explicit Ptr(T* raw) : raw_(raw) { acquire(); }
  Ptr(const Ptr& other) : Ptr(other.raw_) {}
  Ptr(Ptr&& other) noexcept : raw_(std::exchange(other.raw_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& other) : Ptr(other.ptr()) {}
  ~Ptr() { release(raw_); }

  Ptr& operator=(const Ptr& other) { return reset(other.raw_); }
  Ptr& operator=(Ptr&& other) noexcept {
    release(std::exchange(raw_, std::exchange(other.raw_, nullptr)));
    return *this;
  }
  Ptr& operator=(std::nullptr_t) { return reset(nullptr); }

  // Takes over the reference an object is built with (see allocate) without counting again.
  static Ptr adopt(T* raw) {
    Ptr p;
    p.raw_ = raw;
    return p;
  }

  T* ptr() const { return raw_; }
  T* operator->() const { return checked(); }
  T& operator*() const { return *checked(); }
  explicit operator bool() const { return raw_ != nullptr; }

  template <class U>
  bool operator==(const Ptr<U>& other) const {
    return raw_ == other.ptr();
  }
  bool operator==(const T* raw) const { return raw_ == raw; }

 private:
  // The new reference is taken before the old one goes: assigning a pointer to itself, or to an
  // object only the old value kept alive, must not destroy it on the way.
  Ptr& reset(T* raw) {
    if (raw) raw->newRef();
    release(std::exchange(raw_, raw));
    return *this;
  }
  void acquire() const {
    if (raw_) raw_->newRef();
  }
  static void release(T* raw) {
    if (raw) raw->deleteRef();
  }
  T* checked() const {
    // Several handlers rely on a null input being a deterministic stop, never a wild access.
    if (__builtin_expect(raw_ == nullptr, 0)) fatalError("dereference of a null Kel::Ptr");
    return raw_;
  }

  T* raw_ = nullptr;
};

template <class T, class U>
Ptr<T> const_ptr_cast(const Ptr<U>& p) {
  return Ptr<T>(const_cast<T*>(p.ptr()));
}

}  // namespace Kel

#endif
