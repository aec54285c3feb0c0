// The receive path of a session: each input is one datagram handed to the socket's own handling (version
// dispatch, decode, hand-over to the session, error message to the owner), with the exception handling
// of the receive loop around it. The host then takes the listed packets, checks their sizes and deletes
// them; rendering them is left to the render harnesses, so the receive path is tried at decoding speed.
//
// Packets whose decode failed or threw are abandoned by the socket, as intended; run with the leak
// suppressions in tests/lsan.supp.
#include <asio/io_context.hpp>

#include "FuzzPacket.h"
#include "session/Messages.h"
#include "session/NetFlowSession.h"
#include "session/NetFlowSocket.h"
#include "util/Format.h"

namespace {

class Owner : public CWnd {
public:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_NETFLOW_PACKET)
            ++packetMessages;
        else if (message == WM_NETFLOW_ERROR)
            ++errorMessages;
        return CWnd::WindowProc(message, wParam, lParam);
    }
    int packetMessages = 0;
    int errorMessages = 0;
};

// A session that is never started: the socket is given the datagrams directly.
class Session : public CNetFlowSession {
public:
    explicit Session(CWnd* pOwner) { m_pOwner = pOwner; }
};

struct Receiver {
    asio::io_context loop;
    Owner owner;
    Session session{&owner};
    CNetFlowSocket socket{&session};

    Receiver() { owner.CreateEx(loop, L"owner"); }
};

// The packet kind the version words choose, by its protocol text; empty when the datagram is ignored.
CString ExpectedProtocol(const uint8_t* data, size_t size) {
    if (size < 2)
        return CString();
    const unsigned version16 = (data[0] << 8) | data[1];
    switch (version16) {
    case 1:
    case 5:
    case 7:
    case 8:
    case 9:
        return tpnf::FormatText(L"NetFlow v%u", version16);
    case 0: {
        if (size < 4)
            return CString();
        const unsigned version32 = (data[2] << 8) | data[3];
        if (version32 == 2 || version32 == 4 || version32 == 5)
            return tpnf::FormatText(L"sFlow v%u", version32);
        return CString();
    }
    default:
        return CString();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using tpnf::fuzz::Check;
    static Receiver* receiver = new Receiver; // lives as long as the process, as the template store does
    Owner& owner = receiver->owner;
    Session& session = receiver->session;

    const CNetFlowSession::Statistics before = session.GetStatistics();
    const int packetMessages = owner.packetMessages;
    const int errorMessages = owner.errorMessages;

    CByteArray datagram(data, data + size);
    bool dropped = false;
    try {
        receiver->socket.OnReceive(datagram, L"192.0.2.1", 2055);
    } catch (const CInvalidArgException&) {
        dropped = true; // where the receive loop drops a malformed datagram
    }

    CArray<CTPAbstractPacket*, CTPAbstractPacket*> packets;
    session.GetPackets(packets);
    const CNetFlowSession::Statistics& after = session.GetStatistics();
    const uint64_t listed = after.packets - before.packets;
    const uint64_t failed = after.decodeFailures - before.decodeFailures;
    const uint64_t ignored = after.ignored - before.ignored;

    if (dropped) {
        Check(listed + failed + ignored == 0, "a dropped datagram was also counted");
        Check(packets.empty() && owner.packetMessages == packetMessages &&
                  owner.errorMessages == errorMessages,
              "a dropped datagram reached the host");
    } else {
        Check(listed + failed + ignored == 1, "a datagram was not handled exactly once");
        Check(packets.size() == listed, "listed count differs from the packets handed out");
        Check(owner.packetMessages - packetMessages == static_cast<int>(listed),
              "one packet message per packet");
        Check(owner.errorMessages - errorMessages == static_cast<int>(failed),
              "one error message per failure");
        Check((ignored == 1) == ExpectedProtocol(data, size).empty(), "dispatch ignored a known version");
    }

    for (CTPAbstractPacket* packet : packets) {
        Check(packet->GetProtocol() == ExpectedProtocol(data, size), "dispatch chose the wrong packet kind");
        Check(packet->GetSenderIPAddress() == L"192.0.2.1" && packet->GetSenderPort() == 2055,
              "sender not set on a listed packet");
        tpnf::fuzz::CheckDecoded(*packet);
        delete packet;
    }
    return 0;
}
