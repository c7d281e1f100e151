#pragma once

/// \file
/// The limits and other settings of imports.

#include <cstddef>
#include <cstdint>
#include <functional>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Limits for one import operation, because servers are not trusted. An operation that exceeds a
/// limit ends with an error text that names it. There is one exception: if the look-up of a default
/// member exceeds a limit of one request or of one reply (maxRequestBytes, and those of
/// HTTPClientOptions), that is a warning, as for any failed look-up. Warnings beyond their limit
/// are only counted. 0 means no limit.
///
/// The limits of the XML parser are fixed and are no options. A reply that exceeds one is rejected:
///
///   250 nested elements
///   8 Mi characters in the text of an element
///   65,536 bytes in a tag, and so in a name or the value of an attribute
///   10,000,000 bytes in a comment, and in a processing instruction
///   100,000 different names of elements, attributes, prefixes, namespaces and instructions
///   1,000 namespaces in scope of an element
///
/// Document type declarations are rejected.
struct ImportLimits {
  /// Rows of one reply that become records or names. Rows from which only one value is read, such
  /// as the provider's name or a member's type, do not count.
  std::uint64_t maxRowsPerReply = 1'000'000;
  /// Rows in all replies of one operation. Their records stay in memory until it ends.
  std::uint64_t maxRows = 2'000'000;
  /// Requests of one operation.
  std::uint64_t maxRequests = 100'000;
  /// Decoded bytes of all replies of one operation, including rejected ones and the replies to
  /// rejected log-ins. The operation ends after the reply that exceeds the limit. The default
  /// allows 100,000 replies of 20 KB; 90 % of the recorded replies of real servers are shorter than
  /// 10 KB. In memory a character takes four bytes, so a reply with only long names can use 8 GiB.
  std::uint64_t maxTotalReplyBytes = std::uint64_t{2} << 30;
  /// Bytes of one request. Requests contain names from earlier replies.
  std::uint64_t maxRequestBytes = std::uint64_t{4} << 20;
  /// Duration of one operation in seconds. The operation ends within 0.1 s after the deadline.
  std::uint32_t deadlineSeconds = 0;
  /// Number of warnings of one operation. A last line says how many warnings were omitted.
  std::size_t maxWarnings = 10'000;
  /// Total size of the warnings of one operation in characters.
  std::size_t maxWarningCharacters = std::size_t{4} << 20;
  /// Bytes of a reply that are written to the import log. The entry says how many are missing.
  std::uint64_t maxLoggedReplyBytes = std::uint64_t{16} << 20;
  /// Bytes of one import log. Each SetupConnInfo starts a new log. Instead of the entry that would
  /// exceed the limit, a last line names the limit. Then onLogFailure is called, and the import
  /// continues without a log.
  std::uint64_t maxLogBytes = std::uint64_t{1} << 30;
};

/// Settings for the imports of one thread. There are no process-wide settings: a thread without a
/// scope uses the defaults below.
///
/// SetupConnInfo uses `http` and `logDirectory` of the scope in which it is called. Each import
/// operation uses the other members of the scope in which it is called.
struct ImportSettings {
  /// Options of the connection.
  HTTPClientOptions http;
  /// Limits of each operation.
  ImportLimits limits;

  /// Directory of the import logs. Enables logging as OT_XMLA_IMPORT_LOGGING does. Empty:
  /// OT_XMLA_IMPORT_LOGGING and XMLA_IMPORT_LOG_DIR apply.
  String logDirectory;

  /// Called after every exchange, on the thread that ran it. Must not throw. Not owned; may be
  /// null.
  HTTPExchangeObserver* exchangeObserver = nullptr;

  /// Called once for each import log that cannot be written or would exceed maxLogBytes, with the
  /// file name and the reason, on the thread that writes. The import continues without the log.
  /// Must not throw.
  std::function<void(const String& name, const String& reason)> onLogFailure;

  /// Called for each of the first three errors in the detail of a fault that say more than the
  /// fault itself, on the thread of the operation, before the operation ends with the fault or
  /// turns it into a warning. `detail` is "DESCRIPTION (CODE, from SOURCE)", from
  /// `<Error ErrorCode="CODE" Description="DESCRIPTION" Source="SOURCE"/>`, and may have line
  /// breaks. OTXMLAIdentifyProvider asks in two ways, so it may report a detail twice. Must not
  /// throw.
  std::function<void(const String& detail)> onFaultDetail;

  /// Called by VXAssert::handleLogicError on the thread of the error. If it throws, the operation
  /// ends with that exception, and its output is incomplete. If it returns or is empty, the process
  /// aborts.
  std::function<void(const String& file, int line, const String& message)> onLogicError;

  /// The settings of the innermost scope of the calling thread, or the defaults.
  XMLAHOST_API static const ImportSettings& Current() noexcept;

  class Scope;
};

/// Activates settings on the calling thread. The destructor restores the previous ones. The
/// settings are not copied: they must outlive the scope and must not change while it exists.
class XMLAHOST_API ImportSettings::Scope {
 public:
  /// Activates `settings` on the calling thread.
  explicit Scope(const ImportSettings& settings) noexcept;
  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  const ImportSettings* m_previous;
};
