// Shared fixture library of every test that loads the simulated module: one
// private scratch folder per test process, the simulator pointed at it with
// a card set and a scripted PIN dialogue, and small file helpers.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

// Private folder of this test process (removed at exit unless
// KORVEX_KEEP_SCRATCH is set), and the source and build trees.
const std::string& ScratchDir();
std::string SourceDir();
std::string BinaryDir();

// Points the simulator's state, the all-users configuration, HOME, TMPDIR and
// the PIN dialogue at the scratch folder, puts <scratch>/bin first on PATH and
// loads `cardSetXml` (empty: the module's built-in demo set). The generated
// keys are shared by every test of the build: making them is slow.
void PrepareSimulator(const std::string& cardSetXml);
// Another card set for the next C_Initialize (empty: the demo set).
void UseCardSet(const std::string& cardSetXml);

// Answers of the scripted PIN dialogue, consumed in order ("CANCEL" cancels,
// a used-up script cancels too). Also clears the dialogue log.
void SetPinAnswers(const Lines& answers);
// What the dialogue was shown ("SETPROMPT Aktuelle PIN:", ...).
Lines PinDialogLog();

// The certificate the simulator issued to a card.
Bytes IssuedCertificate(const std::string& serial, bool signature);

Bytes ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);
void WriteText(const std::string& path, const std::string& text, bool executable = false);
// Waits up to `seconds` for a file to exist and be non-empty.
bool WaitForFile(const std::string& path, double seconds);
// Runs a shell command; its standard output, and its exit status in `status`.
std::string RunCommand(const std::string& command, int& status);

} // namespace TestSupport
