#include "call/OptionValue.h"

#include <charconv>

#include "base/Text.h"

namespace {

int Number(const CommandOption& option, std::string_view name, std::string_view value) {
  int number = 0;
  const char* const end = value.data() + value.size();
  const auto [rest, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || rest != end || number < option.min || number > option.max)
    throw UsageError(std::string(name) + " needs a whole number from " +
                     std::to_string(option.min) + " to " + std::to_string(option.max) + ", not " +
                     Listed({std::string(value)}));
  return number;
}

}  // namespace

void SetValue(const CommandOption& option, std::string_view name, std::string_view value,
              Arguments& arguments) {
  if (IsFlag(option)) {
    arguments.*std::get<bool Arguments::*>(option.value) = true;
    return;
  }
  if (value.empty() && !MayBeEmpty(option))
    throw UsageError(std::string(name) + " needs a non-empty value");
  if (IsNumber(option)) {
    const int number = Number(option, name, value);
    if (const auto* const plain = std::get_if<int Arguments::*>(&option.value))
      arguments.** plain = number;
    else
      arguments.*std::get<std::optional<int> Arguments::*>(option.value) = number;
  } else if (const auto* const list =
                 std::get_if<std::vector<std::string> Arguments::*>(&option.value)) {
    (arguments.**list).emplace_back(value);
  } else if (const auto* const text = std::get_if<std::string Arguments::*>(&option.value)) {
    arguments.** text = value;
  } else {
    (arguments.*std::get<std::optional<std::string> Arguments::*>(option.value)).emplace(value);
  }
}

bool MayBeEmpty(const CommandOption& option) {
  return std::holds_alternative<std::optional<std::string> Arguments::*>(option.value);
}

bool IsFlag(const CommandOption& option) {
  return std::holds_alternative<bool Arguments::*>(option.value);
}

bool IsNumber(const CommandOption& option) {
  return std::holds_alternative<int Arguments::*>(option.value) ||
         std::holds_alternative<std::optional<int> Arguments::*>(option.value);
}
