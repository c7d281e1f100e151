#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Limits on what one server can make an import operation do. An operation that reaches one of
/// them ends with an error text that names the limit (for warnings: the rest is only counted).
/// 0 means no limit.
struct ImportLimits {
  /// Rows in one reply that make records or names. Rows that only tell one value, such as the
  /// provider's name or a member's type, are not counted: nothing of them is kept.
  std::uint64_t maxRowsPerReply = 1'000'000;
  /// Rows in all replies of one operation, whose records are kept until its end.
  std::uint64_t maxRows = 2'000'000;
  /// Requests that one operation sends.
  std::uint64_t maxRequests = 100'000;
  /// Bytes of all replies of one operation, decoded, refused replies included. The operation ends
  /// after the reply that exceeds the limit. The default allows 100,000 replies of 20 KB; of the
  /// recorded replies of real servers, nine in ten are shorter than 10 KB. Names are kept with four
  /// bytes per character, so a server that sends only long names makes an import keep 8 GiB.
  std::uint64_t maxTotalReplyBytes = std::uint64_t{2} << 30;
  /// Bytes of one request. Names that a server gave are part of later requests.
  std::uint64_t maxRequestBytes = std::uint64_t{4} << 20;
  /// Seconds that one operation may take, however busy the server is. The operation ends within
  /// 0.1 s of the deadline.
  std::uint32_t deadlineSeconds = 0;
  /// Warnings of one operation and their total size in characters. Further warnings are counted,
  /// and one last line says how many there were.
  std::size_t maxWarnings = 10'000;
  std::size_t maxWarningCharacters = std::size_t{4} << 20;
  /// Bytes of one reply that an entry of the import log contains. The entry says how many are
  /// missing.
  std::uint64_t maxLoggedReplyBytes = std::uint64_t{16} << 20;
  /// Bytes of one import log. Every SetupConnInfo starts a new one. The entry that would exceed the
  /// limit is replaced by a last line that names the limit, onLogFailure is called, and the import
  /// goes on without the log.
  std::uint64_t maxLogBytes = std::uint64_t{1} << 30;
};

/// What a host sets for the imports that one of its threads runs. There are no process-wide
/// settings: a thread without a scope uses the defaults below.
///
/// Two moments count. SetupConnInfo takes `http` and `logDirectory` for the new connection. Every
/// import operation uses the other members, and the calling thread's scope of that moment.
struct ImportSettings {
  HTTPClientOptions http;
  ImportLimits limits;

  /// Import objects that are connected in this scope write their import log into this directory,
  /// as if OT_XMLA_IMPORT_LOGGING were set. Empty: OT_XMLA_IMPORT_LOGGING and
  /// XMLA_IMPORT_LOG_DIR decide.
  String logDirectory;

  /// Called after every exchange, on the thread that ran it. Must not throw. Not owned; null: none.
  HTTPExchangeObserver* exchangeObserver = nullptr;

  /// Called once for each import log that cannot be written or has reached maxLogBytes, with the
  /// name of the file and the reason, on the thread that writes. The import goes on without the
  /// log. Must not throw.
  std::function<void(const String& name, const String& reason)> onLogFailure;

  /// Called by VXAssert::handleLogicError on the thread that failed. May throw: the operation then
  /// ends with that exception, and its output is incomplete. If it returns, or is empty, the
  /// process aborts.
  std::function<void(const String& file, int line, const String& message)> onLogicError;

  /// The settings in force on the calling thread.
  XMLAHOST_API static const ImportSettings& Current() noexcept;

  class Scope;
};

/// Puts settings in force on the calling thread, and the former ones back at the end. The settings
/// are not copied: they outlive the scope, and nobody changes them meanwhile.
class XMLAHOST_API ImportSettings::Scope {
 public:
  explicit Scope(const ImportSettings& settings) noexcept;
  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  const ImportSettings* m_previous;
};
