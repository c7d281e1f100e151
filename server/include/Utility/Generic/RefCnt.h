#pragma once

#include <atomic>
#include <utility>

#include "Utility/Generic/MemAlloc.h"
#include "Utility/Generic/VXAssert.h"

/// Base of objects that carry their own reference count. A fresh object has the count 0; the handle
/// that takes it to 1 and back to 0 deletes it. The count is changed atomically.
class RefCountable : public MemAllocNewdel {
 public:
  virtual ~RefCountable() = default;

  void AddRef() const noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }
  /// Lowers the count and deletes the object when it reaches 0.
  void ReleaseRef() const noexcept {
    if (m_count.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  unsigned int GetRefCount() const noexcept { return m_count.load(std::memory_order_acquire); }

 protected:
  RefCountable() noexcept = default;
  /// Copying takes over the count's value: copies are meant to be held by value, where the count
  /// has no meaning.
  RefCountable(const RefCountable& other) noexcept : m_count(other.GetRefCount()) {}
  /// Assignment leaves the counts of both objects alone.
  RefCountable& operator=(const RefCountable&) noexcept { return *this; }

 private:
  mutable std::atomic<unsigned int> m_count{0};
};

/// Handle to a reference-counted object; may be empty. Dereferencing an empty handle is a logic
/// error: the process aborts. Distinct handles to one object may be used from distinct threads.
template <class T>
class RefCnt {
 public:
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

 private:
  T* Checked() const {
    if (!m_object)
      VXAssert::handleLogicError(L"RefCnt.h", __LINE__, L"empty reference dereferenced");
    return m_object;
  }

  T* m_object = nullptr;
};
