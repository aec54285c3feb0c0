#pragma once
// Shared by the receive-path tests: senders bound to any IPv4 or IPv6 address, NetFlow v5 datagrams that
// say who sent them, and a loop runner that stops when the datagrams stop.

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <chrono>
#include <string>
#include <vector>

#include "session/NetFlowSession.h"
#include "support/ByteBuilder.h"
#include "support/NetFlowDatagram.h"

namespace tpnf::test {

// A UDP socket bound to `local` (port chosen by the system) that sends to `to`:port.
class AddressSender {
public:
    explicit AddressSender(const std::string& local)
        : m_socket(m_loop, asio::ip::udp::endpoint(asio::ip::make_address(local), 0)) {}
    void Send(const std::string& to, UINT port, const std::vector<uint8_t>& datagram) {
        m_socket.send_to(asio::buffer(datagram),
                         asio::ip::udp::endpoint(asio::ip::make_address(to), static_cast<uint16_t>(port)));
    }
    UINT LocalPort() const { return m_socket.local_endpoint().port(); }

private:
    asio::io_context m_loop;
    asio::ip::udp::socket m_socket;
};

// A NetFlow v5 datagram whose header carries `sequence` as flow sequence and `source` as engine id,
// followed by `records` records.
inline std::vector<uint8_t> V5Datagram(uint32_t sequence, uint8_t source = 0, uint16_t records = 0) {
    ByteBuilder b;
    V5Header{.count = records,
             .sysUptime = 1000,
             .unixSecs = 1700000000,
             .flowSequence = sequence,
             .engineId = source}
        .AppendTo(b);
    for (uint16_t i = 0; i < records; ++i)
        V5Record{.common = {.srcAddr = IPv4(10, 0, 0, static_cast<uint8_t>(i)), .dPkts = 1}}.AppendTo(b);
    return b.build();
}

// Runs the loop until no datagram has reached the session for `quiet`.
inline void RunUntilQuiet(asio::io_context& loop, const CNetFlowSession& session,
                          std::chrono::milliseconds quiet = std::chrono::milliseconds(300)) {
    uint64_t seen = session.GetStatistics().datagrams;
    auto last = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - last < quiet) {
        if (loop.stopped())
            loop.restart();
        loop.run_one_for(std::chrono::milliseconds(10));
        if (session.GetStatistics().datagrams != seen) {
            seen = session.GetStatistics().datagrams;
            last = std::chrono::steady_clock::now();
        }
    }
}

} // namespace tpnf::test
