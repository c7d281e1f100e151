#include "results/JsonRecorder.h"

std::string JsonRecorder::Finish(const Result& result) {
  if (const auto* const import = std::get_if<ImportResult>(&result)) {
    if (!m_hasBegun) m_form->BeginImport(*import);
    m_form->EndImport(*import);
  } else if (const auto* const cube = std::get_if<CubeResult>(&result)) {
    m_form->Write(*cube);
  } else if (const auto* const tree = std::get_if<TreeResult>(&result)) {
    m_form->Write(*tree);
  }
  m_text.Flush();
  return std::move(m_document);
}
