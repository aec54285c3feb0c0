// Sends datagram payload files to a UDP port at a fixed rate with sendmmsg, for throughput runs.
// Payloads are sent round-robin; the rate is held by pacing batches against a monotonic clock.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

namespace {

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"nfblast: send datagram payload files to a UDP port at a fixed rate (sendmmsg)"};
    std::vector<std::string> files;
    std::string host = "127.0.0.1";
    int port = 2055;
    double rate = 100000;
    uint64_t count = 100000;
    int batch = 32;
    app.add_option("files", files, "payload files, sent round-robin")->required()->check(CLI::ExistingFile);
    app.add_option("--host", host, "destination address")->capture_default_str();
    app.add_option("--port", port, "destination port")->capture_default_str()->check(CLI::Range(1, 65535));
    app.add_option("--rate", rate, "datagrams per second, 0 = as fast as possible")->capture_default_str();
    app.add_option("--count", count, "datagrams to send")->capture_default_str();
    app.add_option("--batch", batch, "datagrams per sendmmsg call")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    CLI11_PARSE(app, argc, argv);

    std::vector<std::vector<uint8_t>> payloads;
    for (const auto& f : files)
        payloads.push_back(ReadFile(f));

    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        std::perror("nfblast: socket");
        return 1;
    }
    int sndbuf = 8 << 20;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &to.sin_addr) != 1) {
        std::fprintf(stderr, "nfblast: bad address %s\n", host.c_str());
        return 2;
    }
    if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
        std::perror("nfblast: connect");
        return 1;
    }

    std::vector<iovec> iov(batch);
    std::vector<mmsghdr> msgs(batch);
    uint64_t sent = 0, failed = 0;
    size_t next = 0;
    auto start = std::chrono::steady_clock::now();
    while (sent < count) {
        int n = static_cast<int>(std::min<uint64_t>(batch, count - sent));
        for (int i = 0; i < n; ++i) {
            auto& p = payloads[next];
            next = (next + 1) % payloads.size();
            iov[i] = {p.data(), p.size()};
            msgs[i] = {};
            msgs[i].msg_hdr.msg_iov = &iov[i];
            msgs[i].msg_hdr.msg_iovlen = 1;
        }
        int done = sendmmsg(fd, msgs.data(), n, 0);
        if (done < 0) {
            ++failed; // ECONNREFUSED while nobody listens, ENOBUFS under pressure
            done = n;
        }
        sent += done;
        if (rate > 0) {
            auto due = start + std::chrono::duration<double>(static_cast<double>(sent) / rate);
            auto now = std::chrono::steady_clock::now();
            if (due > now)
                std::this_thread::sleep_until(due);
        }
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("sent=%llu seconds=%.3f rate=%.0f failed_calls=%llu\n", static_cast<unsigned long long>(sent),
                seconds, sent / seconds, static_cast<unsigned long long>(failed));
    close(fd);
    return 0;
}
