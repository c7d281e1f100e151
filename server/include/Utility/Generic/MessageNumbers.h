#pragma once

/// \file
/// Numbers of the host's message catalogue. All code that names a message uses these constants.

/// Reading of a reply was cancelled. No arguments.
inline constexpr int kMessageReadCancelled = 46066;
/// A reply is not well-formed XML. Argument: the parser's error text.
inline constexpr int kMessageParseError = 46100;
/// Warning: the provider is of another kind than configured. Arguments: configured kind, provider.
inline constexpr int kMessageTargetMismatch = 62010;
/// Warning: GetHierarchies skipped a virtual hierarchy: IS_VIRTUAL is true, or there is a
/// DIMENSION_MASTER_UNIQUE_NAME, even an empty one. Arguments: HIERARCHY_UNIQUE_NAME, data source,
/// catalog, cube.
inline constexpr int kMessageVirtualHierarchy = 62011;
/// Warning: GetHierarchies skipped a hierarchy of measures (DIMENSION_TYPE 2). Not with the rules
/// of Tamarind. Arguments: as for kMessageVirtualHierarchy.
inline constexpr int kMessageMeasuresHierarchy = 62012;
/// Warning: GetHierarchies skipped a hierarchy whose STRUCTURE is missing, empty or a number other
/// than 0 to 3. Only with the rules of Analysis Services, which also apply to servers that are not
/// recognised. Arguments: as for kMessageVirtualHierarchy.
inline constexpr int kMessageUnknownStructure = 62013;
/// The server reported a SOAP fault. Arguments: fault code, fault string.
inline constexpr int kMessageSoapFault = 64203;
