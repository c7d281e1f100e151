#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "support/Operations.h"

// All operations of the library as a table, with outcomes that can be compared.
namespace reliability {

/// A kind of provider, and one cube of its sample data.
struct Kind {
  const char* name;
  const char* path;  // path at ExemptServer
  ServerInfo::TargetType target;
  const wchar_t* source;
  const wchar_t* catalog;
  const wchar_t* cube;
  const wchar_t* hierarchy;  // a hierarchy of the cube
  const wchar_t* member;     // a member of the hierarchy
};
extern const Kind kKinds[3];

/// The out parameters of all operations, with a previous content that must be kept.
struct Outputs : support::Outputs {
  Outputs() : support::Outputs(L"before\n") {}
};

/// An import object and an agent, connected to a provider, with a cube chosen.
class Subject {
 public:
  Subject(const Kind& kind, std::string url);
  const Kind& kind;
  const String url;
  const support::Place place;
  OTXMLAAnaTamImportAPI import;
  XmlADiscoverAgentHeap agent;
};

struct Operation {
  const char* name;
  bool throwsErrors;  ///< passes ErrorMessage to the caller
  bool isPrefix;      ///< after a failure, the records are a prefix of the complete ones
  std::function<void(Subject& subject, Outputs& outputs)> run;
};
/// The operations of the import interface, the two exported functions, and the agent's readers.
extern const std::vector<Operation> kOperations;

/// How an operation ended, and what it returned.
struct Outcome {
  enum class End { kReturned, kErrorMessage, kOutOfMemory, kOtherException };
  End end = End::kReturned;
  std::string thrown;
  std::vector<std::string> records;
  std::string errors;
  std::string warnings;

  bool IsWhole() const { return end == End::kReturned && errors == "before\n"; }
};
std::string ToText(const Outcome& outcome);
bool operator==(const Outcome& a, const Outcome& b);

/// Calls `run`, which may throw, and describes the outcome.
template <class Run>
Outcome OutcomeOf(Outputs& outputs, Run run);

/// Compares the outcome of a disturbed operation with the undisturbed one. Returns the first
/// violation of the interface's contract; empty if there is none.
std::string Violation(const Operation& operation, const Outcome& outcome, const Outcome& whole);

std::string ThrownText(Outcome::End& end);
void TakeTexts(const Outputs& outputs, Outcome& outcome);

template <class Run>
Outcome OutcomeOf(Outputs& outputs, Run run) {
  Outcome outcome;
  Outcome::End end = Outcome::End::kReturned;
  try {
    run();
  } catch (...) {
    outcome.thrown = ThrownText(end);
  }
  outcome.end = end;
  TakeTexts(outputs, outcome);
  return outcome;
}

}  // namespace reliability
