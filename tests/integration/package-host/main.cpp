// A host built against the installed packages: decodes one NetFlow v5 datagram and prints its text.
#include <cstdio>

#include "netflow/NetFlowPacketV5.h"
#include "support/NetFlowDatagram.h"
#include "util/TextConvert.h"

using namespace tpnf::test;

int main() {
    const V5Header header{
        .count = 1, .sysUptime = 123456, .unixSecs = 1000000000, .unixNsecs = 500, .flowSequence = 77};
    const V5Record record{.common = {.srcAddr = IPv4(10, 0, 0, 1),
                                     .dstAddr = IPv4(10, 0, 0, 2),
                                     .dPkts = 10,
                                     .dOctets = 840,
                                     .srcPort = 53,
                                     .dstPort = 33000},
                          .prot = 17,
                          .srcMask = 24,
                          .dstMask = 32};
    CNetFlowPacketV5 packet;
    if (packet.Decode(Datagram(header, record)) != 1) {
        std::fputs("decode failed\n", stderr);
        return 1;
    }
    packet.SetSenderInfo(L"192.0.2.7", 2055);
    std::fputs(tpnf::ToUtf8(packet.ToString()).c_str(), stdout);
    std::fputc('\n', stdout);
    return 0;
}
