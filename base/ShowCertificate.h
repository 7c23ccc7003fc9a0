// Hand-off of a certificate to the external viewer program: the DER file is
// written where other users may also write, then the viewer is started on it
// without waiting.
#pragma once

#include <cstddef>
#include <string>

namespace Korvex {

// Name of the external viewer, looked up on the search path.
inline constexpr const char* kCertificateViewer = "certViewerApp";

// Starts the viewer on `path` and returns at once; true when the process
// could be started (the viewer's own failure is only reported on standard
// error). Finished viewers never stay behind as zombies.
bool ShowCertificate(std::string path);

// Removes whatever is at `path` (a symbolic link itself, never its target),
// then creates a new file there that only the owner can read and write
// (mode 0600) and writes `length` bytes. Fails rather than follow a link or
// reuse a file that somebody planted between the removal and the creation.
bool WritePrivateFile(const std::string& path, const unsigned char* data, std::size_t length);

} // namespace Korvex
