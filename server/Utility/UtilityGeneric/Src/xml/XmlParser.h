#pragma once

#include "Utility/Generic/String.h"
#include "xml/SAX2ElementWriter.h"

enum class XmlOutcome { kWellFormed, kFailed, kStopped };

/// Parses the well-formed UTF-8 text and writes its elements, until its end, an error, or until the
/// parse is stopped. `error` gets the text of an error, with line and column. Neither finishes the
/// writer nor ends the queue's parse. Throws std::bad_alloc.
XmlOutcome ParseXmlText(const NarrowString& text, SAX2ElementWriter& writer, String& error);
