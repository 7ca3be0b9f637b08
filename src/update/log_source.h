// Log files while they are copied; the platform's part of
// installer_logs.cpp.
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <memory>

namespace zarn {

/// Holds the file at `path` so that nothing else can take its name on Windows
/// while the result lives. Null when it cannot be opened (`error` is set) or when
/// it is no plain file with a single name (`error` is clear): whoever may write
/// to the temporary directory could otherwise have us copy any file for them.
[[nodiscard]] std::shared_ptr<void> holdLogSource(const boost::filesystem::path& path,
                                                  boost::system::error_code& error);

}  // namespace zarn
