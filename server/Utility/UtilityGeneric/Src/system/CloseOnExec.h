#pragma once

#include <functional>

/// Marks descriptors that a third-party library created, so that programs started by the host do
/// not inherit them. A program that another thread starts before the marking still inherits them.
namespace CloseOnExec {

void Mark(int descriptor) noexcept;

/// Marks both ends of a pair of connected local sockets. Sends a byte from the known end to find
/// the other one, so the owner must ignore such a byte.
void MarkPair(int knownEnd);

/// Marks both ends of a pair if neither is known. `signal` must make its owner send one byte from
/// one end to the other.
void MarkPairBySignal(const std::function<void()>& signal);

}  // namespace CloseOnExec
