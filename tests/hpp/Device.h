// The device of the lab, and the library of this process.
#pragma once

#include <libzel/libzel.hpp>

namespace zeltest {

inline const zel::DeviceId& TheDevice() {
  static const zel::DeviceId device = *zel::DeviceId::Parse("10.77.0.2.0.1");
  return device;
}
inline constexpr const char* kDeviceHost = "10.77.0.2";

// Never destroyed before the process ends: suites share it.
inline zel::Library& TheLibrary() {
  static zel::Library library;
  return library;
}

inline zel::Connection Connect(zel::Connection::Options options = {}) {
  (void)TheLibrary();
  return *zel::Connection::Create(TheDevice(), std::move(options));
}

}  // namespace zeltest
