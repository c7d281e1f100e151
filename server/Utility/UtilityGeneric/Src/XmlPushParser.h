#pragma once

#include <memory>

#include "ElementNames.h"
#include "SAX2ElementChannel.h"
#include "Utility/Generic/String.h"

/// What a parse leaves to the next one: the texts of element names, and, when the document was
/// well-formed and had few names, the XML library's parser with its dictionary, which serves the
/// next document when that is short: making a parser takes as long as parsing a kilobyte. Nothing
/// else of a document is left in it. One parse at a time.
struct XmlParserStore {
  struct Parser;
  struct FreeParser {
    void operator()(Parser* kept) const noexcept;
  };

  ElementNames names;
  std::unique_ptr<Parser, FreeParser> parser;
};

enum class XmlOutcome { kWellFormed, kFailed, kStopped };

/// Parses the well-formed UTF-8 text and pushes its elements into the channel, until its end, an
/// error, or until the ticket is gone. `error` gets the text of an error, with line and column.
/// Does not end the channel's parse. Throws std::bad_alloc.
XmlOutcome ParseXmlText(const NarrowString& text, XmlParserStore& store,
                        SAX2ElementChannel& channel, SAX2ElementChannel::Ticket ticket,
                        String& error);
