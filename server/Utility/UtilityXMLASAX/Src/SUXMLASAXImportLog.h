#pragma once

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/Heap.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXStringVector.h"

/// The import log: a UTF-8 file for each agent, with an entry for each exchange.
namespace ImportLog {

/// Times of an exchange: begin, arrival of the reply, end of reading.
struct Times {
  VXDateTime started;
  VXDateTime answered;
  VXDateTime finished;
};

/// Creates the log file of an agent and writes the heading. The file name contains the current
/// second: if two agents are created within one second, the second one empties the file of the
/// first. A file that would exceed ImportLimits::maxLogBytes ends with a line that says so. Throws
/// ErrorMessage.
Heap<AFile> Open(const String& url, const String& user, ServerInfo::TargetType target);

/// Appends an entry in one write. `title` must end with a line feed. `request` and `reply` are
/// UTF-8; ill-formed bytes of the reply become U+FFFD. A reply longer than
/// ImportLimits::maxLoggedReplyBytes is truncated, and the entry says how many bytes are missing.
/// Write errors are not reported to the caller.
void WriteEntry(AFile& file, const String& title, const NarrowString& request,
                const NarrowString& reply, const Times& times);

/// Appends the closing entry.
void Close(AFile& file);

/// Replaces each %s of `format` by the next argument, and truncates the result to `capacity` - 1
/// characters. Control characters and line breaks in arguments become spaces.
String FormatLine(std::size_t capacity, const wchar_t* format, const VXStringVector& arguments);

}  // namespace ImportLog
