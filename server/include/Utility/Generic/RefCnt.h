#pragma once

/// \file
/// Reference-counted objects and their handles.

#include <atomic>
#include <utility>

#include "Utility/Generic/MemAlloc.h"
#include "Utility/Generic/VXAssert.h"

/// Base class with an atomic reference count. A new object has the count 0. The last RefCnt handle
/// deletes it.
class RefCountable : public MemAllocNewdel {
 public:
  virtual ~RefCountable() = default;

  /// Increments the count.
  void AddRef() const noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }
  /// Decrements the count, and deletes the object when it becomes 0.
  void ReleaseRef() const noexcept {
    if (m_count.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  /// The count, which other threads may change at any time.
  unsigned int GetRefCount() const noexcept { return m_count.load(std::memory_order_acquire); }

 protected:
  RefCountable() noexcept = default;
  /// Copies the count. Its value has no meaning in copies, because they are used by value.
  RefCountable(const RefCountable& other) noexcept : m_count(other.GetRefCount()) {}
  /// Does not change the counts.
  RefCountable& operator=(const RefCountable&) noexcept { return *this; }

 private:
  mutable std::atomic<unsigned int> m_count{0};
};

/// Handle to a reference-counted object; may be empty. Dereferencing an empty handle is a logic
/// error and aborts the process. Different threads may use different handles to one object.
template <class T>
class RefCnt {
 public:
  /// As in std::shared_ptr, with conversion from a pointer.
  /// @{
  RefCnt() noexcept = default;
  RefCnt(T* object) noexcept : m_object(object) {  // NOLINT: a handle stands for its object
    if (m_object) m_object->AddRef();
  }
  RefCnt(const RefCnt& other) noexcept : RefCnt(other.m_object) {}
  RefCnt(RefCnt&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  ~RefCnt() {
    if (m_object) m_object->ReleaseRef();
  }
  RefCnt& operator=(RefCnt other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }

  T* operator->() const { return Checked(); }
  T& operator*() const { return *Checked(); }
  T* get() const noexcept { return m_object; }
  explicit operator bool() const noexcept { return m_object != nullptr; }
  friend bool operator==(const RefCnt& a, const RefCnt& b) noexcept {
    return a.m_object == b.m_object;
  }
  /// @}

 private:
  T* Checked() const {
    if (!m_object)
      VXAssert::handleLogicError(L"RefCnt.h", __LINE__, L"empty reference dereferenced");
    return m_object;
  }

  T* m_object = nullptr;
};
