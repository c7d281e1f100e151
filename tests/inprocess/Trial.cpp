#include "inprocess/Trial.h"

#include <algorithm>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "http/ReplyCharset.h"
#include "inprocess/Oracle.h"
#include "inprocess/Server.h"

namespace inprocess {
namespace {

constexpr int kFault = 64203;
constexpr int kParseError = 46100;

ServerInfo::TargetType SampleFor(ServerInfo::TargetType target) {
  for (const SampleKind& kind : kSampleKinds)
    if (kind.target == target) return target;
  return kSampleKinds.front().target;
}

}  // namespace

Trial::Trial(ServerInfo::TargetType target, const Exchange& exchange)
    : m_target(target),
      m_exchange(exchange),
      m_agent(MakeAgent(target)),
      m_normal(ShortReply(SampleFor(target), exchange.requestType).body) {
  m_normalRecords = Run(m_normal).records;
}

Trial::Result Trial::Run(std::string_view reply) {
  SetServer([&](std::string_view request) {
    const std::string_view type = RequestTypeOf(request);
    // A levels request is followed by a properties request per level.
    return Answer{type == m_exchange.requestType ? std::string(reply)
                                                 : ShortReply(SampleFor(m_target), type).body};
  });
  Result result;
  support::Outputs outputs;
  try {
    m_exchange.Run(*m_agent, outputs);
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(result.text);
    result.number = error.GetNumber();
  }
  result.records = outputs.Records();
  SetServer([](std::string_view) { return Answer{"", 503}; });
  return result;
}

std::string Trial::Compare(std::string_view reply, const Result& result) const {
  if ((result.number == kNoError) != result.text.empty()) return "no error text";
  if (result.text.find(L"\n") != String::npos) return "an error text of more than one line";
  NarrowString text(reply);
  String charset;
  const bool isKnownCharset =
      ConvertReplyToUTF8(text, "text/xml", HTTPClientOptions().maxReplyBytes, charset) ==
      CharsetResult::kReady;
  const String::View name = m_exchange.recordName ? m_exchange.recordName : L"";
  const Verdict verdict = JudgeReply(text.view(), IsBare(m_target), name);
  const bool isRows = isKnownCharset && verdict.kind == Verdict::kRows;
  switch (m_outcome) {
    case Outcome::kRead:
      if (!isRows) return "an ill-formed document was read without error";
      if (m_exchange.recordName && result.records.size() != verdict.counted)
        return "wrong number of records";
      return {};
    case Outcome::kFault:
      return verdict.kind == Verdict::kFault ? "" : "a reply without fault was reported as a fault";
    case Outcome::kParseError:
      return isRows || verdict.kind == Verdict::kFault ? "a well-formed reply was refused" : "";
    case Outcome::kNotXml:
      return isKnownCharset && verdict.kind != Verdict::kIllFormed
                 ? "an XML reply was refused as not XML"
                 : "";
  }
  return {};
}

std::string Trial::Try(std::string_view reply, bool andNext) {
  const Result result = Run(reply);
  m_outcome = result.number == kNoError      ? Outcome::kRead
              : result.number == kFault      ? Outcome::kFault
              : result.number == kParseError ? Outcome::kParseError
                                             : Outcome::kNotXml;
  if (std::string violation = Compare(reply, result); !violation.empty()) return violation;
  if (!andNext) return {};
  const Result after = Run(m_normal);
  if (after.number != kNoError) return "the next reply failed";
  return after.records == m_normalRecords ? "" : "the next reply gave other records";
}

}  // namespace inprocess
