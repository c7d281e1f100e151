#pragma once

/// \file
/// The pointer that owns an object.

#include <memory>

/// The host's owning pointer: movable, not copyable.
template <class T>
using Heap = std::unique_ptr<T>;
