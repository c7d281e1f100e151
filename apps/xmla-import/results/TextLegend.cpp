#include "results/TextLegend.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "Import/EnumNames.h"

namespace {

template <class Enum>
struct Meaning {
  Enum value;
  LegendEntry entry;
};

using Structure = OTXMLAHierarchy::HierarchyType;
constexpr Meaning<Structure> kStructures[] = {
    {Structure::kHierarchyFullyBalanced, {"balanced", "all branches have the same levels"}},
    {Structure::kHierarchyRaggedBalanced, {"ragged", "branches may skip levels"}},
    {Structure::kHierarchyUnBalanced,
     {"unbalanced", "branches end at different levels, as in parent-child"}},
    {Structure::kHierarchyNetwork, {"network", "members may have several parents"}},
    {Structure::kHierarchyTypeUnknown, {"structure unknown", "the server gave no structure"}},
};

using Member = OTXMLAHierarchy::MemberType;
constexpr Meaning<Member> kMembers[] = {
    {Member::kMemberTypeAll, {"default: all", "the default member is the total of all members"}},
    {Member::kMemberTypeRegular, {"default: regular", "the default member is one of the members"}},
    {Member::kMemberTypeFormula, {"default: calculated", "the default member has a formula"}},
    {Member::kMemberTypeMeasure, {"default: measure", "the default member is a measure"}},
    {Member::kMemberTypeUnknown,
     {"default: unknown", "the server did not say, or the look-up failed"}},
};

using Dimension = OTXMLAHierarchy::DimensionType;
constexpr Meaning<Dimension> kDimensions[] = {
    {Dimension::kDimensionTypeTime, {"(time)", "dimension of days, months, years and so on"}},
    {Dimension::kDimensionTypeMeasure, {"(measures)", "dimension of measures"}},
    {Dimension::kDimensionQuantitative, {"(quantitative)", "dimension of numbers"}},
    {Dimension::kDimensionAccounts, {"(accounts)", "dimension of accounts"}},
    {Dimension::kDimensionCustomers, {"(customers)", "dimension of customers"}},
    {Dimension::kDimensionProducts, {"(products)", "dimension of products"}},
    {Dimension::kDimensionScenario, {"(scenario)", "dimension of plan, actual and the like"}},
    {Dimension::kDimensionUtiliy, {"(utility)", "dimension for other purposes"}},
    {Dimension::kDimensionCurrency, {"(currency)", "dimension of currencies"}},
    {Dimension::kDimensionRates, {"(rates)", "dimension of exchange rates"}},
    {Dimension::kDimensionChannel, {"(channel)", "dimension of sales channels"}},
    {Dimension::kDimensionPromotion, {"(promotion)", "dimension of promotions"}},
    {Dimension::kDimensionOrganization, {"(organization)", "dimension of departments"}},
    {Dimension::kDimensionBill_of_materials, {"(bill of materials)", "dimension of parts"}},
    {Dimension::kDimensionGeography, {"(geography)", "dimension of places"}},
    {Dimension::kDimensionAttribute,
     {"(attribute)", "attribute dimension: qualifies another dimension"}},
};

using Aggregation = OTXMLAUnit::AggrType;
constexpr Meaning<Aggregation> kAggregations[] = {
    {Aggregation::kAggrSum, {"sum", "values can be added"}},
    {Aggregation::kAggrCount, {"count", "counts can be added"}},
    {Aggregation::kAggrMin, {"min", "the smallest value"}},
    {Aggregation::kAggrMax, {"max", "the largest value"}},
    {Aggregation::kAggrExternal,
     {"calculated by server", "average, formula, unknown, ...; cannot be combined"}},
};

using Variable = XmlACubeVariable;
constexpr Meaning<Variable::VariableType> kVariables[] = {
    {Variable::SAP_VAR_TYPE_MEMBER, {"member", "the user chooses members of a hierarchy"}},
    {Variable::SAP_VAR_TYPE_NUMERIC, {"number", "the user enters a number"}},
    {Variable::SAP_VAR_TYPE_HIERARCHY, {"hierarchy", "the user chooses a hierarchy"}},
};
constexpr Meaning<Variable::VariableSelType> kSelections[] = {
    {Variable::SAP_VAR_SEL_TYPE_VALUE, {"one value", "exactly one"}},
    {Variable::SAP_VAR_SEL_TYPE_INTERVAL, {"interval", "from one value to another"}},
    {Variable::SAP_VAR_SEL_TYPE_COMPLEX, {"ranges", "several values, intervals and comparisons"}},
    {Variable::SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES, {"several values", "a list of values"}},
};
constexpr Meaning<Variable::VariableEntryType> kEntries[] = {
    {Variable::SAP_VAR_INPUT_TYPE_OPTIONAL, {"optional", "may be left out"}},
    {Variable::SAP_VAR_INPUT_TYPE_MANDATORY, {"mandatory", "must be entered"}},
    {Variable::SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL,
     {"mandatory (not initial)", "must be entered, and not as 0, # or an empty text"}},
};

constexpr LegendEntry kNameWords[] = {
    {"Name (other)", "display name, and the server's name if it differs"},
    {"(no name)", "the server sent an empty name"},
    {"incomplete", "errors happened, and a part of the cube is missing"},
    {"not read", "errors happened, and nothing of the cube was read"},
};
constexpr LegendEntry kLevels[] = {
    {"0, 1, 2, ...", "number of a level, from the top"},
    {"(All)", "level of the total of all members"},
    {"property", "a value of each member of the level"},
};
constexpr LegendEntry kTypes[] = {
    {"VarChar", "data type; the server sent no length or precision"},
    {"VarChar(20)", "length 20, or precision of a number sent as text"},
    {"VarChar(no limit)", "the server sent length 0"},
    {"Double(15, 2)", "precision 15, scale 2"},
    {"Double(10, ?)", "?: -1 (unknown) or nothing sent; also VarChar(?)"},
    {"Unknown", "the server's data type has no counterpart"},
    {"code 7", "a code without a word"},
};

template <class Enum, std::size_t Count>
std::string FindWord(const Meaning<Enum> (&meanings)[Count], Enum value, const char* prefix = "") {
  for (const Meaning<Enum>& each : meanings)
    if (each.value == value) return std::string(each.entry.word);
  return prefix + ("code " + std::to_string(static_cast<long long>(value)));
}

std::vector<LegendEntry> MakeLegend() {
  std::vector<LegendEntry> all;
  const auto add = [&all](const auto& meanings) {
    for (const auto& each : meanings) {
      if constexpr (requires { each.entry; })
        all.push_back(each.entry);
      else
        all.push_back(each);
    }
  };
  add(kNameWords);
  add(kDimensions);
  add(kStructures);
  add(kMembers);
  add(kLevels);
  add(kTypes);
  add(kAggregations);
  add(kVariables);
  add(kSelections);
  add(kEntries);
  return all;
}

}  // namespace

std::span<const LegendEntry> TextLegend() {
  static const std::vector<LegendEntry> legend = MakeLegend();
  return legend;
}

std::vector<EnumeratorWord> EnumeratorWords() {
  std::vector<EnumeratorWord> all;
  const auto add = [&all](const auto&... meanings) {
    const auto addOne = [&all](const auto& each) {
      all.push_back({EnumName(each.value), each.entry});
    };
    (std::ranges::for_each(meanings, addOne), ...);
  };
  add(kDimensions, kStructures, kMembers, kAggregations, kVariables, kSelections, kEntries);
  return all;
}

std::string Word(Aggregation value) { return FindWord(kAggregations, value); }
std::string Word(Member value) { return FindWord(kMembers, value, "default: "); }
std::string Word(Structure value) { return FindWord(kStructures, value); }
std::string Word(Dimension value) {
  const bool isOrdinary =
      value == Dimension::kDimensionTypeUnknown || value == Dimension::kDimensionTypeOther;
  return isOrdinary ? std::string() : FindWord(kDimensions, value, "of kind ");
}
std::string Word(Variable::VariableType value) { return FindWord(kVariables, value); }
std::string Word(Variable::VariableSelType value) { return FindWord(kSelections, value); }
std::string Word(Variable::VariableEntryType value) { return FindWord(kEntries, value); }
