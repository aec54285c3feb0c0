#pragma once

#include "netflow9/NetFlowSetTemplate.h"

// A NetFlow v9 options template: scope field specifiers (scope flag set), then option field specifiers.
// Its field count stays 0; the two lists are sized in bytes.
class CNetFlowOptionsTemplate : public CNetFlowSetTemplate {
public:
    // Reads id, scope length, option length and both specifier lists; the offset ends past the last
    // option specifier.
    BOOL Decode(const CByteArray& data, int& offset);

    int m_optionLength = 0;
    int m_optionScopeLength = 0;
};
