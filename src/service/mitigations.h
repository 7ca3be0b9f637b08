// What the process gives up at its start, so that a fault in it is worth less.
#pragma once

namespace zarn {

/// Asks the system to refuse the process: images from shares and from files of low
/// integrity, DLLs beside a program before those of the system, extension points (hooks
/// and the like), wrong handles (an exception ends the process), and, for now only
/// reported, links that users made. With the environment variable
/// ZARN_MEDIA_SERVER_ENFORCE_REDIRECTION_TRUST set to 1 such links are not followed,
/// which keeps media servers out whose data lies behind one. What the system does not
/// know is logged as a warning; the process goes on without it.
void applyMitigations();

}  // namespace zarn
