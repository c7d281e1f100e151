#include "CubeReading.h"

#include "LastRequest.h"
#include "Text.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/VXExecutionState.h"

namespace {

bool IsInterrupted() {
  const VXExecutionState* const state = VXExecutionState::Current();
  return state && state->IsCancellationRequested();
}

bool ReadVariables(OTXMLAImportAPI& import, CubeResult& result) {
  OTCube cube;
  String errors;
  String warnings;
  try {
    import.GetSAPVariables(cube, errors, warnings);
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
  }
  AddTexts(result.messages, errors, warnings);
  result.sapVariables = cube.m_sapVariables;
  return errors.empty();
}

}  // namespace

bool ReadCube(const Session& session, OTXMLAImportAPI& import, CubeResult& result) {
  import.SetImportChoiceInfo(result.dataSource, result.catalog, result.cube);
  String errors;
  String warnings;
  import.GetHierarchies(result.hierarchies, errors, warnings);
  AddTexts(result.messages, errors, warnings);
  bool whole = errors.empty();
  if (IsInterrupted()) return false;
  if (!whole) {
    // A fault's text seldom says what was asked for.
    const std::string place = PlaceOfLastRequest();
    if (!place.empty()) result.messages.errors.push_back("the failed request was " + place);
  }

  // What stopped the hierarchies need not stop the rest.
  errors.clear();
  warnings.clear();
  import.GetMeasuresAndCalcMembers(result.measures, errors, warnings);
  AddTexts(result.messages, errors, warnings);
  whole = whole && errors.empty();
  if (IsInterrupted()) return false;

  if (session.IsSapBw()) whole = ReadVariables(import, result) && whole;
  return whole && !IsInterrupted();
}
