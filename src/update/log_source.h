// Log files and their destination while they are copied; the platform's part of
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

/// Holds the directory at `path`, which becomes the name it really has, every link
/// on the way followed: no link that is planted later leads the copies elsewhere.
/// Null, with `error` set, when there is no such directory on a disk.
[[nodiscard]] std::shared_ptr<void> holdLogDestination(boost::filesystem::path& path,
                                                       boost::system::error_code& error);

}  // namespace zarn
