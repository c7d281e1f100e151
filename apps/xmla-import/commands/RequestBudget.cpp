#include "commands/RequestBudget.h"

#include <memory>

ImportSettings SettingsForRequests(int requests, std::size_t imports) {
  ImportSettings settings = ImportSettings::Current();
  if (requests > 1)
    settings.http.requestBudget = std::make_shared<HTTPRequestBudget>(
        static_cast<unsigned int>(requests), static_cast<unsigned int>(imports));
  return settings;
}
