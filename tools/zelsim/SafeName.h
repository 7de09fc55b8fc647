// A file name out of what a client sent.
#pragma once

#include <string>
#include <string_view>

namespace zelsim {

// The name under which a received file is stored: the last component of the destination, else of the file's
// own name, else "unnamed". Slashes and backslashes both separate components; "." and ".." are no names;
// control characters become "_". The result is never empty and never leads out of the directory that it is
// used in.
std::string SafeName(std::string_view destination, std::string_view ownName);

// Begins the names of unfinished files. A client's name that begins so gets a "_" in front.
inline constexpr std::string_view kPartPrefix = ".zelsim-";

}  // namespace zelsim
