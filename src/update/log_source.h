// Log files while they are copied; the platform's part of
// installer_logs.cpp.
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <cstdio>

#include "util/file_utils.h"

namespace zarn {

/// Opens the file at `path` to read it. Null when it cannot be opened (`error` is set)
/// or when it is no plain file with a single name (`error` is clear): whoever may write
/// to the temporary directory could otherwise have us copy any file for them.
[[nodiscard]] FileUtils::ScopedFile openLogSource(const boost::filesystem::path& path,
                                                  boost::system::error_code& error);

/// Gives a copy, all of which is written, the time at which its original was written.
void keepTime(std::FILE* from, std::FILE* to) noexcept;

}  // namespace zarn
