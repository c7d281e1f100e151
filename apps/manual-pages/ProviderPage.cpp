#include <sstream>

#include "CommandLine.h"
#include "Pages.h"
#include "Roff.h"

std::string ProviderPage(const PageEdition& edition) {
  const sample::CommandLine call{std::string(edition.version)};
  Roff roff("XMLA-SAMPLE-PROVIDER", 1, edition.date, "xmla-import " + std::string(edition.version),
            "User Commands");
  roff.Name("xmla-sample-provider", "serve sample cubes like three kinds of XMLA server");
  roff.Synopsis("xmla-sample-provider", "[OPTION]...");
  roff.Section("DESCRIPTION");
  roff.Paragraph(call.Description());
  roff.Paragraph(
      "Prints the URL of each kind of server when it is ready, one per line: "
      "http://127.0.0.1:PORT/KIND, where KIND is analysis-services, sap-bw or tamarind. The same "
      "data are in xmla-import, with its option --sample.");
  roff.Paragraph(
      "For tests of clients, it misbehaves on request: for every request with --mood, or for those "
      "with ?mood=MOOD at the end of their URL, which takes precedence.");
  roff.Section("OPTIONS");
  for (const sample::OptionText& option : call.OptionTexts())
    roff.Entry(option.names, option.value, option.description);
  roff.Section("MOODS");
  roff.Paragraph("In parentheses: the value without :N.");
  std::istringstream moods(sample::MoodHelp());
  for (std::string line; std::getline(moods, line);) {
    const std::size_t end = line.find(' ');
    roff.Entry(line.substr(0, end), "", line.substr(line.find_first_not_of(' ', end)));
  }
  roff.Section("EXIT STATUS");
  roff.Entry("0", "", "the program was interrupted (SIGINT or SIGTERM)");
  roff.Entry("1", "", "the port is not available");
  roff.Entry("2", "", "an option is wrong, or the password file cannot be read");
  roff.Section("EXAMPLES");
  roff.Verbatim(
      "xmla-sample-provider --port 8080\n"
      "xmla-import --url http://127.0.0.1:8080/sap-bw tree\n"
      "xmla-import --url 'http://127.0.0.1:8080/tamarind?mood=slow:500' tree\n");
  roff.Section("SEE ALSO");
  roff.Paragraph("xmla-import(1)");
  return roff.Text();
}
