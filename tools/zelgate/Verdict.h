// What the answer to a request or publication from NATS says: headers, and exactly one verdict.
#pragma once

namespace zelgate {

inline constexpr const char* kVerdictHeader = "Zel-Verdict";
inline constexpr const char* kErrorHeader = "Zel-Error";    // the device's own error word, decimal
inline constexpr const char* kReasonHeader = "Zel-Reason";  // why, a sentence

// In a request or publication: how old it may be when it is sent, and how long its answer is waited for;
// milliseconds.
inline constexpr const char* kTimeoutHeader = "Zel-Timeout";
// In a publication: the two words that go with it; 0 when left out.
inline constexpr const char* kGroupHeader = "Zel-Group";
inline constexpr const char* kOffsetHeader = "Zel-Offset";

namespace verdict {

inline constexpr const char* kAnswered = "answered";         // the data are the device's answer
inline constexpr const char* kDeviceError = "device-error";  // it answered with an error word
inline constexpr const char* kNotSent = "not-sent";          // no byte has left: asking again is safe
inline constexpr const char* kMayBeSent = "may-be-sent";     // unanswered: the device may have got it, or not
inline constexpr const char* kWritten = "written";  // a publication was handed to the network, no more

}  // namespace verdict

}  // namespace zelgate
