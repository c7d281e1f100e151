#pragma once

/// Content of a server file, for help and for users without such a file.
inline constexpr const char* kServerFileExample =
    "  [sales]\n"
    "  url = \"https://olap.example.com/olap/msmdpump.dll\"\n"
    "  user = \"CORP\\\\ann\"\n"
    "  password-command = [\"secret-tool\", \"lookup\", \"service\", \"olap\"]\n"
    "  target = \"analysis-services-2012\"\n"
    "  ca-file = \"corp.pem\"          # relative to the server file\n";
