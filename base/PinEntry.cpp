// Talks to the PIN dialogue program over a socket pair. A socket rather than
// pipes so that a program that dies early cannot raise SIGPIPE in the host
// (sends use MSG_NOSIGNAL), and posix_spawn so that the host's other threads
// are never forked.
#include "base/PinEntry.h"

#include <openssl/crypto.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace Korvex {

namespace {

// A user may think for a long time; a dialogue program that says nothing for
// this long is considered hung.
constexpr int kReplyTimeoutMs = 15 * 60 * 1000;

// "ERR <code> <text>": the low 16 bits of the code are the error number;
// the user closing the dialogue (or letting it time out) is not a failure of
// the dialogue program.
bool isCancel(const std::string& reply) {
    const unsigned long code = std::strtoul(reply.c_str() + 3, nullptr, 10);
    const unsigned long number = code & 0xFFFF;
    constexpr unsigned long kTimeout = 62;
    constexpr unsigned long kCanceled = 99;
    constexpr unsigned long kFullyCanceled = 198;
    return number == kCanceled || number == kFullyCanceled || number == kTimeout;
}

} // namespace

PinEntry::~PinEntry() { finish(); }

std::string PinEntry::escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '%') {
            out += "%25";
        } else if (c == '\n') {
            out += "%0A";
        } else if (c == '\r') {
            out += "%0D";
        } else {
            out += c;
        }
    }
    return out;
}

std::string PinEntry::unescape(const std::string& text) {
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            int high = nibble(text[i + 1]);
            int low = nibble(text[i + 2]);
            if (high >= 0 && low >= 0) {
                out += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

void PinEntry::wipe(std::string& secret) {
    if (!secret.empty()) OPENSSL_cleanse(&secret[0], secret.size());
    secret.clear();
}

bool PinEntry::start(const std::string& configured) {
    std::string program = configured.empty() ? "pinentry" : configured;
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, sockets[1], 0);
    posix_spawn_file_actions_adddup2(&actions, sockets[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    char* argv[] = {program.data(), nullptr};
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(sockets[1]);
    if (rc != 0) {
        ::close(sockets[0]);
        return false;
    }
    m_socket = sockets[0];
    m_pid = pid;
    std::string greeting;
    if (!readLine(greeting) || greeting.compare(0, 2, "OK") != 0) {
        finish();
        return false;
    }
    // A text-mode pinentry needs the terminal it may use; a graphical one
    // ignores these. Refused options are not fatal.
    if (::isatty(0)) {
        if (const char* tty = ::ttyname(0)) command(std::string("OPTION ttyname=") + tty);
        if (const char* term = std::getenv("TERM")) command(std::string("OPTION ttytype=") + term);
    }
    command("SETOK OK");
    command("SETCANCEL Abbrechen");
    return true;
}

bool PinEntry::send(const std::string& line) {
    std::string data = line + "\n";
    size_t offset = 0;
    while (offset < data.size()) {
        ssize_t sent = ::send(m_socket, data.data() + offset, data.size() - offset, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        offset += static_cast<size_t>(sent);
    }
    return true;
}

bool PinEntry::readLine(std::string& line) {
    if (m_socket < 0) return false;
    for (;;) {
        size_t end = m_buffer.find('\n');
        if (end != std::string::npos) {
            line = m_buffer.substr(0, end);
            OPENSSL_cleanse(&m_buffer[0], end + 1);
            m_buffer.erase(0, end + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            // Status and comment lines carry nothing the dialogue needs.
            if (line.compare(0, 2, "S ") == 0 || line == "S" || line.compare(0, 1, "#") == 0) continue;
            return true;
        }
        struct pollfd waiting = {m_socket, POLLIN, 0};
        int ready = ::poll(&waiting, 1, kReplyTimeoutMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        char chunk[512];
        ssize_t got = ::recv(m_socket, chunk, sizeof chunk, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        m_buffer.append(chunk, static_cast<size_t>(got));
        if (m_buffer.size() > 65536) return false;
    }
}

bool PinEntry::command(const std::string& line) {
    if (!send(line)) return false;
    std::string reply;
    while (readLine(reply)) {
        if (reply.compare(0, 2, "OK") == 0) return true;
        if (reply.compare(0, 3, "ERR") == 0) return false;
    }
    return false;
}

PinEntry::Result PinEntry::getPin(const PinPrompt& prompt, std::string& pin) {
    pin.clear();
    if (m_socket < 0) return Result::Failed;
    if (!prompt.title.empty() && !command("SETTITLE " + escape(prompt.title))) return Result::Failed;
    if (!command("SETDESC " + escape(prompt.description)) || !command("SETPROMPT " + escape(prompt.prompt))) {
        return Result::Failed;
    }
    if (!prompt.error.empty() && !command("SETERROR " + escape(prompt.error))) return Result::Failed;
    if (!send("GETPIN")) return Result::Failed;
    std::string reply;
    while (readLine(reply)) {
        if (reply.compare(0, 2, "D ") == 0) {
            pin += unescape(reply.substr(2));
        } else if (reply.compare(0, 2, "OK") == 0) {
            return Result::Ok;
        } else if (reply.compare(0, 3, "ERR") == 0) {
            return isCancel(reply) ? Result::Cancelled : Result::Failed;
        } else if (reply.compare(0, 7, "INQUIRE") == 0) {
            // Nothing to offer: end the inquiry and keep waiting.
            if (!send("END")) return Result::Failed;
        }
    }
    return Result::Failed;
}

void PinEntry::finish() {
    if (m_socket >= 0) {
        send("BYE");
        ::shutdown(m_socket, SHUT_WR);
        ::close(m_socket);
        m_socket = -1;
    }
    if (m_pid > 0) {
        // The program ends on BYE; a program that does not is killed. If the
        // host reaps children itself, waitpid reports ECHILD and that is fine.
        for (int waited = 0;; ++waited) {
            pid_t done = ::waitpid(m_pid, nullptr, WNOHANG);
            if (done == m_pid || (done < 0 && errno != EINTR)) break;
            if (waited == 200) {
                ::kill(m_pid, SIGKILL);
                ::waitpid(m_pid, nullptr, 0);
                break;
            }
            struct timespec pause = {0, 10 * 1000 * 1000};
            ::nanosleep(&pause, nullptr);
        }
        m_pid = -1;
    }
    // The buffer held the typed PINs' data lines.
    wipe(m_buffer);
}

} // namespace Korvex
