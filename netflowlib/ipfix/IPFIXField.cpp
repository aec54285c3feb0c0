#include "ipfix/IPFIXField.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <fmt/xchar.h>

#include "netflow9/NetFlowSetRecord.h"
#include "util/Format.h"
#include "util/NetFlowIPAddress.h"
#include "util/TextConvert.h"

namespace {

using T = EIPFIXDataType;

// IANA's IPFIX information elements (ids, names, abstract data types), in id order.
const CIPFIXField::SElement kElements[] = {
    {1, L"octetDeltaCount", T::Unsigned64},
    {2, L"packetDeltaCount", T::Unsigned64},
    {3, L"deltaFlowCount", T::Unsigned64},
    {4, L"protocolIdentifier", T::Unsigned8},
    {5, L"ipClassOfService", T::Unsigned8},
    {6, L"tcpControlBits", T::Unsigned8},
    {7, L"sourceTransportPort", T::Unsigned16},
    {8, L"sourceIPv4Address", T::IPv4Address},
    {9, L"sourceIPv4PrefixLength", T::Unsigned8},
    {10, L"ingressInterface", T::Unsigned32},
    {11, L"destinationTransportPort", T::Unsigned16},
    {12, L"destinationIPv4Address", T::IPv4Address},
    {13, L"destinationIPv4PrefixLength", T::Unsigned8},
    {14, L"egressInterface", T::Unsigned32},
    {15, L"ipNextHopIPv4Address", T::IPv4Address},
    {16, L"bgpSourceAsNumber", T::Unsigned32},
    {17, L"bgpDestinationAsNumber", T::Unsigned32},
    {18, L"bgpNextHopIPv4Address", T::IPv4Address},
    {19, L"postMCastPacketDeltaCount", T::Unsigned64},
    {20, L"postMCastOctetDeltaCount", T::Unsigned64},
    {21, L"flowEndSysUpTime", T::Unsigned32},
    {22, L"flowStartSysUpTime", T::Unsigned32},
    {23, L"postOctetDeltaCount", T::Unsigned64},
    {24, L"postPacketDeltaCount", T::Unsigned64},
    {25, L"minimumIpTotalLength", T::Unsigned64},
    {26, L"maximumIpTotalLength", T::Unsigned64},
    {27, L"sourceIPv6Address", T::IPv6Address},
    {28, L"destinationIPv6Address", T::IPv6Address},
    {29, L"sourceIPv6PrefixLength", T::Unsigned8},
    {30, L"destinationIPv6PrefixLength", T::Unsigned8},
    {31, L"flowLabelIPv6", T::Unsigned32},
    {32, L"icmpTypeCodeIPv4", T::Unsigned16},
    {33, L"igmpType", T::Unsigned8},
    {36, L"flowActiveTimeout", T::Unsigned16},
    {37, L"flowIdleTimeout", T::Unsigned16},
    {40, L"exportedOctetTotalCount", T::Unsigned64},
    {41, L"exportedMessageTotalCount", T::Unsigned64},
    {42, L"exportedFlowRecordTotalCount", T::Unsigned64},
    {44, L"sourceIPv4Prefix", T::IPv4Address},
    {45, L"destinationIPv4Prefix", T::IPv4Address},
    {46, L"mplsTopLabelType", T::Unsigned8},
    {47, L"mplsTopLabelIPv4Address", T::IPv4Address},
    {52, L"minimumTTL", T::Unsigned8},
    {53, L"maximumTTL", T::Unsigned8},
    {54, L"fragmentIdentification", T::Unsigned32},
    {55, L"postIpClassOfService", T::Unsigned8},
    {56, L"sourceMacAddress", T::MacAddress},
    {57, L"postDestinationMacAddress", T::MacAddress},
    {58, L"vlanId", T::Unsigned16},
    {59, L"postVlanId", T::Unsigned16},
    {60, L"ipVersion", T::Unsigned8},
    {61, L"flowDirection", T::Unsigned8},
    {62, L"ipNextHopIPv6Address", T::IPv6Address},
    {63, L"bgpNextHopIPv6Address", T::IPv6Address},
    {64, L"ipv6ExtensionHeaders", T::Unsigned32},
    {70, L"mplsTopLabelStackSection", T::OctetArray},
    {71, L"mplsLabelStackSection2", T::OctetArray},
    {72, L"mplsLabelStackSection3", T::OctetArray},
    {73, L"mplsLabelStackSection4", T::OctetArray},
    {74, L"mplsLabelStackSection5", T::OctetArray},
    {75, L"mplsLabelStackSection6", T::OctetArray},
    {76, L"mplsLabelStackSection7", T::OctetArray},
    {77, L"mplsLabelStackSection8", T::OctetArray},
    {78, L"mplsLabelStackSection9", T::OctetArray},
    {79, L"mplsLabelStackSection10", T::OctetArray},
    {80, L"destinationMacAddress", T::MacAddress},
    {81, L"postSourceMacAddress", T::MacAddress},
    {82, L"interfaceName", T::String},
    {83, L"interfaceDescription", T::String},
    {85, L"octetTotalCount", T::Unsigned64},
    {86, L"packetTotalCount", T::Unsigned64},
    {88, L"fragmentOffset", T::Unsigned16},
    {90, L"mplsVpnRouteDistinguisher", T::OctetArray},
    {91, L"mplsTopLabelPrefixLength", T::Unsigned8},
    {94, L"applicationDescription", T::String},
    {95, L"applicationId", T::OctetArray},
    {96, L"applicationName", T::String},
    {98, L"postIpDiffServCodePoint", T::Unsigned8},
    {99, L"multicastReplicationFactor", T::Unsigned32},
    {101, L"classificationEngineId", T::Unsigned8},
    {128, L"bgpNextAdjacentAsNumber", T::Unsigned32},
    {129, L"bgpPrevAdjacentAsNumber", T::Unsigned32},
    {130, L"exporterIPv4Address", T::IPv4Address},
    {131, L"exporterIPv6Address", T::IPv6Address},
    {132, L"droppedOctetDeltaCount", T::Unsigned64},
    {133, L"droppedPacketDeltaCount", T::Unsigned64},
    {134, L"droppedOctetTotalCount", T::Unsigned64},
    {135, L"droppedPacketTotalCount", T::Unsigned64},
    {136, L"flowEndReason", T::Unsigned8},
    {137, L"commonPropertiesId", T::Unsigned64},
    {138, L"observationPointId", T::Unsigned64},
    {139, L"icmpTypeCodeIPv6", T::Unsigned16},
    {140, L"mplsTopLabelIPv6Address", T::IPv6Address},
    {141, L"lineCardId", T::Unsigned32},
    {142, L"portId", T::Unsigned32},
    {143, L"meteringProcessId", T::Unsigned32},
    {144, L"exportingProcessId", T::Unsigned32},
    {145, L"templateId", T::Unsigned16},
    {146, L"wlanChannelId", T::Unsigned8},
    {147, L"wlanSSID", T::String},
    {148, L"flowId", T::Unsigned64},
    {149, L"observationDomainId", T::Unsigned32},
    {150, L"flowStartSeconds", T::DateTimeSeconds},
    {151, L"flowEndSeconds", T::DateTimeSeconds},
    {152, L"flowStartMilliseconds", T::DateTimeMilliseconds},
    {153, L"flowEndMilliseconds", T::DateTimeMilliseconds},
    {154, L"flowStartMicroseconds", T::DateTimeMicroseconds},
    {155, L"flowEndMicroseconds", T::DateTimeMicroseconds},
    {156, L"flowStartNanoseconds", T::DateTimeNanoseconds},
    {157, L"flowEndNanoseconds", T::DateTimeNanoseconds},
    {158, L"flowStartDeltaMicroseconds", T::Unsigned32},
    {159, L"flowEndDeltaMicroseconds", T::Unsigned32},
    {160, L"systemInitTimeMilliseconds", T::DateTimeMilliseconds},
    {161, L"flowDurationMilliseconds", T::Unsigned32},
    {162, L"flowDurationMicroseconds", T::Unsigned32},
    {163, L"observedFlowTotalCount", T::Unsigned64},
    {164, L"ignoredPacketTotalCount", T::Unsigned64},
    {165, L"ignoredOctetTotalCount", T::Unsigned64},
    {166, L"notSentFlowTotalCount", T::Unsigned64},
    {167, L"notSentPacketTotalCount", T::Unsigned64},
    {168, L"notSentOctetTotalCount", T::Unsigned64},
    {169, L"destinationIPv6Prefix", T::IPv6Address},
    {170, L"sourceIPv6Prefix", T::IPv6Address},
    {171, L"postOctetTotalCount", T::Unsigned64},
    {172, L"postPacketTotalCount", T::Unsigned64},
    {173, L"flowKeyIndicator", T::Unsigned64},
    {174, L"postMCastPacketTotalCount", T::Unsigned64},
    {175, L"postMCastOctetTotalCount", T::Unsigned64},
    {176, L"icmpTypeIPv4", T::Unsigned8},
    {177, L"icmpCodeIPv4", T::Unsigned8},
    {178, L"icmpTypeIPv6", T::Unsigned8},
    {179, L"icmpCodeIPv6", T::Unsigned8},
    {180, L"udpSourcePort", T::Unsigned16},
    {181, L"udpDestinationPort", T::Unsigned16},
    {182, L"tcpSourcePort", T::Unsigned16},
    {183, L"tcpDestinationPort", T::Unsigned16},
    {184, L"tcpSequenceNumber", T::Unsigned32},
    {185, L"tcpAcknowledgementNumber", T::Unsigned32},
    {186, L"tcpWindowSize", T::Unsigned16},
    {187, L"tcpUrgentPointer", T::Unsigned16},
    {188, L"tcpHeaderLength", T::Unsigned8},
    {189, L"ipHeaderLength", T::Unsigned8},
    {190, L"totalLengthIPv4", T::Unsigned16},
    {191, L"payloadLengthIPv6", T::Unsigned16},
    {192, L"ipTTL", T::Unsigned8},
    {193, L"nextHeaderIPv6", T::Unsigned8},
    {194, L"mplsPayloadLength", T::Unsigned32},
    {195, L"ipDiffServCodePoint", T::Unsigned8},
    {196, L"ipPrecedence", T::Unsigned8},
    {197, L"fragmentFlags", T::Unsigned8},
    {198, L"octetDeltaSumOfSquares", T::Unsigned64},
    {199, L"octetTotalSumOfSquares", T::Unsigned64},
    {200, L"mplsTopLabelTTL", T::Unsigned8},
    {201, L"mplsLabelStackLength", T::Unsigned32},
    {202, L"mplsLabelStackDepth", T::Unsigned32},
    {203, L"mplsTopLabelExp", T::Unsigned8},
    {204, L"ipPayloadLength", T::Unsigned32},
    {205, L"udpMessageLength", T::Unsigned16},
    {206, L"isMulticast", T::Unsigned8},
    {207, L"ipv4IHL", T::Unsigned8},
    {208, L"ipv4Options", T::Unsigned32},
    {209, L"tcpOptions", T::Unsigned64},
    {210, L"paddingOctets", T::OctetArray},
    {211, L"collectorIPv4Address", T::IPv4Address},
    {212, L"collectorIPv6Address", T::IPv6Address},
    {213, L"exportInterface", T::Unsigned32},
    {214, L"exportProtocolVersion", T::Unsigned8},
    {215, L"exportTransportProtocol", T::Unsigned8},
    {216, L"collectorTransportPort", T::Unsigned16},
    {217, L"exporterTransportPort", T::Unsigned16},
    {218, L"tcpSynTotalCount", T::Unsigned64},
    {219, L"tcpFinTotalCount", T::Unsigned64},
    {220, L"tcpRstTotalCount", T::Unsigned64},
    {221, L"tcpPshTotalCount", T::Unsigned64},
    {222, L"tcpAckTotalCount", T::Unsigned64},
    {223, L"tcpUrgTotalCount", T::Unsigned64},
    {224, L"ipTotalLength", T::Unsigned64},
    {225, L"postNATSourceIPv4Address", T::IPv4Address},
    {226, L"postNATDestinationIPv4Address", T::IPv4Address},
    {227, L"postNAPTSourceTransportPort", T::Unsigned16},
    {228, L"postNAPTDestinationTransportPort", T::Unsigned16},
    {229, L"natOriginatingAddressRealm", T::Unsigned8},
    {230, L"natEvent", T::Unsigned8},
    {231, L"initiatorOctets", T::Unsigned64},
    {232, L"responderOctets", T::Unsigned64},
    {233, L"firewallEvent", T::Unsigned8},
    {234, L"ingressVRFID", T::Unsigned32},
    {235, L"egressVRFID", T::Unsigned32},
    {236, L"VRFname", T::String},
    {237, L"postMplsTopLabelExp", T::Unsigned8},
    {238, L"tcpWindowScale", T::Unsigned16},
    {239, L"biflowDirection", T::Unsigned8},
    {240, L"ethernetHeaderLength", T::Unsigned8},
    {241, L"ethernetPayloadLength", T::Unsigned16},
    {242, L"ethernetTotalLength", T::Unsigned16},
    {243, L"dot1qVlanId", T::Unsigned16},
    {244, L"dot1qPriority", T::Unsigned8},
    {245, L"dot1qCustomerVlanId", T::Unsigned16},
    {246, L"dot1qCustomerPriority", T::Unsigned8},
    {247, L"metroEvcId", T::String},
    {248, L"metroEvcType", T::Unsigned8},
    {249, L"pseudoWireId", T::Unsigned32},
    {250, L"pseudoWireType", T::Unsigned16},
    {251, L"pseudoWireControlWord", T::Unsigned32},
    {252, L"ingressPhysicalInterface", T::Unsigned32},
    {253, L"egressPhysicalInterface", T::Unsigned32},
    {254, L"postDot1qVlanId", T::Unsigned16},
    {255, L"postDot1qCustomerVlanId", T::Unsigned16},
    {256, L"ethernetType", T::Unsigned16},
    {257, L"postIpPrecedence", T::Unsigned8},
    {258, L"collectionTimeMilliseconds", T::DateTimeMilliseconds},
    {259, L"exportSctpStreamId", T::Unsigned16},
    {260, L"maxExportSeconds", T::DateTimeSeconds},
    {261, L"maxFlowEndSeconds", T::DateTimeSeconds},
    {262, L"messageMD5Checksum", T::OctetArray},
    {263, L"messageScope", T::Unsigned8},
    {264, L"minExportSeconds", T::DateTimeSeconds},
    {265, L"minFlowStartSeconds", T::DateTimeSeconds},
    {266, L"opaqueOctets", T::OctetArray},
    {267, L"sessionScope", T::Unsigned8},
    {268, L"maxFlowEndMicroseconds", T::DateTimeMicroseconds},
    {269, L"maxFlowEndMilliseconds", T::DateTimeMilliseconds},
    {270, L"maxFlowEndNanoseconds", T::DateTimeNanoseconds},
    {271, L"minFlowStartMicroseconds", T::DateTimeMicroseconds},
    {272, L"minFlowStartMilliseconds", T::DateTimeMilliseconds},
    {273, L"minFlowStartNanoseconds", T::DateTimeNanoseconds},
    {274, L"collectorCertificate", T::OctetArray},
    {275, L"exporterCertificate", T::OctetArray},
    {276, L"dataRecordsReliability", T::Boolean},
    {277, L"observationPointType", T::Unsigned8},
    {278, L"connectionCountNew", T::Unsigned32},
    {279, L"connectionSumDurationSeconds", T::Unsigned64},
    {280, L"connectionTransactionId", T::Unsigned64},
    {281, L"postNATSourceIPv6Address", T::IPv6Address},
    {282, L"postNATDestinationIPv6Address", T::IPv6Address},
    {283, L"natPoolId", T::Unsigned32},
    {284, L"natPoolName", T::String},
    {285, L"anonymizationFlags", T::Unsigned16},
    {286, L"anonymizationTechnique", T::Unsigned16},
    {287, L"informationElementIndex", T::Unsigned16},
    {288, L"p2pTechnology", T::String},
    {289, L"tunnelTechnology", T::String},
    {290, L"encryptedTechnology", T::String},
    {291, L"basicList", T::BasicList},
    {292, L"subTemplateList", T::SubTemplateList},
    {293, L"subTemplateMultiList", T::SubTemplateMultiList},
    {294, L"bgpValidityState", T::Unsigned8},
    {295, L"IPSecSPI", T::Unsigned32},
    {296, L"greKey", T::Unsigned32},
    {297, L"natType", T::Unsigned8},
    {298, L"initiatorPackets", T::Unsigned64},
    {299, L"responderPackets", T::Unsigned64},
    {300, L"observationDomainName", T::String},
    {301, L"selectionSequenceId", T::Unsigned64},
    {302, L"selectorId", T::Unsigned64},
    {303, L"informationElementId", T::Unsigned16},
    {304, L"selectorAlgorithm", T::Unsigned16},
    {305, L"samplingPacketInterval", T::Unsigned32},
    {306, L"samplingPacketSpace", T::Unsigned32},
    {307, L"samplingTimeInterval", T::Unsigned32},
    {308, L"samplingTimeSpace", T::Unsigned32},
    {309, L"samplingSize", T::Unsigned32},
    {310, L"samplingPopulation", T::Unsigned32},
    {311, L"samplingProbability", T::Float64},
    {312, L"dataLinkFrameSize", T::Unsigned16},
    {313, L"ipHeaderPacketSection", T::OctetArray},
    {314, L"ipPayloadPacketSection", T::OctetArray},
    {315, L"dataLinkFrameSection", T::OctetArray},
    {316, L"mplsLabelStackSection", T::OctetArray},
    {317, L"mplsPayloadPacketSection", T::OctetArray},
    {318, L"selectorIdTotalPktsObserved", T::Unsigned64},
    {319, L"selectorIdTotalPktsSelected", T::Unsigned64},
    {320, L"absoluteError", T::Float64},
    {321, L"relativeError", T::Float64},
    {322, L"observationTimeSeconds", T::DateTimeSeconds},
    {323, L"observationTimeMilliseconds", T::DateTimeMilliseconds},
    {324, L"observationTimeMicroseconds", T::DateTimeMicroseconds},
    {325, L"observationTimeNanoseconds", T::DateTimeNanoseconds},
    {326, L"digestHashValue", T::Unsigned64},
    {327, L"hashIPPayloadOffset", T::Unsigned64},
    {328, L"hashIPPayloadSize", T::Unsigned64},
    {329, L"hashOutputRangeMin", T::Unsigned64},
    {330, L"hashOutputRangeMax", T::Unsigned64},
    {331, L"hashSelectedRangeMin", T::Unsigned64},
    {332, L"hashSelectedRangeMax", T::Unsigned64},
    {333, L"hashDigestOutput", T::Boolean},
    {334, L"hashInitialiserValue", T::Unsigned64},
    {335, L"selectorName", T::String},
    {336, L"upperCILimit", T::Float64},
    {337, L"lowerCILimit", T::Float64},
    {338, L"confidenceLevel", T::Float64},
    {339, L"informationElementDataType", T::Unsigned8},
    {340, L"informationElementDescription", T::String},
    {341, L"informationElementName", T::String},
    {342, L"informationElementRangeBegin", T::Unsigned64},
    {343, L"informationElementRangeEnd", T::Unsigned64},
    {344, L"informationElementSemantics", T::Unsigned8},
    {345, L"informationElementUnits", T::Unsigned16},
    {346, L"privateEnterpriseNumber", T::Unsigned32},
    {347, L"virtualStationInterfaceId", T::OctetArray},
    {348, L"virtualStationInterfaceName", T::String},
    {349, L"virtualStationUUID", T::OctetArray},
    {350, L"virtualStationName", T::String},
    {351, L"layer2SegmentId", T::Unsigned64},
    {352, L"layer2OctetDeltaCount", T::Unsigned64},
    {353, L"layer2OctetTotalCount", T::Unsigned64},
    {354, L"ingressUnicastPacketTotalCount", T::Unsigned64},
    {355, L"ingressMulticastPacketTotalCount", T::Unsigned64},
    {356, L"ingressBroadcastPacketTotalCount", T::Unsigned64},
    {357, L"egressUnicastPacketTotalCount", T::Unsigned64},
    {358, L"egressBroadcastPacketTotalCount", T::Unsigned64},
    {359, L"monitoringIntervalStartMilliSeconds", T::DateTimeMilliseconds},
    {360, L"monitoringIntervalEndMilliSeconds", T::DateTimeMilliseconds},
    {361, L"portRangeStart", T::Unsigned16},
    {362, L"portRangeEnd", T::Unsigned16},
    {363, L"portRangeStepSize", T::Unsigned16},
    {364, L"portRangeNumPorts", T::Unsigned16},
    {365, L"staMacAddress", T::MacAddress},
    {366, L"staIPv4Address", T::IPv4Address},
    {367, L"wtpMacAddress", T::MacAddress},
    {368, L"ingressInterfaceType", T::Unsigned32},
    {369, L"egressInterfaceType", T::Unsigned32},
    {370, L"rtpSequenceNumber", T::Unsigned16},
    {371, L"userName", T::String},
    {372, L"applicationCategoryName", T::String},
    {373, L"applicationSubCategoryName", T::String},
    {374, L"applicationGroupName", T::String},
    {375, L"originalFlowsPresent", T::Unsigned64},
    {376, L"originalFlowsInitiated", T::Unsigned64},
    {377, L"originalFlowsCompleted", T::Unsigned64},
    {378, L"distinctCountOfSourceIPAddress", T::Unsigned64},
    {379, L"distinctCountOfDestinationIPAddress", T::Unsigned64},
    {380, L"distinctCountOfSourceIPv4Address", T::Unsigned32},
    {381, L"distinctCountOfDestinationIPv4Address", T::Unsigned32},
    {382, L"distinctCountOfSourceIPv6Address", T::Unsigned64},
    {383, L"distinctCountOfDestinationIPv6Address", T::Unsigned64},
    {384, L"valueDistributionMethod", T::Unsigned8},
    {385, L"rfc3550JitterMilliseconds", T::Unsigned32},
    {386, L"rfc3550JitterMicroseconds", T::Unsigned32},
    {387, L"rfc3550JitterNanoseconds", T::Unsigned32},
    {388, L"dot1qDEI", T::Boolean},
    {389, L"dot1qCustomerDEI", T::Boolean},
    {390, L"flowSelectorAlgorithm", T::Unsigned16},
    {391, L"flowSelectedOctetDeltaCount", T::Unsigned64},
    {392, L"flowSelectedPacketDeltaCount", T::Unsigned64},
    {393, L"flowSelectedFlowDeltaCount", T::Unsigned64},
    {394, L"selectorIDTotalFlowsObserved", T::Unsigned64},
    {395, L"selectorIDTotalFlowsSelected", T::Unsigned64},
    {396, L"samplingFlowInterval", T::Unsigned64},
    {397, L"samplingFlowSpacing", T::Unsigned64},
    {398, L"flowSamplingTimeInterval", T::Unsigned64},
    {399, L"flowSamplingTimeSpacing", T::Unsigned64},
    {400, L"hashFlowDomain", T::Unsigned16},
    {401, L"transportOctetDeltaCount", T::Unsigned64},
    {402, L"transportPacketDeltaCount", T::Unsigned64},
    {403, L"originalExporterIPv4Address", T::IPv4Address},
    {404, L"originalExporterIPv6Address", T::IPv6Address},
    {405, L"originalObservationDomainId", T::Unsigned32},
    {406, L"intermediateProcessId", T::Unsigned32},
    {407, L"ignoredDataRecordTotalCount", T::Unsigned64},
    {408, L"dataLinkFrameType", T::Unsigned16},
    {409, L"sectionOffset", T::Unsigned16},
    {410, L"sectionExportedOctets", T::Unsigned16},
    {411, L"dot1qServiceInstanceTag", T::OctetArray},
    {412, L"dot1qServiceInstanceId", T::Unsigned32},
    {413, L"dot1qServiceInstancePriority", T::Unsigned8},
    {414, L"dot1qCustomerSourceMacAddress", T::MacAddress},
    {415, L"dot1qCustomerDestinationMacAddress", T::MacAddress},
    {417, L"postLayer2OctetDeltaCount", T::Unsigned64},
    {418, L"postMCastLayer2OctetDeltaCount", T::Unsigned64},
    {420, L"postLayer2OctetTotalCount", T::Unsigned64},
    {421, L"postMCastLayer2OctetTotalCount", T::Unsigned64},
    {422, L"minimumLayer2TotalLength", T::Unsigned64},
    {423, L"maximumLayer2TotalLength", T::Unsigned64},
    {424, L"droppedLayer2OctetDeltaCount", T::Unsigned64},
    {425, L"droppedLayer2OctetTotalCount", T::Unsigned64},
    {426, L"ignoredLayer2OctetTotalCount", T::Unsigned64},
    {427, L"notSentLayer2OctetTotalCount", T::Unsigned64},
    {428, L"layer2OctetDeltaSumOfSquares", T::Unsigned64},
    {429, L"layer2OctetTotalSumOfSquares", T::Unsigned64},
    {430, L"layer2FrameDeltaCount", T::Unsigned64},
    {431, L"layer2FrameTotalCount", T::Unsigned64},
    {432, L"pseudoWireDestinationIPv4Address", T::IPv4Address},
    {433, L"ignoredLayer2FrameTotalCount", T::Unsigned64},
    {434, L"mibObjectValueInteger", T::Signed32},
    {435, L"mibObjectValueOctetString", T::OctetArray},
    {436, L"mibObjectValueOID", T::OctetArray},
    {437, L"mibObjectValueBits", T::OctetArray},
    {438, L"mibObjectValueIPAddress", T::IPv4Address},
    {439, L"mibObjectValueCounter", T::Unsigned64},
    {440, L"mibObjectValueGauge", T::Unsigned32},
    {441, L"mibObjectValueTimeTicks", T::Unsigned32},
    {442, L"mibObjectValueUnsigned", T::Unsigned32},
    {443, L"mibObjectValueTable", T::SubTemplateList},
    {444, L"mibObjectValueRow", T::SubTemplateList},
    {445, L"mibObjectIdentifier", T::OctetArray},
    {446, L"mibSubIdentifier", T::Unsigned32},
    {447, L"mibIndexIndicator", T::Unsigned64},
    {448, L"mibCaptureTimeSemantics", T::Unsigned8},
    {449, L"mibContextEngineID", T::OctetArray},
    {450, L"mibContextName", T::String},
    {451, L"mibObjectName", T::String},
    {452, L"mibObjectDescription", T::String},
    {453, L"mibObjectSyntax", T::String},
    {454, L"mibModuleName", T::String},
    {455, L"mobileIMSI", T::String},
    {456, L"mobileMSISDN", T::String},
    {457, L"httpStatusCode", T::Unsigned16},
    {458, L"sourceTransportPortsLimit", T::Unsigned16},
    {459, L"httpRequestMethod", T::String},
    {460, L"httpRequestHost", T::String},
    {461, L"httpRequestTarget", T::String},
    {462, L"httpMessageVersion", T::String},
    {463, L"natInstanceID", T::Unsigned32},
    {464, L"internalAddressRealm", T::OctetArray},
    {465, L"externalAddressRealm", T::OctetArray},
    {466, L"natQuotaExceededEvent", T::Unsigned32},
    {467, L"natThresholdEvent", T::Unsigned32},
    {468, L"httpUserAgent", T::String},
    {469, L"httpContentType", T::String},
    {470, L"httpReasonPhrase", T::String},
    {471, L"maxSessionEntries", T::Unsigned32},
    {472, L"maxBIBEntries", T::Unsigned32},
    {473, L"maxEntriesPerUser", T::Unsigned32},
    {474, L"maxSubscribers", T::Unsigned32},
    {475, L"maxFragmentsPendingReassembly", T::Unsigned32},
    {476, L"addressPoolHighThreshold", T::Unsigned32},
    {477, L"addressPoolLowThreshold", T::Unsigned32},
    {478, L"addressPortMappingHighThreshold", T::Unsigned32},
    {479, L"addressPortMappingLowThreshold", T::Unsigned32},
    {480, L"addressPortMappingPerUserHighThreshold", T::Unsigned32},
    {481, L"globalAddressMappingHighThreshold", T::Unsigned32},
    {482, L"vpnIdentifier", T::OctetArray},
    {483, L"bgpCommunity", T::Unsigned32},
    {484, L"bgpSourceCommunityList", T::BasicList},
    {485, L"bgpDestinationCommunityList", T::BasicList},
    {486, L"bgpExtendedCommunity", T::OctetArray},
    {487, L"bgpSourceExtendedCommunityList", T::BasicList},
    {488, L"bgpDestinationExtendedCommunityList", T::BasicList},
    {489, L"bgpLargeCommunity", T::OctetArray},
    {490, L"bgpSourceLargeCommunityList", T::BasicList},
    {491, L"bgpDestinationLargeCommunityList", T::BasicList},
};

constexpr uint32_t kSharedSlot = 0xFFFF;

// Enterprise numbers that do not fit 16 bits (and 0 with the enterprise bit), numbered in the order the
// process meets them, so that their fields get ids of 32 bits that do not collide.
class EnterpriseSlots {
public:
    uint32_t SlotOf(uint32_t enterprise) {
        {
            std::shared_lock lock(m_mutex);
            auto it = m_slots.find(enterprise);
            if (it != m_slots.end())
                return it->second;
        }
        std::unique_lock lock(m_mutex);
        auto it = m_slots.find(enterprise);
        if (it != m_slots.end())
            return it->second;
        if (m_enterprises.size() >= kSharedSlot)
            return kSharedSlot;
        const uint32_t slot = static_cast<uint32_t>(m_enterprises.size());
        m_enterprises.push_back(enterprise);
        m_slots.emplace(enterprise, slot);
        return slot;
    }

    // The enterprise number of a slot; false for the shared slot and for slots not handed out.
    bool EnterpriseOf(uint32_t slot, uint32_t& enterprise) const {
        std::shared_lock lock(m_mutex);
        if (slot >= m_enterprises.size())
            return false;
        enterprise = m_enterprises[slot];
        return true;
    }

private:
    mutable std::shared_mutex m_mutex;
    std::unordered_map<uint32_t, uint32_t> m_slots;
    std::vector<uint32_t> m_enterprises;
};

EnterpriseSlots& Slots() {
    static EnterpriseSlots slots;
    return slots;
}

void AppendHexBytes(CString& out, const CByteArray& value) {
    out.reserve(out.size() + value.size() * 2);
    for (uint8_t b : value)
        tpnf::AppendHex(out, b);
}

uint64_t BigEndian(const CByteArray& value) {
    uint64_t number = 0;
    for (uint8_t b : value)
        number = (number << 8) | b;
    return number;
}

// A value by its IANA abstract data type. Integers may come in fewer bytes than their type (reduced-size
// encoding); a length no type allows renders as hexadecimal.
CString RenderByType(EIPFIXDataType type, const CByteArray& value) {
    const size_t n = value.size();
    CString text;
    switch (type) {
    case T::Unsigned8:
    case T::Unsigned16:
    case T::Unsigned32:
    case T::Unsigned64:
    case T::DateTimeSeconds:
    case T::DateTimeMilliseconds:
    case T::DateTimeMicroseconds:
    case T::DateTimeNanoseconds:
        if (n >= 1 && n <= 8) {
            // Unsigned: 2^63 and above do not fit AppendDecimal's signed argument.
            text = fmt::format(L"{}", BigEndian(value));
            return text;
        }
        break;
    case T::Signed8:
    case T::Signed16:
    case T::Signed32:
    case T::Signed64:
        if (n >= 1 && n <= 8) {
            const unsigned shift = static_cast<unsigned>(64 - 8 * n);
            tpnf::AppendDecimal(text, static_cast<int64_t>(BigEndian(value) << shift) >> shift);
            return text;
        }
        break;
    case T::Float32:
    case T::Float64:
        if (n == 4) {
            const uint32_t bits = static_cast<uint32_t>(BigEndian(value));
            float number;
            std::memcpy(&number, &bits, sizeof number);
            return fmt::format(L"{}", number);
        }
        if (n == 8) {
            const uint64_t bits = BigEndian(value);
            double number;
            std::memcpy(&number, &bits, sizeof number);
            return fmt::format(L"{}", number);
        }
        break;
    case T::Boolean:
        // RFC 7011 encodes true as 1 and false as 2.
        if (n == 1 && (value[0] == 1 || value[0] == 2))
            return value[0] == 1 ? L"true" : L"false";
        break;
    case T::MacAddress:
        if (n == 6) {
            for (size_t i = 0; i < n; ++i) {
                if (i != 0)
                    text += L'-';
                tpnf::AppendHex(text, value[i]);
            }
            return text;
        }
        break;
    case T::String:
        return tpnf::FromUtf8(std::string_view(reinterpret_cast<const char*>(value.data()), n));
    case T::IPv4Address:
        if (n == 4)
            return CNetFlowIPAddress::FormatIPv4(static_cast<uint32_t>(BigEndian(value)));
        break;
    case T::IPv6Address:
        if (n == 16) {
            char buffer[INET6_ADDRSTRLEN];
            if (inet_ntop(AF_INET6, value.data(), buffer, sizeof buffer) != nullptr)
                return CString(buffer, buffer + std::strlen(buffer));
        }
        break;
    case T::OctetArray:
    case T::BasicList:
    case T::SubTemplateList:
    case T::SubTemplateMultiList:
        break;
    }
    AppendHexBytes(text, value);
    return text;
}

} // namespace

const CIPFIXField::SElement* CIPFIXField::FindElement(int elementId) {
    auto it = std::lower_bound(std::begin(kElements), std::end(kElements), elementId,
                               [](const SElement& e, int id) { return e.id < id; });
    return it != std::end(kElements) && it->id == elementId ? &*it : nullptr;
}

uint32_t CIPFIXField::GetFieldId(bool enterpriseBit, uint32_t enterprise, int elementId) {
    const uint32_t element = static_cast<uint32_t>(elementId) & 0x7FFF;
    if (!enterpriseBit)
        return element;
    if (enterprise >= 1 && enterprise <= 0xFFFF)
        return (enterprise << 15) | element;
    return 0x80000000u | (Slots().SlotOf(enterprise) << 15) | element;
}

CString CIPFIXField::GetFieldName(uint32_t fieldId) {
    const int element = static_cast<int>(fieldId & 0x7FFF);
    if (fieldId < 0x8000) {
        CNetFlowField::Init();
        if (CNetFlowField::m_FieldNames.count(static_cast<CNetFlowField::eFields>(element)) == 0)
            if (const SElement* iana = FindElement(element))
                return iana->name;
        return CNetFlowField::GetName(static_cast<CNetFlowField::eFields>(element));
    }
    if (fieldId < 0x80000000u)
        return tpnf::FormatText(L"E%u.%d", fieldId >> 15, element);
    uint32_t enterprise = 0;
    if (!Slots().EnterpriseOf((fieldId >> 15) & 0xFFFF, enterprise))
        return tpnf::FormatText(L"E?.%d", element);
    return tpnf::FormatText(L"E%u.%d", enterprise, element);
}

bool CIPFIXField::InCatalogue() const {
    if (IsEnterprise())
        return false;
    CNetFlowField::Init();
    return CNetFlowField::m_FieldTypes.count(static_cast<CNetFlowField::eFields>(GetElementId())) != 0;
}

CString CIPFIXField::GetName() const {
    if (IsEnterprise())
        return tpnf::FormatText(L"E%u.%d", m_enterprise, GetElementId());
    return GetFieldName(static_cast<uint32_t>(GetElementId()));
}

CString CIPFIXField::GetValue() const {
    const CByteArray& value = m_field.m_value;
    if (InCatalogue()) {
        // The catalogue's readers raise on an address too short for its kind; show its bytes instead.
        const CNetFlowField::eTypes kind =
            CNetFlowField::m_FieldTypes.find(static_cast<CNetFlowField::eFields>(GetElementId()))->second;
        if ((kind == CNetFlowField::TYPE_IPV4_ADDRESS && value.size() < 4) ||
            (kind == CNetFlowField::TYPE_IPV6_ADDRESS && value.size() % 2 != 0)) {
            CString text;
            AppendHexBytes(text, value);
            return text;
        }
        return m_field.GetValue();
    }
    if (!IsEnterprise())
        if (const SElement* iana = FindElement(GetElementId()))
            return RenderByType(iana->type, value);
    CString text;
    AppendHexBytes(text, value);
    return text;
}

CString CIPFIXField::GetListedValue() const {
    if (!IsEnterprise() && GetElementId() == CNetFlowField::PROT)
        return CNetFlowSetRecord::GetListedValue(m_field);
    return GetValue();
}

CString CIPFIXField::ToString() const {
    return CNetFlowField::FormatField(GetName(), GetValue());
}
