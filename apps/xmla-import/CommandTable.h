#pragma once

#include <string_view>
#include <vector>

#include "call/CommandForm.h"
#include "commands/Commands.h"
#include "results/Form.h"

/// What the tool can do. `empty` makes the result that a command fills: what a call that fails
/// early still shows. `render` writes it; what is left of it, when cubes were written before.
struct Command {
  CommandForm form;
  Result (*empty)();
  ExitStatus (*run)(Session& session, const Arguments& arguments, CubeReceiver& receiver,
                    Result& result);
  void (*render)(Form& form, const Result& result);
};

/// The command with that name; for an empty one, that of a call without a command.
const Command& CommandNamed(std::string_view name);
/// How the commands are called.
std::vector<CommandForm> CommandForms();
