// Fuzzes the server file: an input is its text.

#include <algorithm>

#include "Input.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "base/Text.h"
#include "call/CommonOptions.h"
#include "call/OptionValue.h"
#include "connection/ServerFile.h"

namespace {

using fuzz::Require;

bool HasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

void CheckOption(const CommandOption& option, const Arguments& values) {
  if (const auto* const text = std::get_if<std::string Arguments::*>(&option.value)) {
    const std::string& value = values.**text;
    Require(!HasControlCharacter(value), "a text with a control character", value);
    Require(IsServerKey(option) || value.empty() || value == "text", "a value without a key",
            option.name);
    const bool isInput = option.file == OptionFile::kSecret && value == "-";
    Require(option.file == OptionFile::kNone || value.empty() || value.front() == '/' || isInput,
            "the name of a file is not complete", value);
  } else if (const auto* const number =
                 std::get_if<std::optional<int> Arguments::*>(&option.value)) {
    const std::optional<int> value = values.**number;
    Require(!value || (*value >= option.min && *value <= option.max), "a number out of range");
  }
}

void CheckServer(const Server& server) {
  Require(!server.name.empty() && !HasControlCharacter(server.name), "the name", server.name);
  String url = Wide(server.values.url);
  String user;
  String password;
  Require(HTTPClientWrapper::TakeCredentials(url, user, password), "an unusable URL",
          server.values.url);
  for (const CommandOption& option : CommonOptions()) CheckOption(option, server.values);
  Require(server.passwordCommand.empty() || !server.passwordCommand.front().empty(),
          "a program without name");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    for (const Server& server : ParseServers(text, "/f/servers.toml", "/f")) CheckServer(server);
  } catch (const UsageError& error) {
    const std::string_view message = error.what();
    Require(!HasControlCharacter(message), "the error is not one line", message);
    Require(message.starts_with("\"/f/servers.toml\", line "), "the error has no place", message);
  }
  return 0;
}
