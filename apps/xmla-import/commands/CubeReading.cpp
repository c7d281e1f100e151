#include "commands/CubeReading.h"

#include "Utility/Generic/ErrorMessage.h"
#include "base/Interrupt.h"
#include "base/Text.h"
#include "connection/Operation.h"

namespace {

/// Runs one operation and adds its texts to the messages of the result. True on success.
template <class Get>
bool Read(CubeResult& result, Get get) {
  Operation operation;
  try {
    get(operation.errors, operation.warnings);
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(operation.errors);
  }
  return operation.End(result.messages);
}

}  // namespace

bool ReadCube(const Session& session, OTXMLAImportAPI& import, CubeResult& result) {
  import.SetImportChoiceInfo(result.dataSource, result.catalog, result.cube);
  bool isComplete = Read(result, [&](String& errors, String& warnings) {
    import.GetHierarchies(result.hierarchies, errors, warnings);
  });
  if (MustStop() || result.messages.isUnreachable) return false;

  // Measures may succeed even if the hierarchies failed.
  isComplete &= Read(result, [&](String& errors, String& warnings) {
    import.GetMeasuresAndCalcMembers(result.measures, errors, warnings);
  });
  if (MustStop() || result.messages.isUnreachable) return false;

  if (session.IsSapBw())
    isComplete &= Read(result, [&](String& errors, String& warnings) {
      OTCube cube;
      import.GetSAPVariables(cube, errors, warnings);
      result.sapVariables = cube.m_sapVariables;
    });
  return isComplete && !MustStop();
}
