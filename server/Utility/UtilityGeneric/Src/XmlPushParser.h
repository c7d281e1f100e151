#pragma once

#include <array>
#include <memory>

#include "ElementNames.h"
#include "SAX2ElementChannel.h"
#include "Utility/Generic/String.h"

struct _xmlParserCtxt;  // libxml2's

/// What a parse leaves to the next one: the texts of element names, and, when the document was
/// short and well-formed, libxml2's parser with its dictionary of names, whose making takes as long
/// as parsing a kilobyte. Nothing else of a document is left in it. One parse at a time.
struct XmlParserStore {
  struct FreeContext {
    void operator()(_xmlParserCtxt* parser) const noexcept;
  };
  using Context = std::unique_ptr<_xmlParserCtxt, FreeContext>;
  struct CachedName {
    const unsigned char* key = nullptr;  // in the context's dictionary, where each name stands once
    SAX2ElementChannel::Name name;
  };

  ElementNames names;
  Context context;
  std::array<CachedName, 64> cachedNames;
};

enum class XmlOutcome { kWellFormed, kFailed, kStopped };

/// Parses the well-formed UTF-8 text and pushes its elements into the channel, until its end, an
/// error, or until the ticket is gone. `error` gets the text of an error, with line and column.
/// Does not end the channel's parse. Throws std::bad_alloc.
XmlOutcome ParseXmlText(const NarrowString& text, XmlParserStore& store,
                        SAX2ElementChannel& channel, SAX2ElementChannel::Ticket ticket,
                        String& error);
