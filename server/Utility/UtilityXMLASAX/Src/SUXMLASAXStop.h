#pragma once

/// Source file of the errors of an exchange, as the host's traces expect it.
inline constexpr const wchar_t* kSourceFile =
    L"server/Utility/UtilityXMLASAX/Src/SUXMLASAXDiscoverAgentImpl.cpp";

/// Throws ErrorMessage if IsThreadToStop: message kMessageReadCancelled, or the text of the
/// deadline. Call in every loop over rows, because there may be a million.
void ThrowIfStopped();
