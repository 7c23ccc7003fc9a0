// Logger registry, flags, level filter, line format and the in-memory buffer.
// File opening, rotation and backups live in LoggingFiles.cpp.
#include "base/Logging.h"

#include <sys/types.h>
#include <unistd.h>

#include <ctime>
#include <vector>

namespace Korvex {

namespace {

std::mutex& RegistryMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Never destroyed: loggers may still write while static objects of other
// translation units are torn down at exit.
std::vector<LibLogging*>& Registry()
{
    static std::vector<LibLogging*>* loggers = new std::vector<LibLogging*>();
    return *loggers;
}

const std::size_t kLabelWidth = 13;

} // namespace

LibLogging* LibLogging::GetHandle(unsigned n)
{
    std::lock_guard<std::mutex> lock(RegistryMutex());
    std::vector<LibLogging*>& loggers = Registry();
    if (loggers.empty()) {
        if (n != 0)
            return nullptr;
        loggers.push_back(new LibLogging(0));
        return loggers[0];
    }
    if (n >= loggers.size())
        return nullptr;
    if (!loggers[n])
        loggers[n] = new LibLogging(n);
    return loggers[n];
}

unsigned LibLogging::Register()
{
    std::lock_guard<std::mutex> lock(RegistryMutex());
    std::vector<LibLogging*>& loggers = Registry();
    // Slot 0 stays free for the default logger of GetHandle(0).
    if (loggers.empty())
        loggers.push_back(nullptr);
    const unsigned index = static_cast<unsigned>(loggers.size());
    loggers.push_back(new LibLogging(index));
    return index;
}

LibLogging::LibLogging(unsigned index) : m_index(index) {}

LibLogging::~LibLogging() = default;

void LibLogging::Destroy()
{
    {
        std::lock_guard<std::mutex> lock(RegistryMutex());
        std::vector<LibLogging*>& loggers = Registry();
        if (m_index >= loggers.size() || loggers[m_index] != this)
            return;
        loggers[m_index] = nullptr;
    }
    LogDebug("Destroy()");
    Log("close LibLogging", LOG_DEBUG);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_file.is_open())
            m_file.close();
    }
    delete this;
}

void LibLogging::Enabled(bool on)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_enabled = on;
}

bool LibLogging::IsEnabled() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_enabled;
}

void LibLogging::Verbose(bool on)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_verbose = on;
}

bool LibLogging::IsVerbose() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_verbose;
}

void LibLogging::OutputDbgString(bool on)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_outputDbgString = on;
}

bool LibLogging::IsOutputDbgString() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_outputDbgString;
}

void LibLogging::LogThreadId(bool on)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_logThreadId = on;
}

bool LibLogging::IsLogThreadId() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_logThreadId;
}

void LibLogging::LogRotation(bool on, unsigned entries)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_rotateByEntries = on;
    m_maxEntries = entries;
}

void LibLogging::LogRotationFileSize(bool on, unsigned long maxBytes)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_rotateBySize = on;
    m_maxFileSize = maxBytes;
}

bool LibLogging::IsLogRotationEnabled() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_rotateByEntries || m_rotateBySize;
}

void LibLogging::SetLoggingLevel(LOG_LEVEL level)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_level = level;
}

LOG_LEVEL LibLogging::GetLoggingLevel() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_level;
}

void LibLogging::LogIfLevel(LOG_LEVEL minimum, const std::string& text, DebugLevel kind)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_level >= minimum)
        WriteEntry(kind, text, static_cast<long>(std::time(nullptr)), true);
}

void LibLogging::LogError(const std::string& text)
{
    LogIfLevel(1, text, LOG_ERROR);
}

void LibLogging::LogWarning(const std::string& text)
{
    LogIfLevel(2, text, LOG_WARNING);
}

void LibLogging::LogMessage(const std::string& text)
{
    LogIfLevel(3, text, LOG_MESSAGE);
}

void LibLogging::LogRaw(const std::string& text)
{
    LogIfLevel(3, text, LOG_RAW);
}

void LibLogging::LogDebug(const std::string& text)
{
    LogIfLevel(4, text, LOG_DEBUG);
}

void LibLogging::Log(const std::string& text, DebugLevel kind)
{
    LogIfLevel(0, text, kind);
}

void LibLogging::LogFunction(const std::string& name, FunctionInOut inOut)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const long now = static_cast<long>(std::time(nullptr));
    if (inOut == FUNCTION_IN) {
        m_functionStack.push_back(name);
        WriteEntry(LOG_IN_FUNCTION, name, now, true);
    } else {
        WriteEntry(LOG_OUT_FUNCTION, name, now, true);
        if (!m_functionStack.empty())
            m_functionStack.pop_back();
    }
}

void LibLogging::LogStackTrace()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const long now = static_cast<long>(std::time(nullptr));
    // Outermost function first.
    for (const std::string& name : m_functionStack)
        WriteEntry(LOG_STACKTRACE, name, now, true);
}

void LibLogging::WriteEntry(DebugLevel kind, const std::string& text, long t, bool toBuffer)
{
    if (!m_enabled || !m_file.is_open())
        return;
    const bool entriesFull = m_rotateByEntries && m_maxEntries > 0 && m_entries >= m_maxEntries;
    const bool sizeFull = m_rotateBySize && m_maxFileSize > 0 && m_fileSize >= m_maxFileSize;
    if (entriesFull || sizeFull)
        SplitLog();
    if (toBuffer && m_bufferMode != LOG_BUFFER_NONE)
        AddToBuffer(kind, text, t);
    const std::string line = GetLogEntry(kind, text, t);
    LogToWinDbgView(line);
    if (m_bufferMode != LOG_BUFFER_ONLY)
        WriteLine(line);
}

void LibLogging::WriteLine(const std::string& line)
{
    m_file.write(line.data(), line.size());
    ++m_entries;
    m_fileSize += line.size();
}

void LibLogging::LogToWinDbgView(const std::string& /*line*/) const
{
    // No system debug-output channel on this platform.
}

void LibLogging::LogToBuffer(LOG_BUFFER_MODE mode, int size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bufferMode = mode;
    m_bufferSize = size;
}

bool LibLogging::IsLogToBuffer() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_bufferMode != LOG_BUFFER_NONE;
}

void LibLogging::AddToBuffer(DebugLevel kind, const std::string& text, long t)
{
    while (!m_buffer.empty() && static_cast<long>(m_buffer.size()) >= static_cast<long>(m_bufferSize))
        m_buffer.pop_back();
    if (m_bufferSize > 0)
        m_buffer.push_front(LogBufferEntry{kind, text, t});
}

std::list<LogBufferEntry> LibLogging::GetLogBuffer() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffer;
}

int LibLogging::GetLogBufferSize() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_buffer.size());
}

void LibLogging::ClearLogBuffer()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_buffer.clear();
}

void LibLogging::LogBufferToFile()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_enabled || !m_file.is_open())
        return;
    // Straight to the file: sending them through the buffer again would
    // reorder and duplicate them, and in buffer-only mode never reach the file.
    for (auto it = m_buffer.rbegin(); it != m_buffer.rend(); ++it) {
        const bool entriesFull = m_rotateByEntries && m_maxEntries > 0 && m_entries >= m_maxEntries;
        const bool sizeFull = m_rotateBySize && m_maxFileSize > 0 && m_fileSize >= m_maxFileSize;
        if (entriesFull || sizeFull)
            SplitLog();
        WriteLine(GetLogEntry(it->kind, it->text, it->time));
    }
}

std::string LibLogging::GetFileName() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_fileName;
}

long LibLogging::GetThreadId()
{
    return static_cast<long>(::gettid());
}

std::string LibLogging::GetTimeString(long t)
{
    const std::time_t when = static_cast<std::time_t>(t);
    std::tm local{};
    if (!localtime_r(&when, &local))
        return std::string();
    char text[80];
    const std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return std::string(text, n);
}

std::string LibLogging::LogTypeToString(DebugLevel kind)
{
    switch (kind) {
    case LOG_ERROR:
        return "ERROR";
    case LOG_DEBUG:
        return "DEBUG";
    case LOG_IN_FUNCTION:
        return "IN FUNCTION";
    case LOG_OUT_FUNCTION:
        return "OUT FUNCTION";
    case LOG_STACKTRACE:
        return "STACKTRACE";
    case LOG_WARNING:
        return "WARNING";
    case LOG_RAW:
        return "";
    default:
        return "MESSAGE";
    }
}

std::string LibLogging::GetLogEntry(DebugLevel kind, const std::string& text, long t) const
{
    if (kind == LOG_RAW)
        return " " + text + "\n";
    std::string line = GetTimeString(t);
    const std::string label = LogTypeToString(kind);
    if (label.size() < kLabelWidth)
        line.append(kLabelWidth - label.size(), ' ');
    line += label;
    if (m_logThreadId)
        line += " (" + std::to_string(GetThreadId()) + ")";
    line += ' ';
    line += text;
    line += '\n';
    return line;
}

} // namespace Korvex
