#include "call/CommonOptions.h"

#include <string_view>

#include "call/Arguments.h"
#include "call/AuthSchemes.h"
#include "call/TargetNames.h"

namespace {

constexpr int kSecondsOfADay = 86400;
constexpr int kMaxRetries = 100;

using Names = std::vector<std::string>;

constexpr CommandOption kOptions[] = {
    {.name = "--url",
     .help = "the XMLA service, http or https [XMLA_IMPORT_URL]",
     .value = &Arguments::url,
     .placeholder = "URL",
     .part = OptionPart::kService,
     .variable = "XMLA_IMPORT_URL"},
    {.name = "--server",
     .help = "a service from the server file, see xmla-import help servers [XMLA_IMPORT_SERVER]",
     .value = &Arguments::server,
     .part = OptionPart::kService,
     .variable = "XMLA_IMPORT_SERVER"},
    {.name = "--sample",
     .help = "import from the built-in sample provider: analysis-services, sap-bw or tamarind",
     .value = &Arguments::sample,
     .placeholder = "KIND",
     .part = OptionPart::kService,
     .values =
         [] {
           return Names{"analysis-services", "sap-bw", "tamarind"};
         }},
    {.name = "--user",
     .help = "user name [XMLA_IMPORT_USER]",
     .value = &Arguments::user,
     .part = OptionPart::kAccess,
     .variable = "XMLA_IMPORT_USER"},
    {.name = "--password-file",
     .help = "file whose first line is the password, - is standard input; default: "
             "[XMLA_IMPORT_PASSWORD], else a prompt",
     .value = &Arguments::passwordFile,
     .placeholder = "FILE",
     .part = OptionPart::kAccess,
     .file = OptionFile::kSecret},
    {.name = "--token-file",
     .help = "file whose first line is a bearer token, - is standard input; instead of user and "
             "password [XMLA_IMPORT_TOKEN]",
     .value = &Arguments::tokenFile,
     .placeholder = "FILE",
     .part = OptionPart::kAccess,
     .file = OptionFile::kSecret},
    {.name = "--auth",
     .help = "allow only these of negotiate, ntlm, digest and basic, separated by commas",
     .value = &Arguments::auth,
     .placeholder = "SCHEMES",
     .part = OptionPart::kAccess,
     .values = &AuthSchemeNames,
     .isList = true},
    {.name = "--cert",
     .help = "client certificate, PEM or PKCS#12",
     .value = &Arguments::cert,
     .placeholder = "FILE",
     .part = OptionPart::kAccess,
     .file = OptionFile::kFile},
    {.name = "--key",
     .help = "key of the client certificate, PEM; default: in the file of --cert",
     .value = &Arguments::key,
     .placeholder = "FILE",
     .part = OptionPart::kAccess,
     .file = OptionFile::kFile},
    {.name = "--key-password-file",
     .help = "file whose first line is the password of the key, - is standard input",
     .value = &Arguments::keyPasswordFile,
     .placeholder = "FILE",
     .part = OptionPart::kAccess,
     .file = OptionFile::kSecret},
    {.name = "--ca-file",
     .help = "trusted certificates, PEM, instead of the system's [SSL_CERT_FILE]",
     .value = &Arguments::caFile,
     .placeholder = "FILE",
     .part = OptionPart::kAccess,
     .file = OptionFile::kFile,
     .variable = "SSL_CERT_FILE"},
    {.name = "--proxy",
     .help = "proxy; an empty URL disables proxies [http_proxy, https_proxy, all_proxy]",
     .value = &Arguments::proxy,
     .placeholder = "URL",
     .part = OptionPart::kAccess},
    {.name = "--connect-timeout",
     .help = "limit for connecting, 0 = no limit [MORVEN_BI_XMLA_HTTP_TIMEOUT]",
     .value = &Arguments::connectTimeout,
     .placeholder = "SECONDS",
     .min = 0,
     .max = kSecondsOfADay,
     .part = OptionPart::kTransfer,
     .variable = "MORVEN_BI_XMLA_HTTP_TIMEOUT"},
    {.name = "--timeout",
     .help = "limit for periods without data, 0 = no limit [MORVEN_BI_XMLA_HTTP_TIMEOUT]",
     .value = &Arguments::timeout,
     .placeholder = "SECONDS",
     .min = 0,
     .max = kSecondsOfADay,
     .part = OptionPart::kTransfer,
     .variable = "MORVEN_BI_XMLA_HTTP_TIMEOUT"},
    {.name = "--retry",
     .help = "repeat a request up to N times if the connection fails or the server is busy; "
             "default 0",
     .value = &Arguments::retry,
     .placeholder = "N",
     .min = 0,
     .max = kMaxRetries,
     .part = OptionPart::kTransfer},
    {.name = "--target",
     .help = "the kind of provider, default auto; see xmla-import help targets "
             "[XMLA_IMPORT_TARGET]",
     .value = &Arguments::target,
     .placeholder = "KIND",
     .part = OptionPart::kTransfer,
     .variable = "XMLA_IMPORT_TARGET",
     .values = &TargetNameList},
    {.name = "--log",
     .help = "write requests and replies to files in DIR; with --target also the requests that "
             "identify the server",
     .value = &Arguments::log,
     .placeholder = "DIR",
     .part = OptionPart::kReading,
     .file = OptionFile::kFolder},
    {.name = "--format",
     .help = "one of: {formats}; default: what the extension of the --output file selects, else "
             "text",
     .value = &Arguments::format,
     .placeholder = "FORMAT"},
    {.name = "--output",
     .help = "write the result to FILE; a failed call leaves FILE as it is, an incomplete result "
             "(status 3) replaces it",
     .value = &Arguments::output,
     .placeholder = "FILE",
     .shortName = "-o",
     .file = OptionFile::kFile},
    {.name = "--color",
     .help = "colours in text and messages: auto (default: on a terminal), always or never "
             "[NO_COLOR]",
     .value = &Arguments::color,
     .placeholder = "WHEN",
     .values =
         [] {
           return Names{"auto", "always", "never"};
         }},
    {.name = "--warnings",
     .help = "warnings on standard error: all, summary (default: one line for each kind) or none; "
             "the result has all of them",
     .value = &Arguments::warnings,
     .placeholder = "WHICH",
     .values =
         [] {
           return Names{"all", "summary", "none"};
         }},
    {.name = "--sort",
     .help = "sort catalogs, cubes, hierarchies, properties and measures by name",
     .value = &Arguments::sort},
    {.name = "--quiet",
     .help = "show only errors, and notes that complete them",
     .value = &Arguments::quiet},
    {.name = "--verbose",
     .help = "show each exchange with its timings",
     .value = &Arguments::verbose},
};

}  // namespace

std::span<const CommandOption> CommonOptions() { return kOptions; }

bool IsServerKey(const CommandOption& option) {
  return option.part == OptionPart::kAccess || option.part == OptionPart::kTransfer ||
         std::string_view(option.name) == "--url";
}
