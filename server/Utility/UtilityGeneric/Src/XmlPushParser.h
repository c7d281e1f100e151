#pragma once

#include "ElementNames.h"
#include "SAX2ElementChannel.h"
#include "Utility/Generic/String.h"

enum class XmlOutcome { kWellFormed, kFailed, kStopped };

/// Parses the well-formed UTF-8 text and pushes its elements into the channel, until its end, an
/// error, or until the ticket is gone. `error` gets the text of an error, with line and column.
/// Does not end the channel's parse. Throws std::bad_alloc.
XmlOutcome ParseXmlText(const NarrowString& text, ElementNames& names, SAX2ElementChannel& channel,
                        SAX2ElementChannel::Ticket ticket, String& error);
