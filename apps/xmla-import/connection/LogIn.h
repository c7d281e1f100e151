#pragma once

#include "connection/Connection.h"
#include "connection/Sources.h"

/// Sets user, password or token, authentication schemes and client certificate of a connection.
/// `connection` has the credentials of its URL, which comes from `urlSource`. Reads files, runs the
/// server's password-command, or prompts, but only for a secret that is needed. Throws UsageError,
/// also for settings of one source that contradict each other.
void LogIn(const Sources& sources, Source urlSource, Connection& connection);

/// Throws UsageError if the client certificate of the connection cannot be used.
void RequireUsableCertificate(const Connection& connection);

/// Throws UsageError if the file, if there is one, cannot be read.
void RequireReadable(const Setting<std::string>& file);
