// Documents that attack the reader: entities, deep nesting, and items of a hundred million bytes.

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xmlIO.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Utility/Generic/ErrorMessage.h"
#include "inprocess/Operations.h"
#include "inprocess/SampleReplies.h"
#include "inprocess/Server.h"
#include "support/Effort.h"
#include "support/LoopbackSocket.h"
#include "support/Text.h"

namespace {

using std::chrono::steady_clock;

constexpr auto kTarget = ServerInfo::kTessera;

/// The outcome of an exchange with this reply: "read", or the error text.
std::string OutcomeOf(std::string reply) {
  // The agent is created in this process, since an agent's thread does not survive a fork.
  const XmlADiscoverAgentHeap agent = inprocess::MakeAgent(kTarget);
  inprocess::SetServer([&](std::string_view) { return inprocess::Answer{std::move(reply)}; });
  support::Outputs outputs;
  try {
    inprocess::ExchangeFor("MDSCHEMA_MEASURES").Run(*agent, outputs);
  } catch (const ErrorMessage& error) {
    String text;
    error.RetrieveErrorMessages(text);
    return support::Narrow(text);
  }
  return "read";
}

std::string Rows(const std::string& inside) {
  return "<root><row><MEASURE_NAME>" + inside + "</MEASURE_NAME></row></root>";
}

/// A listening port that records whether anybody connected.
class Listener {
 public:
  Listener() { m_socket.Listen(5); }
  std::string Url() const { return "http://" + m_socket.Authority() + "/x"; }
  bool WasCalled() const {
    const int connection = accept(m_socket.Descriptor(), nullptr, nullptr);
    if (connection >= 0) close(connection);
    return connection >= 0;
  }

 private:
  support::LoopbackSocket m_socket{SOCK_STREAM | SOCK_NONBLOCK};
};

/// A file that records whether anybody opened it.
class WatchedFile {
 public:
  WatchedFile() : m_watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    const int file = mkstemp(m_name.data());
    EXPECT_GE(file, 0);
    EXPECT_EQ(write(file, "inside", 6), 6);
    close(file);
    EXPECT_GE(inotify_add_watch(m_watch, m_name.c_str(), IN_OPEN | IN_ACCESS), 0);
  }
  ~WatchedFile() {
    close(m_watch);
    std::filesystem::remove(m_name);
  }
  WatchedFile(const WatchedFile&) = delete;
  WatchedFile& operator=(const WatchedFile&) = delete;
  const std::string& Name() const { return m_name; }
  bool WasOpened() const {
    char events[4096];
    return read(m_watch, events, sizeof events) > 0;
  }

 private:
  int m_watch;
  std::string m_name = std::filesystem::temp_directory_path() / "xmla-entity-XXXXXX";
};

int g_loaded = 0;  // what libxml2 tried to load

xmlParserInputPtr CountLoading(const char*, const char*, xmlParserCtxtPtr) {
  ++g_loaded;
  return nullptr;
}

TEST(HostileDocuments, WithADocumentTypeAreRefusedWithoutOpeningAnything) {
  const Listener listener;
  const WatchedFile file;
  const xmlExternalEntityLoader loader = xmlGetExternalEntityLoader();
  xmlSetExternalEntityLoader(&CountLoading);
  std::string laughs = "<!DOCTYPE root [<!ENTITY a0 'ha'>";
  for (int i = 1; i < 30; ++i) {
    const std::string before = "&a" + std::to_string(i - 1) + ";";
    laughs += "<!ENTITY a" + std::to_string(i) + " '" + before + before + before + before + "'>";
  }
  std::string square = "<!DOCTYPE root [<!ENTITY a '" + std::string(100000, 'x') + "'>]><root>";
  for (int i = 0; i < 50000; ++i) square += "&a;";
  const std::string documents[] = {
      "<!DOCTYPE root><root/>",
      "<?xml version='1.0'?><!DOCTYPE root [<!ENTITY a 'b'>]>" + Rows("&a;"),
      laughs + "]>" + Rows("&a29;"),
      square + "</root>",
      "<!DOCTYPE root [<!ENTITY a '&b;'><!ENTITY b '&a;'>]>" + Rows("&a;"),
      "<!DOCTYPE root [<!ENTITY a SYSTEM '" + file.Name() + "'>]>" + Rows("&a;"),
      "<!DOCTYPE root [<!ENTITY a SYSTEM 'file://" + file.Name() + "'>]>" + Rows("&a;"),
      "<!DOCTYPE root [<!ENTITY a SYSTEM '" + listener.Url() + "'>]>" + Rows("&a;"),
      "<!DOCTYPE root [<!ENTITY % a SYSTEM '" + listener.Url() + "'> %a;]><root/>",
      "<!DOCTYPE root [<!ENTITY % a SYSTEM '" + file.Name() + "'> %a;]><root/>",
      "<!DOCTYPE root SYSTEM '" + listener.Url() + "'><root/>",
      "<!DOCTYPE root SYSTEM '" + file.Name() + "'><root/>",
      "<!DOCTYPE root PUBLIC '-//W3C//DTD XHTML 1.0 Strict//EN' '" + listener.Url() + "'><root/>",
      "<!DOCTYPE root [<!ATTLIST root a CDATA 'b'>]><root/>",
      "<!DOCTYPE root [<!NOTATION n SYSTEM '" + file.Name() + "'>]><root/>",
      "<!-- first --><!DOCTYPE root><root/>",
      "<?p i?>\n<!DOCTYPE root SYSTEM '" + file.Name() + "' [<!ENTITY a 'b'>]><root>&a;</root>",
      "<?xml version='1.0'?><?xml version='1.0'?><!DOCTYPE root><root/>",
  };
  for (const std::string& document : documents) {
    const steady_clock::time_point begin = steady_clock::now();
    const std::string outcome = OutcomeOf(document);
    EXPECT_NE(outcome.find("document type declaration is not accepted"), std::string::npos)
        << outcome << "\n"
        << document.substr(0, 200);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(10));
  }
  const std::string wide(5000, ' ');
  EXPECT_EQ(OutcomeOf("<!--" + wide + "<!DOCTYPE root>" + wide + "-->" + wide + "<?p <!DOCTYPE?>" +
                      wide + "<root/>"),
            "read");
  // Without a declaration, an instruction and an inclusion are plain text.
  EXPECT_EQ(OutcomeOf("<?xml-stylesheet href='" + file.Name() + "'?><root/>"), "read");
  EXPECT_EQ(OutcomeOf("<root xmlns:i='http://www.w3.org/2001/XInclude'><i:include href='" +
                      file.Name() + "'/></root>"),
            "read");
  EXPECT_EQ(g_loaded, 0);
  EXPECT_FALSE(listener.WasCalled());
  EXPECT_FALSE(file.WasOpened());
  // Verifies that the detectors themselves work.
  std::ifstream(file.Name()).get();
  EXPECT_TRUE(file.WasOpened());
  xmlSetExternalEntityLoader(loader);
  support::PrintFigure("document types, entity bombs and external entities",
                       std::to_string(std::size(documents)) +
                           " documents, all refused; 0 files opened, 0 connections made");
}

std::string Repeated(std::size_t count, std::string_view text) {
  std::string all;
  all.reserve(count * text.size());
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

std::string ManyNames(std::size_t bytes) {
  std::string text = "<root>";
  for (std::size_t i = 0; text.size() < bytes; ++i) text += "<n" + std::to_string(i) + "/>";
  return text + "</root>";
}

/// libxml2 compares every attribute of a tag with every other.
std::string ManyAttributes(std::size_t bytes) {
  std::string tag = "<a";
  for (std::size_t i = 0; tag.size() < 60000; ++i) tag += " a" + std::to_string(i) + "=''";
  tag += "/>";
  return "<root>" + Repeated(bytes / 4 / tag.size(), tag) + "</root>";
}

/// libxml2 searches a prefix among all that are declared around an element.
std::string ManyNamespaces(std::size_t bytes) {
  std::string text;
  for (std::size_t level = 0; level < 200; ++level) {
    text += "<a";
    for (std::size_t i = 0; i < 3000; ++i) text += " xmlns:n" + std::to_string(i) + "='u'";
    text += ">";
  }
  return text + Repeated(bytes / 6, "<p:a/>");
}

TEST(HostileDocuments, WithinTheLimitsAreRead) {
  std::string namespaces;
  for (int i = 0; i < 999; ++i) namespaces += " xmlns:n" + std::to_string(i) + "='u'";
  std::string names;
  for (int i = 0; i < 99000; ++i) names += "<n" + std::to_string(i) + "/>";
  const std::string documents[] = {
      "<root a='" + std::string(60000, 'x') + "'/>",
      "<root><!--" + std::string(1000000, 'x') + "--></root>",
      "<root" + namespaces + "><a/><a xmlns='v'/><a xmlns='v'/></root>",
      "<root>" + names + "</root>",
      Repeated(250, "<a>") + Repeated(250, "</a>"),
      Rows(std::string(8388608, 'x')),
  };
  for (const std::string& document : documents) EXPECT_EQ(OutcomeOf(document), "read");
}

/// Each length ends a read of the parser at another place of the tag.
TEST(HostileDocuments, ManyBlanksBeforeTheRootAreRead) {
  for (std::size_t i = 0; i < 28; ++i) {
    const std::string document = "<?xml version=\"1.0\"?>" +
                                 std::string(10'000'000 + i * 150, ' ') + "<r a=\"" +
                                 Repeated(6000, "&amp;") + "\"/>";
    EXPECT_EQ(OutcomeOf(document), "read") << i;
  }
}

TEST(HostileDocuments, BlanksBeforeTheRootDoNotCountAsPartOfItsTag) {
  std::string root = "<root";
  for (int i = 0; i < 200; ++i) root += " xmlns:n" + std::to_string(i) + "=\"urn:schemas\"";
  for (std::size_t blanks = 60'000; blanks < 72'000; blanks += 500)
    EXPECT_EQ(OutcomeOf("<?xml version=\"1.0\"?>" + std::string(blanks, ' ') + root + "/>"), "read")
        << blanks;
}

struct Huge {
  const char* what;
  std::string (*make)(std::size_t bytes);
  const char* outcome;  // part of the error text
};

const Huge kHuge[] = {
    {"nesting of 100,000 elements",
     [](std::size_t) { return Repeated(100000, "<row>") + Repeated(100000, "</row>"); },
     "nested deeper than 250"},
    {"nesting without end", [](std::size_t bytes) { return Repeated(bytes / 3, "<a>"); },
     "nested deeper than 250"},
    {"the name of a document type",
     [](std::size_t bytes) { return "<!DOCTYPE " + std::string(bytes, 'n') + "><root/>"; },
     "a document type declaration is not accepted"},
    {"blanks in a document type",
     [](std::size_t bytes) { return "<!DOCTYPE" + std::string(bytes, ' ') + "root><root/>"; },
     "a document type declaration is not accepted"},
    {"the system identifier of a document type",
     [](std::size_t bytes) {
       return "<!DOCTYPE root SYSTEM '" + std::string(bytes, 'x') + "'><root/>";
     },
     "a document type declaration is not accepted"},
    {"an attribute",
     [](std::size_t bytes) { return "<root a='" + std::string(bytes, 'x') + "'/>"; },
     "a tag is longer than 65536 bytes"},
    {"an attribute that does not end",
     [](std::size_t bytes) { return "<root a='" + std::string(bytes, 'x'); },
     "a tag is longer than 65536 bytes"},
    {"attributes by the million",
     [](std::size_t bytes) {
       std::string text = "<root";
       for (std::size_t i = 0; text.size() < bytes; ++i) text += " a" + std::to_string(i) + "=''";
       return text + "/>";
     },
     "a tag is longer than 65536 bytes"},
    {"a text", [](std::size_t bytes) { return Rows(std::string(bytes, 'x')); },
     "longer than 8388608 characters"},
    {"a text of references",
     [](std::size_t bytes) {
       return Rows(Repeated(std::min<std::size_t>(bytes, 33000000) / 4, "&lt;"));
     },
     "read"},
    {"a text of blanks", [](std::size_t bytes) { return Rows(std::string(bytes, ' ')); },
     "longer than 8388608 characters"},
    {"a CDATA section",
     [](std::size_t bytes) { return Rows("<![CDATA[" + std::string(bytes, 'x') + "]]>"); },
     "longer than 8388608 characters"},
    {"blanks between elements",
     [](std::size_t bytes) { return "<root>" + std::string(bytes, ' ') + "<row/></root>"; },
     "longer than 8388608 characters"},
    {"blanks in front", [](std::size_t bytes) { return std::string(bytes, '\n') + "<root/>"; },
     "read"},
    {"blanks behind the declaration",
     [](std::size_t bytes) {
       return "<?xml version='1.0'?>" + std::string(bytes, ' ') + "<root/>";
     },
     "read"},
    {"blanks behind the root",
     [](std::size_t bytes) { return "<root/>" + std::string(bytes, ' ') + "<!---->"; }, "read"},
    {"blanks behind", [](std::size_t bytes) { return "<root/>" + std::string(bytes, ' '); },
     "read"},
    {"null characters behind",
     [](std::size_t bytes) { return "<root/>" + std::string(bytes, '\0'); }, "read"},
    {"blanks inside a tag",
     [](std::size_t bytes) { return "<root" + std::string(bytes, ' ') + "/>"; },
     "a tag is longer than 65536 bytes"},
    {"a comment",
     [](std::size_t bytes) { return "<root><!--" + std::string(bytes, 'x') + "--></root>"; },
     "a comment is longer than 10000000 bytes"},
    {"a comment that does not end",
     [](std::size_t bytes) { return "<root><!--" + std::string(bytes, 'x'); },
     "a comment is longer than 10000000 bytes"},
    {"an instruction",
     [](std::size_t bytes) { return "<root><?p " + std::string(bytes, 'x') + "?></root>"; },
     "a processing instruction is longer than 10000000 bytes"},
    {"an instruction's target",
     [](std::size_t bytes) { return "<?" + std::string(bytes, 'p') + "?><root/>"; },
     "a processing instruction is longer than 10000000 bytes"},
    {"an element's name", [](std::size_t bytes) { return "<" + std::string(bytes, 'n') + "/>"; },
     "a tag is longer than 65536 bytes"},
    {"an entity's name",
     [](std::size_t bytes) { return "<root>&" + std::string(bytes, 'n') + ";</root>"; },
     "a tag is longer than 65536 bytes"},
    {"names of 60 kB",
     [](std::size_t bytes) {
       std::string text = "<root>";
       for (std::size_t i = 0; text.size() < bytes; ++i)
         text += "<n" + std::to_string(i) + std::string(60000, 'n') + "/>";
       return text + "</root>";
     },
     "read"},
    {"names that are all different", &ManyNames, "more than 100000 different names"},
    {"attributes in tags of 60 kB", &ManyAttributes, "read"},
    {"namespaces by the thousand", &ManyNamespaces, "more than 1000 namespaces"},
    {"a declaration",
     [](std::size_t bytes) {
       return "<?xml version='1.0'" + std::string(bytes, ' ') + "?><root/>";
     },
     "read"},
    {"elements by the million",
     [](std::size_t bytes) { return "<root>" + Repeated(bytes / 4, "<a/>") + "</root>"; }, "read"},
    {"a fault's text",
     [](std::size_t bytes) {
       return "<Envelope><Fault><faultstring>" + std::string(bytes, 'x') +
              "</faultstring></Fault></Envelope>";
     },
     "longer than 8388608 characters"},
    {"fault texts by the million",
     [](std::size_t bytes) {
       return "<Envelope>" + Repeated(bytes / 29, "<faultstring>x</faultstring>") + "</Envelope>";
     },
     "[64203]"},
    {"ill-formed bytes",  // three bytes each after conversion, so fewer than the limit of a reply
     [](std::size_t bytes) {
       return Rows(std::string(std::min<std::size_t>(bytes, 80'000'000), '\xFF'));
     },
     "longer than 8388608 characters"},
};

class HugeDocument : public testing::TestWithParam<Huge> {};

TEST_P(HugeDocument, IsReadOrRefusedWithinTimeAndMemory) {
  const std::size_t size = (support::IsLong() ? 100u : 12u) * std::size_t{1000 * 1000};
  std::string document = GetParam().make(size);
  // In a child process, whose memory can be measured.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const steady_clock::time_point begin = steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    const std::string outcome = OutcomeOf(std::move(document));
    [[maybe_unused]] const ssize_t written = write(ends[1], outcome.data(), outcome.size());
    _exit(0);
  }
  close(ends[1]);
  std::string outcome;
  char buffer[4096];
  for (ssize_t count = 0; (count = read(ends[0], buffer, sizeof buffer)) > 0;)
    outcome.append(buffer, static_cast<std::size_t>(count));
  close(ends[0]);
  int status = -1;
  rusage usage{};
  ASSERT_EQ(wait4(child, &status, 0, &usage), child);
  const double seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
  EXPECT_EQ(status, 0);
  EXPECT_NE(outcome, "");
  EXPECT_NE(outcome.find(GetParam().outcome), std::string::npos) << outcome.substr(0, 500);
  EXPECT_LT(outcome.size(), GetParam().outcome == std::string("[64203]") ? size : 2000u);
  EXPECT_LT(seconds, support::kIsSanitized ? 90 : 20);
  const long megabytes = usage.ru_maxrss / 1024;
  // Memory for the document, for its parts in flight between server, client and reader, and for the
  // wide text of ill-formed input.
  if (!support::kIsSanitized) {
    EXPECT_LT(megabytes, 300 + 12 * static_cast<long>(document.size() / 1000000));
  }
  std::string time = std::to_string(seconds);
  time.resize(time.find('.') + 3);
  support::PrintFigure(std::string("hostile document, ") + GetParam().what,
                       std::to_string(document.size() / 1000000) +
                           " MB: " + (outcome == "read" ? "read" : "refused") + " in " + time +
                           " s with " + std::to_string(megabytes) + " MB of memory in total");
}

INSTANTIATE_TEST_SUITE_P(HostileDocuments, HugeDocument, testing::ValuesIn(kHuge),
                         [](const auto& test) {
                           std::string name;
                           for (const char c : std::string_view(test.param.what))
                             name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

}  // namespace
