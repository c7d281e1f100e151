#include "Moods.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "DiscoverService.h"
#include "Gzip.h"
#include "Rowsets.h"

namespace sample {

struct MoodEntry {
  std::string_view name;
  std::optional<long> number;  // default; nullopt: the mood takes no number
  std::string_view what;
  void (*apply)(WireReply& reply, Kind kind, long number);
};

namespace {

using std::chrono::milliseconds;

void SetBody(WireReply& reply, int status, std::string type, std::string body) {
  reply.status = status;
  reply.headers = {{"Content-Type", std::move(type)}};
  reply.body = std::move(body);
}

void SetFault(WireReply& reply, Kind kind, int status) {
  HttpReply fault = InternalFault(kind);
  SetBody(reply, status, std::move(fault.contentType), std::move(fault.body));
}

void SetStatus(WireReply& reply, long number) {
  const std::string text = std::to_string(number);
  SetBody(reply, static_cast<int>(number), "text/html",
          "<html><head><title>Error " + text + "</title></head><body><h1>Error " + text +
              "</h1></body></html>\n");
  if (number == 401) reply.headers.emplace_back("WWW-Authenticate", "Basic realm=\"sample\"");
  if (number == 407) reply.headers.emplace_back("Proxy-Authenticate", "Basic realm=\"sample\"");
}

std::string_view DeclarationOf(std::string_view body) {
  const std::size_t end = body.starts_with("<?xml") ? body.find("?>") : std::string_view::npos;
  return end == std::string_view::npos ? std::string_view() : body.substr(0, end + 2);
}

/// Calls `visit` for each character. The body is valid UTF-8.
template <typename Visit>
void ForEachCharacter(std::string_view body, Visit visit) {
  for (std::size_t at = 0; at < body.size();) {
    const auto lead = static_cast<unsigned char>(body[at]);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i)
      code = (code << 6U) | (static_cast<unsigned char>(body[at + i]) & 0x3FU);
    visit(code);
    at += length;
  }
}

void ToLatin1(WireReply& reply, Kind, long) {
  const std::size_t declaration = DeclarationOf(reply.body).size();
  std::string out = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>";
  ForEachCharacter(std::string_view(reply.body).substr(declaration), [&](std::uint32_t code) {
    if (code < 0x100) {
      out += static_cast<char>(code);
    } else {
      out += "&#" + std::to_string(code) + ";";
    }
  });
  SetBody(reply, reply.status, "text/xml", std::move(out));
}

void ToUtf16(WireReply& reply, Kind, long) {
  std::string out = "\xFF\xFE";
  const auto append = [&](std::uint32_t unit) {
    out += static_cast<char>(unit & 0xFFU);
    out += static_cast<char>(unit >> 8U);
  };
  const std::size_t declaration = DeclarationOf(reply.body).size();
  for (const char c : std::string_view("<?xml version=\"1.0\" encoding=\"UTF-16\"?>"))
    append(static_cast<unsigned char>(c));
  ForEachCharacter(std::string_view(reply.body).substr(declaration), [&](std::uint32_t code) {
    if (code >= 0x10000) {
      append(0xD800U + ((code - 0x10000U) >> 10U));
      append(0xDC00U + ((code - 0x10000U) & 0x3FFU));
    } else {
      append(code);
    }
  });
  SetBody(reply, reply.status, "text/xml", std::move(out));
}

constexpr long kNoNumber = -1;

const MoodEntry kMoods[] = {
    {"stall",
     {},
     "no reply; the connection stays open",
     [](WireReply& reply, Kind, long) { reply.before = milliseconds(-1); }},
    {"stall-body", kNoNumber, "silence after N bytes of the body (half of it)",
     [](WireReply& reply, Kind, long number) {
       reply.bodyAtMost = number < 0 ? reply.body.size() / 2 : static_cast<std::size_t>(number);
       reply.ending = Ending::kSilence;
     }},
    {"slow", 1000, "the reply comes N milliseconds late",
     [](WireReply& reply, Kind, long number) { reply.before = milliseconds(number); }},
    {"drip", 1000, "one byte every N milliseconds",
     [](WireReply& reply, Kind, long number) {
       reply.piece = 1;
       reply.pause = milliseconds(number);
     }},
    {"stall-head", 20, "silence after N bytes of the whole reply, headers included",
     [](WireReply& reply, Kind, long number) {
       reply.sendAtMost = static_cast<std::size_t>(number);
       reply.ending = Ending::kSilence;
     }},
    {"truncate", kNoNumber, "the connection closes after N bytes of the body (half of it)",
     [](WireReply& reply, Kind, long number) {
       reply.bodyAtMost = number < 0 ? reply.body.size() / 2 : static_cast<std::size_t>(number);
       reply.ending = Ending::kClose;
     }},
    {"cut", 20, "the connection closes after N bytes of the whole reply, headers included",
     [](WireReply& reply, Kind, long number) {
       reply.sendAtMost = static_cast<std::size_t>(number);
       reply.ending = Ending::kClose;
     }},
    {"reset", 0, "the connection is reset after N bytes of the whole reply",
     [](WireReply& reply, Kind, long number) {
       reply.sendAtMost = static_cast<std::size_t>(number);
       reply.ending = Ending::kReset;
     }},
    {"wrong-length", 10, "Content-Length is N bytes too large (negative: too small)",
     [](WireReply& reply, Kind, long number) {
       reply.lengthError = number;
       reply.ending = Ending::kClose;
     }},
    {"no-length",
     {},
     "no Content-Length; the body ends with the connection",
     [](WireReply& reply, Kind, long) {
       reply.framing = Framing::kUntilClose;
       reply.ending = Ending::kClose;
     }},
    {"chunked",
     {},
     "the body comes in chunks",
     [](WireReply& reply, Kind, long) { reply.framing = Framing::kChunked; }},
    {"broken-chunks",
     {},
     "the second chunk has an invalid size",
     [](WireReply& reply, Kind, long) {
       reply.framing = Framing::kBrokenChunks;
       reply.ending = Ending::kClose;
     }},
    {"endless",
     {},
     "the body never ends",
     [](WireReply& reply, Kind, long) {
       reply.body.resize(std::min(reply.body.size(), reply.body.rfind("</root>")));
       reply.framing = Framing::kUntilClose;
       reply.ending = Ending::kEndless;
       reply.filler = "<row><CATALOG_NAME>again</CATALOG_NAME></row>";
     }},
    {"endless-head",
     {},
     "the headers never end",
     [](WireReply& reply, Kind, long) {
       reply.body.clear();
       reply.framing = Framing::kUntilClose;
       reply.headEnds = false;
       reply.ending = Ending::kEndless;
       reply.filler = "X-More: and more\r\n";
     }},
    {"bomb", 64, "a small compressed body that decompresses to N MiB of spaces",
     [](WireReply& reply, Kind, long number) {
       const std::size_t place = std::min(reply.body.size(), reply.body.rfind("</"));
       reply.body = GzipBomb(reply.body, place, static_cast<unsigned long>(number));
       reply.headers.emplace_back("Content-Encoding", "gzip");
     }},
    {"fault",
     {},
     "a SOAP fault with status 200",
     [](WireReply& reply, Kind kind, long) { SetFault(reply, kind, 200); }},
    {"fault-500",
     {},
     "a SOAP fault with status 500",
     [](WireReply& reply, Kind kind, long) { SetFault(reply, kind, 500); }},
    {"garble", 97, "every Nth byte of the body is wrong",
     [](WireReply& reply, Kind, long number) {
       const auto step = static_cast<std::size_t>(std::max(number, 1L));
       for (std::size_t at = step - 1; at < reply.body.size(); at += step) reply.body[at] = '\xFF';
     }},
    {"html",
     {},
     "a log-in page with status 200",
     [](WireReply& reply, Kind, long) {
       SetBody(reply, 200, "text/html; charset=utf-8",
               "<!DOCTYPE html>\n<html><head><title>Please sign in</title></head>\n"
               "<body><form><input name=user><input name=password></form></body></html>\n");
     }},
    {"empty",
     {},
     "status 200 and no body",
     [](WireReply& reply, Kind, long) { reply.body.clear(); }},
    {"status", 503, "a web page with status N",
     [](WireReply& reply, Kind, long number) { SetStatus(reply, number); }},
    {"redirect",
     {},
     "a redirect to another URL",
     [](WireReply& reply, Kind, long) {
       SetStatus(reply, 302);
       reply.headers.emplace_back("Location", "/elsewhere");
     }},
    {"double-declaration",
     {},
     "two XML declarations at the beginning",
     [](WireReply& reply, Kind, long) {
       constexpr std::string_view kDeclaration = "<?xml version=\"1.0\"?>";
       if (DeclarationOf(reply.body).empty()) reply.body.insert(0, kDeclaration);
       reply.body.insert(0, kDeclaration);
     }},
    {"random", 1, "a random mood for every request, most replies are normal; N is the seed",
     // Replaced by another mood before the reply is made.
     [](WireReply&, Kind, long) {}},
    {"latin-1", {}, "the reply in ISO-8859-1", ToLatin1},
    {"utf-16", {}, "the reply in UTF-16 with a byte-order mark", ToUtf16},
};

// Moods for clients under load. Excludes moods that hold a connection or memory for long, and moods
// that a client cannot distinguish from a normal reply.
constexpr std::string_view kRandomMoods[] = {
    "stall",
    "stall-head",
    "stall-body",
    "slow:30",
    "drip:0",
    "truncate",
    "cut:0",
    "cut:20",
    "cut:200",
    "reset",
    "reset:300",
    "wrong-length",
    "no-length",
    "broken-chunks",
    "chunked",
    "bomb:4",
    "fault",
    "fault-500",
    "garble",
    "html",
    "empty",
    "status",
    "status:401",
    "status:403",
    "status:404",
    "status:407",
    "status:413",
    "status:500",
    "redirect",
    "utf-16",
    "wrong-length:-10",
    "endless-head",
};
constexpr std::uint64_t kNormalRepliesInTen = 8;

std::string Names() {
  std::string names;
  for (const MoodEntry& mood : kMoods) names.append(names.empty() ? "" : ", ").append(mood.name);
  return names;
}

constexpr long kGreatestNumber = 1'000'000'000;

bool WholeNumber(std::string_view text, long& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string MoodHelp() {
  std::string help;
  for (const MoodEntry& mood : kMoods) {
    std::string form(mood.name);
    if (mood.number) form += ":N";
    if (form.size() < 20) form.resize(20, ' ');
    help += form;
    help.append(mood.what);
    if (mood.number.value_or(kNoNumber) != kNoNumber)
      help += " (" + std::to_string(*mood.number) + ")";
    help += "\n";
  }
  return help;
}

std::optional<Mood> ParseMood(std::string_view text) {
  if (text.empty()) return std::nullopt;
  Mood mood;
  mood.text = text;
  std::string_view name = text;
  if (const std::size_t slash = name.find('/'); slash != std::string_view::npos) {
    const std::string_view nth = name.substr(slash + 1);
    if (!WholeNumber(nth, mood.nth) || mood.nth < 1 || mood.nth > kGreatestNumber) {
      throw std::runtime_error("The mood \"" + std::string(text) +
                               "\" needs a whole number of at least 1 after the slash.");
    }
    name = name.substr(0, slash);
  }
  if (const std::size_t at = name.find('@'); at != std::string_view::npos) {
    mood.requestType = name.substr(at + 1);
    // SAP BW has all rowsets.
    if (!FindRowset(mood.requestType, Kind::kSapBw)) {
      throw std::runtime_error("The mood \"" + std::string(text) +
                               "\" has the unknown request type \"" + mood.requestType +
                               "\"; use one such as MDSCHEMA_CUBES.");
    }
    name = name.substr(0, at);
  }
  const std::size_t colon = name.find(':');
  const std::string_view number =
      colon == std::string_view::npos ? std::string_view() : name.substr(colon + 1);
  name = name.substr(0, colon);
  const auto* entry = std::ranges::find(kMoods, name, &MoodEntry::name);
  if (entry == std::end(kMoods)) {
    throw std::runtime_error("Unknown mood \"" + std::string(name) +
                             "\"; expected one of: " + Names() + ".");
  }
  mood.entry = entry;
  mood.number = entry->number.value_or(0);
  if (colon == std::string_view::npos) return mood;
  const bool whole = WholeNumber(number, mood.number);
  // Only wrong-length accepts negative numbers.
  const bool negative = mood.number < 0 && name != "wrong-length";
  if (!entry->number || !whole || negative || mood.number > kGreatestNumber) {
    throw std::runtime_error(
        "The mood \"" + std::string(text) +
        (entry->number ? "\" needs a whole number after the colon." : "\" takes no number."));
  }
  return mood;
}

bool Mood::IsRandom() const { return entry->name == "random"; }

std::string_view RandomMood(std::uint64_t choice) {
  if (choice % 10 < kNormalRepliesInTen) return {};
  return kRandomMoods[choice / 10 % std::size(kRandomMoods)];
}

WireReply InMood(const Mood& mood, Kind kind, const HttpReply& proper) {
  WireReply reply;
  SetBody(reply, proper.status, proper.contentType, proper.body);
  mood.entry->apply(reply, kind, mood.number);
  return reply;
}

}  // namespace sample
