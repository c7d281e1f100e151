#pragma once

#include <string>
#include <vector>

#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXThread.h"
#include "support/Text.h"

/// The elements and the error that a consumer got from a parse.
struct Reading {
  struct Item {
    std::wstring name;
    std::wstring value;
    bool operator==(const Item&) const = default;
  };

  std::vector<Item> items;
  bool failed = false;
  bool cancelled = false;
  bool parsed = false;  // return value of the parse
  String error;
};

using ReaderJob = VXThreadJob_TwoArg<SAX2XmlReadDriver, String, String>;
using ReaderThread = VXUserThread<ManagedJobFunctor>;

inline RefCnt<VXThread> MakeReaderThread(SAX2XmlReadDriver& driver, const String& text,
                                         String& error) {
  const RefCnt<VXThreadJob> job(
      new ReaderJob(&driver, &SAX2XmlReadDriver::ParseInMem, text, error));
  return RefCnt<VXThread>(new ReaderThread(ManagedJobFunctor(job)));
}

/// Reads all elements. Stops if `go` returns false.
template <class Go>
void ReadElements(SAX2XmlReadDriver& driver, Reading& reading, Go go) {
  while (const RefCnt<SAX2XmlElement> element = driver.Read()) {
    if (element->HasError()) {
      reading.failed = true;
    } else if (element->IsCancel()) {
      reading.cancelled = true;
    } else {
      reading.items.push_back(
          {std::wstring(element->GetLocalName().view()), std::wstring(element->GetValue().view())});
    }
    if (!go()) return;
  }
}

/// Parses one document with a driver as an agent does: on another thread.
inline Reading ReadDocument(SAX2XmlReadDriver& driver, const String& text) {
  Reading reading;
  const RefCnt<VXThread> thread = MakeReaderThread(driver, text, reading.error);
  thread->Start();
  ReadElements(driver, reading, [] { return true; });
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  thread->WaitUntilStopped();
  reading.parsed = !reading.failed && !reading.cancelled;
  return reading;
}

inline Reading ReadDocument(const String& text) {
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  return ReadDocument(*driver, text);
}
