#pragma once

#include "netflow/NetFlowHeaderCommonFields.h"

// The 16-byte NetFlow v1 header: the common words only.
class CNetFlowHeaderV1 : public CNetFlowHeaderCommonFields {
public:
    static constexpr int WIRE_SIZE = 16;

    CString ToString() const;
};
