#pragma once

/// \file
/// Texts that the host defines for all its modules.

/// The catalog restriction of a request, and the column of DBSCHEMA_CATALOGS that the import reads.
inline constexpr const wchar_t* S_CATALOG_NAME = L"CATALOG_NAME";
/// A server whose provider name contains this text, ignoring case, is taken for Tamarind, unless
/// the name indicates SAP BW.
inline constexpr const wchar_t* _S_KELVORA = L"Kelvora";  // NOLINT: the host's name
/// The end of the file names of import logs.
inline constexpr const wchar_t* _S_LOG_EXT = L".log";  // NOLINT: the host's name
/// A blank. It is the message of the logic error for two levels with the same level number.
inline constexpr const wchar_t* s_ksBlank = L" ";
