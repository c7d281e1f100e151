// Out of memory: every operation, failing at each of its allocations.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <random>

#include "ExemptServerSupport.h"
#include "OperationsSupport.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/TempDir.h"

namespace reliability {
namespace {

using Which = FailingAllocation::Which;
using Whose = FailingAllocation::Whose;

struct Mode {
  const char* name;
  Which which;
  Whose whose;
};
const Mode kModes[] = {
    {"from then on, calling thread", Which::kFromThenOn, Whose::kThisThread},
    {"only that, calling thread", Which::kOnlyThat, Whose::kThisThread},
    {"from then on, any thread", Which::kFromThenOn, Whose::kAnyThread},
    {"only that, any thread", Which::kOnlyThat, Whose::kAnyThread},
};

/// Counts of the tries and their outcomes.
struct Tally {
  long tries = 0;
  long outOfMemory = 0;
  long errors = 0;
  long whole = 0;

  void Add(const Outcome& outcome, const Outcome& undisturbed) {
    ++tries;
    if (outcome.end == Outcome::End::kOutOfMemory)
      ++outOfMemory;
    else if (outcome == undisturbed)
      ++whole;
    else
      ++errors;
  }
  void Print(const std::string& what) const {
    support::PrintFigure(what, std::to_string(tries) + " tried: " + std::to_string(outOfMemory) +
                                   " ended by bad_alloc, " + std::to_string(errors) +
                                   " by an error text, " + std::to_string(whole) +
                                   " succeeded; 0 crashes, leaks, wrong records, unusable objects");
  }
};

/// Runs one operation on a new subject while the n-th allocation fails, then once more without
/// failure.
Outcome Try(const Operation& operation, const Kind& kind, const std::string& url,
            const Outcome& whole, const Mode& mode, long nth) {
  Subject subject(kind, url);
  Outcome outcome;
  {
    Outputs outputs;
    outcome = OutcomeOf(outputs, [&] {
      const FailingAllocation failing(nth, mode.which, mode.whose);
      operation.run(subject, outputs);
    });
  }
  EXPECT_EQ(Violation(operation, outcome, whole), "");
  Outputs outputs;
  const Outcome again = OutcomeOf(outputs, [&] { operation.run(subject, outputs); });
  EXPECT_TRUE(again == whole) << "the object is not usable: " << ToText(again);
  return outcome;
}

/// The allocation numbers to try: all, or evenly spread from a random start.
std::vector<long> Numbers(long count, long quick, std::minstd_rand& random) {
  const long tries = support::Effort(std::min(quick, count), count);
  std::vector<long> numbers;
  for (long i = 0; i < tries; ++i) {
    const long begin = i * count / tries;
    const long width = std::max((i + 1) * count / tries - begin, 1L);
    numbers.push_back(begin + 1 + static_cast<long>(random()) % width);
  }
  return numbers;
}

void FailEverywhere(const std::vector<Operation>& operations, const Mode& mode, long quick,
                    Tally& tally) {
  ExemptServer server;
  std::minstd_rand random(std::random_device{}());
  for (const Kind& kind : kKinds)
    for (const Operation& operation : operations) {
      const std::string url = server.Url(kind.path);
      Outcome whole;
      long count = 0;
      for (int i = 0; i < 2; ++i) {  // the first run fills caches
        Subject subject(kind, url);
        Outputs outputs;
        whole = OutcomeOf(outputs, [&] {
          const FailingAllocation counting(1L << 40, mode.which, mode.whose);
          operation.run(subject, outputs);
        });
        count = FailingAllocation::Seen();
      }
      // An operation that a kind of provider does not support ends in its fault.
      ASSERT_TRUE(whole.IsWhole() || whole.thrown.starts_with("[64203] ")) << ToText(whole);
      for (const long nth : Numbers(count, quick, random)) {
        SCOPED_TRACE(std::string(kind.name) + ", " + operation.name + ", " + mode.name +
                     ", allocation " + std::to_string(nth) + " of " + std::to_string(count));
        const long before = FailingAllocation::Outstanding();
        tally.Add(Try(operation, kind, url, whole, mode, nth), whole);
        ASSERT_EQ(FailingAllocation::Outstanding(), before) << "a leak";
      }
    }
}

class Allocation : public testing::TestWithParam<Mode> {};

TEST_P(Allocation, FailureInAnyOperationLeavesAUsableObject) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  Tally tally;
  FailEverywhere(kOperations, GetParam(), 4, tally);
  tally.Print("allocation fails (" + std::string(GetParam().name) + ")");
}

TEST_P(Allocation, FailureWithTheImportLogOnLeavesAUsableObject) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  const support::TempDir folder;
  setenv("OT_XMLA_IMPORT_LOGGING", "1", 1);
  setenv("XMLA_IMPORT_LOG_DIR", folder.Path().c_str(), 1);
  Tally tally;
  FailEverywhere(kOperations, GetParam(), 1, tally);
  unsetenv("OT_XMLA_IMPORT_LOGGING");
  unsetenv("XMLA_IMPORT_LOG_DIR");
  tally.Print("allocation fails, import log on (" + std::string(GetParam().name) + ")");
}

/// Elements and error of a document that the element queue holds completely.
std::wstring Parsed(SAX2XmlReadDriver& driver, const NarrowString& bytes, const Mode& mode,
                    long nth, String& error) {
  {
    NarrowString argument = bytes;
    const FailingAllocation failing(nth, mode.which, mode.whose);
    driver.ParseBytesInMem(std::move(argument), error);
  }
  std::wstring elements;
  while (const RefCnt<SAX2XmlElement> element = driver.Read()) {
    if (element->HasError()) return L"error";
    for (const String& text : {element->GetLocalName(), element->GetValue()})
      elements.append(text.view()) += L'|';
  }
  return elements;
}

TEST_P(Allocation, FailureInALongDocumentNeverTruncatesIt) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  constexpr long kNever = 1L << 40;
  std::string text = "<r>";  // fed to the XML library in many pieces
  for (int i = 0; i < 120; ++i)
    text += "<e" + std::to_string(i % 20) + " a='1&amp;2'><![CDATA[<]]><!-- c -->" +
            std::string(1000, 'x') + std::to_string(i) + "</e" + std::to_string(i % 20) + ">";
  // A value whose buffer grows several times while the tag is parsed.
  std::string value;
  for (int i = 0; i < 3000; ++i) value += "\u00E9&amp;";
  text += "<Error a=\"" + value + "\"><b/>&amp;</Error>";
  // libxml2's tables grow for each of these.
  text += "<t";
  for (int i = 0; i < 130; ++i) text += " a" + std::to_string(i) + "='&amp;'";
  text += "/><n";
  for (int i = 0; i < 30; ++i) text += " xmlns:n" + std::to_string(i) + "='u'";
  text += "/>";
  for (int i = 0; i < 100; ++i) text += "<d>";
  for (int i = 0; i < 100; ++i) text += "</d>";
  const NarrowString bytes(std::string_view(text += "</r>"));
  std::minstd_rand random(2026);
  Tally tally;
  for (const bool isUsed : {false, true}) {
    long count = 0;
    std::wstring whole;
    const auto tryOne = [&](long nth) {
      const auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
      String error;
      if (isUsed)
        Parsed(*driver, NarrowString(std::string_view("<r/>")), GetParam(), kNever, error);
      const std::wstring elements = Parsed(*driver, bytes, GetParam(), nth, error);
      count = FailingAllocation::Seen();
      if (nth == kNever) {
        whole = elements;
        return;
      }
      ++tally.tries;
      ++(elements == whole ? tally.whole : tally.errors);
      if (elements != whole) {
        ASSERT_TRUE(elements == L"error") << nth;
        EXPECT_TRUE(error == L"not enough memory to read the document") << nth;
      }
      EXPECT_TRUE(Parsed(*driver, bytes, GetParam(), kNever, error) == whole) << nth;
    };
    tryOne(kNever);
    for (const long nth : Numbers(count, 1000, random)) ASSERT_NO_FATAL_FAILURE(tryOne(nth));
  }
  tally.Print("allocation fails in a long document (" + std::string(GetParam().name) + ")");
}

INSTANTIATE_TEST_SUITE_P(Modes, Allocation, testing::ValuesIn(kModes),
                         [](const auto& mode) { return std::to_string(mode.index); });

}  // namespace
}  // namespace reliability
