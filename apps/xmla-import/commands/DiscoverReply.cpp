#include "commands/DiscoverReply.h"

#include <algorithm>
#include <initializer_list>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXThread.h"

namespace {

bool IsOneOf(const String& name, std::initializer_list<const wchar_t*> names) {
  return std::ranges::any_of(names, [&name](const wchar_t* each) {
    return BaseStringUtil::IsCaseInsensitiveMatch(name, each);
  });
}

}  // namespace

bool IsDiscoverReply(const NarrowString& reply) {
  const Heap<SAX2XmlReadDriver> driver =
      SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(SAX2XmlReadDriverFactory::kThreadedReader);
  String error;
  using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, NarrowString, String>;
  const RefCnt<VXThreadJob> job(
      new Job(driver.get(), &SAX2XmlReadDriver::ParseBytesInMem, reply, error));
  const RefCnt<VXThread> parser(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
  parser->Start();
  bool hasRow = false;
  bool hasResult = false;
  bool isEnvelope = false;
  // Children come before their parent.
  while (const RefCnt<SAX2XmlElement> element = driver->Read()) {
    if (element->HasError() || element->IsCancel()) break;
    const String& name = element->GetLocalName();
    hasRow |= IsOneOf(name, {L"row", L"faultcode"});
    hasResult |= IsOneOf(name, {L"DiscoverResponse", L"return", L"root", L"Fault"});
    if (element->GetDepth() == 0) isEnvelope = IsOneOf(name, {L"Envelope"});
  }
  parser->WaitUntilStopped();
  return hasRow || (isEnvelope && hasResult);
}
