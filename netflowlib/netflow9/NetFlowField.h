#pragma once

#include <map>

#include "util/Types.h"

// One field of a NetFlow v9 template or data record: type number, announced length, raw value bytes and
// the scope flag of options templates. Its static catalogue is the whole library's field vocabulary.
class CNetFlowField {
public:
    // int-based so any 16-bit wire type number is a valid value of the type.
    enum eFields : int {
        IN_BYTES = 1,
        IN_PKTS = 2,
        FLOWS = 3,
        PROT = 4,
        SRC_TOS = 5,
        TCP_FLAGS = 6,
        L4_SRC_PORT = 7,
        IPV4_SRC_ADDR = 8,
        SRC_MASK = 9,
        INPUT_SNMP = 10,
        L4_DST_PORT = 11,
        IPV4_DST_ADDR = 12,
        DST_MASK = 13,
        OUTPUT_SNMP = 14,
        IPV4_NEXT_HOP = 15,
        SRC_AS = 16,
        DST_AS = 17,
        BGP_NEXT_HOP = 18,
        IPM_DPKTS = 19,
        IPM_DOCTETS = 20,
        LAST_SWITCHED = 21,
        FIRST_SWITCHED = 22,
        OUT_BYTES = 23,
        OUT_PKTS = 24,
        MIN_PKT_LENGTH = 25,
        MAX_PKT_LENGTH = 26,
        IPV6_SRC_ADDR = 27,
        IPV6_DST_ADDR = 28,
        IPV6_SRC_MASK = 29,
        IPV6_DST_MASK = 30,
        IPV6_FLOW_LABEL = 31,
        ICMP_TYPE = 32,
        MUL_IGMP_TYPE = 33,
        SAMPLING_INTERVAL = 34,
        SAMPLING_ALGORITHM = 35,
        FLOW_ACTIVE_TIMEOUT = 36,
        FLOW_INACTIVE_TIMEOUT = 37,
        ENGINE_TYPE = 38,
        ENGINE_ID = 39,
        TOTAL_BYTES_EXPORTED = 40,
        TOTAL_EXPORT_PKTS_SENT = 41,
        TOTAL_FLOWS_EXPORTED = 42,
        IPV4_SRC_PREFIX = 44,
        IPV4_DST_PREFIX = 45,
        MPLS_TOP_LABEL_TYPE = 46,
        MPLS_TOP_LABEL_IP_ADDR = 47,
        FLOW_SAMPLER_ID = 48,
        FLOW_SAMPLER_MODE = 49,
        FLOW_SAMPLER_RANDOM_INTERVAL = 50,
        MIN_TTL = 52,
        MAX_TTL = 53,
        IPV4_IDENT = 54,
        DST_TOS = 55,
        IN_SRC_MAC = 56,
        OUT_DST_MAC = 57,
        SRC_VLAN = 58,
        DST_VLAN = 59,
        IP_PROTOCOL_VERSION = 60,
        DIRECTION = 61,
        IPV6_NEXT_HOP = 62,
        BGP_IPV6_NEXT_HOP = 63,
        IPV6_OPTION_HEADERS = 64,
        MPLS_LABEL_1 = 70,
        MPLS_LABEL_2 = 71,
        MPLS_LABEL_3 = 72,
        MPLS_LABEL_4 = 73,
        MPLS_LABEL_5 = 74,
        MPLS_LABEL_6 = 75,
        MPLS_LABEL_7 = 76,
        MPLS_LABEL_8 = 77,
        MPLS_LABEL_9 = 78,
        MPLS_LABEL_10 = 79,
        IN_DST_MAC = 80,
        OUT_SRC_MAC = 81,
        IF_NAME = 82,
        IF_DESC = 83,
        SAMPLER_NAME = 84,
        IN_PERMANENT_BYTES = 85,
        IN_PERMANENT_PKTS = 86,
        FRAGMENT_OFFSET = 88,
        FORWARDING_STATUS = 89,
        FLAGS = 1000,
        ROUTER_SC = 1001
    };

    enum eTypes {
        TYPE_INTEGER = 0,
        TYPE_IPV4_ADDRESS = 1,
        TYPE_IPV6_ADDRESS = 2,
        TYPE_STRING = 3,
        TYPE_MAC_ADDRESS = 4
    };

    CNetFlowField() = default;
    CNetFlowField(const CNetFlowField&) = default;
    CNetFlowField(CNetFlowField&&) noexcept = default;
    CNetFlowField& operator=(const CNetFlowField&) = default;
    CNetFlowField& operator=(CNetFlowField&&) noexcept = default;
    virtual ~CNetFlowField() = default;

    void Copy(const CNetFlowField& other) { *this = other; }

    static void Init();
    static CString GetName(eFields id);
    static CString GetDescription(eFields id);

    CString GetName() const { return GetName(static_cast<eFields>(m_type)); }
    int GetType() const { return m_type; }
    void SetType(int type) { m_type = type; }
    int GetLength() const { return m_length; }
    void SetLength(int length) { m_length = length; }
    BOOL IsScope() const { return m_scope; }
    void SetScope(BOOL scope) { m_scope = scope; }
    void SetValue(const CByteArray& value) { m_value = value; }
    void GetValue(CByteArray& value) const { value = m_value; }

    // Reads one field specifier (type, length); advances offset by 4.
    BOOL Decode(const CByteArray& data, int& offset);
    CString GetValue() const;
    CString ToString() const;
    // "name=value" as "%s=%s" prints it: each part ends at its first zero character.
    static CString FormatField(CString name, const CString& value);

    static std::map<eFields, CString> m_FieldNames;
    static std::map<eFields, CString> m_FieldDescriptions;
    static std::map<eFields, eTypes> m_FieldTypes;

    int m_type = 0;
    int m_length = 0;
    CByteArray m_value;
    BOOL m_scope = FALSE;
};
