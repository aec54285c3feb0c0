// nfreplay: sends datagram files (trace files written by nfcollect --trace, or any raw UDP payloads) to a
// UDP port at a fixed rate with sendmmsg, for demos, tests and throughput runs.

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "Samples.h"
#include "common/CommandLine.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<uint8_t> ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Trace files in the order they were written: by their number, not by name.
std::vector<fs::path> TraceFilesIn(const fs::path& dir) {
    static const std::regex kTrace(R"(nf_trace_(-?\d+)\.nfdmp)");
    std::vector<std::pair<long long, fs::path>> numbered;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir)) {
        std::smatch match;
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && std::regex_match(name, match, kTrace))
            numbered.emplace_back(std::stoll(match[1].str()), entry.path());
    }
    std::sort(numbered.begin(), numbered.end());
    std::vector<fs::path> files;
    for (auto& [number, path] : numbered)
        files.push_back(std::move(path));
    return files;
}

// The destination address: a host name or an IPv4 address as before, else an IPv6 address (brackets
// allowed, as in [::1]) or a name with IPv6 addresses only.
bool Resolve(std::string host, int port, sockaddr_storage& to, socklen_t& length) {
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    for (int family : {AF_INET, AF_INET6}) {
        addrinfo hints{};
        hints.ai_family = family;
        hints.ai_socktype = SOCK_DGRAM;
        addrinfo* found = nullptr;
        if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr)
            continue;
        std::memcpy(&to, found->ai_addr, found->ai_addrlen);
        length = found->ai_addrlen;
        freeaddrinfo(found);
        if (family == AF_INET)
            reinterpret_cast<sockaddr_in&>(to).sin_port = htons(static_cast<uint16_t>(port));
        else
            reinterpret_cast<sockaddr_in6&>(to).sin6_port = htons(static_cast<uint16_t>(port));
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"nfreplay: send datagram files to a UDP port at a fixed rate. Each file holds one datagram\n"
                 "(the UDP payload), as nfcollect --trace writes them; a directory stands for its\n"
                 "nf_trace_<n>.nfdmp files in number order. Files and built-in samples are sent in the\n"
                 "order given (files first), round-robin."};
    std::vector<std::string> inputs;
    std::string host = "127.0.0.1";
    int port = 2055;
    double rate = 1000;
    uint64_t count = 0;
    int batch = 32;
    int sources = 1;
    bool quiet = false;
    std::vector<std::string> samples;
    std::string sampleDir;
    app.add_option("inputs", inputs, "datagram files or directories of trace files")
        ->check(CLI::ExistingPath);
    app.add_option("-s,--sample", samples,
                   "built-in datagram: v5 (30 records), v9 (16-field template + 20 records),\n"
                   "sflow (sFlow v5, 8 flow samples); may be repeated")
        ->check(CLI::IsMember(tpnf::tools::SampleNames()));
    app.add_option("--write-samples", sampleDir,
                   "write the built-in samples to v5_30.bin, v9_t16x20.bin, sflow5_8.bin in this\n"
                   "directory and send nothing");
    app.add_option("--host", host, "destination host name, IPv4 or IPv6 address")->capture_default_str();
    app.add_option("-p,--port", port, "destination UDP port")
        ->capture_default_str()
        ->check(CLI::Range(1, 65535));
    app.add_option("-r,--rate", rate, "datagrams per second (0: as fast as possible)")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    app.add_option("-c,--count", count, "datagrams to send, cycling through the files (0: each file once)")
        ->capture_default_str()
        ->check(tpnf::tools::CountValidator());
    app.add_option("--batch", batch, "datagrams per sendmmsg call")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    app.add_option("--sources", sources,
                   "send from this many sockets, each with its own source port, one sendmmsg batch\n"
                   "after the other in turn: that many exporters to the receiver")
        ->capture_default_str()
        ->check(CLI::Range(1, 4096));
    app.add_flag("-q,--quiet", quiet, "no progress lines on stderr");
    tpnf::tools::UseToolErrors(app, "nfreplay");
    if (int exitCode = 0; !tpnf::tools::Parse(app, argc, argv, exitCode))
        return exitCode;

    if (!sampleDir.empty()) {
        std::error_code ec;
        fs::create_directories(sampleDir, ec);
        for (const std::string& name : tpnf::tools::SampleNames()) {
            const std::vector<uint8_t> sample = tpnf::tools::MakeSample(name);
            const fs::path path = fs::path(sampleDir) / tpnf::tools::SampleFileName(name);
            std::ofstream out(path, std::ios::binary);
            out.write(reinterpret_cast<const char*>(sample.data()),
                      static_cast<std::streamsize>(sample.size()));
            if (!out.flush()) {
                std::fprintf(stderr, "nfreplay: cannot write %s\n", path.c_str());
                return 1;
            }
            std::printf("%s: %zu bytes\n", path.c_str(), sample.size());
        }
        return 0;
    }
    if (inputs.empty() && samples.empty()) {
        std::fprintf(stderr, "nfreplay: nothing to send: give files, directories or --sample (see --help)\n");
        return 2;
    }

    std::vector<std::vector<uint8_t>> payloads;
    try {
        for (const std::string& input : inputs) {
            if (fs::is_directory(input)) {
                const std::vector<fs::path> files = TraceFilesIn(input);
                if (files.empty()) {
                    std::fprintf(stderr, "nfreplay: no nf_trace_<n>.nfdmp files in %s\n", input.c_str());
                    return 1;
                }
                for (const fs::path& file : files)
                    payloads.push_back(ReadFile(file));
            } else {
                payloads.push_back(ReadFile(input));
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nfreplay: %s\n", error.what());
        return 1;
    }
    for (const std::string& name : samples)
        payloads.push_back(tpnf::tools::MakeSample(name));
    for (const auto& payload : payloads)
        if (payload.size() > 65507) {
            std::fprintf(stderr, "nfreplay: a file of %zu bytes does not fit one UDP datagram\n",
                         payload.size());
            return 1;
        }
    if (count == 0)
        count = payloads.size();

    sockaddr_storage to{};
    socklen_t toLength = 0;
    if (!Resolve(host, port, to, toLength)) {
        std::fprintf(stderr, "nfreplay: cannot resolve %s\n", host.c_str());
        return 1;
    }
    std::vector<int> fds;
    for (int i = 0; i < sources; ++i) {
        int fd = socket(to.ss_family, SOCK_DGRAM, 0);
        if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&to), toLength) != 0) {
            std::fprintf(stderr, "nfreplay: cannot open a UDP socket to %s:%d: %s\n", host.c_str(), port,
                         std::strerror(errno));
            return 1;
        }
        int sendBuffer = 8 << 20;
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
        fds.push_back(fd);
    }

    std::vector<iovec> iov(static_cast<size_t>(batch));
    std::vector<mmsghdr> messages(static_cast<size_t>(batch));
    uint64_t attempted = 0, sent = 0, failed = 0, bytes = 0;
    size_t next = 0;
    size_t source = 0;
    const auto start = std::chrono::steady_clock::now();
    auto nextReport = start + std::chrono::seconds(1);
    while (attempted < count) {
        const int n = static_cast<int>(std::min<uint64_t>(static_cast<uint64_t>(batch), count - attempted));
        size_t index = next;
        for (int i = 0; i < n; ++i) {
            auto& payload = payloads[index];
            index = (index + 1) % payloads.size();
            iov[static_cast<size_t>(i)] = {payload.data(), payload.size()};
            messages[static_cast<size_t>(i)] = {};
            messages[static_cast<size_t>(i)].msg_hdr.msg_iov = &iov[static_cast<size_t>(i)];
            messages[static_cast<size_t>(i)].msg_hdr.msg_iovlen = 1;
        }
        int done = sendmmsg(fds[source], messages.data(), static_cast<unsigned>(n), 0);
        if (done < 0) {
            if (errno == ENOBUFS || errno == EAGAIN || errno == EINTR) {
                std::this_thread::sleep_for(std::chrono::microseconds(100)); // send queue full: try again
                continue;
            }
            // Typically ECONNREFUSED: nobody listened when an earlier datagram arrived. This one is lost.
            ++failed;
            done = 1;
        } else {
            sent += static_cast<uint64_t>(done);
            for (int i = 0; i < done; ++i)
                bytes += iov[static_cast<size_t>(i)].iov_len;
        }
        attempted += static_cast<uint64_t>(done);
        next = (next + static_cast<size_t>(done)) % payloads.size();
        source = (source + 1) % fds.size();
        const auto now = std::chrono::steady_clock::now();
        if (rate > 0) {
            const auto due =
                start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(static_cast<double>(attempted) / rate));
            if (due > now)
                std::this_thread::sleep_until(due);
        }
        if (!quiet && now >= nextReport) {
            std::fprintf(stderr, "nfreplay: %llu of %llu sent\n", static_cast<unsigned long long>(sent),
                         static_cast<unsigned long long>(count));
            nextReport += std::chrono::seconds(1);
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (int fd : fds)
        close(fd);
    std::printf("sent=%llu failed=%llu bytes=%llu seconds=%.3f rate=%.0f\n",
                static_cast<unsigned long long>(sent), static_cast<unsigned long long>(failed),
                static_cast<unsigned long long>(bytes), seconds,
                seconds > 0 ? static_cast<double>(sent) / seconds : 0.0);
    return failed == 0 ? 0 : 1;
}
