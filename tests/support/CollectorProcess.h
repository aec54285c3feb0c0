#pragma once
// Runs the nfcollect program for end-to-end tests: free ports, a loopback sender with a known port, and
// the collector as a child process whose stdout and stderr go to files (or stderr to a terminal).

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace tpnf::test {

inline const std::filesystem::path kCollector =
    std::filesystem::path(TPNF_BINARY_DIR) / "tools" / "nfcollect";
inline const std::filesystem::path kReplay = std::filesystem::path(TPNF_BINARY_DIR) / "tools" / "nfreplay";

inline std::string ReadWholeFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A UDP port nobody uses at this moment.
// A port on 127.0.0.1 that nobody uses now: UDP for collectors, TCP (SOCK_STREAM) for servers.
inline int FreePort(int type = SOCK_DGRAM) {
    int fd = socket(AF_INET, type, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

// True once someone (the collector) has bound the UDP port.
inline bool PortTaken(int port) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool taken =
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno == EADDRINUSE;
    close(fd);
    return taken;
}

// The last line of a text.
inline std::string LastLine(const std::string& text) {
    std::string trimmed = text;
    while (!trimmed.empty() && trimmed.back() == '\n')
        trimmed.pop_back();
    return trimmed.substr(trimmed.rfind('\n') == std::string::npos ? 0 : trimmed.rfind('\n') + 1);
}

// The collector's summary ("nfcollect: stopped after ..."), the last one in a text; a sanitized build
// may print its own report after it.
inline std::string SummaryLine(const std::string& text) {
    const size_t at = text.rfind("nfcollect: stopped after ");
    return at == std::string::npos ? std::string() : text.substr(at, text.find('\n', at) - at);
}

// A sending socket bound to a known port, so the sender of each packet is known.
class Sender {
public:
    Sender() : m_fd(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
    }
    ~Sender() { close(m_fd); }

    void Send(int port, const std::vector<uint8_t>& datagram) const {
        SendNow(port, datagram);
        std::this_thread::sleep_for(
            std::chrono::milliseconds(5)); // in order, and never faster than the collector reads
    }
    // At once, for floods: the collector may fall behind and the kernel drop.
    void SendNow(int port, const std::vector<uint8_t>& datagram) const {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(
            sendto(m_fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
            static_cast<ssize_t>(datagram.size()));
    }
    int Port() const { return m_port; }

private:
    int m_fd;
    int m_port = 0;
};

// What the sqlite3 shell prints for a query on the file, rows as a|b|c lines. It waits for a collector
// that is writing the file at the same moment.
inline std::string Query(const std::filesystem::path& db, const std::string& sql) {
    const std::string command =
        "sqlite3 -cmd '.timeout 10000' -separator '|' '" + db.string() + "' \"" + sql + "\"";
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[512];
        while (fgets(buffer, sizeof buffer, pipe))
            output += buffer;
        pclose(pipe);
    }
    return output;
}

struct CollectorResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// One run of nfcollect. stdout and stderr go to files in dir; with a terminal, stderr goes to the slave
// side of a pseudo-terminal instead and is read from its master side.
class CollectorProcess {
public:
    explicit CollectorProcess(std::filesystem::path dir) : m_dir(std::move(dir)) {}
    ~CollectorProcess() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        StopTerminalReader();
    }
    CollectorProcess(const CollectorProcess&) = delete;
    CollectorProcess& operator=(const CollectorProcess&) = delete;

    bool Start(std::vector<std::string> args, bool stderrToTerminal = false) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, OutPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (stderrToTerminal) {
            int slave = -1;
            if (openpty(&m_master, &slave, nullptr, nullptr, nullptr) != 0)
                return false;
            posix_spawn_file_actions_adddup2(&actions, slave, 2);
            posix_spawn_file_actions_addclose(&actions, m_master);
            m_bTerminal = true;
            m_reader = std::thread([this] { ReadTerminal(); });
            m_slave = slave;
        } else {
            posix_spawn_file_actions_addopen(&actions, 2, ErrPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                             0644);
        }
        args.insert(args.begin(), kCollector.string());
        std::vector<char*> argv;
        for (std::string& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        const int spawned = posix_spawn(&m_pid, kCollector.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (m_slave >= 0) {
            close(m_slave);
            m_slave = -1;
        }
        if (spawned != 0) {
            m_pid = 0;
            ADD_FAILURE() << "cannot start " << kCollector;
            return false;
        }
        return true;
    }

    bool WaitListening(int port, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!PortTaken(port)) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return true;
    }

    void Signal(int signal) const { kill(m_pid, signal); }
    pid_t Pid() const { return m_pid; }

    // What the collector wrote to stderr so far.
    std::string Err() {
        if (m_bTerminal) {
            std::lock_guard<std::mutex> lock(m_terminalLock);
            return m_terminal;
        }
        return ReadWholeFile(ErrPath());
    }
    std::string Out() const { return ReadWholeFile(OutPath()); }

    // Waits for the collector to end; after the limit it is killed and the test fails.
    CollectorResult Wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        CollectorResult result;
        int status = 0;
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (waitpid(m_pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                kill(m_pid, SIGKILL);
                waitpid(m_pid, &status, 0);
                ADD_FAILURE() << "the collector did not end by itself";
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        m_pid = 0;
        StopTerminalReader();
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = Out();
        result.err = Err();
        return result;
    }

private:
    std::filesystem::path OutPath() const { return m_dir / "stdout.txt"; }
    std::filesystem::path ErrPath() const { return m_dir / "stderr.txt"; }

    void ReadTerminal() {
        char buffer[4096];
        for (;;) {
            const ssize_t n = read(m_master, buffer, sizeof buffer);
            if (n <= 0)
                break; // EIO once the child has closed the slave side
            std::lock_guard<std::mutex> lock(m_terminalLock);
            m_terminal.append(buffer, static_cast<size_t>(n));
        }
    }

    void StopTerminalReader() {
        if (m_reader.joinable())
            m_reader.join();
        if (m_master >= 0) {
            close(m_master);
            m_master = -1;
        }
    }

    std::filesystem::path m_dir;
    pid_t m_pid = 0;
    bool m_bTerminal = false;
    int m_master = -1;
    int m_slave = -1;
    std::thread m_reader;
    std::mutex m_terminalLock;
    std::string m_terminal;
};

// What curl reads from the endpoint, the sample lines only, by series.
inline std::map<std::string, std::string> Scrape(int port) {
    std::map<std::string, std::string> samples;
    const std::string command = "curl -sf http://127.0.0.1:" + std::to_string(port) + "/metrics";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return samples;
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
        std::string line(buffer);
        if (line.empty() || line[0] == '#')
            continue;
        while (!line.empty() && line.back() == '\n')
            line.pop_back();
        const size_t space = line.rfind(' ');
        samples[line.substr(0, space)] = line.substr(space + 1);
    }
    pclose(pipe);
    return samples;
}

// The endpoint's port, from the line the collector prints when it starts.
inline int MetricsPort(CollectorProcess& collector) {
    const std::regex announced("metrics at http://127\\.0\\.0\\.1:([0-9]+)/metrics");
    for (int i = 0; i < 500; ++i) {
        std::smatch match;
        const std::string err = collector.Err();
        if (std::regex_search(err, match, announced))
            return std::stoi(match[1].str());
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
}

} // namespace tpnf::test
