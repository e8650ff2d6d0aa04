// What registration must leave behind, key by key, and nothing else.
#pragma once

#include <string>

namespace ostrel::test {

inline const std::string kPlugIns = R"(CLSID\{DAD6156E-FBCC-4532-AFB5-D4AB2326FB02}\Plugins)";
inline const std::string kClassKey = R"(CLSID\{09590E5C-2B82-4c8c-A6CD-1756BA3A8DFF})";
inline const std::string kProgId = "Tavrin.Ostrel.OPCServer.Protocol.1";

/// Every key with its text and its subkeys; the class is served by the module at `path`.
void ExpectRegistered(const std::string& path);
/// None of the module's keys, but those that it shares with others.
void ExpectUnregistered();

}  // namespace ostrel::test
