#pragma once

#include <memory>

/// The host's single-owner holder: movable, not copyable; deletes what it holds.
template <class T>
using Heap = std::unique_ptr<T>;
