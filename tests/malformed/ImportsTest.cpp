// Whole imports in which one reply has rearranged elements. Allowed outcomes are errors, warnings,
// a result, or the logic error of equal level numbers, which the host's interface prescribes.

#include <gtest/gtest.h>

#include <algorithm>

#include "Mutations.h"
#include "inprocess/ImportTrial.h"
#include "inprocess/SampleReplies.h"
#include "support/Effort.h"

namespace {

using inprocess::ImportTrial;

struct Attack {
  std::size_t kind;
  const support::ImportOperation* operation;
  std::string requestType;
  std::string reply;
};

/// Every rearrangement of one reply of each request type, in every import operation.
std::vector<Attack> Attacks() {
  std::vector<Attack> attacks;
  for (std::size_t kind = 0; kind < inprocess::kSampleKinds.size(); ++kind)
    for (const inprocess::Exchange& exchange : inprocess::Exchanges()) {
      const inprocess::Reply* longest = nullptr;
      for (const inprocess::Reply& reply : inprocess::SampleReplies())
        if (reply.target == inprocess::kSampleKinds[kind].target &&
            reply.requestType == exchange.requestType &&
            (!longest || reply.body.size() > longest->body.size()))
          longest = &reply;
      if (!longest) continue;
      const std::string body = inprocess::Shortened(longest->body, 3);
      const std::vector<malformed::Element> elements = malformed::Elements(body);
      for (std::size_t i = 0; i < elements.size(); ++i)
        for (const malformed::Mutation& mutation : malformed::Mutations())
          for (const support::ImportOperation& operation : support::ImportOperations())
            attacks.push_back(
                {kind, &operation, exchange.requestType,
                 mutation.apply(body, elements[i], malformed::NextSibling(elements, i))});
    }
  std::erase_if(attacks, [](const Attack& attack) { return attack.reply.empty(); });
  return attacks;
}

TEST(MalformedImports, GiveAResultOrErrorsAndLeaveAUsableObject) {
  std::vector<std::unique_ptr<ImportTrial>> trials;
  for (const inprocess::SampleKind& kind : inprocess::kSampleKinds)
    trials.push_back(std::make_unique<ImportTrial>(kind.target));
  const std::vector<Attack> attacks = Attacks();
  // Enough to see every outcome; a quarter of it, as with sanitizers, would be too few.
  constexpr std::size_t kQuick = support::kIsSanitized ? 6000 : 1500;
  std::size_t step = support::Stride(attacks.size(), kQuick);
  while (step > 1 && (step % 5 == 0 || step % 11 == 0)) ++step;
  std::size_t counts[3] = {};
  std::size_t tried = 0;
  for (std::size_t i = 0; i < attacks.size(); i += step, ++tried) {
    const Attack& attack = attacks[i];
    ImportTrial& trial = *trials[attack.kind];
    const std::string violation =
        trial.Try(*attack.operation, [&](std::string_view requestType, std::size_t) {
          return requestType == attack.requestType ? attack.reply : std::string();
        });
    ASSERT_EQ(violation, "") << attack.operation->name << ", " << attack.requestType << "\n"
                             << attack.reply;
    ++counts[static_cast<std::size_t>(trial.LastOutcome())];
  }
  EXPECT_GT(counts[0], 0u);
  EXPECT_GT(counts[1], 0u);
  EXPECT_GT(counts[2], 0u);
  support::PrintFigure("imports with a rearranged reply",
                       std::to_string(tried) + " imports: " + std::to_string(counts[0]) +
                           " with a result, " + std::to_string(counts[1]) +
                           " with an error text, " + std::to_string(counts[2]) +
                           " stopped for two levels with the same number, 0 other logic errors");
}

}  // namespace
