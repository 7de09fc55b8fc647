// The devices that the tests' networks have (CMakeLists.txt starts them).
#pragma once

// On another host: answers scans and direct requests, echoes on port 600 and most others, answers error 16388
// on 601, is silent on 602, answers 40 bytes 0, 1, 2, ... on 603; sends 1, 2, 3, ... to port 700; takes files
// on port 710.
constexpr const char* kAddress = "10.77.0.2";
constexpr const char* kDevice = "10.77.0.2.0.1";
// On this host: each closes its first connection at once; then it is well.
constexpr const char* kCutDevice = "127.0.0.3.0.1";
constexpr const char* kOtherCutDevice = "127.0.0.2.0.1";
// On this host: refuses the second chunk of every file with error 8201.
constexpr const char* kFullDevice = "127.0.0.4.0.1";
// Nobody.
constexpr const char* kAbsentDevice = "127.0.0.9.0.1";
constexpr const char* kAbsentAddress = "127.0.0.9";
