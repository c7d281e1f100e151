#pragma once

#include <string>
#include <string_view>

/// Writes a manual page with the macros of man(7). Texts are plain; all characters that the
/// language treats specially are escaped.
class Roff {
 public:
  /// The title line. `date` may be empty.
  Roff(std::string_view name, int section, std::string_view date, std::string_view version,
       std::string_view manual);

  void Section(std::string_view title);
  void Subsection(std::string_view title);
  void Paragraph(std::string_view text);
  /// Lines that are shown as they are, without their common indentation.
  void Verbatim(std::string_view lines);
  /// An entry of a list: a name, in bold, the placeholder of its value, and the meaning.
  void Entry(std::string_view name, std::string_view placeholder, std::string_view meaning);
  /// An entry with a bullet.
  void Bullet(std::string_view text);
  /// The NAME section.
  void Name(std::string_view name, std::string_view summary);
  /// A call in the SYNOPSIS section: a program in bold, and its arguments.
  void Synopsis(std::string_view program, std::string_view arguments);

  const std::string& Text() const { return m_text; }

 private:
  void Line(std::string_view line);
  void BeginParagraph();
  /// A line of text: its first character must not begin a request.
  void TextLine(std::string_view text);
  /// Lines of limited length, which are filled again when they are shown.
  void TextLines(std::string_view text);

  std::string m_text;
  bool m_isAfterTitle = false;  // a paragraph needs no request
};
