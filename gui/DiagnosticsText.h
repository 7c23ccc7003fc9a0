// The diagnostics report as text a user can send to support: the program,
// the module, every reader and card as the module describes them, and where
// the settings and the log are. No PIN and no card object is in it.
#pragma once

#include "token/ModuleDiagnostics.h"

#include <wx/string.h>

#include <string>
#include <vector>

struct DiagnosticsContext {
    wxString programVersion;
    // Set when the module could not be put to use: why (the start message's
    // second line). The module's own part of the report is left out then.
    wxString moduleFailure;
    std::vector<std::string> settingsFiles;  // those that exist
    std::string logFolder;                   // empty: no log is written
};

// One "Name: value" line per field; slots as "Steckplatz <id>" blocks.
wxString FormatDiagnostics(const Korvex::ModuleDiagnostics& module, const DiagnosticsContext& context);
// The names of the flags set, comma-separated, with the rest as hex.
std::string SlotFlagNames(CK_FLAGS flags);
std::string TokenFlagNames(CK_FLAGS flags);
// The settings files and log folder of this run.
DiagnosticsContext CurrentDiagnosticsContext(const wxString& programVersion);
