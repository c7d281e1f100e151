#pragma once

#include <string_view>
#include <vector>

#include "call/CommandForm.h"
#include "commands/Commands.h"
#include "results/Form.h"

/// A command of the tool. `empty` creates the result that the command fills, and that a call writes
/// even if it fails early. `render` writes the result, or the rest of it after the cubes.
struct Command {
  CommandForm form;
  Result (*empty)();
  ExitStatus (*run)(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                    Result& result);
  void (*render)(Form& form, const Result& result);
  /// Instead of `run`, if the call needs no connection.
  ExitStatus (*runAlone)(const Arguments& arguments, Result& result) = nullptr;
};

/// The command with this name. An unknown or empty name gives a command without options, whose
/// result has messages only.
const Command& CommandNamed(std::string_view name);
/// The names, options and help texts of all commands.
std::vector<CommandForm> CommandForms();
