#pragma once

#include <functional>

/// Marks descriptors that a third party made so that programs started by the host do not inherit
/// them. Between a descriptor's making and its marking, another thread of the host can still start
/// one.
namespace CloseOnExec {

void Mark(int descriptor) noexcept;

/// Marks both ends of a pair of connected local sockets of which one end is known, if nothing is
/// ever read from the other end: a byte is sent there to recognise it.
void MarkPair(int knownEnd);

/// The same for a pair of which no end is known: `signal` makes its owner send one byte from one
/// end to the other.
void MarkPairBySignal(const std::function<void()>& signal);

}  // namespace CloseOnExec
