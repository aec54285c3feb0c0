#include "session/NetFlowSocket.h"

#include <asio/error.hpp>
#include <asio/ip/v6_only.hpp>

#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <thread>
#include <unordered_map>

#include "corelib/Utility.h"
#include "ipfix/IPFIXPacket.h"
#include "netflow/NetFlowPacketV1.h"
#include "netflow/NetFlowPacketV5.h"
#include "netflow/NetFlowPacketV7.h"
#include "netflow/NetFlowPacketV8.h"
#include "netflow9/NetFlowPacketV9.h"
#include "session/Messages.h"
#include "session/NetFlowSession.h"
#include "sflow/SFlowPacket.h"
#include "util/Format.h"
#include "util/NetFlowUtility.h"
#include "util/TextConvert.h"

std::atomic<int> CNetFlowSocket::s_nTraceFileCounter{0};

namespace {

constexpr size_t kMaxDatagram = 65535;
// Senders whose text and verdict are kept; beyond it the cache starts afresh, so that a flood of forged
// sender addresses costs time, not memory.
constexpr size_t kSenderCacheLimit = 4096;

// The packet kind for a datagram's version words; nullptr when the datagram is to be ignored. The kinds
// that can use the session's options and the exporter get the context.
// A 2 or 3 byte datagram starting 00 00 throws from the 32-bit read: intended, it is dropped as malformed.
CTPAbstractPacket* CreatePacket(const CByteArray& datagram, const CDecodeContext& context) {
    if (datagram.size() < 2)
        return nullptr;
    switch (CNetFlowUtility::GetUShort(datagram, 0)) {
    case 0:
        switch (CNetFlowUtility::GetULong(datagram, 0)) {
        case 2:
        case 4:
        case 5: {
            auto* packet = new CSFlowPacket;
            packet->SetDecodeContext(context);
            return packet;
        }
        default:
            return nullptr;
        }
    case 1:
        return new CNetFlowPacketV1;
    case 5:
        return new CNetFlowPacketV5;
    case 7:
        return new CNetFlowPacketV7;
    case 8:
        return new CNetFlowPacketV8;
    case 9: {
        auto* packet = new CNetFlowPacketV9;
        packet->SetDecodeContext(context);
        return packet;
    }
    case 10: {
        // IPFIX is decoded only when the session asks for it; otherwise version 10 is ignored as before.
        if (!context.options.ipfix)
            return nullptr;
        auto* packet = new CIPFIXPacket;
        packet->SetDecodeContext(context);
        return packet;
    }
    default:
        return nullptr;
    }
}

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// A sender as the kernel names it: the 16-byte IPv6 form (IPv4 as IPv4-mapped) and the scope.
struct SenderKey {
    std::array<uint8_t, 16> bytes{};
    uint32_t scope = 0;
    bool operator==(const SenderKey&) const = default;
};

struct SenderKeyHash {
    size_t operator()(const SenderKey& key) const {
        uint64_t high, low;
        std::memcpy(&high, key.bytes.data(), 8);
        std::memcpy(&low, key.bytes.data() + 8, 8);
        uint64_t h = high * 0x9E3779B97F4A7C15ull ^ low;
        h ^= (h >> 29) + key.scope;
        return static_cast<size_t>(h * 0xBF58476D1CE4E5B9ull);
    }
};

struct Sender {
    CString text;              // dotted IPv4 (also for IPv4-mapped senders) or IPv6 text
    CExporterAddress exporter; // port 0; the datagram's port is added per datagram
    bool allowed = true;
};

bool IsMapped(const std::array<uint8_t, 16>& bytes) {
    static constexpr std::array<uint8_t, 12> head = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    return std::equal(head.begin(), head.end(), bytes.begin());
}

// The key and port of a received datagram's sender; false for an address family other than IPv4/IPv6.
bool ReadSender(const sockaddr_storage& name, SenderKey& key, UINT& port) {
    if (name.ss_family == AF_INET) {
        const auto& in = reinterpret_cast<const sockaddr_in&>(name);
        key.bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
        std::memcpy(key.bytes.data() + 12, &in.sin_addr, 4);
        key.scope = 0;
        port = ntohs(in.sin_port);
        return true;
    }
    if (name.ss_family == AF_INET6) {
        const auto& in6 = reinterpret_cast<const sockaddr_in6&>(name);
        std::memcpy(key.bytes.data(), &in6.sin6_addr, 16);
        key.scope = in6.sin6_scope_id;
        port = ntohs(in6.sin6_port);
        return true;
    }
    key = SenderKey{};
    port = 0;
    return false;
}

Sender MakeSender(const SenderKey& key, bool known) {
    Sender sender;
    if (!known)
        return sender;
    if (IsMapped(key.bytes)) {
        asio::ip::address_v4::bytes_type v4;
        std::copy(key.bytes.begin() + 12, key.bytes.end(), v4.begin());
        sender.text = tpnf::FromUtf8(asio::ip::address_v4(v4).to_string());
        std::copy(v4.begin(), v4.end(), sender.exporter.bytes.begin());
        sender.exporter.length = 4;
    } else {
        sender.text = tpnf::FromUtf8(asio::ip::address_v6(key.bytes, key.scope).to_string());
        sender.exporter.bytes = key.bytes;
        sender.exporter.length = 16;
    }
    return sender;
}

bool Allowed(const std::vector<CAddressPrefix>& allowList, const CExporterAddress& exporter) {
    if (allowList.empty())
        return true;
    return std::any_of(allowList.begin(), allowList.end(),
                       [&](const CAddressPrefix& prefix) { return prefix.Contains(exporter); });
}

// Moves `total` on by what a 32-bit kernel drop counter advanced since `last`. The counter only grows (and
// wraps); a value older than one already seen (a queued datagram's count after a newer SO_MEMINFO read)
// is not a step back.
void AdvanceDrops(uint32_t counter, uint32_t& last, uint64_t& total) {
    const auto step = static_cast<int32_t>(counter - last);
    if (step > 0) {
        total += static_cast<uint32_t>(step);
        last = counter;
    }
}

} // namespace

// A batch of kDrainLimit datagram slots for recvmmsg. A slot's datagram is read straight into its byte
// array up to the array's current size, the rest into the slot's overflow; only the part beyond the
// slot's previous datagram size is ever copied, and nothing is allocated once the arrays have their
// capacity.
struct CNetFlowSocket::Receiver {
    CNetFlowSocket* pSocket = nullptr;
    asio::ip::udp::socket* pUdp = nullptr; // valid while pSocket is set
    uint32_t lastDropCount = 0;            // the kernel's drop counter as last seen

    std::array<CByteArray, kDrainLimit> datagrams;
    std::unique_ptr<uint8_t[]> overflow{new uint8_t[kDrainLimit * kMaxDatagram]};
    std::array<std::array<iovec, 2>, kDrainLimit> buffers{};
    std::array<sockaddr_storage, kDrainLimit> names{};
    // Room for the SO_RXQ_OVFL drop counter, aligned as control messages are.
    struct alignas(cmsghdr) Control {
        uint8_t bytes[CMSG_SPACE(sizeof(uint32_t))];
    };
    std::array<Control, kDrainLimit> controls{};
    std::array<mmsghdr, kDrainLimit> messages{};

    std::unordered_map<SenderKey, Sender, SenderKeyHash> senders;
    const Sender* pLastSender = nullptr;
    SenderKey lastKey;
    uint64_t allowListVersion = 0;

    Receiver() {
        for (int i = 0; i < kDrainLimit; ++i) {
            datagrams[i].reserve(kMaxDatagram);
            Prepare(i);
        }
    }

    // Points slot i's headers at its buffers again; the kernel changes lengths on every read.
    void Prepare(int i) {
        CByteArray& datagram = datagrams[i];
        buffers[i][0] = {datagram.data(), datagram.size()};
        buffers[i][1] = {overflow.get() + static_cast<size_t>(i) * kMaxDatagram,
                         kMaxDatagram - datagram.size()};
        msghdr& header = messages[i].msg_hdr;
        header.msg_name = &names[i];
        header.msg_namelen = sizeof(sockaddr_storage);
        header.msg_iov = buffers[i].data();
        header.msg_iovlen = 2;
        header.msg_control = controls[i].bytes;
        header.msg_controllen = sizeof controls[i].bytes;
        header.msg_flags = 0;
    }

    // Gives slot i's byte array exactly the datagram's bytes.
    void Complete(int i, size_t bytes) {
        CByteArray& datagram = datagrams[i];
        const size_t head = datagram.size();
        if (bytes <= head) {
            datagram.resize(bytes);
        } else { // within the reserved capacity: no allocation
            const uint8_t* rest = overflow.get() + static_cast<size_t>(i) * kMaxDatagram;
            datagram.insert(datagram.end(), rest, rest + (bytes - head));
        }
    }

    // The kernel's drop counter carried by slot i's datagram, if it carries one (it does once the socket
    // has dropped anything).
    bool DropCount(int i, uint32_t& count) const {
        msghdr header = messages[i].msg_hdr;
        for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL &&
                c->cmsg_len >= CMSG_LEN(sizeof(uint32_t))) {
                std::memcpy(&count, CMSG_DATA(c), sizeof count);
                return true;
            }
        }
        return false;
    }

    // The sender of slot i, from the cache when it was seen before.
    const Sender& FindSender(int i, UINT& port, const CNetFlowSession& session) {
        SenderKey key;
        const bool known = ReadSender(names[i], key, port);
        if (allowListVersion != session.m_allowListVersion) {
            allowListVersion = session.m_allowListVersion;
            for (auto& [cachedKey, sender] : senders)
                sender.allowed = Allowed(session.m_allowList, sender.exporter);
        }
        if (pLastSender != nullptr && key == lastKey)
            return *pLastSender;
        auto found = senders.find(key);
        if (found == senders.end()) {
            if (senders.size() >= kSenderCacheLimit)
                senders.clear();
            Sender sender = MakeSender(key, known);
            sender.allowed = Allowed(session.m_allowList, sender.exporter);
            found = senders.emplace(key, std::move(sender)).first;
        }
        pLastSender = &found->second;
        lastKey = key;
        return found->second;
    }
};

CNetFlowSocket::CNetFlowSocket(CNetFlowSession* pSession) : m_pSession(pSession) {}

CNetFlowSocket::~CNetFlowSocket() {
    Close();
}

BOOL CNetFlowSocket::Create(asio::io_context& loop, UINT nPort, std::error_code& error) {
    return Create(loop, nPort, CListenSettings(), error);
}

BOOL CNetFlowSocket::Create(asio::io_context& loop, UINT nPort, const CListenSettings& settings,
                            std::error_code& error) {
    Close();
    m_failedAddress.clear();
    std::vector<asio::ip::address> addresses = settings.addresses;
    if (addresses.empty())
        addresses.push_back(asio::ip::address_v4::any());
    const bool anyIPv4 =
        std::any_of(addresses.begin(), addresses.end(), [](const asio::ip::address& a) { return a.is_v4(); });

    auto port = static_cast<uint16_t>(nPort);
    std::vector<Listener> listeners;
    for (const asio::ip::address& address : addresses) {
        auto socket = std::make_unique<asio::ip::udp::socket>(loop);
        const asio::ip::udp::endpoint endpoint(address, port);
        bool ok = !socket->open(endpoint.protocol(), error);
        if (ok && address.is_v6() && address.is_unspecified())
            ok = !socket->set_option(asio::ip::v6_only(anyIPv4), error);
        if (ok && settings.reusePort) {
            const int on = 1;
            if (setsockopt(socket->native_handle(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) != 0) {
                error = std::error_code(errno, std::system_category());
                ok = false;
            }
        }
        ok = ok && !socket->bind(endpoint, error);
        // Draining reads until would_block, without waiting.
        ok = ok && !socket->non_blocking(true, error);
        if (!ok) {
            m_failedAddress = address.to_string();
            return FALSE; // the sockets opened so far close with `listeners`
        }
        if (port == 0) {
            std::error_code ignored;
            port = socket->local_endpoint(ignored).port();
        }
        // Each datagram then carries the kernel's count of datagrams dropped on this socket. A kernel
        // without it leaves the count to SO_MEMINFO.
        const int on = 1;
        setsockopt(socket->native_handle(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
        Listener listener;
        listener.socket = std::move(socket);
        listeners.push_back(std::move(listener));
    }
    m_listeners = std::move(listeners);
    for (Listener& listener : m_listeners) {
        listener.receiver = std::make_shared<Receiver>();
        listener.receiver->pSocket = this;
        listener.receiver->pUdp = listener.socket.get();
        StartWait(listener.receiver);
    }
    return TRUE;
}

BOOL CNetFlowSocket::SetReceiveBufferSize(int bytes, std::error_code& error) {
    if (m_listeners.empty())
        return FALSE;
    for (Listener& listener : m_listeners)
        if (listener.socket->set_option(asio::socket_base::receive_buffer_size(bytes), error))
            return FALSE;
    return TRUE;
}

int CNetFlowSocket::GetReceiveBufferSize() const {
    if (m_listeners.empty())
        return 0;
    asio::socket_base::receive_buffer_size option;
    std::error_code error;
    m_listeners.front().socket->get_option(option, error);
    return error ? 0 : option.value();
}

void CNetFlowSocket::ShutDownSend() {
    for (Listener& listener : m_listeners) {
        std::error_code ignored;
        listener.socket->shutdown(asio::socket_base::shutdown_send, ignored);
    }
}

void CNetFlowSocket::Close() {
    for (Listener& listener : m_listeners) {
        if (listener.receiver) {
            listener.receiver->pSocket = nullptr;
            listener.receiver->pUdp = nullptr;
        }
        std::error_code ignored;
        listener.socket->close(ignored);
    }
    m_listeners.clear();
}

UINT CNetFlowSocket::GetLocalPort() const {
    if (m_listeners.empty())
        return 0;
    std::error_code error;
    asio::ip::udp::endpoint local = m_listeners.front().socket->local_endpoint(error);
    return error ? 0 : local.port();
}

void CNetFlowSocket::UpdateLost() {
    for (Listener& listener : m_listeners) {
        std::array<uint32_t, SK_MEMINFO_VARS> memory{};
        socklen_t length = sizeof memory;
        if (getsockopt(listener.socket->native_handle(), SOL_SOCKET, SO_MEMINFO, memory.data(), &length) !=
                0 ||
            length < (SK_MEMINFO_DROPS + 1) * sizeof(uint32_t))
            continue;
        AdvanceDrops(memory[SK_MEMINFO_DROPS], listener.receiver->lastDropCount,
                     m_pSession->m_statistics.lost);
    }
}

void CNetFlowSocket::StartWait(const std::shared_ptr<Receiver>& receiver) {
    receiver->pUdp->async_wait(asio::socket_base::wait_read,
                               [receiver](const std::error_code& error) { HandleReadable(receiver, error); });
}

// The loop boundary: whatever leaves the handling of one datagram is dropped with it, and receiving goes
// on with the next.
void CNetFlowSocket::HandleReadable(const std::shared_ptr<Receiver>& receiver, const std::error_code& error) {
    if (receiver->pSocket == nullptr || error == asio::error::operation_aborted)
        return;
    if (!error) {
        const int got = ReadBatch(*receiver);
        if (receiver->pSocket != nullptr && got > 0 && got < kCoalesceBelow) {
            const std::chrono::microseconds pause = receiver->pSocket->m_pSession->m_coalesceDelay;
            if (pause.count() > 0)
                std::this_thread::sleep_for(pause); // the wake-ups saved cost more than the pause
        }
    }
    if (receiver->pSocket != nullptr)
        StartWait(receiver);
}

int CNetFlowSocket::ReadBatch(Receiver& receiver) {
    const int got = recvmmsg(receiver.pUdp->native_handle(), receiver.messages.data(), kDrainLimit,
                             MSG_DONTWAIT, nullptr);
    if (got <= 0) // would_block: the queue is empty; anything else is met by the next readiness
        return 0;
    const int64_t receivedMs = NowMs();
    for (int i = 0; i < got; ++i) {
        // The host may stop the session while a datagram is handled: then the socket is gone, and the
        // datagrams read after that one go with it.
        if (receiver.pSocket == nullptr)
            return i;
        Dispatch(receiver, i, receivedMs);
    }
    return got;
}

void CNetFlowSocket::Dispatch(Receiver& receiver, int index, int64_t receivedMs) {
    CNetFlowSession* pSession = receiver.pSocket->m_pSession;
    CNetFlowSession::Statistics& statistics = pSession->m_statistics;
    ++statistics.datagrams;
    if (uint32_t drops = 0; receiver.DropCount(index, drops))
        AdvanceDrops(drops, receiver.lastDropCount, statistics.lost);
    receiver.Complete(index, receiver.messages[index].msg_len);

    CDatagramInfo current;
    current.datagram = &receiver.datagrams[index];
    const Sender& sender = receiver.FindSender(index, current.senderPort, *pSession);
    current.senderAddress = &sender.text;
    current.exporter = sender.exporter;
    current.exporter.port = static_cast<uint16_t>(current.senderPort);
    current.receivedMs = receivedMs;
    // A host that runs the loop from inside a handler may have another socket's datagram handled there.
    const CDatagramInfo* pOuter = pSession->m_pCurrentDatagram;
    pSession->m_pCurrentDatagram = &current;

    if (!sender.allowed) {
        ++statistics.refused;
        current.outcome = EDatagramOutcome::Refused;
    } else {
        try {
            current.outcome = receiver.pSocket->OnReceive(*current.datagram, sender.text, current.senderPort,
                                                          current.exporter);
        } catch (const std::exception&) {
            ++statistics.malformed;
            current.outcome = EDatagramOutcome::Malformed;
        }
    }
    pSession->OnDatagramHandled();
    pSession->m_pCurrentDatagram = pOuter;
    receiver.Prepare(index);
}

EDatagramOutcome CNetFlowSocket::OnReceive(const CByteArray& datagram, const CString& senderAddress,
                                           UINT senderPort) {
    return OnReceive(datagram, senderAddress, senderPort, CExporterAddress());
}

EDatagramOutcome CNetFlowSocket::OnReceive(const CByteArray& datagram, const CString& senderAddress,
                                           UINT senderPort, const CExporterAddress& exporter) {
    CNetFlowSession::Statistics& statistics = m_pSession->m_statistics;
    if (m_pSession->IsTraceMode())
        return WriteTraceFile(datagram);
    CTPAbstractPacket* pPacket =
        CreatePacket(datagram, CDecodeContext{m_pSession->m_decodeOptions, exporter});
    if (pPacket == nullptr) {
        ++statistics.ignored;
        return EDatagramOutcome::Ignored;
    }
    // A packet whose Decode returned 0 or threw is abandoned, not deleted: intended.
    if (pPacket->Decode(datagram) == 0) {
        ++statistics.decodeFailures;
        if (m_pSession->m_pOwner != nullptr)
            m_pSession->m_pOwner->SendMessage(WM_NETFLOW_ERROR, 0, 0);
        return EDatagramOutcome::DecodeFailure;
    }
    pPacket->m_strSenderIPAddress = senderAddress;
    pPacket->m_nSenderPort = static_cast<int>(senderPort);
    ++statistics.packets;
    m_pSession->AddPacket(pPacket);
    return EDatagramOutcome::Packet;
}

EDatagramOutcome CNetFlowSocket::WriteTraceFile(const CByteArray& datagram) {
    CNetFlowSession::Statistics& statistics = m_pSession->m_statistics;
    int number = s_nTraceFileCounter.load();
    int next = 0;
    do
        next = number >= 0x7FFFFFFF ? 0 : number + 1;
    while (!s_nTraceFileCounter.compare_exchange_weak(number, next));
    // The directory is part of the format string: a '%' in it is a conversion. Intended.
    CString path;
    try {
        path = tpnf::FormatText(CUtility::GetPduTraceDir() + L"nf_trace_%d.nfdmp", next);
    } catch (const std::exception&) {
        ++statistics.traceFailures; // a directory that is no valid format names no file
        return EDatagramOutcome::TraceFailure;
    }
    std::FILE* file = std::fopen(tpnf::ToUtf8(path).c_str(), "wb");
    if (file == nullptr) {
        ++statistics.traceFailures;
        return EDatagramOutcome::TraceFailure;
    }
    size_t written = datagram.empty() ? 0 : std::fwrite(datagram.data(), 1, datagram.size(), file);
    bool closed = std::fclose(file) == 0;
    if (written == datagram.size() && closed) {
        ++statistics.traced;
        return EDatagramOutcome::Traced;
    }
    ++statistics.traceFailures;
    return EDatagramOutcome::TraceFailure;
}
