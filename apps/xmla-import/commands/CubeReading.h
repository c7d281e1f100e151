#pragma once

#include "commands/Results.h"
#include "connection/Session.h"

/// Reads the cube that the result's three choices name, texts into its messages. True when nothing
/// of it failed.
bool ReadCube(const Session& session, OTXMLAImportAPI& import, CubeResult& result);
