// Counts datagrams arriving on a UDP port with recvmmsg and does nothing else: the receive ceiling
// of this machine for the throughput runs. Ends after --idle seconds without traffic.

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
    CLI::App app{"nfsink: count datagrams on a UDP port (recvmmsg), the receive ceiling"};
    int port = 2055;
    double idle = 2.0;
    double maxSeconds = 600;
    app.add_option("--port", port, "UDP port")->capture_default_str()->check(CLI::Range(1, 65535));
    app.add_option("--idle", idle, "stop after this many seconds without a datagram")->capture_default_str();
    app.add_option("--duration", maxSeconds, "stop after this many seconds in any case")
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    int rcvbuf = 0x7FFFFFFF; // same request as the collector's socket
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        std::perror("nfsink: bind");
        return 1;
    }
    std::printf("listening port=%d\n", port);
    std::fflush(stdout);

    constexpr int kBatch = 64;
    std::vector<std::vector<uint8_t>> buffers(kBatch, std::vector<uint8_t>(65535));
    std::vector<iovec> iov(kBatch);
    std::vector<mmsghdr> msgs(kBatch);
    for (int i = 0; i < kBatch; ++i) {
        iov[i] = {buffers[i].data(), buffers[i].size()};
        msgs[i].msg_hdr.msg_iov = &iov[i];
        msgs[i].msg_hdr.msg_iovlen = 1;
    }
    uint64_t received = 0, bytes = 0;
    auto start = std::chrono::steady_clock::now();
    auto first = start, last = start;
    while (true) {
        pollfd pfd{fd, POLLIN, 0};
        int ready = poll(&pfd, 1, static_cast<int>(idle * 1000));
        auto now = std::chrono::steady_clock::now();
        if (ready <= 0 && received > 0)
            break;
        if (std::chrono::duration<double>(now - start).count() > maxSeconds)
            break;
        if (ready <= 0)
            continue;
        int n = recvmmsg(fd, msgs.data(), kBatch, MSG_DONTWAIT, nullptr);
        if (n <= 0)
            continue;
        if (received == 0)
            first = now;
        last = now;
        received += n;
        for (int i = 0; i < n; ++i)
            bytes += msgs[i].msg_len;
    }
    double seconds = std::chrono::duration<double>(last - first).count();
    std::printf("received=%llu bytes=%llu seconds=%.3f\n", static_cast<unsigned long long>(received),
                static_cast<unsigned long long>(bytes), seconds);
    close(fd);
    return 0;
}
