#include "session/NetFlowSocket.h"

#include <asio/error.hpp>

#include <cstdio>
#include <exception>

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

int CNetFlowSocket::s_nTraceFileCounter = 0;

namespace {

// The packet kind for a datagram's version words; nullptr when the datagram is to be ignored.
// A 2 or 3 byte datagram starting 00 00 throws from the 32-bit read: intended, it is dropped as malformed.
// The packet kind for a datagram's version words; nullptr when the datagram is to be ignored. The kinds
// that can use the session's options and the exporter get the context.
CTPAbstractPacket* CreatePacket(const CByteArray& datagram, const CDecodeContext& context) {
    if (datagram.size() < 2)
        return nullptr;
    switch (CNetFlowUtility::GetUShort(datagram, 0)) {
    case 0:
        switch (CNetFlowUtility::GetULong(datagram, 0)) {
        case 2:
        case 4:
        case 5:
            return new CSFlowPacket;
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
    case 9:
        return new CNetFlowPacketV9;
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

} // namespace

CNetFlowSocket::CNetFlowSocket(CNetFlowSession* pSession) : m_pSession(pSession) {}

CNetFlowSocket::~CNetFlowSocket() {
    Close();
}

BOOL CNetFlowSocket::Create(asio::io_context& loop, UINT nPort, std::error_code& error) {
    Close();
    auto socket = std::make_unique<asio::ip::udp::socket>(loop);
    if (socket->open(asio::ip::udp::v4(), error))
        return FALSE;
    if (socket->bind(asio::ip::udp::endpoint(asio::ip::address_v4::any(), static_cast<uint16_t>(nPort)),
                     error))
        return FALSE;
    // Draining reads until would_block, without waiting.
    if (socket->non_blocking(true, error))
        return FALSE;
    m_socket = std::move(socket);
    m_receiver = std::make_shared<Receiver>();
    m_receiver->pSocket = this;
    m_receiver->datagram.reserve(m_receiver->overflow.size());
    StartReceive();
    return TRUE;
}

BOOL CNetFlowSocket::SetReceiveBufferSize(int bytes, std::error_code& error) {
    if (!m_socket)
        return FALSE;
    m_socket->set_option(asio::socket_base::receive_buffer_size(bytes), error);
    return error ? FALSE : TRUE;
}

int CNetFlowSocket::GetReceiveBufferSize() const {
    if (!m_socket)
        return 0;
    asio::socket_base::receive_buffer_size option;
    std::error_code error;
    m_socket->get_option(option, error);
    return error ? 0 : option.value();
}

void CNetFlowSocket::ShutDownSend() {
    if (!m_socket)
        return;
    std::error_code ignored;
    m_socket->shutdown(asio::socket_base::shutdown_send, ignored);
}

void CNetFlowSocket::Close() {
    if (m_receiver) {
        m_receiver->pSocket = nullptr;
        m_receiver.reset();
    }
    if (m_socket) {
        std::error_code ignored;
        m_socket->close(ignored);
        m_socket.reset();
    }
}

UINT CNetFlowSocket::GetLocalPort() const {
    if (!m_socket)
        return 0;
    std::error_code error;
    asio::ip::udp::endpoint local = m_socket->local_endpoint(error);
    return error ? 0 : local.port();
}

std::array<asio::mutable_buffer, 2> CNetFlowSocket::Receiver::Buffers() {
    return {asio::buffer(datagram.data(), datagram.size()),
            asio::buffer(overflow.data(), overflow.size() - datagram.size())};
}

void CNetFlowSocket::Receiver::Complete(size_t bytes) {
    const size_t head = datagram.size();
    if (bytes <= head)
        datagram.resize(bytes);
    else // within the reserved capacity: no allocation
        datagram.insert(datagram.end(), overflow.data(), overflow.data() + (bytes - head));
}

void CNetFlowSocket::StartReceive() {
    std::shared_ptr<Receiver> receiver = m_receiver;
    m_socket->async_receive_from(
        receiver->Buffers(), receiver->sender,
        [receiver](const std::error_code& error, size_t bytes) { HandleReceive(receiver, error, bytes); });
}

// The loop boundary: whatever leaves the handling of one datagram is dropped with it, and receiving
// goes on with the next. The datagrams already queued are read without waiting, up to kDrainLimit.
void CNetFlowSocket::HandleReceive(const std::shared_ptr<Receiver>& receiver, const std::error_code& error,
                                   size_t bytes) {
    if (receiver->pSocket == nullptr || error == asio::error::operation_aborted)
        return;
    if (!error) {
        Dispatch(*receiver, bytes);
        // The host may stop the session while a datagram is handled: then the socket is gone.
        for (int n = 1; n < kDrainLimit && receiver->pSocket != nullptr; ++n) {
            std::error_code readError;
            const size_t got = receiver->pSocket->m_socket->receive_from(receiver->Buffers(),
                                                                         receiver->sender, 0, readError);
            if (readError) // would_block: the queue is empty; anything else is met by the next receive
                break;
            Dispatch(*receiver, got);
        }
    }
    if (receiver->pSocket != nullptr)
        receiver->pSocket->StartReceive();
}

void CNetFlowSocket::Dispatch(Receiver& receiver, size_t bytes) {
    CNetFlowSession* pSession = receiver.pSocket->m_pSession;
    ++pSession->m_statistics.datagrams;
    receiver.Complete(bytes);
    // The sender's text is made once per change of sender address.
    const asio::ip::address address = receiver.sender.address();
    if (receiver.senderAddress.empty() || address != receiver.lastAddress) {
        receiver.senderAddress = tpnf::FromUtf8(address.to_string());
        receiver.lastAddress = address;
    }
    pSession->m_pCurrentDatagram = &receiver.datagram;
    try {
        receiver.pSocket->OnReceive(receiver.datagram, receiver.senderAddress, receiver.sender.port());
    } catch (const std::exception&) {
        ++pSession->m_statistics.malformed;
    }
    pSession->OnDatagramHandled();
    pSession->m_pCurrentDatagram = nullptr;
}

void CNetFlowSocket::OnReceive(const CByteArray& datagram, const CString& senderAddress, UINT senderPort) {
    CNetFlowSession::Statistics& statistics = m_pSession->m_statistics;
    if (m_pSession->IsTraceMode()) {
        WriteTraceFile(datagram);
        return;
    }
    // The exporter's address is not known here: IPFIX templates then share one scope per observation domain.
    CTPAbstractPacket* pPacket = CreatePacket(datagram, CDecodeContext{m_pSession->m_decodeOptions, {}});
    if (pPacket == nullptr) {
        ++statistics.ignored;
        return;
    }
    // A packet whose Decode returned 0 or threw is abandoned, not deleted: intended.
    if (pPacket->Decode(datagram) == 0) {
        ++statistics.decodeFailures;
        if (m_pSession->m_pOwner != nullptr)
            m_pSession->m_pOwner->SendMessage(WM_NETFLOW_ERROR, 0, 0);
        return;
    }
    pPacket->m_strSenderIPAddress = senderAddress;
    pPacket->m_nSenderPort = static_cast<int>(senderPort);
    ++statistics.packets;
    m_pSession->AddPacket(pPacket);
}

void CNetFlowSocket::WriteTraceFile(const CByteArray& datagram) {
    CNetFlowSession::Statistics& statistics = m_pSession->m_statistics;
    s_nTraceFileCounter = s_nTraceFileCounter >= 0x7FFFFFFF ? 0 : s_nTraceFileCounter + 1;
    // The directory is part of the format string: a '%' in it is a conversion. Intended.
    CString path;
    try {
        path = tpnf::FormatText(CUtility::GetPduTraceDir() + L"nf_trace_%d.nfdmp", s_nTraceFileCounter);
    } catch (const std::exception&) {
        ++statistics.traceFailures; // a directory that is no valid format names no file
        return;
    }
    std::FILE* file = std::fopen(tpnf::ToUtf8(path).c_str(), "wb");
    if (file == nullptr) {
        ++statistics.traceFailures;
        return;
    }
    size_t written = datagram.empty() ? 0 : std::fwrite(datagram.data(), 1, datagram.size(), file);
    bool closed = std::fclose(file) == 0;
    if (written == datagram.size() && closed)
        ++statistics.traced;
    else
        ++statistics.traceFailures;
}
