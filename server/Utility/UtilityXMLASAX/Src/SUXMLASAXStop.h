#pragma once

/// The file that hosts' traces expect for the errors of an exchange.
inline constexpr const wchar_t* kSourceFile =
    L"server/Utility/UtilityXMLASAX/Src/SUXMLASAXDiscoverAgentImpl.cpp";

/// Throws ErrorMessage when the calling thread's operation is to end: the host has requested
/// cancellation (46066), or the deadline has passed. To be called in every loop over rows, which
/// may be a million.
void ThrowIfStopped();
