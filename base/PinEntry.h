// Client side of the pinentry protocol (Assuan): starts the desktop's PIN
// dialogue program, sends the texts of each step and collects the PINs the
// user types. One object is one running dialogue program; it may ask several
// times. Shared by the program (PINs of standard tokens) and the simulator.
#pragma once

#include <string>
#include <sys/types.h>

namespace Korvex {

struct PinPrompt {
    std::string title;
    std::string description;
    std::string prompt;
    std::string error;  // shown above the entry field when not empty
};

class PinEntry {
public:
    enum class Result { Ok, Cancelled, Failed };

    PinEntry() = default;
    ~PinEntry();
    PinEntry(const PinEntry&) = delete;
    PinEntry& operator=(const PinEntry&) = delete;

    // Starts the program (found on PATH when a bare name; "pinentry" when
    // empty) and reads its greeting.
    bool start(const std::string& program);
    Result getPin(const PinPrompt& prompt, std::string& pin);
    // Sends BYE and reaps the program (also done by the destructor).
    void finish();

    // Assuan escaping of %, CR and LF, and its inverse.
    static std::string escape(const std::string& text);
    static std::string unescape(const std::string& text);
    // Overwrites a PIN's bytes before the string lets go of them.
    static void wipe(std::string& secret);

private:
    bool send(const std::string& line);
    bool readLine(std::string& line);
    // Sends a command and waits for its OK; false on ERR or a broken pipe.
    bool command(const std::string& line);

    int m_socket = -1;
    pid_t m_pid = -1;
    std::string m_buffer;
};

} // namespace Korvex
