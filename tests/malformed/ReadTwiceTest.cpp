// Every reply is read twice, for a fault and for its rows, but parsed once: what was read is kept.
// What comes of it must be what parsing twice gives, wherever a reply is cut and however its
// elements are rearranged.

#include <algorithm>
#include <span>

#include "Mutations.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXThread.h"
#include "inprocess/Oracle.h"
#include "inprocess/SampleReplies.h"
#include "support/Effort.h"

namespace {

using inprocess::Reply;

/// All that a reading gives.
struct Reading {
  std::wstring elements;
  std::wstring faults;  // those of the elements that tell of a fault
  bool failed = false;
  bool operator==(const Reading&) const = default;
};

constexpr String::View kFaults[] = {L"faultcode", L"faultstring"};

class Comparison {
 public:
  Comparison()
      : m_plain(SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1)),
        m_driver(SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1)) {}

  /// True when both ways lead to the same, which is what the XML library makes of it in one piece.
  bool IsSame(std::string_view bytes) {
    ++m_tried;
    String plainError;
    const NarrowString narrow(bytes);
    const String wide = BaseStringUtil::StdStringToString(narrow, BaseStringUtil::kCodePageUTF8);
    const Reading plain = Parsed(*m_plain, &SAX2XmlReadDriver::ParseInMem, wide, plainError);
    m_driver->KeepElements();
    String error;
    const Reading first = Parsed(*m_driver, &SAX2XmlReadDriver::ParseBytesInMem, narrow, error);
    if (!(first == plain) || !(error == plainError)) return false;
    if (m_driver->ReadAgain() == plain.failed) return false;
    if (plain.failed) return !m_driver->ReadAgain();
    std::wstring elements;
    inprocess::JudgeDocument(bytes, {}, &elements);
    if (plain.elements != elements) return false;
    ++m_readAgain;
    if (!(Read(*m_driver) == plain) || m_driver->ReadAgain()) return false;
    // The exchange looks for faults the first time, and passes over the rest.
    m_driver->KeepElements();
    const Reading faults =
        Parsed(*m_driver, &SAX2XmlReadDriver::ParseBytesInMem, narrow, error, kFaults);
    return faults.faults == plain.faults && !faults.failed && m_driver->ReadAgain() &&
           Read(*m_driver) == plain;
  }

  void Conclude(const std::string& what) const {
    support::PrintFigure(
        what, std::to_string(m_tried) + " replies: " + std::to_string(m_readAgain) +
                  " read again from what was kept, " + std::to_string(m_tried - m_readAgain) +
                  " refused alike; 0 different");
  }

 private:
  using Names = std::span<const String::View>;

  static Reading Read(SAX2XmlReadDriver& driver, Names names = {}) {
    Reading reading;
    while (const RefCnt<SAX2XmlElement> element =
               names.empty() ? driver.Read() : driver.ReadAmong(names)) {
      if (element->HasError()) {
        reading.failed = true;
        continue;
      }
      const bool isFault =
          std::any_of(std::begin(kFaults), std::end(kFaults), [&](String::View name) {
            return BaseStringUtil::IsCaseInsensitiveMatch(element->GetLocalName(), name);
          });
      for (const String& text : {element->GetLocalName(), element->GetValue()}) {
        reading.elements.append(text.view()) += L'|';
        if (isFault) reading.faults.append(text.view()) += L'|';
      }
    }
    return reading;
  }

  template <class Text>
  using Operation = bool (SAX2XmlReadDriver::*)(Text, String&);

  /// A document that the hand-over holds whole is parsed and then read on one thread.
  template <class Text>
  static Reading Parsed(SAX2XmlReadDriver& driver, Operation<Text> parse, Text text, String& error,
                        Names names = {}) {
    constexpr std::size_t kSurelyHeld = 8000;  // characters: fewer than 2048 elements like <a/>
    if (text.size() < kSurelyHeld) {
      (driver.*parse)(std::move(text), error);
      return Read(driver, names);
    }
    using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, Text, String>;
    const RefCnt<VXThreadJob> job(new Job(&driver, parse, std::move(text), error));
    const RefCnt<VXThread> thread(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
    thread->Start();
    Reading reading = Read(driver, names);
    thread->WaitUntilStopped();
    return reading;
  }

  Heap<SAX2XmlReadDriver> m_plain;
  Heap<SAX2XmlReadDriver> m_driver;
  std::size_t m_tried = 0;
  std::size_t m_readAgain = 0;
};

TEST(ReadTwice, RepliesCutAtAnyByteGiveWhatParsingTwiceGives) {
  std::vector<Reply> replies = inprocess::SampleReplies();
  for (const Reply& reply : inprocess::RecordedReplies(XMLA_RECORDED_REPLIES))
    replies.push_back(reply);
  std::size_t bytes = 0;
  for (const Reply& reply : replies) bytes += reply.body.size();
  const std::size_t step = support::Stride<std::size_t>(bytes, 6000);
  Comparison comparison;
  std::size_t position = 0;
  for (const Reply& reply : replies) {
    ASSERT_TRUE(comparison.IsSame(reply.body)) << reply.name;
    for (; position < reply.body.size(); position += step)
      ASSERT_TRUE(comparison.IsSame(std::string_view(reply.body).substr(0, position)))
          << reply.name << " cut at byte " << position;
    position -= reply.body.size();
  }
  comparison.Conclude("read twice, parsed once, whole replies and ones cut at a byte");
}

TEST(ReadTwice, RearrangedRepliesCutAtAnyByteToo) {
  std::vector<std::string> texts;
  for (const inprocess::SampleKind& kind : inprocess::kSampleKinds)
    for (const char* const type :
         {"MDSCHEMA_HIERARCHIES", "MDSCHEMA_LEVELS", "MDSCHEMA_MEASURES"}) {
      const std::string& body = inprocess::ShortReply(kind.target, type).body;
      const std::vector<malformed::Element> elements = malformed::Elements(body);
      for (std::size_t i = 0; i < elements.size(); ++i)
        for (const malformed::Mutation& mutation : malformed::Mutations())
          texts.push_back(mutation.apply(body, elements[i], malformed::NextSibling(elements, i)));
    }
  std::size_t bytes = 0;
  for (const std::string& text : texts) bytes += text.size();
  const std::size_t step = support::Stride<std::size_t>(bytes, 6000);
  Comparison comparison;
  std::size_t position = 0;
  for (const std::string& text : texts) {
    ASSERT_TRUE(comparison.IsSame(text)) << text;
    for (; position < text.size(); position += step)
      ASSERT_TRUE(comparison.IsSame(std::string_view(text).substr(0, position)))
          << text.substr(0, position);
    position -= text.size();
  }
  comparison.Conclude("read twice, parsed once, rearranged replies and ones cut at a byte");
}

}  // namespace
