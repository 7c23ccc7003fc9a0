// The one log capture of the tests: installs itself in a layer's error (and
// message) hook for its lifetime and keeps the lines, errors and messages
// apart and together in the order they came.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace TestSupport {

using LogLines = std::vector<std::string>;

class LogCapture {
public:
    // The setters of one layer's hooks, whatever text type they pass on.
    template <typename ErrorText>
    explicit LogCapture(void (*setErrors)(void (*)(ErrorText)))
    {
        clear();
        setErrors(&addError<ErrorText>);
        m_undo.emplace_back([setErrors] { setErrors(nullptr); });
    }
    template <typename ErrorText, typename MessageText>
    LogCapture(void (*setErrors)(void (*)(ErrorText)), void (*setMessages)(void (*)(MessageText)))
        : LogCapture(setErrors)
    {
        setMessages(&addMessage<MessageText>);
        m_undo.emplace_back([setMessages] { setMessages(nullptr); });
    }
    ~LogCapture()
    {
        for (auto& undo : m_undo)
            undo();
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    static LogLines& errors() { return store(0); }
    static LogLines& messages() { return store(1); }
    static LogLines& all() { return store(2); }
    static void clear()
    {
        for (int kind = 0; kind < 3; ++kind)
            store(kind).clear();
    }
    static bool hasMessage(const std::string& line)
    {
        return std::find(messages().begin(), messages().end(), line) != messages().end();
    }

private:
    static LogLines& store(int kind)
    {
        static LogLines lines[3];
        return lines[kind];
    }
    template <typename Text>
    static void addError(Text text)
    {
        errors().emplace_back(text);
        all().emplace_back(text);
    }
    template <typename Text>
    static void addMessage(Text text)
    {
        messages().emplace_back(text);
        all().emplace_back(text);
    }

    std::vector<std::function<void()>> m_undo;
};

} // namespace TestSupport
