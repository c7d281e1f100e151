#pragma once

#include <memory>

/// The host's owning pointer: movable, not copyable.
template <class T>
using Heap = std::unique_ptr<T>;
