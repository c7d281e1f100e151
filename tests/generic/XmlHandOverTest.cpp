// Tests the queue of elements between the parser thread and the reading thread.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <random>

#include "XmlReading.h"
#include "support/FailingAllocation.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMany = 20000;  // more elements than the queue holds

/// An element "r" with children "e" whose values are 0, 1, ...
String Numbered(int count, const wchar_t* end = L"</r>") {
  std::wstring text = L"<r>";
  for (int i = 0; i < count; ++i) text += L"<e>" + std::to_wstring(i) + L"</e>";
  return String(text + end);
}

Heap<SAX2XmlReadDriver> MakeDriver() {
  return SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
}

void ExpectNumbered(const Reading& reading, std::size_t count) {
  ASSERT_GE(reading.items.size(), count);
  for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(reading.items[i].value, std::to_wstring(i));
}

void Stop(VXThread& thread) {
  thread.RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  thread.WaitUntilStopped();
}

TEST(HandOver, KeepsTheOrderOfManyElements) {
  const Reading reading = ReadDocument(Numbered(kMany));
  EXPECT_EQ(reading.items.size(), kMany + 1u);
  ExpectNumbered(reading, kMany);
  EXPECT_EQ(reading.items.back().name, L"r");
}

TEST(HandOver, ReturnsTheEmptyHandleRepeatedlyAtTheEnd) {
  const auto driver = MakeDriver();
  EXPECT_FALSE(driver->Read());  // no parse was announced
  ReadDocument(*driver, L"<a/>");
  EXPECT_FALSE(driver->Read());
  EXPECT_FALSE(driver->Read());
  ReadDocument(*driver, L"<a>");
  EXPECT_FALSE(driver->Read());
}

TEST(HandOver, IsBoundedIfTheReaderIsSlow) {
  const auto driver = MakeDriver();
  driver->Announce();
  std::atomic<bool> ended{false};
  std::thread parser([&] {
    String error;
    EXPECT_TRUE(driver->ParseInMem(Numbered(kMany), error));
    ended = true;
  });
  ASSERT_TRUE(driver->Read());
  // The parser cannot finish before the reader takes more elements.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(ended);
  Reading reading;
  ReadElements(*driver, reading, [] { return true; });
  parser.join();
  EXPECT_EQ(reading.items.size(), static_cast<std::size_t>(kMany));
}

TEST(HandOver, IsBoundedByTheSizeOfTextsAndNames) {
  std::wstring texts;
  for (int i = 0; i < 40; ++i) texts += L"<e>" + std::wstring(100000, L'x') + L"</e>";
  std::wstring names;
  for (int i = 0; i < 80; ++i)
    names += L"<e" + std::to_wstring(i) + std::wstring(40000, L'x') + L"/>";
  for (const std::wstring& elements : {texts, names}) {
    const auto driver = MakeDriver();
    driver->Announce();
    std::atomic<bool> ended{false};
    std::thread parser([&] {
      String error;
      driver->ParseInMem(String(L"<r>" + elements + L"</r>"), error);
      ended = true;
    });
    ASSERT_TRUE(driver->Read());
    // Long enough for an unoptimised parser that does not wait.
    for (int i = 0; i < 50 && !ended; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(ended) << (elements == names ? "names" : "texts");
    driver->Cancel();
    parser.join();
  }
}

TEST(HandOver, SmallDocumentNeedsNoReader) {
  const auto driver = MakeDriver();
  String error;
  EXPECT_TRUE(driver->ParseInMem(Numbered(100), error));  // on this thread
  Reading reading;
  ReadElements(*driver, reading, [] { return true; });
  EXPECT_EQ(reading.items.size(), 101u);
}

TEST(HandOver, ErrorFollowsTheElementsBeforeIt) {
  for (const int before : {0, 1, 255, 256, 257, 3000, kMany}) {
    const Reading reading = ReadDocument(Numbered(before, L"</x>"));
    EXPECT_TRUE(reading.failed);
    EXPECT_EQ(reading.items.size(), static_cast<std::size_t>(before));
    ExpectNumbered(reading, static_cast<std::size_t>(before));
    EXPECT_FALSE(reading.error.empty());
  }
}

TEST(HandOver, CancellationAtAnyElementDeliversTheCancelledElementNext) {
  const auto driver = MakeDriver();
  for (const int last : {1, 2, 255, 256, 257, 300, 4000, kMany, kMany + 1}) {
    const auto at = static_cast<std::size_t>(last);
    Reading reading;
    const auto thread = MakeReaderThread(*driver, Numbered(kMany), reading.error);
    thread->Start();
    ReadElements(*driver, reading, [&] {
      if (reading.items.size() == at) driver->Cancel();
      return true;
    });
    EXPECT_EQ(reading.items.size(), at);
    EXPECT_TRUE(reading.cancelled) << at;
    EXPECT_FALSE(driver->Read());
    Stop(*thread);
    // Nothing remains.
    EXPECT_EQ(ReadDocument(*driver, L"<a/>").items.size(), 1u);
  }
}

TEST(HandOver, CancellationBeforeTheParse) {
  const auto driver = MakeDriver();
  driver->Announce();
  driver->Cancel();
  driver->Cancel();
  String error;
  EXPECT_FALSE(driver->ParseInMem(L"<a/>", error));
  EXPECT_TRUE(error.empty());
  const auto element = driver->Read();
  ASSERT_TRUE(element);
  EXPECT_TRUE(element->IsCancel());
  EXPECT_FALSE(driver->Read());
  // The reader may have finished first.
  driver->Announce();
  driver->Cancel();
  EXPECT_TRUE(driver->Read()->IsCancel());
  EXPECT_FALSE(driver->ParseInMem(L"<a/>", error));
  EXPECT_FALSE(driver->Read());
  EXPECT_TRUE(driver->ParseInMem(L"<a/>", error));
  EXPECT_TRUE(driver->Read());
}

TEST(HandOver, CancellationAfterTheParse) {
  const auto driver = MakeDriver();
  String error;
  EXPECT_TRUE(driver->ParseInMem(Numbered(10), error));
  EXPECT_TRUE(driver->Read());
  driver->Cancel();
  EXPECT_TRUE(driver->Read()->IsCancel());
  EXPECT_FALSE(driver->Read());
  // After the last element there is nothing to cancel.
  ReadDocument(*driver, L"<a/>");
  driver->Cancel();
  EXPECT_FALSE(driver->Read());
}

TEST(HandOver, CancellationWakesAWaitingReader) {
  const auto driver = MakeDriver();
  driver->Announce();
  auto read = std::async(std::launch::async, [&] { return driver->Read(); });
  EXPECT_EQ(read.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
  driver->Cancel();
  EXPECT_TRUE(read.get()->IsCancel());
}

TEST(HandOver, CancellationWakesAWaitingParser) {
  const auto driver = MakeDriver();
  Reading reading;
  const auto thread = MakeReaderThread(*driver, Numbered(kMany), reading.error);
  thread->Start();
  ASSERT_TRUE(driver->Read());
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the parser has filled the queue
  const auto begin = Clock::now();
  Stop(*thread);
  EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(100));
}

TEST(HandOver, ReaderThatStopsEarlyDoesNotAffectTheNextParse) {
  const auto driver = MakeDriver();
  for (int round = 0; round < 20; ++round) {
    Reading reading;
    const auto thread = MakeReaderThread(*driver, Numbered(kMany), reading.error);
    thread->Start();
    ReadElements(*driver, reading, [&] { return reading.items.size() < 3; });
    Stop(*thread);
    Stop(*thread);
    const Reading next = ReadDocument(*driver, L"<n>1</n>");
    ASSERT_EQ(next.items.size(), 1u);
    EXPECT_EQ(next.items[0].name, L"n");
  }
}

TEST(HandOver, NewParseReplacesARunningOne) {
  const auto driver = MakeDriver();
  String error;
  driver->Announce();
  std::thread abandoned([&] {
    String otherError;
    EXPECT_FALSE(driver->ParseInMem(Numbered(kMany), otherError));
  });
  ASSERT_TRUE(driver->Read());
  const Reading next = ReadDocument(*driver, Numbered(kMany));
  abandoned.join();
  EXPECT_EQ(next.items.size(), kMany + 1u);
  ExpectNumbered(next, kMany);
}

TEST(HandOver, NewParseReplacesOneThatIsEnding) {
  for (int round = 0; round < 100; ++round) {
    const auto driver = MakeDriver();
    ReadDocument(*driver, L"<a>1</a>");  // whose memory the next ones may use
    driver->Announce();
    std::thread abandoned([&] {
      String error;
      EXPECT_FALSE(driver->ParseInMem(Numbered(kMany), error));
    });
    for (int i = 0; i < 300 + 7 * round; ++i) ASSERT_TRUE(driver->Read());
    driver->Cancel();
    while (driver->Read()) continue;
    const Reading next = ReadDocument(*driver, L"<n>1</n>");
    abandoned.join();
    ASSERT_EQ(next.items.size(), 1u);
    EXPECT_EQ(next.items[0].name, L"n");
    EXPECT_EQ(next.items[0].value, L"1");
  }
}

TEST(HandOver, DestructionDuringAParse) {
  for (int round = 0; round < 50; ++round) {
    const auto driver = MakeDriver();
    String error;
    const auto thread = MakeReaderThread(*driver, Numbered(kMany), error);
    thread->Start();
    if (round % 2 == 0) driver->Read();
    // The last handle is released first, which waits for the thread.
  }
}

TEST(HandOver, ThreadThatWasNeverStartedIsHarmless) {
  const auto driver = MakeDriver();
  String error;
  const auto thread = MakeReaderThread(*driver, L"<a/>", error);
  Stop(*thread);
  EXPECT_FALSE(driver->Read());
}

TEST(HandOver, CancellationAtRandomMomentsAlwaysEnds) {
  const auto driver = MakeDriver();
  const String text = Numbered(kMany);
  std::mt19937 random(3);
  for (int round = 0; round < 100; ++round) {
    Reading reading;
    const auto thread = MakeReaderThread(*driver, text, reading.error);
    thread->Start();
    std::thread canceller([&, pause = random() % 2000] {
      std::this_thread::sleep_for(std::chrono::microseconds(pause));
      driver->Cancel();
    });
    ReadElements(*driver, reading, [] { return true; });
    canceller.join();
    Stop(*thread);
    EXPECT_TRUE(reading.cancelled || reading.items.size() == kMany + 1u);
    ExpectNumbered(reading, reading.cancelled ? reading.items.size() : kMany);
  }
}

VXExecutionState* g_signalled = nullptr;

TEST(HostCancellation, EndsAWaitingReaderEvenFromASignalHandler) {
  const auto driver = MakeDriver();
  VXExecutionState state;
  const VXExecutionState::Scope scope(state);
  driver->Announce();  // no parse ever starts
  g_signalled = &state;
  struct sigaction action {};
  struct sigaction former {};
  action.sa_handler = [](int) {
    g_signalled->RequestCancellation(VXExecutionState::kCancelReasonHost);
  };
  sigaction(SIGUSR1, &action, &former);
  const pthread_t reader = pthread_self();
  Clock::time_point requested;
  std::thread host([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    requested = Clock::now();
    pthread_kill(reader, SIGUSR1);
  });
  const auto element = driver->Read();
  const auto ended = Clock::now();
  host.join();
  sigaction(SIGUSR1, &former, nullptr);
  ASSERT_TRUE(element);
  EXPECT_TRUE(element->IsCancel());
  EXPECT_LT(ended - requested, std::chrono::milliseconds(100));
  EXPECT_FALSE(driver->Read());
}

TEST(HostCancellation, DropsQueuedElements) {
  const auto driver = MakeDriver();
  VXExecutionState state;
  const VXExecutionState::Scope scope(state);
  Reading reading;
  const auto thread = MakeReaderThread(*driver, Numbered(kMany), reading.error);
  thread->Start();
  ReadElements(*driver, reading, [&] {
    if (reading.items.size() == 5) state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    return true;
  });
  thread->WaitUntilStopped();  // the destructor stopped the parse
  EXPECT_EQ(reading.items.size(), 5u);
  EXPECT_TRUE(reading.cancelled);
  EXPECT_FALSE(driver->Read());
}

TEST(HandOver, ConcurrentParses) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 5; ++j) {
        if (ReadDocument(Numbered(2000)).items.size() != 2001) ++wrong;
        if (!ReadDocument(Numbered(50, L"<")).failed) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(HandOver, OutOfMemoryIsAnErrorAtEveryAllocation) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  const auto driver = MakeDriver();
  const String text = Numbered(5, L"<x>\x433&amp;</x></r>");
  bool parsed = false;
  for (int nth = 1; !parsed; ++nth) {
    ASSERT_LT(nth, 500);
    String argument = text;
    String error;
    bool failed;
    {
      const FailingAllocation failing(nth);
      parsed = driver->ParseInMem(std::move(argument), error);
      failed = FailingAllocation::HasFailed();
    }
    EXPECT_EQ(parsed, !failed);
    if (!parsed) {
      EXPECT_TRUE(error == L"not enough memory to read the document");
    }
    Reading reading;
    ReadElements(*driver, reading, [] { return true; });
    EXPECT_EQ(reading.failed, failed);
    ExpectNumbered(reading, failed ? std::min<std::size_t>(reading.items.size(), 5) : 5);
  }
}

TEST(HandOver, FileIsReadLikeText) {
  const auto driver = MakeDriver();
  String error;
  EXPECT_FALSE(driver->ParseFile(L"/proc/self/no-such-file", error));
  EXPECT_TRUE(error ==
              L"Cannot read the file \"/proc/self/no-such-file\": No such file or directory");
  EXPECT_TRUE(driver->Read()->HasError());
  EXPECT_FALSE(driver->ParseFile(L"/proc", error));
  EXPECT_TRUE(error == L"Cannot read the file \"/proc\": Is a directory");
  const std::string path = testing::TempDir() + "/xmla-host-" + std::to_string(getpid()) + ".xml";
  std::FILE* const file = std::fopen(path.c_str(), "w");
  std::fputs("\xEF\xBB\xBF<a>\xC3\xA9</a>\n", file);
  std::fclose(file);
  EXPECT_TRUE(driver->ParseFile(String(std::wstring(path.begin(), path.end())), error));
  std::remove(path.c_str());
  EXPECT_TRUE(driver->Read()->GetValue() == L"\xE9");
}

TEST(DriverFactoryDeathTest, OtherKindsAreALogicError) {
  EXPECT_DEATH(SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(2), "unknown kind of XML reader");
}

}  // namespace
