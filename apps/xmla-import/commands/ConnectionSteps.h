#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "commands/Results.h"
#include "connection/Connection.h"

// The steps of a check that one exchange decides, from name resolution to log-in.

/// Names of all steps of a check, in order.
inline constexpr const char* kCheckSteps[] = {
    "address",     "name resolution", "proxy",    "connection",   "TLS",        "log-in",
    "response",    "protocol",        "identity", "data sources", "catalogs",   "cubes",
    "hierarchies", "levels",          "measures", "variables",    "round trip",
};

/// A failed step for an exchange that failed.
CheckStep FailedExchange(std::string name, const HTTPExchangeInfo& info,
                         const Connection& connection);

/// Passes the steps before `end` to `take`, up to the one that failed.
void TakeConnectionSteps(const HTTPExchangeInfo& first, const Connection& connection, HTTPStep end,
                         const std::function<void(CheckStep)>& take);

/// The name of a step of an exchange.
const char* NameOfStep(HTTPStep step);

/// The step "response". `isReused`: a later exchange used the same connection; nullopt: there was
/// none.
CheckStep ResponseStep(const HTTPExchangeInfo& first, std::optional<bool> isReused);
