#include "Roff.h"

#include <algorithm>

namespace {

constexpr std::size_t kSourceWidth = 60;  // escapes make lines longer

/// Escapes backslashes, and hyphens: a plain hyphen of a name or an option may be shown as another
/// character, which cannot be copied into a call.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\')
      escaped += "\\e";
    else if (c == '-')
      escaped += "\\-";
    else if (c == '\'')
      escaped += "\\(aq";
    else if (c == '^')
      escaped += "\\(ha";
    else if (c == '~')
      escaped += "\\(ti";
    else if (c == '`')
      escaped += "\\(ga";
    else
      escaped += c;
  }
  return escaped;
}

/// An argument of a macro.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : Escaped(text)) quoted += c == '"' ? std::string("\\(dq") : std::string(1, c);
  return quoted + '"';
}

}  // namespace

Roff::Roff(std::string_view name, int section, std::string_view date, std::string_view version,
           std::string_view manual) {
  Line(".TH " + Quoted(name) + ' ' + std::to_string(section) + " \"" + std::string(date) + "\" " +
       Quoted(version) + ' ' + Quoted(manual));
  // Words are not hyphenated and lines not justified, so that names stay whole. The macros for
  // groff set hyphenation again at each paragraph, by the register.
  for (const char* const line : {".nr HY 0", ".nh", ".ad l"}) Line(line);
}

void Roff::Section(std::string_view title) {
  Line(".SH " + Quoted(title));
  m_isAfterTitle = true;
}

void Roff::Subsection(std::string_view title) {
  Line(".SS " + Quoted(title));
  m_isAfterTitle = true;
}

void Roff::Paragraph(std::string_view text) {
  BeginParagraph();
  TextLines(text);
}

void Roff::Verbatim(std::string_view lines) {
  std::size_t indentation = lines.size();
  for (std::size_t begin = 0; begin < lines.size(); begin = lines.find('\n', begin) + 1) {
    indentation = std::min(indentation, lines.find_first_not_of(' ', begin) - begin);
    if (lines.find('\n', begin) == lines.npos) break;
  }
  BeginParagraph();
  Line(".RS 2");
  Line(".EX");
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    TextLine(lines.substr(std::min(indentation, end), end - std::min(indentation, end)));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  Line(".EE");
  Line(".RE");
}

void Roff::Entry(std::string_view name, std::string_view placeholder, std::string_view meaning) {
  Line(".TP");
  Line(placeholder.empty() ? ".B " + Quoted(name)
                           : ".BI " + Quoted(std::string(name) + ' ') + ' ' + Quoted(placeholder));
  TextLines(meaning);
}

void Roff::Bullet(std::string_view text) {
  Line(".IP \\(bu 2");
  TextLines(text);
}

void Roff::Name(std::string_view name, std::string_view summary) {
  Section("NAME");
  Line(Escaped(name) + " \\- " + Escaped(summary));
}

void Roff::Synopsis(std::string_view program, std::string_view arguments) {
  Section("SYNOPSIS");
  Line(".B " + Quoted(program));
  TextLine(arguments);
}

void Roff::Line(std::string_view line) {
  m_isAfterTitle = false;
  m_text += line;
  m_text += '\n';
}

void Roff::BeginParagraph() {
  if (!m_isAfterTitle) Line(".PP");
}

void Roff::TextLine(std::string_view text) {
  const std::string escaped = Escaped(text);
  Line((escaped.starts_with('.') ? "\\&" : "") + escaped);
}

void Roff::TextLines(std::string_view text) {
  while (!text.empty()) {
    std::size_t end = text.size();
    if (end > kSourceWidth) end = std::min(text.find(' ', text.rfind(' ', kSourceWidth)), end);
    TextLine(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}
