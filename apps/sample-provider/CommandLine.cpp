#include "CommandLine.h"

#include <libxml/xmlversion.h>
#include <zlib.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Moods.h"

namespace sample {

namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxLatency = 3'600'000;

/// The first line of the file, without byte-order mark and carriage return.
std::string ReadPassword(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  if (!std::getline(in, line) && !in.eof())
    throw std::runtime_error("Cannot read the password file " + file + ".");
  if (!line.empty() && line.back() == '\r') line.pop_back();
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  return line;
}

}  // namespace

CommandLine::CommandLine(const std::string& version)
    : m_app(std::make_unique<CLI::App>(
          "Serves sample cubes like three kinds of XMLA server on the loopback interface, until it "
          "is interrupted.",
          "xmla-sample-provider")) {
  m_app
      ->add_option("--port", m_options.port,
                   "the port to listen on, 0 to 65535; 0, the default, is any free port")
      ->check(CLI::Range(0, kMaxPort).description(""))
      ->type_name("PORT");
  m_app
      ->add_option("--latency", m_latency,
                   "milliseconds to wait before every reply, 0 to 3600000; default 0")
      ->check(CLI::Range(0, kMaxLatency).description(""))
      ->type_name("N");
  m_app->add_flag("--compress", m_options.compress, "compress replies for clients that accept it");
  m_app->add_flag("--wide-cube", m_options.wideCube,
                  "add a cube with 175 hierarchies, named Wide, to the first catalog");
  auto* const user =
      m_app->add_option("--user", m_options.user, "require the credentials of this user, by Basic")
          ->type_name("NAME");
  auto* const file = m_app
                         ->add_option("--password-file", m_passwordFile,
                                      "the user's password: the first line of this file")
                         ->type_name("FILE");
  user->needs(file);
  file->needs(user);
  m_app
      ->add_option(
          "--mood", m_options.mood,
          "misbehave: NAME[:NUMBER][@REQUEST_TYPE][/NTH]; with a type only for requests of "
          "that type, such as MDSCHEMA_CUBES, and with NTH only for the NTH of them since the "
          "provider started")
      ->type_name("MOOD");
  const std::string libraries =
      std::string("libxml2/" LIBXML_DOTTED_VERSION " zlib/") + zlibVersion();
  m_app->set_version_flag("--version",
                          "xmla-sample-provider " + version + "\nLibraries: " + libraries,
                          "show the version");
  m_app->footer("Moods (in parentheses: the value without :N):\n" + MoodHelp());
  m_app->failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("xmla-sample-provider: error: ") + error.what() +
           "; see xmla-sample-provider --help\n";
  });
}

CommandLine::~CommandLine() = default;

std::optional<Options> CommandLine::Read(int argc, char** argv, int& status) {
  try {
    m_app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    status = m_app->exit(error) == 0 ? 0 : 2;
    return std::nullopt;
  }
  Options options = m_options;
  options.latency = std::chrono::milliseconds(m_latency);
  ParseMood(options.mood);  // throws if it is unknown
  if (!m_passwordFile.empty()) options.password = ReadPassword(m_passwordFile);
  return options;
}

std::string CommandLine::Description() const { return m_app->get_description(); }

std::vector<OptionText> CommandLine::OptionTexts() const {
  std::vector<OptionText> texts;
  for (const CLI::Option* const option : std::as_const(*m_app).get_options()) {
    const std::string needs =
        option->get_needs().empty() ? "" : "; needs " + (*option->get_needs().begin())->get_name();
    texts.push_back({option->get_name(false, true),
                     option->get_items_expected() == 0 ? "" : option->get_type_name(),
                     option->get_description() + needs});
  }
  return texts;
}

}  // namespace sample
