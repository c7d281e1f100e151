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
      m_good(ShortReply(SampleFor(target), exchange.requestType).body) {
  m_goodRecords = Run(m_good).records;
}

Trial::Result Trial::Run(std::string_view reply) {
  SetServer([&](std::string_view request) {
    const std::string_view type = RequestTypeOf(request);
    // Levels bring a request for the properties of each with them.
    return Answer{type == m_exchange.requestType ? std::string(reply)
                                                 : ShortReply(SampleFor(m_target), type).body};
  });
  Result result;
  try {
    m_exchange.run(*m_agent, result.records);
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(result.text);
    result.number = error.GetNumber();
  }
  SetServer([](std::string_view) { return Answer{"", 503}; });
  return result;
}

std::string Trial::Compare(std::string_view reply, const Result& result) const {
  if ((result.number == kNoError) != result.text.empty()) return "an error without text";
  if (result.text.find(L"\n") != String::npos) return "an error of several lines";
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
      if (!isRows) return "read in silence, though it is no well-formed document";
      if (m_exchange.recordName && std::count(result.records.begin(), result.records.end(), '\n') !=
                                       static_cast<std::ptrdiff_t>(verdict.counted))
        return "records lost or made up";
      return {};
    case Outcome::kFault:
      return verdict.kind == Verdict::kFault ? "" : "a fault that is none";
    case Outcome::kParseError:
      return isRows || verdict.kind == Verdict::kFault ? "refused, though it is well-formed" : "";
    case Outcome::kNotXml:
      return isKnownCharset && verdict.kind != Verdict::kIllFormed
                 ? "refused as no XML, though it is"
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
  if (std::string complaint = Compare(reply, result); !complaint.empty()) return complaint;
  if (!andNext) return {};
  const Result after = Run(m_good);
  if (after.number != kNoError) return "the next reply is not read";
  return after.records == m_goodRecords ? "" : "the next reply is read differently";
}

}  // namespace inprocess
