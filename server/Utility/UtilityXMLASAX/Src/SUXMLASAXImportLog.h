#pragma once

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/Heap.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXDateTime.h"
#include "Utility/Generic/VXStringVector.h"

/// The import log: one file for each agent, in UTF-8, one entry for each exchange.
namespace ImportLog {

/// When an exchange began, when its reply had arrived, and when the reply was read.
struct Times {
  VXDateTime started;
  VXDateTime answered;
  VXDateTime finished;
};

/// Creates the file for an agent that is made now and writes its heading. Two agents that are made
/// in one second share a name: the second one empties the file. The file ends at maxLogBytes
/// (ImportLimits) with a line that says so. Throws ErrorMessage.
Heap<AFile> Open(const String& url, const String& user, ServerInfo::TargetType target);

/// Appends an entry in one write. `title` ends with a line feed. `request` and `reply` are UTF-8;
/// ill-formed bytes of the reply become U+FFFD. Of a reply longer than maxLoggedReplyBytes
/// (ImportLimits) the beginning is written, and how many bytes are missing. Failures are not told
/// to the caller.
void WriteEntry(AFile& file, const String& title, const NarrowString& request,
                const NarrowString& reply, const Times& times);

/// Appends the closing entry.
void Close(AFile& file);

/// `format` with each %s replaced by the next argument, in which line breaks become spaces, cut to
/// `capacity` - 1 characters.
String FormatLine(std::size_t capacity, const wchar_t* format, const VXStringVector& arguments);

}  // namespace ImportLog
