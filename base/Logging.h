// Process-wide rotating log files: one text file per logger, one line per
// entry with time, kind and optionally the writing thread.
#pragma once

#include "base/PrivateFile.h"

#include <cstdint>
#include <deque>
#include <fstream>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace Korvex {

// Threshold: 0 nothing, 1 errors, 2 + warnings, 3 + messages and raw lines,
// 4 and above + debug lines.
typedef unsigned LOG_LEVEL;

// Kind of one entry. Values without a label of their own show as "MESSAGE".
enum DebugLevel : int {
    LOG_ERROR = 0,
    LOG_MESSAGE = 1,
    LOG_DEBUG = 2,
    LOG_IN_FUNCTION = 3,
    LOG_OUT_FUNCTION = 4,
    LOG_STACKTRACE = 5,
    LOG_WARNING = 6,
    LOG_RAW = 7
};

enum FunctionInOut : int { FUNCTION_IN = 0, FUNCTION_OUT = 1 };

// 0 no buffer, 1 buffer only, any other value buffer and file.
enum LOG_BUFFER_MODE : int {
    LOG_BUFFER_NONE = 0,
    LOG_BUFFER_ONLY = 1,
    LOG_BUFFER_AND_FILE = 2
};

struct LogBufferEntry {
    DebugLevel kind;
    std::string text;
    long time;
};

class LibLogging {
public:
    // Slot 0 is the default logger, created on first use; other slots exist
    // only after Register(). Unknown slots give null.
    static LibLogging* GetHandle(unsigned n);
    static unsigned Register();

    // Opens "<path>.log" (the extension is added when missing), level 5,
    // rotation by entries at `entries` when it is above 0. With `backup` an
    // existing file is kept under a fresh name first. Does not enable.
    bool Init(const std::string& path, unsigned entries, bool backup);

    void Enabled(bool on);
    bool IsEnabled() const;
    void Verbose(bool on);
    bool IsVerbose() const;
    void OutputDbgString(bool on);
    bool IsOutputDbgString() const;
    void LogThreadId(bool on);
    bool IsLogThreadId() const;

    void LogRotation(bool on, unsigned entries);
    void LogRotationFileSize(bool on, unsigned long maxBytes);
    bool IsLogRotationEnabled() const;

    void SetLoggingLevel(LOG_LEVEL level);
    LOG_LEVEL GetLoggingLevel() const;

    void LogError(const std::string& text);
    void LogWarning(const std::string& text);
    void LogMessage(const std::string& text);
    void LogDebug(const std::string& text);
    void LogRaw(const std::string& text);
    // No level filter.
    void Log(const std::string& text, DebugLevel kind);

    void LogFunction(const std::string& name, FunctionInOut inOut);
    void LogStackTrace();

    void LogToBuffer(LOG_BUFFER_MODE mode, int size);
    bool IsLogToBuffer() const;
    // Newest entry first.
    std::list<LogBufferEntry> GetLogBuffer() const;
    int GetLogBufferSize() const;
    void ClearLogBuffer();
    // Writes the buffered entries, oldest first, to the file with their own
    // time and kind.
    void LogBufferToFile();

    // Name of the file currently written ("" before Init).
    std::string GetFileName() const;

    static long GetThreadId();
    static std::string GetTimeString(long t);
    static std::string LogTypeToString(DebugLevel kind);
    // One complete line, line feed included.
    std::string GetLogEntry(DebugLevel kind, const std::string& text, long t) const;

    // Writes the closing entries, closes the file and frees the logger; the
    // pointer is invalid afterwards.
    void Destroy();

    LibLogging(const LibLogging&) = delete;
    LibLogging& operator=(const LibLogging&) = delete;

private:
    explicit LibLogging(unsigned index);
    ~LibLogging();

    void LogIfLevel(LOG_LEVEL minimum, const std::string& text, DebugLevel kind);
    // The callers below hold m_mutex.
    void WriteEntry(DebugLevel kind, const std::string& text, long t, bool toBuffer);
    void AddToBuffer(DebugLevel kind, const std::string& text, long t);
    void WriteLine(const std::string& line);
    bool SplitLog();
    bool OpenFileAndRotate();
    bool BackupFile(const std::string& backupName, bool removeOriginal);
    std::string AppendLogExtension(const std::string& path) const;
    static void GetExtension(const std::string& name, std::string& base, std::string& extension);
    std::string NameWithTimeStamp(const std::string& name) const;
    std::string NumberedName(const std::string& name);
    void LogToWinDbgView(const std::string& line) const;

    unsigned m_index;
    bool m_enabled = false;
    bool m_verbose = false;
    bool m_rotateByEntries = false;
    bool m_rotateBySize = false;
    bool m_outputDbgString = false;
    bool m_logThreadId = false;
    std::uint32_t m_maxEntries = 0;
    std::uint32_t m_entries = 0;
    std::uint64_t m_maxFileSize = 0;
    std::uint64_t m_fileSize = 0;
    PrivateFile m_file;
    std::string m_fileName;
    LOG_LEVEL m_level = 0;
    LOG_BUFFER_MODE m_bufferMode = LOG_BUFFER_NONE;
    std::int32_t m_bufferSize = 0;
    std::list<LogBufferEntry> m_buffer;
    std::deque<std::string> m_functionStack;
    // Numbers below this one are known to be taken by earlier backups.
    unsigned m_nextBackupNumber = 1;

    // Both program threads write; one lock covers rotation and the write so
    // that every line lands in exactly one file.
    mutable std::mutex m_mutex;
};

} // namespace Korvex
