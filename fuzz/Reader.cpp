// Fuzzes the SAX reader as the exchange uses it: stopped at any moment, or read to the end.
// Compares the result with libxml2's parse of the whole document.

#include <memory>
#include <thread>

#include "Input.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXThread.h"
#include "inprocess/Oracle.h"
#include "inprocess/PlainText.h"

namespace {

using fuzz::Require;

struct Reading {
  std::string elements;
  std::size_t count = 0;
  bool failed = false;
  bool cancelled = false;
  bool operator==(const Reading&) const = default;
};

void Describe(const SAX2XmlElement& element, std::string& text) {
  for (const String& part : {element.GetLocalName(), element.GetValue()}) {
    text += BaseStringUtil::StringToStdString(part, BaseStringUtil::kCodePageUTF8).view();
    text += '|';
  }
}

/// Reads until the end, or calls `stop` after `stopAt` elements.
template <class Stop>
Reading Read(SAX2XmlReadDriver& driver, std::size_t stopAt, Stop stop) {
  Reading reading;
  for (;;) {
    if (reading.count == stopAt) stop();
    const RefCnt<SAX2XmlElement> element = driver.Read();
    if (!element) return reading;
    Require(!(reading.failed || reading.cancelled), "an element after the end");
    reading.failed = element->HasError();
    reading.cancelled = element->IsCancel();
    if (reading.failed || reading.cancelled) continue;
    Describe(*element, reading.elements);
    ++reading.count;
  }
}

constexpr std::size_t kNever = ~std::size_t{0};
const auto kDoNothing = [] {};

/// Parses on another thread while `read` is called on this one.
template <class Text, class Read>
void Parse(SAX2XmlReadDriver& driver, bool (SAX2XmlReadDriver::*parse)(Text, String&), Text text,
           String& error, Read read) {
  using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, Text, String>;
  const RefCnt<VXThreadJob> job(new Job(&driver, parse, text, error));
  const RefCnt<VXThread> thread(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
  thread->Start();
  read(*thread);
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  thread->WaitUntilStopped();
}

Reading ReadWhole(SAX2XmlReadDriver& driver, std::string_view bytes, bool asBytes, String& error) {
  Reading reading;
  const auto read = [&](VXThread&) { reading = Read(driver, kNever, kDoNothing); };
  if (asBytes)
    Parse(driver, &SAX2XmlReadDriver::ParseBytesInMem, NarrowString(bytes), error, read);
  else
    Parse(driver, &SAX2XmlReadDriver::ParseInMem,
          BaseStringUtil::StdStringToString(NarrowString(bytes), BaseStringUtil::kCodePageUTF8),
          error, read);
  return reading;
}

enum class Stop { kByDriver, kByThread, kByOtherThread, kByState, kByLeaving, kWays };

void ReadStopped(SAX2XmlReadDriver& driver, std::string_view bytes, Stop way, std::size_t stopAt) {
  String error;
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  const VXExecutionState::Scope scope(*state);
  Parse(driver, &SAX2XmlReadDriver::ParseBytesInMem, NarrowString(bytes), error,
        [&](VXThread& thread) {
          std::thread other;
          if (way == Stop::kByOtherThread) other = std::thread([&] { driver.Cancel(); });
          if (way != Stop::kByLeaving) {
            Read(driver, stopAt, [&] {
              if (way == Stop::kByDriver) driver.Cancel();
              if (way == Stop::kByThread)
                thread.RequestCancellation(0, VXExecutionState::kCancelReasonHost);
              if (way == Stop::kByState)
                state->RequestCancellation(VXExecutionState::kCancelReasonHost);
            });
          } else {
            for (std::size_t i = 0; i < stopAt && driver.Read(); ++i) continue;
          }
          if (other.joinable()) other.join();
        });
}

void CompareWithLibrary(std::string_view bytes, const Reading& reading, const String& error) {
  std::wstring elements;
  const inprocess::Verdict verdict = inprocess::JudgeDocument(bytes, {}, &elements);
  const bool isRefused = verdict.kind == inprocess::Verdict::kIllFormed ||
                         verdict.kind == inprocess::Verdict::kRefused;
  Require(reading.failed == isRefused, "the result differs from libxml2's", bytes);
  Require(reading.failed || reading.elements == inprocess::PlainEncode(elements),
          "other elements than the XML library's", bytes);
  Require(reading.failed == !error.empty(), "error and error text are inconsistent", bytes);
  Require(error.find(L"\n") == String::npos && error.size() < 400, "a form of error text", bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto driver =
      SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(SAX2XmlReadDriverFactory::kThreadedReader);
  fuzz::Input input(data, size);
  const auto way = static_cast<Stop>(input.Byte() % static_cast<unsigned int>(Stop::kWays));
  const std::size_t stopAt = input.Byte();
  const std::string_view bytes = input.Rest();

  ReadStopped(*driver, bytes, way, stopAt);

  String error;
  const Reading reading = ReadWhole(*driver, bytes, true, error);
  CompareWithLibrary(bytes, reading, error);
  String wideError;
  Require(ReadWhole(*driver, bytes, false, wideError) == reading && error == wideError,
          "bytes and text gave different results", bytes);
  return 0;
}
