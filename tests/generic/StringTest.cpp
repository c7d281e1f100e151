// Tests String, its vectors and RefCnt.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <unordered_set>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXStringVector.h"
#include "support/FailingAllocation.h"
#include "support/Settings.h"

namespace {

TEST(StringSharing, CopiesShareUntilOneChanges) {
  const String first = L"text";
  String second = first;
  EXPECT_TRUE(second.SharesBufferWith(first));
  second += L'!';
  EXPECT_FALSE(second.SharesBufferWith(first));
  EXPECT_TRUE(first == L"text");
  EXPECT_TRUE(second == L"text!");
}

TEST(StringSharing, SpareCapacityIsNotSharedByWriters) {
  String first;
  first.reserve(100);
  first += L"ab";
  String second = first;
  first += L'1';
  second += L'2';
  EXPECT_TRUE(first == L"ab1");
  EXPECT_TRUE(second == L"ab2");
}

TEST(StringSharing, AppendingToAnEmptyTextShares) {
  const String text = L"text";
  String target;
  target += text;
  EXPECT_TRUE(target.SharesBufferWith(text));
  EXPECT_TRUE(text.substr(0).SharesBufferWith(text));
  EXPECT_FALSE(text.substr(0, 3).SharesBufferWith(text));
}

TEST(StringText, AppendsPartsOfItself) {
  String text = L"abc";
  text += text;
  EXPECT_TRUE(text == L"abcabc");
  for (int i = 0; i < 10; ++i) text.append(text.view().substr(1, 2));
  EXPECT_EQ(text.size(), 26u);
  EXPECT_TRUE(text.substr(6) == L"bcbcbcbcbcbcbcbcbcbc");
  const String& same = text;
  text = same;
  EXPECT_EQ(text.size(), 26u);
}

TEST(StringText, MayContainNullCharacters) {
  String text(L"a\0b", 3);
  text += L'\0';
  EXPECT_EQ(text.size(), 4u);
  EXPECT_EQ(text.c_str()[4], L'\0');
  EXPECT_FALSE(text == L"a");
  EXPECT_EQ(text.find(std::wstring_view(L"\0b", 2)), 1u);
}

TEST(StringText, GrowsGeometrically) {
  String text;
  int moves = 0;
  const wchar_t* place = nullptr;
  for (int i = 0; i < 100000; ++i) {
    text += L'x';
    if (text.c_str() != place) ++moves;
    place = text.c_str();
  }
  EXPECT_EQ(text.size(), 100000u);
  EXPECT_LT(moves, 25);
}

TEST(StringText, PartsAndOrder) {
  const String text = L"hello";
  EXPECT_TRUE(text.substr(1, 3) == L"ell");
  EXPECT_TRUE(text.substr(5).empty());
  EXPECT_TRUE(text.substr(99, 1).empty());
  EXPECT_EQ(text.find(L"l"), 2u);
  EXPECT_EQ(text.find(L"l", 3), 3u);
  EXPECT_EQ(text.find(L"x"), String::npos);
  EXPECT_LT(String(L"a"), String(L"b"));
  EXPECT_LT(String(L"a"), String(L"aa"));
  EXPECT_GT(String(L"\x1F600"), String(L"\xFFFD"));
  EXPECT_TRUE(L"x" + text + L"y" == L"xhelloy");
  EXPECT_TRUE(String(3, L'z') == L"zzz");
  EXPECT_TRUE(String() == L"");
}

TEST(StringText, FilledInPlace) {
  String text = L"ab";
  text.AppendFilled(10, [](wchar_t* place) noexcept {
    place[0] = L'c';
    return std::size_t{1};
  });
  EXPECT_TRUE(text == L"abc");
  EXPECT_EQ(text.c_str()[3], L'\0');
  const String copy = text;
  text.AppendFilled(1, [](wchar_t* place) noexcept {
    *place = L'd';
    return std::size_t{1};
  });
  EXPECT_TRUE(copy == L"abc");
  EXPECT_TRUE(text == L"abcd");
}

TEST(StringFailure, KeepsTheText) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  String text = L"abc";
  const String other = L"longer than the room that is there";
  const String copy = text;
  {
    const FailingAllocation failing(1);
    EXPECT_THROW(text += other, std::bad_alloc);
    EXPECT_THROW(text += L'x', std::bad_alloc);
    EXPECT_THROW(text.reserve(100), std::bad_alloc);
    EXPECT_THROW(text + other, std::bad_alloc);
    EXPECT_NO_THROW(text = other);
    EXPECT_NO_THROW(text = copy);
  }
  EXPECT_TRUE(text == L"abc");
  EXPECT_TRUE(text.SharesBufferWith(copy));
  EXPECT_THROW(text.reserve(String::npos / 2), std::length_error);
  EXPECT_TRUE(text == L"abc");
}

TEST(StringThreads, CopiesOfOneTextAreThreadSafe) {
  const String shared = L"shared text";
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&wrong, copy = shared] {
      for (int j = 0; j < 5000; ++j) {
        String mine = copy;
        const String another = mine;
        mine += L'!';
        if (another != L"shared text" || mine.size() != 12) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(shared == L"shared text");
}

TEST(StringVector, CopiesInOrderAndIsDeletedThroughItsOwnType) {
  auto* const first = new VXStringVector{L"a", L"b"};
  const VXStringVector second = *first;
  EXPECT_TRUE(second[1].SharesBufferWith((*first)[1]));
  delete first;
  EXPECT_EQ(second.size(), 2u);
  EXPECT_TRUE(second[0] == L"a");
}

struct Counted : RefCountable {
  explicit Counted(int& count) : alive(count) { ++alive; }
  Counted(const Counted& other) : RefCountable(other), alive(other.alive) { ++alive; }
  ~Counted() override { --alive; }
  int value = 1;
  int& alive;
};

TEST(RefCounting, TheLastHandleDeletes) {
  int alive = 0;
  {
    const RefCnt<Counted> first(new Counted(alive));
    EXPECT_EQ(first->GetRefCount(), 1u);
    RefCnt<Counted> second = first;
    EXPECT_EQ(first->GetRefCount(), 2u);
    RefCnt<Counted> third = std::move(second);
    EXPECT_FALSE(second);  // NOLINT: a moved handle is empty
    EXPECT_EQ(first->GetRefCount(), 2u);
    const RefCnt<Counted>& same = third;
    third = same;
    EXPECT_TRUE(third == first);
    third = nullptr;
    EXPECT_EQ(first->GetRefCount(), 1u);
    EXPECT_EQ((*first).value, 1);
  }
  EXPECT_EQ(alive, 0);
}

TEST(RefCounting, CopyStartsItsOwnCount) {
  int alive = 0;
  const RefCnt<Counted> object(new Counted(alive));
  const RefCnt<Counted> another(object);
  const Counted copy(*object);
  EXPECT_EQ(copy.GetRefCount(), 2u);
}

TEST(RefCounting, IsThreadSafe) {
  int alive = 0;
  {
    const RefCnt<Counted> object(new Counted(alive));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([object] {
        for (int j = 0; j < 10000; ++j) const RefCnt<Counted> another(object);
      });
    }
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    EXPECT_EQ(object->GetRefCount(), 1u);
  }
  EXPECT_EQ(alive, 0);
}

TEST(RefCountingDeathTest, EmptyHandleAborts) {
  const RefCnt<Counted> empty;
  EXPECT_DEATH(empty->value = 2, "RefCnt.h:[0-9]+: empty reference dereferenced\n");
  EXPECT_DEATH((*empty).value = 2, "empty reference dereferenced");
}

TEST(Assert, PassesLogicErrorsToTheHostsHandler) {
  support::Settings settings;
  settings.onLogicError = [](const String& file, int line, const String& message) {
    throw ErrorMessage(file + L":" + BaseStringUtil::StringFrom(std::uint64_t(line)) + L" " +
                       message);
  };
  String text;
  try {
    VXAssert::handleLogicError(L"File.cpp", 506, L"broken");
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(text);
  }
  EXPECT_EQ(text, L"File.cpp:506 broken");
}

TEST(AssertDeathTest, AbortsWhenTheHostsHandlerReturns) {
  support::Settings settings;
  settings.onLogicError = [](const String&, int, const String&) {};
  EXPECT_EXIT(VXAssert::handleLogicError(L"File.cpp", 506, L"broken"),
              testing::KilledBySignal(SIGABRT), "^File.cpp:506: broken\n$");
}

TEST(AssertDeathTest, AbortsOnAThreadWithoutAHandler) {
  support::Settings settings;
  settings.onLogicError = [](const String&, int, const String&) { throw 1; };
  EXPECT_EXIT(std::jthread([] { VXAssert::handleLogicError(L"File.cpp", 506, L"broken"); }).join(),
              testing::KilledBySignal(SIGABRT), "^File.cpp:506: broken\n$");
}

TEST(AssertDeathTest, WritesOneLineAndAborts) {
  EXPECT_EXIT(VXAssert::handleLogicError(L"File.cpp", 506, L"\xE9 "),
              testing::KilledBySignal(SIGABRT), "^File.cpp:506: \xC3\xA9 \n$");
}

TEST(StringText, ComparesWithStandardTexts) {
  const String text(L"b");
  EXPECT_TRUE(text == std::wstring(L"b") && std::wstring(L"b") == text);
  EXPECT_TRUE(text != std::wstring(L"B") && text != std::wstring_view(L"bb"));
  EXPECT_TRUE(text < std::wstring(L"c") && std::wstring(L"a") < text);
  EXPECT_TRUE(text > std::wstring_view(L"") && text >= std::wstring(L"b"));
  EXPECT_EQ(String(std::wstring(L"b")), text);
}

TEST(StringText, EqualTextsHaveEqualHashes) {
  std::unordered_set<String> texts{String(L"a"), String(L"b"), String(2, L'a').substr(1)};
  EXPECT_EQ(texts.size(), 2u);
  EXPECT_EQ(std::hash<String>()(String(L"ab")), std::hash<std::wstring>()(L"ab"));
  EXPECT_EQ(std::hash<NarrowString>()(NarrowString()), std::hash<std::string>()(""));
}

}  // namespace
