#pragma once

#include "Utility/Generic/String.h"
#include "xml/SAX2ElementWriter.h"

enum class XmlOutcome { kWellFormed, kFailed, kStopped };

/// Parses well-formed UTF-8 and writes its elements, until the end of the text, an error, or a
/// stop. On an error, sets `error` to the message, line and column. Does not call
/// SAX2ElementWriter::Finish. Throws std::bad_alloc.
XmlOutcome ParseXmlText(const NarrowString& text, SAX2ElementWriter& writer, String& error);

/// Name and version of the library that is loaded, such as "libxml2/2.9.14".
String XmlLibraryVersion();
