// Every reply of the sample provider and every recorded one: truncated and changed at every byte,
// and with rearranged elements, through the whole exchange except sockets. The outcome must be rows
// or an error, consistent with libxml2's view, and must leave the agent usable.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>

#include "Mutations.h"
#include "inprocess/Trial.h"
#include "support/Effort.h"

namespace {

using inprocess::Reply;
using inprocess::Trial;
using std::chrono::steady_clock;

/// All available replies.
const std::vector<Reply>& Replies() {
  static const std::vector<Reply> replies = [] {
    std::vector<Reply> all = inprocess::SampleReplies();
    for (const Reply& reply : inprocess::RecordedReplies()) all.push_back(reply);
    return all;
  }();
  return replies;
}

std::size_t TotalSize() {
  std::size_t bytes = 0;
  for (const Reply& reply : Replies()) bytes += reply.body.size();
  return bytes;
}

/// Tries replies and counts the outcomes.
class Trials {
 public:
  void Try(const Reply& origin, std::string_view body, const std::string& what) {
    if (m_complaints >= kMostComplaints) return;
    const steady_clock::time_point begin = steady_clock::now();
    Trial& trial = TrialFor(origin);
    // In the long form, millions of bad replies follow each other with an occasional normal one.
    const bool andNext = !support::IsLong() || ++m_tried % 10 == 0;
    const std::string violation = trial.Try(body, andNext);
    const double seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
    m_slowest = std::max(m_slowest, seconds);
    ++m_counts[trial.LastOutcome()];
    if (violation.empty()) return;
    ++m_complaints;
    ADD_FAILURE() << violation << ": " << origin.name << ", " << what;
  }

  /// Prints the figure, and expects that no reply took long.
  void Conclude(const std::string& what) {
    EXPECT_LT(m_slowest, kMostSeconds) << what;
    std::size_t all = 0;
    for (const auto& [outcome, count] : m_counts) all += count;
    EXPECT_GT(all, 0u);
    std::string slowest = std::to_string(m_slowest);
    slowest.resize(slowest.find('.') + 4);
    support::PrintFigure(
        what, std::to_string(all) + " replies tried: " + Count(Trial::Outcome::kParseError) +
                  " refused by the reader, " + Count(Trial::Outcome::kNotXml) +
                  " refused as not XML, " + Count(Trial::Outcome::kFault) + " faults, " +
                  Count(Trial::Outcome::kRead) + " read; " + std::to_string(m_complaints) +
                  " wrong, the slowest took " + slowest + " s");
  }

 private:
  static constexpr int kMostComplaints = 5;
  static constexpr double kMostSeconds = 10;  // includes a pause of the machine

  std::string Count(Trial::Outcome outcome) { return std::to_string(m_counts[outcome]); }

  Trial& TrialFor(const Reply& reply) {
    const inprocess::Exchange& exchange = inprocess::ExchangeFor(reply.requestType);
    auto& trial = m_trials[{reply.target, exchange.requestType}];
    if (!trial) trial = std::make_unique<Trial>(reply.target, exchange);
    return *trial;
  }

  std::map<std::pair<ServerInfo::TargetType, std::string>, std::unique_ptr<Trial>> m_trials;
  std::map<Trial::Outcome, std::size_t> m_counts;
  double m_slowest = 0;
  std::size_t m_tried = 0;
  int m_complaints = 0;
};

/// Calls `visit` with a reply and a position: every position in the long form, or `quick` positions
/// spread evenly.
template <class Visit>
void ForEachByte(std::size_t quick, Visit visit) {
  const std::size_t step = support::Stride(TotalSize(), quick);
  std::size_t position = 0;
  for (const Reply& reply : Replies()) {
    for (; position < reply.body.size(); position += step) visit(reply, position);
    position -= reply.body.size();
  }
}

TEST(MalformedReplies, UnchangedRepliesAreReadOrAreFaults) {
  Trials trials;
  for (const Reply& reply : Replies()) trials.Try(reply, reply.body, "as it is");
  trials.Conclude("sample and recorded replies as they are, " + std::to_string(TotalSize()) +
                  " bytes");
}

TEST(MalformedReplies, TruncatedAtAnyByteAreErrors) {
  Trials trials;
  ForEachByte(4000, [&](const Reply& reply, std::size_t position) {
    trials.Try(reply, std::string_view(reply.body).substr(0, position),
               "cut at byte " + std::to_string(position));
  });
  trials.Conclude("replies cut at a byte");
}

struct Change {
  const char* name;
  char byte;
};
constexpr Change kChanges[] = {{"<", '<'}, {"&", '&'}, {"NUL", '\0'}, {"0xFF", '\xFF'}};

class ChangedByte : public testing::TestWithParam<Change> {};

TEST_P(ChangedByte, GivesRowsOrAnError) {
  Trials trials;
  std::string changed;
  const Reply* current = nullptr;
  ForEachByte(2000, [&](const Reply& reply, std::size_t position) {
    if (current != &reply) changed = reply.body;
    current = &reply;
    changed[position] = GetParam().byte;
    trials.Try(reply, changed,
               "byte " + std::to_string(position) + " changed to " + GetParam().name);
    changed[position] = reply.body[position];
  });
  trials.Conclude(std::string("replies with a byte changed to ") + GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(MalformedReplies, ChangedByte, testing::ValuesIn(kChanges),
                         [](const auto& test) { return "To" + std::to_string(test.index); });

TEST(MalformedReplies, WithRearrangedElementsGiveRowsOrAnError) {
  constexpr std::size_t kQuick = 4000;
  std::size_t total = 0;
  for (const Reply& reply : Replies()) total += malformed::Elements(reply.body).size();
  total *= malformed::Mutations().size();
  std::size_t step = support::Stride(total, kQuick);
  if (step % malformed::Mutations().size() == 0) ++step;  // not always the same one
  Trials trials;
  std::size_t number = 0;
  for (const Reply& reply : Replies()) {
    const std::vector<malformed::Element> elements = malformed::Elements(reply.body);
    for (std::size_t i = 0; i < elements.size(); ++i) {
      for (const malformed::Mutation& mutation : malformed::Mutations()) {
        if (number++ % step != 0) continue;
        const std::string text =
            mutation.apply(reply.body, elements[i], malformed::NextSibling(elements, i));
        if (text.empty()) continue;
        trials.Try(reply, text, "element " + std::to_string(i) + " " + mutation.name);
      }
    }
  }
  trials.Conclude("replies with an element dropped, doubled, swapped or nested");
}

}  // namespace
