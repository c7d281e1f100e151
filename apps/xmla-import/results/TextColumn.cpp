#include "results/TextColumn.h"

#include <string_view>

#include "Import/EnumNames.h"

namespace {

// Some servers send the precision -1 as a number of 16 bits without sign.
constexpr int kUnknownPrecision = 65535;
constexpr int kUnknown = -1;

bool IsText(VXDataType type) {
  return type == VXCharData || type == VXVarCharData || type == VXLongVarCharData;
}

}  // namespace

bool IsPrecisionUnknown(const OTXMLAUnit& unit) {
  return unit.m_precision == kUnknown ||
         (unit.m_scale == kUnknown && unit.m_precision == kUnknownPrecision);
}

std::string TypeName(VXDataType type) {
  std::string_view name = EnumName(type);
  if (name.empty()) return "code " + std::to_string(static_cast<int>(type));
  if (name.starts_with("VX")) name.remove_prefix(2);
  if (name.ends_with("Data")) name.remove_suffix(4);
  return std::string(name);
}

std::string TextColumn(const OTXMLAUnit& unit) {
  std::string type = TypeName(unit.m_type);
  const bool isScaleUnknown = unit.m_scale == kUnknown;
  const bool isPrecisionUnknown = IsPrecisionUnknown(unit);
  const bool isDefault = unit.m_precision == OTXMLAUnit::kDefaultColumnLength;
  // A type without precision needs no word about its scale.
  if (isPrecisionUnknown && (isScaleUnknown || unit.m_scale == 0)) return type + "(?)";
  if (isDefault && (isScaleUnknown || unit.m_scale == 0)) return type;
  if (unit.m_precision == 0 && unit.m_scale == 0 && IsText(unit.m_type)) return type + "(no limit)";
  std::string text = type + "(";
  text += isPrecisionUnknown || isDefault ? "?" : std::to_string(unit.m_precision);
  if (unit.m_scale != 0) text += isScaleUnknown ? ", ?" : ", " + std::to_string(unit.m_scale);
  return text + ")";
}
