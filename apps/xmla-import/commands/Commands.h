#pragma once

#include <functional>

#include "call/Arguments.h"
#include "call/ExitStatus.h"
#include "commands/ResultReceiver.h"
#include "commands/Results.h"
#include "connection/Session.h"

// The commands of the tool. Each fills its result, including errors and warnings, and returns the
// exit status. The caller handles interruptions.

/// Needs no session.
ExitStatus RunServers(ServersResult& result);
ExitStatus RunSources(Session& session, SourcesResult& result);
ExitStatus RunTree(Session& session, const Arguments& arguments, TreeResult& result);
ExitStatus RunCube(Session& session, const Arguments& arguments, CubeResult& result);
ExitStatus RunImport(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                     ImportResult& result);
/// Compares two files. Needs no session.
ExitStatus RunDiff(const Arguments& arguments, DiffResult& result);
/// Compares a file with what the service has now. `receiver` gets the cubes that are read.
/// `document` turns the result of another command, whose cubes it has received, into a JSON
/// document.
ExitStatus RunDiff(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                   const std::function<std::string(const Result&)>& document, DiffResult& result);
ExitStatus RunCheck(Session& session, const Arguments& arguments, ResultReceiver& receiver,
                    CheckResult& result);
