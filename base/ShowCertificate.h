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

// Environment variable that tells the viewer its file is a hand-off: the
// viewer takes its own copy and removes the file (see tools/certViewerApp).
inline constexpr const char* kCertificateHandOffVariable = "VESSACARDS_CERT_HANDOFF";

// ShowCertificate for a file written only for the viewer: the viewer removes
// it once it has read it, and a viewer that cannot be started leaves nothing
// behind either.
bool HandCertificateToViewer(const std::string& path);

// Removes whatever is at `path` (a symbolic link itself, never its target),
// then creates a new file there that only the owner can read and write
// (mode 0600) and writes `length` bytes. Fails rather than follow a link or
// reuse a file that somebody planted between the removal and the creation.
// On failure `reason` (when given) says which step failed and why.
bool WritePrivateFile(const std::string& path, const unsigned char* data, std::size_t length,
                      std::string* reason = nullptr);

} // namespace Korvex
