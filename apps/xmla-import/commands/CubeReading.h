#pragma once

#include "commands/Results.h"
#include "connection/Session.h"

/// Reads the cube that the three names in `result` identify, and adds messages to it. True if the
/// cube is complete.
bool ReadCube(const Session& session, OTXMLAImportAPI& import, CubeResult& result);
