#pragma once

/// Texts that the host defines for all its modules.
inline constexpr const wchar_t* S_CATALOG_NAME = L"CATALOG_NAME";  ///< XMLA restriction and column
inline constexpr const wchar_t* _S_KELVORA = L"Kelvora";           // NOLINT: the host's name
inline constexpr const wchar_t* _S_LOG_EXT = L".log";              // NOLINT: the host's name
inline constexpr const wchar_t* s_ksBlank = L" ";
