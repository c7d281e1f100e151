#pragma once

#include "call/Arguments.h"
#include "call/ExitStatus.h"
#include "commands/CubeReceiver.h"
#include "commands/Results.h"
#include "connection/Session.h"

// The tool's commands. Each fills its result as far as it gets, errors and warnings included, and
// says how it went; an interruption is seen by the caller.

ExitStatus RunSources(Session& session, SourcesResult& result);
ExitStatus RunTree(Session& session, const Arguments& arguments, TreeResult& result);
ExitStatus RunCube(Session& session, const Arguments& arguments, CubeResult& result);
ExitStatus RunImport(Session& session, const Arguments& arguments, CubeReceiver& receiver,
                     ImportResult& result);
