#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Utility/Generic/BaseStringUtil.h"
#include "base/Style.h"
#include "base/Text.h"
#include "call/ServerFileExample.h"
#include "call/TargetNames.h"
#include "results/ChangeText.h"
#include "results/Form.h"
#include "results/TextColumn.h"
#include "results/TextLegend.h"
#include "results/Totals.h"

namespace {

/// A display name, and the server's name.
struct Named {
  const String& name;
  const String& externalName;
};

using Hierarchies = std::vector<const OTXMLAHierarchy*>;

/// The hierarchies, those of a dimension one after the other. Dimensions and their hierarchies keep
/// the server's order. If memory is exhausted, all keep it.
Hierarchies ByDimension(const std::vector<OTXMLAHierarchy>& hierarchies) {
  std::unordered_map<String, std::size_t> numbers;
  std::vector<Hierarchies> dimensions;
  for (const OTXMLAHierarchy& each : hierarchies) {
    const auto [found, isNew] = numbers.try_emplace(each.m_dimensionUniqueName, dimensions.size());
    if (isNew) dimensions.emplace_back();
    dimensions[found->second].push_back(&each);
  }
  Hierarchies all;
  for (const Hierarchies& dimension : dimensions)
    all.insert(all.end(), dimension.begin(), dimension.end());
  return all;
}

/// True if the name is the dimension's name, a dot, and the rest.
bool IsWithin(const String& name, const String& dimension, const String& rest) {
  const String::View text = name.view();
  const std::size_t length = dimension.size();
  return text.size() == length + 1 + rest.size() && text.starts_with(dimension.view()) &&
         text[length] == L'.' && text.ends_with(rest.view());
}

/// The number of errors, without the lines that complete them.
std::string Errors(const Messages& messages) {
  const auto others = std::ranges::count_if(messages.errors, &CompletesAnError);
  return Counted(messages.errors.size() - static_cast<std::size_t>(others), "error", "errors");
}

class TextForm : public Form {
 public:
  using Form::Form;

  void Write(const NoResult&) override {}

  void Write(const ServersResult& result) override {
    std::size_t longest = 0;
    for (const auto& server : result.servers) longest = std::max(longest, server.name.size());
    for (const auto& [name, url] : result.servers) {
      if (MustStop()) return;
      Put(name);
      Text().AppendBlanks(longest - name.size() + 2);
      Line(0, url);
    }
  }

  void Write(const CompletionResult& result) override {
    std::string_view script = result.script;
    while (!script.empty()) {
      const std::size_t end = script.find('\n');
      Text().Append(script.substr(0, end));
      Text().EndLine();
      script.remove_prefix(end + 1);
    }
  }

  void Write(const SourcesResult& result) override {
    for (const String& name : result.dataSources)
      if (!MustStop()) Line(0, name);
  }

  void Write(const TreeResult& result) override {
    for (const OTDataSource& source : result.dataSources) {
      StyledLine(Style::kHeading, 0, source.m_dataSourceName,
                 source.m_catalogs.empty() ? " (no catalogs)" : "");
      for (const OTCatalog& catalog : source.m_catalogs) {
        Line(1, catalog.m_catalogName, catalog.m_cubes.empty() ? " (no cubes)" : "");
        for (const OTCube& cube : catalog.m_cubes) {
          if (MustStop()) return;
          Line(2, cube.first);
        }
      }
    }
  }

  void Write(const CubeResult& result) override {
    if (!result.IsEmpty()) Cube(result);
  }

  void Write(const DiffResult& result) override {
    if (result.before.empty()) return;
    Line(0, "old  ", Wide(result.before));
    Line(0, "new  ", Wide(result.after));
    std::map<std::string_view, std::size_t> shown;  // by id
    std::size_t hidden = 0;
    std::string lastPlace;
    for (const Change& change : result.comparison.changes) {
      if (MustStop()) return;
      if (++shown[change.id] > kMostPerId) {
        ++hidden;
        continue;
      }
      // The cube, or what else is above, is a heading for its changes.
      const auto [place, within] = SplitAtCube(change.path);
      if (place != lastPlace) {
        Text().EndLine();
        StyledLine(Style::kHeading, 0, Wide(place));
        lastPlace = place;
      }
      Text().AppendBlanks(2);
      Text().BeginStyle(kClassStyles[static_cast<int>(change.severity)]);
      PutPadded(ClassName(change.severity), kClassWidth);
      Text().EndStyle();
      Put(Wide((within.empty() ? "" : within + ": ") + ChangeText(change)));
      Line(0, "  [", change.id, "]");
    }
    Text().EndLine();
    Line(0, "found: ", FoundText(result));
    Line(0, "compared: ", ComparedText(result));
    if (hidden > 0)
      Line(0, "hidden: ", std::to_string(hidden), " changes, because only the first ",
           std::to_string(kMostPerId), " with the same id are shown; other formats have all");
  }

  void BeginImport(const ImportResult& result) override {
    if (result.target.empty()) return;
    Text().Append("provider  ");
    Put(result.providerName);
    if (!result.providerVersion.empty()) {
      Put(", version ");
      Put(result.providerVersion);
    }
    Text().EndLine();
    Line(0, "kind      ", ExplainedTarget(result.target));
    if (result.cubeCount > 0) Line(0, "cubes     ", std::to_string(result.cubeCount));
  }

  void AddCube(const CubeResult& cube) override {
    ++m_addedCubes;
    Text().EndLine();
    Cube(cube);
  }

  void EndImport(const ImportResult& result) override {
    if (m_addedCubes == result.cubeCount) return;
    Text().EndLine();
    Line(0, "incomplete: ", std::to_string(result.cubeCount - m_addedCubes), " of ",
         std::to_string(result.cubeCount), " cubes are missing");
  }

  void BeginSteps(const CheckResult&) override {}

  void AddStep(const CheckStep& step) override {
    constexpr std::size_t kStatusWidth = 9;
    constexpr std::size_t kNameWidth = 17;
    constexpr Style kStyles[] = {Style::kGood, Style::kCaution, Style::kBad, Style::kFaint};
    Text().BeginStyle(kStyles[static_cast<int>(step.status)]);
    PutPadded(StatusName(step.status), kStatusWidth);
    Text().EndStyle();
    PutPadded(step.name, kNameWidth);
    Put(Wide(step.found));
    if (step.seconds) Put(fmt::format(" ({:.1f} ms)", *step.seconds * 1e3));
    Text().EndLine();
    if (step.advice.empty()) return;
    Text().AppendBlanks(kStatusWidth + kNameWidth);
    Put("what to do: ");
    Put(Wide(step.advice));
    Text().EndLine();
  }

  void EndSteps(const CheckResult&) override {}

 private:
  static constexpr std::size_t kMostPerId = 100;
  static constexpr std::size_t kClassWidth = 10;
  static constexpr Style kClassStyles[] = {Style::kBad, Style::kGood, Style::kFaint};

  /// The text of a path up to its cube, and of the rest.
  static std::pair<std::string, std::string> SplitAtCube(const std::vector<PathPart>& path) {
    auto end = std::ranges::find(path, "cube", &PathPart::kind);
    if (end == path.end())
      end = path.begin();
    else
      ++end;
    const std::vector<PathPart> rest(end, path.end());
    return {PathText({path.begin(), end}), rest.empty() ? "" : PathText(rest)};
  }

  void PutPadded(std::string_view ours, std::size_t width) {
    Put(ours);
    Text().AppendBlanks(width - std::min(width, ours.size()));
  }

  template <class... Parts>
  void Line(std::size_t depth, const Parts&... parts) {
    Text().AppendBlanks(2 * depth);
    (Put(parts), ...);
    Text().EndLine();
  }
  template <class... Parts>
  void StyledLine(Style style, std::size_t depth, const Parts&... parts) {
    Text().AppendBlanks(2 * depth);
    Text().BeginStyle(style);
    (Put(parts), ...);
    Text().EndStyle();
    Text().EndLine();
  }
  void Put(std::string_view ours) { Text().Append(ours); }
  void Put(const String& name) {
    if (name.empty()) return Put("(no name)");
    Text().AppendName(name);
  }
  /// The display name, followed by the server's name if that is different.
  void Put(const Named& named) {
    if (named.name.empty() || named.name == named.externalName) return Put(named.externalName);
    Put(named.name);
    Put(" (");
    Put(named.externalName);
    Put(")");
  }

  void Cube(const CubeResult& cube) {
    const bool hasFailed = !cube.messages.errors.empty();
    Text().BeginStyle(Style::kHeading);
    Text().Append("cube ");
    Put(cube.cube);
    Text().EndStyle();
    if (hasFailed) {
      Text().BeginStyle(Style::kBad);
      Put((cube.IsEmpty() ? " (not read: " : " (incomplete: ") + Errors(cube.messages) + ")");
      Text().EndStyle();
    }
    Text().EndLine();
    if (cube.dataSource.empty())
      Line(1, "catalog ", cube.catalog);
    else
      Line(1, "data source ", cube.dataSource, ", catalog ", cube.catalog);
    Totals totals;
    totals.Add(cube);
    totals.cubes = 0;
    if (!cube.IsEmpty())
      Line(1, totals.Text());
    else if (!hasFailed)
      Line(1, "no hierarchies and no measures");
    WriteHierarchies(cube.hierarchies);
    if (!cube.measures.empty()) StyledLine(Style::kSection, 1, "measures");
    WriteUnits(2, "", cube.measures, [](const OTXMLAUnit& measure) {
      return Words{Word(measure.m_aggrType), TextColumn(measure)};
    });
    if (!cube.sapVariables.empty()) StyledLine(Style::kSection, 1, "variables");
    const auto wordsOf = [](const XmlACubeVariable& variable) {
      return Words{Word(variable.m_type), Word(variable.m_selectionType),
                   Word(variable.m_entryType)};
    };
    const Widths widths = WidthsOf(cube.sapVariables, wordsOf);
    for (const XmlACubeVariable& variable : cube.sapVariables) {
      if (MustStop()) return;
      Aligned(2, "", NamedOf(variable), wordsOf(variable), widths);
      Details(variable);
    }
  }

  // Similar lines, such as the measures, have a name and words. On a terminal they are aligned.

  using Words = std::vector<std::string>;
  using Widths = std::vector<std::size_t>;  // of the name and of each word; empty: not aligned

  static Named NamedOf(const OTXMLAUnit& unit) { return {unit.m_name, unit.m_externalName}; }
  static Named NamedOf(const XmlACubeVariable& variable) {
    return {variable.m_Caption, variable.m_Name};
  }

  static std::size_t WidthOf(const Named& named) {
    constexpr std::size_t kNoName = 9;  // of "(no name)"
    const std::size_t other = DisplayWidth(named.externalName);
    if (named.name.empty() || named.name == named.externalName)
      return named.externalName.empty() ? kNoName : other;
    return DisplayWidth(named.name) + 3 + (named.externalName.empty() ? kNoName : other);
  }

  template <class Items, class WordsOf>
  Widths WidthsOf(const Items& items, const WordsOf& wordsOf) {
    // A longer name does not move the words of all others.
    constexpr std::size_t kMaxWidth = 48;
    Widths widths;
    if (!Text().IsForTerminal()) return widths;
    for (const auto& item : items) {
      const Words words = wordsOf(item);
      widths.resize(words.size() + 1);
      const std::size_t name = WidthOf(NamedOf(item));
      if (name <= kMaxWidth) widths[0] = std::max(widths[0], name);
      for (std::size_t i = 0; i < words.size(); ++i)
        widths[i + 1] = std::max(widths[i + 1], words[i].size());
    }
    return widths;
  }

  void Aligned(std::size_t depth, std::string_view label, const Named& named, const Words& words,
               const Widths& widths) {
    Text().AppendBlanks(2 * depth);
    Put(label);
    Put(named);
    std::size_t used = widths.empty() ? 0 : WidthOf(named);
    for (std::size_t i = 0; i < words.size(); ++i) {
      Put(i == 0 ? ": " : ", ");
      if (!widths.empty()) Text().AppendBlanks(widths[i] - std::min(widths[i], used));
      Put(words[i]);
      used = words[i].size();
    }
    Text().EndLine();
  }

  template <class WordsOf>
  void WriteUnits(std::size_t depth, std::string_view label, const std::vector<OTXMLAUnit>& units,
                  const WordsOf& wordsOf) {
    const Widths widths = WidthsOf(units, wordsOf);
    for (const OTXMLAUnit& unit : units) {
      if (MustStop()) return;
      Aligned(depth, label, NamedOf(unit), wordsOf(unit), widths);
    }
  }

  void WriteHierarchies(const std::vector<OTXMLAHierarchy>& hierarchies) {
    Hierarchies ordered;
    try {
      ordered = ByDimension(hierarchies);
    } catch (const std::bad_alloc&) {
      ordered.clear();
    }
    const OTXMLAHierarchy* last = nullptr;
    for (std::size_t i = 0; i < hierarchies.size(); ++i) {
      if (MustStop()) return;
      const OTXMLAHierarchy& each = ordered.empty() ? hierarchies[i] : *ordered[i];
      if (!last || last->m_dimensionUniqueName != each.m_dimensionUniqueName ||
          last->m_dimensionType != each.m_dimensionType)
        Dimension(each);
      Hierarchy(each);
      last = &each;
    }
  }

  void Dimension(const OTXMLAHierarchy& first) {
    const std::string kind = Word(first.m_dimensionType);
    StyledLine(Style::kSection, 1, "dimension ", first.m_dimensionUniqueName,
               kind.empty() ? "" : " " + kind);
  }

  void Hierarchy(const OTXMLAHierarchy& hierarchy) {
    const String& name = hierarchy.m_hierarchyName;
    const bool isPlain = IsWithin(hierarchy.m_externalName, hierarchy.m_dimensionUniqueName, name);
    Line(2, "hierarchy ", Named{name, isPlain ? name : hierarchy.m_externalName}, ": ",
         Word(hierarchy.m_hierarchyType), ", ", Word(hierarchy.m_memberType));
    for (const OTXMLALevel& level : hierarchy.m_levels) {
      if (MustStop()) return;
      Level(level);
    }
  }

  void Level(const OTXMLALevel& level) {
    Text().AppendBlanks(6);
    Put(std::to_string(level.m_levelNumber) + " ");
    // The display name of this level is its unique name, which says nothing more.
    if (BaseStringUtil::IsCaseInsensitiveMatch(level.m_externalName, m_all))
      Put("(All)");
    else
      Put(Named{level.m_levelName, level.m_externalName});
    Text().EndLine();
    WriteUnits(4, "property ", level.m_memberProperties,
               [](const OTXMLAUnit& property) { return Words{TextColumn(property)}; });
  }

  void Details(const XmlACubeVariable& variable) {
    const bool isOfHierarchy = !variable.m_referenceHierarchy.empty();
    const String& reference =
        isOfHierarchy ? variable.m_referenceHierarchy : variable.m_referenceDimension;
    if (!reference.empty()) Line(3, "of ", reference);
    const String& low = variable.m_defaultLow;
    const String& high = variable.m_defaultHigh;
    if (!low.empty() && !high.empty())
      Line(3, "default ", low, " to ", high);
    else if (!low.empty() || !high.empty())
      Line(3, low.empty() ? "default to " : "default ", low.empty() ? high : low);
  }

  const String m_all{L"(All)"};
  std::size_t m_addedCubes = 0;
};

}  // namespace

std::unique_ptr<Form> MakeTextForm(ResultText& text) { return std::make_unique<TextForm>(text); }
