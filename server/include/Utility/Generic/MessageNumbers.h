#pragma once

// Numbers of the host's message catalogue. All code that names a message uses these constants.

/// Reading of a reply was cancelled. No arguments.
inline constexpr int kMessageReadCancelled = 46066;
/// A reply is not well-formed XML. Argument: the parser's error text.
inline constexpr int kMessageParseError = 46100;
/// Warning: the provider is of another kind than configured. Arguments: configured kind, provider.
inline constexpr int kMessageTargetMismatch = 62010;
// Warnings: a hierarchy was skipped. Arguments: hierarchy, data source, catalog, cube.
inline constexpr int kMessageVirtualHierarchy = 62011;
inline constexpr int kMessageMeasuresHierarchy = 62012;
inline constexpr int kMessageUnknownStructure = 62013;
/// The server reported a SOAP fault. Arguments: fault code, fault string.
inline constexpr int kMessageSoapFault = 64203;
