#pragma once
// Which record class each flow and counter format names: the one table for every record holder.

#include <type_traits>

#include "sflow/SFlowEthernetCounters.h"
#include "sflow/SFlowEthernetRecord.h"
#include "sflow/SFlowExtendedGatewayRecord.h"
#include "sflow/SFlowExtendedMPLSRecord.h"
#include "sflow/SFlowExtendedMPLSTunnelRecord.h"
#include "sflow/SFlowExtendedMPLS_FTNRecord.h"
#include "sflow/SFlowExtendedMPLS_LDP_FECRecord.h"
#include "sflow/SFlowExtendedMPLS_VCRecord.h"
#include "sflow/SFlowExtendedNATRecord.h"
#include "sflow/SFlowExtendedProcessRecord.h"
#include "sflow/SFlowExtendedRouterRecord.h"
#include "sflow/SFlowExtendedSwitchRecord.h"
#include "sflow/SFlowExtendedURLRecord.h"
#include "sflow/SFlowExtendedUserRecord.h"
#include "sflow/SFlowExtendedVLANTunnelRecord.h"
#include "sflow/SFlowGenericCounters.h"
#include "sflow/SFlowHeaderRecord.h"
#include "sflow/SFlowIPv4Record.h"
#include "sflow/SFlowIPv6Record.h"
#include "sflow/SFlowProcessorCounters.h"
#include "sflow/SFlowTokenringCounters.h"
#include "sflow/SFlowVGCounters.h"
#include "sflow/SFlowVLANCounters.h"

namespace tpnf::sflow {

template <class Kind>
using KindTag = std::type_identity<Kind>;

// Calls visit(KindTag<Kind>) for the class of a flow format; false for a format without one. The format
// is compared whole, not split into enterprise and format.
template <class Visit>
bool VisitFlowKind(uint32_t format, Visit&& visit) {
    switch (format) {
    case 1:
        visit(KindTag<CSFlowHeaderRecord>{});
        return true;
    case 2:
        visit(KindTag<CSFlowEthernetRecord>{});
        return true;
    case 3:
        visit(KindTag<CSFlowIPv4Record>{});
        return true;
    case 4:
        visit(KindTag<CSFlowIPv6Record>{});
        return true;
    case 1001:
        visit(KindTag<CSFlowExtendedSwitchRecord>{});
        return true;
    case 1002:
        visit(KindTag<CSFlowExtendedRouterRecord>{});
        return true;
    case 1003:
        visit(KindTag<CSFlowExtendedGatewayRecord>{});
        return true;
    case 1004:
        visit(KindTag<CSFlowExtendedUserRecord>{});
        return true;
    case 1005:
        visit(KindTag<CSFlowExtendedURLRecord>{});
        return true;
    case 1006:
        visit(KindTag<CSFlowExtendedMPLSRecord>{});
        return true;
    case 1007:
        visit(KindTag<CSFlowExtendedNATRecord>{});
        return true;
    case 1008:
        visit(KindTag<CSFlowExtendedMPLSTunnelRecord>{});
        return true;
    case 1009:
        visit(KindTag<CSFlowExtendedMPLS_VCRecord>{});
        return true;
    case 1010:
        visit(KindTag<CSFlowExtendedMPLS_FTNRecord>{});
        return true;
    case 1011:
        visit(KindTag<CSFlowExtendedMPLS_LDP_FECRecord>{});
        return true;
    case 1012:
        visit(KindTag<CSFlowExtendedVLANTunnelRecord>{});
        return true;
    case 17612803: // enterprise 4300, format 3
        visit(KindTag<CSFlowExtendedProcessRecord>{});
        return true;
    default:
        return false;
    }
}

// The same for counter formats.
template <class Visit>
bool VisitCounterKind(uint32_t format, Visit&& visit) {
    switch (format) {
    case 1:
        visit(KindTag<CSFlowGenericCounters>{});
        return true;
    case 2:
        visit(KindTag<CSFlowEthernetCounters>{});
        return true;
    case 3:
        visit(KindTag<CSFlowTokenringCounters>{});
        return true;
    case 4:
        visit(KindTag<CSFlowVGCounters>{});
        return true;
    case 5:
        visit(KindTag<CSFlowVLANCounters>{});
        return true;
    case 1001:
        visit(KindTag<CSFlowProcessorCounters>{});
        return true;
    default:
        return false;
    }
}

} // namespace tpnf::sflow
